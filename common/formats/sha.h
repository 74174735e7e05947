// sha: SHA-256 and SHA-1 digests of data that arrives in pieces.
//
//     ShaState state;
//     sha_start(&state, &SHA_256);
//     while (...)
//         sha_update(&state, data, size);
//     sha_finish(&state, digest);             // 32 bytes, or 20 for SHA_1
//
// Both process their input in blocks of 64 bytes and differ in how they process a block: with the
// processor's SHA instructions where it has them, and in plain C++ elsewhere (and always when built
// with QZM_PORTABLE_SHA). The processor is queried when the first digest is started. Nothing here
// fails. A null argument is a broken contract and ends the run unless a function says otherwise.
// The digests are those of FIPS 180-4.
#ifndef COMMON_FORMATS_SHA_H
#define COMMON_FORMATS_SHA_H

#include <cstddef>
#include <cstdint>

inline constexpr size_t SHA_BLOCK_SIZE = 64;
inline constexpr size_t SHA_MAX_WORDS = 8;

// Processes `blocks` blocks, at least one, into the state.
using ShaBlocks = void (*)(uint32_t *state, const uint8_t *data, size_t blocks);

struct ShaAlgorithm {
    uint32_t words;                  // of the state; the digest has four times as many bytes
    uint32_t initial[SHA_MAX_WORDS]; // the initial state
    ShaBlocks portable;
    ShaBlocks extensions; // with the processor's SHA instructions; null: not built
};

extern const ShaAlgorithm SHA_1;
extern const ShaAlgorithm SHA_256;

// A digest in progress.
struct ShaState {
    const ShaAlgorithm *algorithm;
    ShaBlocks take;  // one of the algorithm's two functions
    uint64_t length; // bytes so far
    uint32_t words[SHA_MAX_WORDS];
    uint8_t pending[SHA_BLOCK_SIZE]; // the bytes of an incomplete block
};

// Begins a digest with the fastest implementation available, or with the portable one.
void sha_start(ShaState *state, const ShaAlgorithm *algorithm);
void sha_startPortable(ShaState *state, const ShaAlgorithm *algorithm);

// Adds bytes. `data` may be null when there are none.
void sha_update(ShaState *state, const void *data, size_t size);

// Writes the digest. The state must then be started anew.
void sha_finish(ShaState *state, uint8_t *digest);

// Whether this build and this processor have SHA instructions.
bool sha_hasExtensions();

// The round constants of SHA-256, shared by both implementations.
inline constexpr size_t SHA256_ROUNDS = 64;
extern const uint32_t sha256_constants[SHA256_ROUNDS];

// The two implementations of either algorithm; the extensions only where sha_hasExtensions().
void sha1_blocksPortable(uint32_t *state, const uint8_t *data, size_t blocks);
void sha256_blocksPortable(uint32_t *state, const uint8_t *data, size_t blocks);
void sha1_blocksExtensions(uint32_t *state, const uint8_t *data, size_t blocks);
void sha256_blocksExtensions(uint32_t *state, const uint8_t *data, size_t blocks);

#endif
