#define MODULE "common/languages"
#include "common/text/languages.h"

#include <cstring>

#include "common/trace/qzdebug.h"

static const struct Language {
    LanguageCode code;
    const char *names;        // its names in different languages
    const char *abbreviation; // in the name of a message file
} languages[] = {
    {LANGUAGE_GERMAN, "German;Deutsch", "de"},
    {LANGUAGE_ENGLISH, "English", "en"},
    {LANGUAGE_FRENCH, "French;Francais", "fr"},
    {LANGUAGE_DEFAULT, "English", "en"},
};

static constexpr char SEPARATORS[] = ",;"; // between the names

static bool isAmong(const char *names, const char *name)
{
    const size_t length = std::strlen(name);
    while (*names != '\0') {
        const size_t here = std::strcspn(names, SEPARATORS);
        if (here == length && here != 0 && std::memcmp(names, name, length) == 0)
            return true;
        names += here;
        names += std::strspn(names, SEPARATORS);
    }
    return false;
}

uint32_t language_code(const char *name)
{
    TRACE_ENTER("name=\"%s\"", name);
    if (name == nullptr)
        return TRACE_RETURN("%u", static_cast<uint32_t>(LANGUAGE_DEFAULT));
    for (const Language &language : languages) {
        if (isAmong(language.names, name) || std::strcmp(language.abbreviation, name) == 0)
            return TRACE_RETURN("%u", static_cast<uint32_t>(language.code));
    }
    return TRACE_RETURN("%u", static_cast<uint32_t>(LANGUAGE_DEFAULT));
}

const char *language_abbreviation(uint32_t code)
{
    TRACE_ENTER("code=%u", code);
    for (const Language &language : languages) {
        if (language.code == code)
            return TRACE_RETURN("\"%s\"", language.abbreviation);
    }
    return TRACE_RETURN("\"%s\"", language_abbreviation(LANGUAGE_DEFAULT));
}
