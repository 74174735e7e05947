// The builders of the string cache: their results must read back as their inputs.
//
// The input is up to four texts, ended by line ends (the last takes the rest): a character set, a
// separator, and two texts to build from. NUL bytes become '0'.
#define MODULE "fuzz/string_builders"
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "common/base/stringcache.h"
#include "common/base/vector.h"

#define CHECK(condition)                                                                           \
    do {                                                                                           \
        if (!(condition)) {                                                                        \
            std::fprintf(stderr, "line %d: %s\n", __LINE__, #condition);                           \
            std::abort();                                                                          \
        }                                                                                          \
    } while (0)

using Texts = std::vector<std::string>;

struct Input {
    std::string set;
    std::string separator;
    std::string text;
    std::string other;
};

static Input parse(const uint8_t *data, size_t size)
{
    Input input;
    std::string *fields[] = {&input.set, &input.separator, &input.text, &input.other};
    size_t field = 0;
    for (size_t i = 0; i < size; ++i) {
        if (data[i] == '\n' && field < 3)
            ++field;
        else
            *fields[field] += data[i] != 0 ? static_cast<char>(data[i]) : '0';
    }
    return input;
}

// Interned results are kept for ever. So the texts of a long run are not interned, and each copy is
// freed here.
static std::string taken(const char *text)
{
    std::string copy = text;
    std::free(const_cast<char *>(text));
    return copy;
}

static Texts takenAll(Vector *texts)
{
    Texts copies;
    for (const char *text : vec_each<const char>(texts))
        copies.push_back(taken(text));
    vec_destroy(texts);
    return copies;
}

static bool isIn(const std::string &set, char c)
{
    return set.find(c) != std::string::npos;
}

// Removes one escape before every character of the set.
static std::string unescaped(const std::string &text, const std::string &set, char escape)
{
    std::string plain;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == escape && i + 1 < text.size() && isIn(set, text[i + 1]))
            ++i;
        plain += text[i];
    }
    return plain;
}

// An escape that is not in the set could itself come before a character of the set. So the way back
// is only unique if the set contains the escape.
static void checkEscape(const Input &in)
{
    const char escape = in.separator.empty() ? '\\' : in.separator[0];
    const std::string set = in.set + escape;
    const std::string escaped = taken(cache_escape(in.text.c_str(), set.c_str(), escape));
    CHECK(unescaped(escaped, set, escape) == in.text);
    size_t special = 0;
    for (char c : in.text)
        special += isIn(in.set, c);
    CHECK(taken(cache_escape(in.text.c_str(), in.set.c_str(), 0)).size() ==
          in.text.size() + special);
}

static void checkQuote(const Input &in)
{
    const std::string quoted = taken(cache_quote(in.text.c_str()));
    CHECK(quoted.size() >= 2 && quoted.front() == '"' && quoted.back() == '"');
    const std::string inner = quoted.substr(1, quoted.size() - 2);
    CHECK("\"" + taken(cache_escape(in.text.c_str(), "\"", 0)) + "\"" == quoted);
    for (size_t i = 0; i < inner.size(); ++i)
        CHECK(inner[i] != '"' || (i > 0 && inner[i - 1] == '\\'));
}

static Texts splitPlainly(const std::string &text, const std::string &set)
{
    Texts tokens(1);
    for (char c : text) {
        if (!isIn(set, c))
            tokens.back() += c;
        else if (!tokens.back().empty())
            tokens.emplace_back();
    }
    if (tokens.back().empty())
        tokens.pop_back();
    return tokens;
}

static std::string joined(const Texts &texts, uint32_t first, const std::string &separator)
{
    Vector *v = vec_new(MODULE, __LINE__);
    for (const std::string &text : texts)
        vec_add(v, text.c_str());
    const std::string result = taken(cache_join(v, first, separator.c_str()));
    vec_destroy(v);
    return result;
}

static void checkSplitAndJoin(const Input &in)
{
    const Texts tokens = takenAll(cache_split(in.text.c_str(), in.set.c_str()));
    CHECK(tokens == splitPlainly(in.text, in.set));
    if (in.set.empty())
        return;
    // Joined by a delimiter, they split into the same texts again.
    const std::string line = joined(tokens, 0, in.set.substr(0, 1));
    CHECK(takenAll(cache_split(line.c_str(), in.set.c_str())) == tokens);
    const Texts two = {in.text, in.other};
    CHECK(joined(two, 0, in.separator) == in.text + in.separator + in.other);
    CHECK(joined(two, 1, in.separator) == in.other);
}

static void checkTabs(const Input &in)
{
    std::string expected;
    for (char c : in.text)
        expected += c == '\t' ? "    " : std::string(1, c);
    CHECK(taken(cache_expandTabs(in.text.c_str())) == expected);
}

static void checkTrims(const Input &in)
{
    const std::string trimmed = taken(cache_trim(in.text.c_str()));
    CHECK(trimmed.empty() || (!isIn(" \t", trimmed.front()) && !isIn(" \t", trimmed.back())));
    CHECK(in.text.find(trimmed) != std::string::npos);
    CHECK(taken(cache_trim(trimmed.c_str())) == trimmed);
    const std::string line = taken(cache_trimLineEnd(in.text.c_str()));
    CHECK(in.text.compare(0, line.size(), line) == 0);
    CHECK(in.text.find_first_not_of("\r\n", line.size()) == std::string::npos);
}

static void checkPieces(const Input &in)
{
    CHECK(taken(cache_concat(in.text.c_str(), in.other.c_str())) == in.text + in.other);
    CHECK(taken(cache_sprintf("%s%s", in.text.c_str(), in.other.c_str())) == in.text + in.other);
    // A suffix that is added is the one that is removed, unless a slash hides it.
    const std::string added = taken(cache_addSuffix(in.text.c_str(), "suffix"));
    CHECK(added == in.text + ".suffix");
    CHECK(taken(cache_stripSuffix(added.c_str())) == in.text);
    CHECK(taken(cache_replaceSuffix(added.c_str(), in.other.c_str())) == in.text + "." + in.other);
    if (const char *dir = cache_dirPart(in.text.c_str()); dir != nullptr) {
        const std::string front = taken(dir) + "/";
        CHECK(in.text.compare(0, front.size(), front) == 0);
        CHECK(in.text.find('/', front.size()) == std::string::npos);
    } else {
        CHECK(!isIn(in.text, '/'));
    }
}

// The same texts with interning on: equal texts must be one pointer.
static void checkInterning(const Input &in)
{
    if (in.text.size() > 64)
        return; // interned strings are not freed
    cache_setSize(5077);
    const char *text = cache_string(in.text.c_str());
    CHECK(text == in.text);
    CHECK(cache_substring(in.text.c_str(), in.text.size()) == text);
    CHECK(cache_sprintf("%s", in.text.c_str()) == text);
    CHECK(cache_concat(in.text.c_str(), "") == text);
    cache_setSize(0);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    cache_setSize(0);
    const Input in = parse(data, size);
    checkEscape(in);
    checkQuote(in);
    checkSplitAndJoin(in);
    checkTabs(in);
    checkTrims(in);
    checkPieces(in);
    checkInterning(in);
    return 0;
}
