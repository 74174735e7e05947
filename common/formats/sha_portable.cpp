// The two digests in plain C++. The functions here are the innermost loops: they do not trace.
#include "common/formats/sha.h"

#include <bit>

static uint32_t loadBigEndian(const uint8_t *bytes)
{
    return static_cast<uint32_t>(bytes[0]) << 24 | static_cast<uint32_t>(bytes[1]) << 16 |
           static_cast<uint32_t>(bytes[2]) << 8 | bytes[3];
}

static uint32_t choose(uint32_t x, uint32_t y, uint32_t z)
{
    return z ^ (x & (y ^ z));
}

// ---- SHA-256 ----------------------------------------------------------------------------------

const uint32_t sha256_constants[SHA256_ROUNDS] = {
    0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
    0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
    0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
    0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
    0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
    0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
    0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
    0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2,
};

namespace {
// The eight words of the state by their letters, as the standard names them.
struct Words256 {
    uint32_t a, b, c, d, e, f, g, h;
};
} // namespace

// The standard's rotations by 2, 13 and 22, and by 6, 11 and 25: nested, they need no copies of x.
static inline uint32_t sigmaA(uint32_t x)
{
    return std::rotr(std::rotr(std::rotr(x, 9) ^ x, 11) ^ x, 2);
}

static inline uint32_t sigmaE(uint32_t x)
{
    return std::rotr(std::rotr(std::rotr(x, 14) ^ x, 5) ^ x, 6);
}

// The word that replaces w[i], sixteen rounds later.
static inline uint32_t expand256(const uint32_t *w, size_t i)
{
    const uint32_t early = w[(i + 1) % 16];
    const uint32_t late = w[(i + 14) % 16];
    return w[i] + w[(i + 9) % 16] + (std::rotr(early, 7) ^ std::rotr(early, 18) ^ early >> 3) +
           (std::rotr(late, 17) ^ std::rotr(late, 19) ^ late >> 10);
}

// One round. Moving every word one letter on would cost more than the arithmetic, so the caller
// renames the words instead; only d and h get new values.
[[gnu::always_inline]] static inline void round256(uint32_t a, uint32_t b, uint32_t c, uint32_t &d,
                                                   uint32_t e, uint32_t f, uint32_t g, uint32_t &h,
                                                   uint32_t wk)
{
    const uint32_t t = h + sigmaE(e) + choose(e, f, g) + wk;
    d += t;
    h = t + sigmaA(a) + ((a & b) | (c & (a | b)));
}

// Rounds `at` to `at` + 7, after which every word has its own letter again.
template <bool Expanding, size_t At>
[[gnu::always_inline]] static inline void eightRounds(Words256 &s, uint32_t *w, const uint32_t *k)
{
    const auto next = [w, k](size_t i) {
        if (Expanding)
            w[At + i] = expand256(w, At + i);
        return w[At + i] + k[At + i];
    };
    round256(s.a, s.b, s.c, s.d, s.e, s.f, s.g, s.h, next(0));
    round256(s.h, s.a, s.b, s.c, s.d, s.e, s.f, s.g, next(1));
    round256(s.g, s.h, s.a, s.b, s.c, s.d, s.e, s.f, next(2));
    round256(s.f, s.g, s.h, s.a, s.b, s.c, s.d, s.e, next(3));
    round256(s.e, s.f, s.g, s.h, s.a, s.b, s.c, s.d, next(4));
    round256(s.d, s.e, s.f, s.g, s.h, s.a, s.b, s.c, next(5));
    round256(s.c, s.d, s.e, s.f, s.g, s.h, s.a, s.b, next(6));
    round256(s.b, s.c, s.d, s.e, s.f, s.g, s.h, s.a, next(7));
}

static inline void add(uint32_t *state, const Words256 &s)
{
    const uint32_t words[] = {s.a, s.b, s.c, s.d, s.e, s.f, s.g, s.h};
    for (size_t i = 0; i < 8; ++i)
        state[i] += words[i];
}

void sha256_blocksPortable(uint32_t *state, const uint8_t *data, size_t blocks)
{
    for (; blocks != 0; --blocks, data += SHA_BLOCK_SIZE) {
        Words256 s = {state[0], state[1], state[2], state[3],
                      state[4], state[5], state[6], state[7]};
        uint32_t w[16];
        for (size_t i = 0; i < 16; ++i)
            w[i] = loadBigEndian(data + 4 * i);
        eightRounds<false, 0>(s, w, sha256_constants);
        eightRounds<false, 8>(s, w, sha256_constants);
        for (size_t i = 16; i < 64; i += 16) {
            eightRounds<true, 0>(s, w, sha256_constants + i);
            eightRounds<true, 8>(s, w, sha256_constants + i);
        }
        add(state, s);
    }
}

// ---- SHA-1 ------------------------------------------------------------------------------------

namespace {
struct Words1 {
    uint32_t a, b, c, d, e;
};
} // namespace

static inline uint32_t expand1(uint32_t *w, size_t i)
{
    w[i % 16] = std::rotl(w[(i + 13) % 16] ^ w[(i + 8) % 16] ^ w[(i + 2) % 16] ^ w[i % 16], 1);
    return w[i % 16];
}

static inline uint32_t parity(uint32_t x, uint32_t y, uint32_t z)
{
    return x ^ y ^ z;
}

static inline uint32_t majority(uint32_t x, uint32_t y, uint32_t z)
{
    return (x & y) | (z & (x | y));
}

// The twenty rounds from `first` on, which share one function of three words and one constant.
template <class Mix>
static inline void twentyRounds(Words1 &s, uint32_t *w, size_t first, uint32_t k, Mix mix)
{
    for (size_t i = first; i < first + 20; ++i) {
        const uint32_t word = i < 16 ? w[i] : expand1(w, i);
        const uint32_t t = std::rotl(s.a, 5) + mix(s.b, s.c, s.d) + s.e + k + word;
        s = {t, s.a, std::rotl(s.b, 30), s.c, s.d};
    }
}

void sha1_blocksPortable(uint32_t *state, const uint8_t *data, size_t blocks)
{
    for (; blocks != 0; --blocks, data += SHA_BLOCK_SIZE) {
        Words1 s = {state[0], state[1], state[2], state[3], state[4]};
        uint32_t w[16];
        for (size_t i = 0; i < 16; ++i)
            w[i] = loadBigEndian(data + 4 * i);
        twentyRounds(s, w, 0, 0x5a827999, choose);
        twentyRounds(s, w, 20, 0x6ed9eba1, parity);
        twentyRounds(s, w, 40, 0x8f1bbcdc, majority);
        twentyRounds(s, w, 60, 0xca62c1d6, parity);
        state[0] += s.a;
        state[1] += s.b;
        state[2] += s.c;
        state[3] += s.d;
        state[4] += s.e;
    }
}
