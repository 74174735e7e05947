// sha: the digests SHA-256 and SHA-1 of bytes that come piece by piece.
//
//     ShaState state;
//     sha_start(&state, &SHA_256);
//     while (...)
//         sha_update(&state, data, size);
//     sha_finish(&state, digest);             // 32 bytes, or 20 for SHA_1
//
// Both take their input in blocks of 64 bytes and differ in what they do with a block. That is
// done by the processor's own instructions where it has them, and in plain C++ elsewhere (and
// always when built with QZM_PORTABLE_SHA). The processor is asked when the first digest is
// started. Nothing here fails. A null argument is a broken contract and ends the run unless a
// function says otherwise. The digests are those of FIPS 180-4.
#ifndef COMMON_FORMATS_SHA_H
#define COMMON_FORMATS_SHA_H

#include <cstddef>
#include <cstdint>

inline constexpr size_t SHA_BLOCK_SIZE = 64;
inline constexpr size_t SHA_MAX_WORDS = 8;

// Takes `blocks` blocks, at least one, into the state.
using ShaBlocks = void (*)(uint32_t *state, const uint8_t *data, size_t blocks);

struct ShaAlgorithm {
    uint32_t words;                  // of the state; the digest has four times as many bytes
    uint32_t initial[SHA_MAX_WORDS]; // the state in the beginning
    ShaBlocks portable;              //
    ShaBlocks extensions;            // with the processor's SHA instructions; null: not built
};

extern const ShaAlgorithm SHA_1;
extern const ShaAlgorithm SHA_256;

// A digest being made.
struct ShaState {
    const ShaAlgorithm *algorithm;
    ShaBlocks take;                  // one of the algorithm's two
    uint64_t length;                 // bytes so far
    uint32_t words[SHA_MAX_WORDS];   //
    uint8_t pending[SHA_BLOCK_SIZE]; // the bytes that do not make a block yet
};

// Begins a digest with the fastest way there is, or with the portable one.
void sha_start(ShaState *state, const ShaAlgorithm *algorithm);
void sha_startPortable(ShaState *state, const ShaAlgorithm *algorithm);

// Adds bytes. `data` may be null when there are none.
void sha_update(ShaState *state, const void *data, size_t size);

// Writes the digest. The state is used up.
void sha_finish(ShaState *state, uint8_t *digest);

// Whether this build and this processor have SHA instructions.
bool sha_hasExtensions();

// The constants of the rounds of SHA-256, the same for both ways.
inline constexpr size_t SHA256_ROUNDS = 64;
extern const uint32_t sha256_constants[SHA256_ROUNDS];

// The two ways of either algorithm; the extensions only where sha_hasExtensions().
void sha1_blocksPortable(uint32_t *state, const uint8_t *data, size_t blocks);
void sha256_blocksPortable(uint32_t *state, const uint8_t *data, size_t blocks);
void sha1_blocksExtensions(uint32_t *state, const uint8_t *data, size_t blocks);
void sha256_blocksExtensions(uint32_t *state, const uint8_t *data, size_t blocks);

#endif
