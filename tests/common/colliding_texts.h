// Texts that all have one hash_string(), as somebody may write them on purpose.
#ifndef TESTS_COMMON_COLLIDING_TEXTS_H
#define TESTS_COMMON_COLLIDING_TEXTS_H

#include <string>
#include <vector>

// `count` different texts: in each, every pair of characters is one of two that add the same to the
// hash (33 x 'A' + 'b' is 33 x 'B' + 'A').
inline std::vector<std::string> collidingTexts(unsigned count)
{
    std::vector<std::string> texts;
    for (unsigned number = 0; number < count; ++number) {
        std::string text;
        for (unsigned bits = number, pairs = 0; pairs < 17; ++pairs, bits /= 2)
            text += bits % 2 != 0 ? "BA" : "Ab";
        texts.push_back(text);
    }
    return texts;
}

#endif
