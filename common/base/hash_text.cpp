#define MODULE "common/hash"
#include <cstring>

#include "common/base/hash_internal.h"

static constexpr uint32_t SEED = 5381;

static uint32_t addByte(uint32_t hash, uint8_t c)
{
    return hash * 33 + static_cast<uint32_t>(static_cast<int8_t>(c));
}

uint32_t hash_string(const void *text)
{
    uint32_t hash = SEED;
    for (const auto *c = static_cast<const uint8_t *>(text); *c != 0; ++c)
        hash = addByte(hash, *c);
    return hash;
}

uint32_t hash_stringNoCase(const void *text)
{
    uint32_t hash = SEED;
    for (const auto *c = static_cast<const uint8_t *>(text); *c != 0; ++c)
        hash = addByte(hash, hash_foldCase(*c));
    return hash;
}

int hash_stringCompare(const void *a, const void *b)
{
    const auto *left = static_cast<const uint8_t *>(a);
    const auto *right = static_cast<const uint8_t *>(b);
    // The texts are nearly always equal, and the library compares many bytes at a time.
    if (std::strcmp(static_cast<const char *>(a), static_cast<const char *>(b)) == 0)
        return 0;
    while (*left == *right) {
        ++left;
        ++right;
    }
    return *left - *right;
}

int hash_stringCompareNoCase(const void *a, const void *b)
{
    const auto *left = static_cast<const uint8_t *>(a);
    const auto *right = static_cast<const uint8_t *>(b);
    while (*left != 0 && hash_foldCase(*left) == hash_foldCase(*right)) {
        ++left;
        ++right;
    }
    return hash_foldCase(*left) - hash_foldCase(*right);
}
