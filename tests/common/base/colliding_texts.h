// Texts that all have the same hash, as an attacker may write them.
#ifndef TESTS_COMMON_BASE_COLLIDING_TEXTS_H
#define TESTS_COMMON_BASE_COLLIDING_TEXTS_H

#include <string>
#include <vector>

// Two pairs of characters that add the same to hash_string() (33 x 'A' + 'b' is 33 x 'B' + 'A'),
// and two pairs that also do so with hash_stringNoCase().
inline constexpr const char *COLLIDING[] = {"Ab", "BA"};
inline constexpr const char *COLLIDING_NO_CASE[] = {"aa", "b@"};

// `count` different texts made of such pairs.
inline std::vector<std::string> collidingTexts(unsigned count,
                                               const char *const (&pairs)[2] = COLLIDING)
{
    std::vector<std::string> texts;
    for (unsigned number = 0; number < count; ++number) {
        std::string text;
        for (unsigned bits = number, length = 0; length < 17; ++length, bits /= 2)
            text += pairs[bits % 2];
        texts.push_back(text);
    }
    return texts;
}

#endif
