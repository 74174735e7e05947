// Integers of a fixed width and byte order in an open stream.
//
//     if (osdep_readLEU32(file, &count) != 1)
//         ...
#ifndef COMMON_TEXT_OSDEP_BYTES_H
#define COMMON_TEXT_OSDEP_BYTES_H

#include <cstdint>
#include <cstdio>

//
// A null stream or value is a broken contract, whose report names the function. The little-endian
// and 8-bit readers and every writer return the number of items moved (1 or 0). After a failed
// big-endian read the value is unspecified; the stream's state shows the failure.

size_t osdep_readU8(FILE *f, uint8_t *val);
size_t osdep_readLEU16(FILE *f, uint16_t *val);
size_t osdep_readLEU32(FILE *f, uint32_t *val);
size_t osdep_readLEU64(FILE *f, uint64_t *val);
void osdep_readBEU16(FILE *f, uint16_t *val);
void osdep_readBEU32(FILE *f, uint32_t *val);
void osdep_readBEU64(FILE *f, uint64_t *val);

size_t osdep_writeU8(FILE *f, uint8_t val);
size_t osdep_writeLEU16(FILE *f, uint16_t val);
size_t osdep_writeLEU32(FILE *f, uint32_t val);
size_t osdep_writeLEU64(FILE *f, uint64_t val);
size_t osdep_writeBEU16(FILE *f, uint16_t val);
size_t osdep_writeBEU32(FILE *f, uint32_t val);
size_t osdep_writeBEU64(FILE *f, uint64_t val);

// The little-endian number at `bytes` in memory.
inline uint16_t osdep_getLEU16(const uint8_t *bytes)
{
    return static_cast<uint16_t>(bytes[0] | bytes[1] << 8);
}

inline uint32_t osdep_getLEU32(const uint8_t *bytes)
{
    return osdep_getLEU16(bytes) | static_cast<uint32_t>(osdep_getLEU16(bytes + 2)) << 16;
}

inline uint64_t osdep_getLEU64(const uint8_t *bytes)
{
    return osdep_getLEU32(bytes) | static_cast<uint64_t>(osdep_getLEU32(bytes + 4)) << 32;
}

#endif
