// Small tests on texts.
#ifndef COMMON_BASE_TEXTS_H
#define COMMON_BASE_TEXTS_H

#include <cstring>

// Whether `text` begins with `prefix`. Neither may be null.
inline bool text_hasPrefix(const char *text, const char *prefix)
{
    return std::strncmp(text, prefix, std::strlen(prefix)) == 0;
}

// Whether it begins with one of `prefixes`, a null-terminated list.
inline bool text_hasAnyPrefix(const char *text, const char *const *prefixes)
{
    for (; *prefixes != nullptr; ++prefixes)
        if (text_hasPrefix(text, *prefixes))
            return true;
    return false;
}

#endif
