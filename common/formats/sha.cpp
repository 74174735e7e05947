#define MODULE "common/sha"
#include "common/formats/sha.h"

#include <cstring>

#include "common/base/exitpath.h"
#include "common/trace/qzdebug.h"

#if defined(__x86_64__) && !defined(QZM_PORTABLE_SHA)
#include <cpuid.h>
#define EXTENSIONS(function) function
#else
#define EXTENSIONS(function) nullptr
#endif

const ShaAlgorithm SHA_1 = {
    5,
    {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476, 0xc3d2e1f0},
    sha1_blocksPortable,
    EXTENSIONS(sha1_blocksExtensions),
};

const ShaAlgorithm SHA_256 = {
    8,
    {0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a, 0x510e527f, 0x9b05688c, 0x1f83d9ab,
     0x5be0cd19},
    sha256_blocksPortable,
    EXTENSIONS(sha256_blocksExtensions),
};

// ---- The processor ----------------------------------------------------------------------------

static bool processorHasExtensions()
{
    TRACE_ENTER();
    bool result = false;
#if defined(__x86_64__) && !defined(QZM_PORTABLE_SHA)
    static constexpr unsigned shaInLeaf7 = 1U << 29;
    unsigned a = 0;
    unsigned b = 0;
    unsigned c = 0;
    unsigned d = 0;
    result = __get_cpuid(1, &a, &b, &c, &d) != 0 && (c & bit_SSSE3) != 0 && (c & bit_SSE4_1) != 0 &&
             __get_cpuid_count(7, 0, &a, &b, &c, &d) != 0 && (b & shaInLeaf7) != 0;
#endif
    return TRACE_RETURN("%d", result);
}

bool sha_hasExtensions()
{
    TRACE_ENTER();
    enum Answer : uint8_t { NOT_ASKED, NO, YES };
    static Answer s_answer = NOT_ASKED;
    if (s_answer == NOT_ASKED)
        s_answer = processorHasExtensions() ? YES : NO;
    return TRACE_RETURN("%d", s_answer == YES);
}

// ---- A digest ---------------------------------------------------------------------------------

static void start(ShaState *state, const ShaAlgorithm *algorithm, bool extensions)
{
    ASSERT_AT(10, state != NULL);
    ASSERT_AT(11, algorithm != NULL);
    state->algorithm = algorithm;
    state->take = extensions ? algorithm->extensions : algorithm->portable;
    state->length = 0;
    std::memcpy(state->words, algorithm->initial, sizeof state->words);
}

void sha_start(ShaState *state, const ShaAlgorithm *algorithm)
{
    TRACE_ENTER("algorithm=%p", static_cast<const void *>(algorithm));
    start(state, algorithm, sha_hasExtensions());
}

void sha_startPortable(ShaState *state, const ShaAlgorithm *algorithm)
{
    TRACE_ENTER("algorithm=%p", static_cast<const void *>(algorithm));
    start(state, algorithm, false);
}

void sha_update(ShaState *state, const void *data, size_t size)
{
    ASSERT_AT(20, state != NULL);
    if (size == 0)
        return;
    ASSERT_AT(21, data != NULL);
    const auto *bytes = static_cast<const uint8_t *>(data);
    const size_t held = state->length % SHA_BLOCK_SIZE;
    state->length += size;
    if (held != 0) {
        const size_t missing = SHA_BLOCK_SIZE - held;
        const size_t added = size < missing ? size : missing;
        std::memcpy(state->pending + held, bytes, added);
        if (added < missing)
            return;
        state->take(state->words, state->pending, 1);
        bytes += added;
        size -= added;
    }
    if (size >= SHA_BLOCK_SIZE)
        state->take(state->words, bytes, size / SHA_BLOCK_SIZE);
    const size_t rest = size % SHA_BLOCK_SIZE;
    std::memcpy(state->pending, bytes + (size - rest), rest);
}

static void storeBigEndian(uint8_t *bytes, uint64_t value, size_t size)
{
    for (size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<uint8_t>(value >> (8 * (size - 1 - i)));
}

void sha_finish(ShaState *state, uint8_t *digest)
{
    TRACE_ENTER("state=%p", static_cast<void *>(state));
    ASSERT_AT(30, state != NULL);
    ASSERT_AT(31, digest != NULL);
    static constexpr size_t lengthSize = 8;
    uint8_t padding[SHA_BLOCK_SIZE + lengthSize] = {0x80};
    const size_t held = state->length % SHA_BLOCK_SIZE;
    const size_t room = SHA_BLOCK_SIZE - lengthSize;
    const size_t zerosEnd = held < room ? room - held : SHA_BLOCK_SIZE + room - held;
    storeBigEndian(padding + zerosEnd, state->length * 8, lengthSize);
    sha_update(state, padding, zerosEnd + lengthSize);
    for (size_t i = 0; i < state->algorithm->words; ++i)
        storeBigEndian(digest + 4 * i, state->words[i], 4);
}
