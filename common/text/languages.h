// The languages of message files: their names, their codes, and the two letters for them in a file
// name ("en_msgs.txt").
//
//     const char *letters = language_abbreviation(language_code("Deutsch"));     // "de"
#ifndef COMMON_TEXT_LANGUAGES_H
#define COMMON_TEXT_LANGUAGES_H

#include <cstdint>

enum LanguageCode : uint32_t {
    LANGUAGE_GERMAN = 7,
    LANGUAGE_ENGLISH = 9,
    LANGUAGE_FRENCH = 12,
    LANGUAGE_DEFAULT = 255, // English
};

// The code of a language's name or abbreviation, spelled exactly as in the table; LANGUAGE_DEFAULT
// for any other text and for null.
uint32_t language_code(const char *name);

// The abbreviation of a code, or that of English for a code that is not in the table. Never null.
const char *language_abbreviation(uint32_t code);

#endif
