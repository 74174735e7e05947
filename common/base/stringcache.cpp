#define MODULE "common/stringcache"
#include "common/base/stringcache.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "common/base/exitpath.h"
#include "common/base/hash_internal.h"
#include "common/base/memory.h"
#include "common/base/vector.h"

static constexpr size_t SMALLEST_BUFFER = 4096;
static constexpr size_t TEXT_BLOCK = 2048; // interned texts are packed into blocks of this size
static constexpr size_t LARGEST_PACKED = TEXT_BLOCK / 8;
static constexpr size_t BLANKS_PER_TAB = 4;

static HashTable *s_table;
static uint32_t s_size = 5077;
static uint32_t s_limit;
static uint32_t s_cached; // strings added so far under the limit
static char *s_buffer;    // the scratch buffer every builder works in
static size_t s_bufferSize;
static char *s_block; // room for the next interned texts
static size_t s_blockLeft;

// ---- Interning --------------------------------------------------------------------------------

void cache_setSize(uint32_t buckets)
{
    s_size = buckets;
}

void cache_setLimit(uint32_t count)
{
    s_limit = count;
}

// A copy that lives to the end of the run. Packing saves an allocation per text.
static char *packedCopy(const char *text, size_t length)
{
    const size_t need = length + 1;
    if (need > LARGEST_PACKED)
        return xstrndup_must(text, length);
    if (need > s_blockLeft) {
        s_block = static_cast<char *>(xmalloc_must(TEXT_BLOCK));
        s_blockLeft = TEXT_BLOCK;
    }
    char *copy = s_block;
    std::memcpy(copy, text, length); // the block came zeroed
    s_block += need;
    s_blockLeft -= need;
    return copy;
}

// Interns `text` of the given length. `owned` (or null) is the same text as a heap string that is
// taken over when there is no equal one.
static const char *intern(const char *text, size_t length, char *owned)
{
    if (s_size == 0)
        return owned != nullptr ? owned : xstrndup_must(text, length);
    if (s_table == nullptr)
        s_table = hash_new_func(s_size, hash_string, hash_stringCompare, MODULE, 85);
    const HashPlace place = hash_locate(s_table, text, hash_string(text));
    if (*place.link != nullptr)
        return static_cast<const char *>((*place.link)->value);
    if (s_limit != 0 && s_limit < s_cached)
        return owned != nullptr ? owned : xstrndup_must(text, length);
    ++s_cached;
    const char *kept = owned != nullptr ? owned : packedCopy(text, length);
    hash_insertAt(s_table, place, kept, kept, MODULE, 98);
    return kept;
}

const char *cache_string(const char *text)
{
    return text != nullptr ? intern(text, std::strlen(text), nullptr) : nullptr;
}

const char *cache_adopt(char *text)
{
    if (text == nullptr)
        return nullptr;
    const char *kept = intern(text, std::strlen(text), text);
    if (kept != text)
        std::free(text);
    return kept;
}

// ---- The scratch buffer -----------------------------------------------------------------------

static void replaceBuffer(size_t wanted)
{
    const size_t size = wanted > SMALLEST_BUFFER ? wanted : SMALLEST_BUFFER;
    std::free(s_buffer);
    s_buffer = static_cast<char *>(xmalloc_must(size));
    s_bufferSize = size;
}

// The buffer, with room for a text of `length` and its terminator.
static char *scratch(size_t length)
{
    const size_t need = length + 1;
    if (need > s_bufferSize)
        replaceBuffer(need * 2);
    return s_buffer;
}

// Ends the text that fills the buffer up to `end` and interns it.
static const char *internScratch(char *end)
{
    *end = '\0';
    return intern(s_buffer, static_cast<size_t>(end - s_buffer), nullptr);
}

static char *put(char *to, const char *text, size_t length)
{
    std::memcpy(to, text, length);
    return to + length;
}

const char *cache_substring(const char *text, size_t length)
{
    if (const void *end = std::memchr(text, '\0', length); end != nullptr)
        length = static_cast<size_t>(static_cast<const char *>(end) - text);
    return internScratch(put(scratch(length), text, length));
}

const char *cache_concat(const char *a, const char *b)
{
    if (a == nullptr)
        return b;
    if (b == nullptr)
        return a;
    const size_t lengthA = std::strlen(a);
    const size_t lengthB = std::strlen(b);
    char *to = scratch(lengthA + lengthB);
    return internScratch(put(put(to, a, lengthA), b, lengthB));
}

// ---- Formatting -------------------------------------------------------------------------------

[[noreturn, gnu::cold]] static void formatFailed()
{
    std::fputs("vsnprintf failed in a mysterious way\n", stderr);
    std::abort();
}

const char *cache_vsprintf(const char *format, va_list values)
{
    const size_t formatLength = std::strlen(format);
    if (formatLength * 10 > s_bufferSize || s_buffer == nullptr)
        replaceBuffer(formatLength * 20);
    va_list again;
    va_copy(again, values);
    int length = std::vsnprintf(s_buffer, s_bufferSize, format, values);
    if (length >= 0 && static_cast<size_t>(length) >= s_bufferSize) {
        replaceBuffer((static_cast<size_t>(length) + 1) * 2);
        length = std::vsnprintf(s_buffer, s_bufferSize, format, again);
    }
    va_end(again);
    if (length < 0 || static_cast<size_t>(length) >= s_bufferSize)
        formatFailed();
    // Measured again: a "%c" may have written a NUL that ends the text early.
    return intern(s_buffer, std::strlen(s_buffer), nullptr);
}

const char *cache_sprintf(const char *format, ...)
{
    va_list values;
    va_start(values, format);
    const char *text = cache_vsprintf(format, values);
    va_end(values);
    return text;
}

const char *cache_expandTabs(const char *text)
{
    size_t length = 0;
    for (const char *c = text; *c != '\0'; ++c)
        length += *c == '\t' ? BLANKS_PER_TAB : 1;
    char *to = scratch(length);
    for (const char *c = text; *c != '\0'; ++c) {
        if (*c == '\t')
            to = put(to, "    ", BLANKS_PER_TAB);
        else
            *to++ = *c;
    }
    return internScratch(to);
}

const char *cache_vsprintfTabs(const char *format, va_list values)
{
    return cache_expandTabs(cache_vsprintf(format, values));
}

const char *cache_sprintfTabs(const char *format, ...)
{
    va_list values;
    va_start(values, format);
    const char *text = cache_vsprintfTabs(format, values);
    va_end(values);
    return text;
}

// ---- Escaping and folding ---------------------------------------------------------------------

namespace {
// A set of characters; the terminator is never in it.
struct CharacterSet {
    uint32_t bits[8];
};
} // namespace

static CharacterSet setOf(const char *characters)
{
    CharacterSet set = {};
    for (; *characters != '\0'; ++characters) {
        const auto c = static_cast<uint8_t>(*characters);
        set.bits[c / 32] |= uint32_t{1} << (c % 32);
    }
    return set;
}

static bool isIn(const CharacterSet *set, char character)
{
    const auto c = static_cast<uint8_t>(character);
    return (set->bits[c / 32] >> (c % 32) & 1) != 0;
}

static size_t countIn(const CharacterSet *set, const char *text)
{
    size_t count = 0;
    for (; *text != '\0'; ++text)
        count += isIn(set, *text);
    return count;
}

static char *putEscaped(char *to, const char *text, const CharacterSet *set, char escape)
{
    for (; *text != '\0'; ++text) {
        if (isIn(set, *text))
            *to++ = escape;
        *to++ = *text;
    }
    return to;
}

const char *cache_escape(const char *text, const char *set, char escape)
{
    const CharacterSet special = setOf(set);
    const size_t found = countIn(&special, text);
    if (found == 0)
        return cache_string(text);
    const size_t cnt = std::strlen(text) + found;
    char *buf = scratch(cnt);
    char *xp = putEscaped(buf, text, &special, escape != '\0' ? escape : '\\');
    ASSERT_TEXT_AT(577, xp == buf + cnt, "xp == buf+cnt");
    return internScratch(xp);
}

const char *cache_quote(const char *text)
{
    const CharacterSet special = setOf("\"");
    char *to = scratch(std::strlen(text) + countIn(&special, text) + 2);
    *to++ = '"';
    to = putEscaped(to, text, &special, '\\');
    *to++ = '"';
    return internScratch(to);
}

// Interns `text` with every character from `first` to `last` moved by `offset`. Only ASCII letters
// are folded, whatever the locale.
static const char *fold(const char *text, char first, char last, int offset)
{
    char *to = scratch(std::strlen(text));
    for (; *text != '\0'; ++text) {
        const bool folds = *text >= first && *text <= last;
        *to++ = folds ? static_cast<char>(*text + offset) : *text;
    }
    return internScratch(to);
}

const char *cache_lower(const char *text)
{
    return fold(text, 'A', 'Z', 'a' - 'A');
}

const char *cache_upper(const char *text)
{
    return fold(text, 'a', 'z', 'A' - 'a');
}

// ---- Splitting, joining, trimming -------------------------------------------------------------

Vector *cache_split(const char *text, const char *delimiters)
{
    const CharacterSet set = setOf(delimiters);
    Vector *tokens = vec_new(MODULE, 610);
    for (;;) {
        while (isIn(&set, *text))
            ++text;
        const char *start = text;
        while (*text != '\0' && !isIn(&set, *text))
            ++text;
        if (text == start)
            return tokens;
        vec_add(tokens, cache_substring(start, static_cast<size_t>(text - start)));
    }
}

static size_t joinedLength(Vector *texts, uint32_t first, size_t separatorLength)
{
    size_t length = 0;
    for (uint32_t i = first; i < vec_size(texts); ++i) {
        length += std::strlen(static_cast<const char *>(vec_elementAt(texts, i)));
        length += i != first ? separatorLength : 0;
    }
    return length;
}

const char *cache_join(Vector *texts, uint32_t first, const char *separator)
{
    const size_t separatorLength = std::strlen(separator);
    char *to = scratch(joinedLength(texts, first, separatorLength));
    for (uint32_t i = first; i < vec_size(texts); ++i) {
        const char *text = static_cast<const char *>(vec_elementAt(texts, i));
        if (i != first)
            to = put(to, separator, separatorLength);
        to = put(to, text, std::strlen(text));
    }
    return internScratch(to);
}

// The length of `text` without the characters of `set` at its end.
static size_t trimmedLength(const char *text, const CharacterSet *set)
{
    size_t length = std::strlen(text);
    while (length != 0 && isIn(set, text[length - 1]))
        --length;
    return length;
}

const char *cache_trim(const char *text)
{
    const CharacterSet blanks = setOf(" \t");
    while (isIn(&blanks, *text))
        ++text;
    return cache_substring(text, trimmedLength(text, &blanks));
}

const char *cache_trimLineEnd(const char *text)
{
    const CharacterSet lineEnds = setOf("\r\n");
    return cache_substring(text, trimmedLength(text, &lineEnds));
}

const char *cache_separators(const char *text, char separator)
{
    char *to = scratch(std::strlen(text));
    for (; *text != '\0'; ++text)
        *to++ = *text == '/' || *text == '\\' ? separator : *text;
    return internScratch(to);
}

// ---- Suffixes and directories -----------------------------------------------------------------

// Interns the first `length` bytes of `name`, a ".", and `suffix`.
static const char *withSuffix(const char *name, size_t length, const char *suffix)
{
    const size_t suffixLength = std::strlen(suffix);
    char *to = put(scratch(length + 1 + suffixLength), name, length);
    *to++ = '.';
    return internScratch(put(to, suffix, suffixLength));
}

const char *cache_replaceSuffix(const char *name, const char *suffix)
{
    const char *dot = std::strrchr(name, '.');
    const size_t length = dot != nullptr ? static_cast<size_t>(dot - name) : std::strlen(name);
    return withSuffix(name, length, suffix);
}

const char *cache_addSuffix(const char *name, const char *suffix)
{
    return withSuffix(name, std::strlen(name), *suffix == '.' ? suffix + 1 : suffix);
}

const char *cache_stripSuffix(const char *name)
{
    const char *dot = std::strrchr(name, '.');
    if (dot == nullptr || std::strchr(dot, '/') != nullptr)
        return cache_string(name);
    return cache_substring(name, static_cast<size_t>(dot - name));
}

const char *cache_dirPart(const char *path)
{
    const char *slash = path != nullptr ? std::strrchr(path, '/') : nullptr;
    return slash != nullptr ? cache_substring(path, static_cast<size_t>(slash - path)) : nullptr;
}
