// The two digests with the SHA instructions of x86 processors. The functions here are the innermost
// loops: they do not trace. Their callers have checked sha_hasExtensions().
#include "common/formats/sha.h"

#if defined(__x86_64__) && !defined(QZM_PORTABLE_SHA)

#include <bit>

#include <immintrin.h>

#define SHA_TARGET [[gnu::target("sha,sse4.1,ssse3")]]

namespace {
// Sixteen words of the schedule; those of the next four rounds are in `first`.
struct Schedule {
    __m128i first, second, third, fourth;
};
} // namespace

SHA_TARGET static inline __m128i load(const uint32_t *words)
{
    return _mm_loadu_si128(reinterpret_cast<const __m128i *>(words));
}

SHA_TARGET static inline void store(uint32_t *words, __m128i value)
{
    _mm_storeu_si128(reinterpret_cast<__m128i *>(words), value);
}

// A block as four vectors, with their bytes arranged by `order`.
SHA_TARGET static inline Schedule loadBlock(const uint8_t *data, __m128i order)
{
    const auto *block = reinterpret_cast<const __m128i *>(data);
    return {_mm_shuffle_epi8(_mm_loadu_si128(block), order),
            _mm_shuffle_epi8(_mm_loadu_si128(block + 1), order),
            _mm_shuffle_epi8(_mm_loadu_si128(block + 2), order),
            _mm_shuffle_epi8(_mm_loadu_si128(block + 3), order)};
}

// ---- SHA-256 ----------------------------------------------------------------------------------

// Moves the schedule four words on.
SHA_TARGET static inline void advance256(Schedule &w)
{
    const __m128i seventh = _mm_alignr_epi8(w.fourth, w.third, 4);
    const __m128i sum = _mm_add_epi32(_mm_sha256msg1_epu32(w.first, w.second), seventh);
    w = {w.second, w.third, w.fourth, _mm_sha256msg2_epu32(sum, w.fourth)};
}

SHA_TARGET void sha256_blocksExtensions(uint32_t *state, const uint8_t *data, size_t blocks)
{
    const __m128i order = _mm_set_epi64x(0x0c0d0e0f08090a0b, 0x0405060700010203);
    // The instructions expect the words as ABEF and CDGH, highest first.
    const __m128i cdab = _mm_shuffle_epi32(load(state), 0xB1);
    const __m128i efgh = _mm_shuffle_epi32(load(state + 4), 0x1B);
    __m128i abef = _mm_alignr_epi8(cdab, efgh, 8);
    __m128i cdgh = _mm_blend_epi16(efgh, cdab, 0xF0);
    for (; blocks != 0; --blocks, data += SHA_BLOCK_SIZE) {
        const __m128i oldAbef = abef;
        const __m128i oldCdgh = cdgh;
        Schedule w = loadBlock(data, order);
        for (size_t i = 0; i < 64; i += 4) {
            const __m128i wk = _mm_add_epi32(w.first, load(sha256_constants + i));
            cdgh = _mm_sha256rnds2_epu32(cdgh, abef, wk);
            abef = _mm_sha256rnds2_epu32(abef, cdgh, _mm_shuffle_epi32(wk, 0x0E));
            advance256(w); // useless in the last four turns, but cheaper than a test
        }
        abef = _mm_add_epi32(abef, oldAbef);
        cdgh = _mm_add_epi32(cdgh, oldCdgh);
    }
    const __m128i feba = _mm_shuffle_epi32(abef, 0x1B);
    const __m128i dchg = _mm_shuffle_epi32(cdgh, 0xB1);
    store(state, _mm_blend_epi16(feba, dchg, 0xF0));
    store(state + 4, _mm_alignr_epi8(dchg, feba, 8));
}

// ---- SHA-1 ------------------------------------------------------------------------------------

namespace {
// The words A to D, highest first, and the source of E: A four rounds ago, in the highest word.
struct Words1 {
    __m128i abcd, before;
};
} // namespace

SHA_TARGET static inline void advance1(Schedule &w)
{
    const __m128i sum = _mm_xor_si128(_mm_sha1msg1_epu32(w.first, w.second), w.third);
    w = {w.second, w.third, w.fourth, _mm_sha1msg2_epu32(sum, w.fourth)};
}

// Twenty rounds with the function and constant of number `Kind`, 0 to 3.
template <int Kind> SHA_TARGET static inline void twentyRounds(Words1 &s, Schedule &w)
{
    for (int i = 0; i < 20; i += 4) {
        const __m128i words = _mm_sha1nexte_epu32(s.before, w.first);
        s = {_mm_sha1rnds4_epu32(s.abcd, words, Kind), s.abcd};
        advance1(w);
    }
}

static __m128i inHighest(uint32_t word)
{
    return _mm_set_epi32(std::bit_cast<int>(word), 0, 0, 0);
}

SHA_TARGET void sha1_blocksExtensions(uint32_t *state, const uint8_t *data, size_t blocks)
{
    const __m128i order = _mm_set_epi64x(0x0001020304050607, 0x08090a0b0c0d0e0f);
    __m128i abcd = _mm_shuffle_epi32(load(state), 0x1B);
    uint32_t e = state[4];
    for (; blocks != 0; --blocks, data += SHA_BLOCK_SIZE) {
        // The instruction rotates the word added for E by 30 bits.
        Words1 s = {abcd, inHighest(std::rotl(e, 2))};
        Schedule w = loadBlock(data, order);
        twentyRounds<0>(s, w);
        twentyRounds<1>(s, w);
        twentyRounds<2>(s, w);
        twentyRounds<3>(s, w);
        abcd = _mm_add_epi32(abcd, s.abcd);
        const __m128i last = _mm_sha1nexte_epu32(s.before, inHighest(e));
        e = static_cast<uint32_t>(_mm_extract_epi32(last, 3));
    }
    store(state, _mm_shuffle_epi32(abcd, 0x1B));
    state[4] = e;
}

#endif
