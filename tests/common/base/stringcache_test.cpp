#define MODULE "tests/stringcache"
#include "common/base/stringcache.h"

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "common/base/hash.h"
#include "common/base/memory.h"
#include "common/base/vector.h"
#include "common/trace/container_report.h"
#include "tests/common/base/colliding_texts.h"
#include "tests/common/report_lines.h"

using Texts = std::vector<std::string>;

static Texts taken(Vector *v)
{
    Texts texts;
    for (const char *text : vec_each<const char>(v)) {
        EXPECT_EQ(text, cache_string(text)); // each one is interned
        texts.push_back(text);
    }
    vec_destroy(v);
    return texts;
}

// The text of a builder's result, which must be the interned one.
static std::string interned(const char *text)
{
    EXPECT_EQ(text, cache_string(std::string(text).c_str()));
    return text;
}

static char *heapCopy(const char *text)
{
    return xstrcat(text, "");
}

// ---- Interning --------------------------------------------------------------------------------

TEST(StringCache, EqualTextsAreTheSamePointer)
{
    const std::string text = "interned text";
    const char *first = cache_string(text.c_str());
    EXPECT_STREQ(first, "interned text");
    EXPECT_NE(first, text.c_str());
    EXPECT_EQ(cache_string("interned text"), first);
    EXPECT_NE(cache_string("interned tex"), first);
    EXPECT_EQ(cache_string(nullptr), nullptr);
}

TEST(StringCache, TwoFormattedTextsThatAreEqualAreTheSamePointer)
{
    EXPECT_EQ(cache_sprintf("%d-%s", 12, "x"), cache_sprintf("%s-x", "12"));
}

TEST(StringCache, AnAdoptedTextIsKeptWithoutACopy)
{
    char *text = heapCopy("adopted for the first time");
    EXPECT_EQ(cache_adopt(text), text);
    EXPECT_EQ(cache_string("adopted for the first time"), text);
    EXPECT_EQ(cache_adopt(text), text); // already interned
    EXPECT_EQ(cache_adopt(nullptr), nullptr);
}

TEST(StringCache, AnAdoptedTextThatIsThereAlreadyIsFreed)
{
    // The leak check of a sanitized run fails if it is not.
    const char *there = cache_string("there already");
    EXPECT_EQ(cache_adopt(heapCopy("there already")), there);
}

TEST(StringCache, ManyTextsStayDistinctAndFindable)
{
    std::vector<const char *> texts;
    for (int i = 0; i < 30000; ++i)
        texts.push_back(cache_sprintf("text %d", i));
    for (int i = 0; i < 30000; ++i) {
        const std::string text = "text " + std::to_string(i);
        EXPECT_EQ(texts[static_cast<size_t>(i)], text);
        EXPECT_EQ(cache_string(text.c_str()), texts[static_cast<size_t>(i)]);
    }
}

TEST(StringCache, TextsMadeToCollideAreInternedInLinearTime)
{
    const std::clock_t start = std::clock();
    std::vector<const char *> interned;
    const std::vector<std::string> texts = collidingTexts(20000);
    for (const std::string &text : texts)
        interned.push_back(cache_string(text.c_str()));
    for (size_t i = 0; i < texts.size(); ++i) {
        EXPECT_EQ(interned[i], texts[i]);
        EXPECT_EQ(cache_string(texts[i].c_str()), interned[i]);
    }
    EXPECT_LT(std::clock() - start, CLOCKS_PER_SEC);
}

TEST(StringCache, LongTextsAreInternedToo)
{
    const std::string text(1000000, 'l');
    const char *first = cache_string(text.c_str());
    EXPECT_EQ(first, text);
    EXPECT_EQ(cache_string(text.c_str()), first);
}

TEST(StringCache, SubstringEndsAtTheLengthOrTheTextsEnd)
{
    EXPECT_EQ(interned(cache_substring("abcdef", 3)), "abc");
    EXPECT_EQ(interned(cache_substring("abc", 10)), "abc");
    EXPECT_EQ(interned(cache_substring("abc", 0)), "");
}

using StringCacheDeathTest = FreshProcessTest;

static void tableLocation()
{
    hash_debugEnable(1);
    cache_string("x");
    const Lines lines = debugOutputOf(hash_report);
    if (lines.size() != 3)
        std::_Exit(1);
    const std::string record = lines[2].substr(lines[2].find("    "));
    exitComparing({record}, {"    common/stringcache:85    1/5077    1/5077    0    n    n    Y"});
}

TEST_F(StringCacheDeathTest, TheTableIsCreatedOnFirstUseAtItsOwnPlace)
{
    EXPECT_EXIT(tableLocation(), testing::ExitedWithCode(0), "");
}

static void clashes()
{
    cache_string("Ab");
    cache_string("BA"); // the same hash
}

static void clashLocation()
{
    cache_setSize(1);
    hash_debugEnable(1);
    const Lines lines = debugOutputOf(clashes);
    if (lines.size() != 1)
        std::_Exit(1);
    exitComparing({lines[0].substr(0, lines[0].find('('))},
                  {"stringcache:98      > HASH @ common/stringcache:85 "});
}

TEST_F(StringCacheDeathTest, AClashNamesTheCachesInsert)
{
    EXPECT_EXIT(clashLocation(), testing::ExitedWithCode(0), "");
}

// With interning off, or past the limit, results are fresh copies.
TEST(StringCache, WithSizeZeroEqualTextsAreDifferentPointers)
{
    cache_setSize(0);
    const char *first = cache_string("fresh");
    const char *second = cache_string("fresh");
    const char *built = cache_sprintf("fr%s", "esh");
    const char *same = cache_expandTabs("fresh");
    char *own = heapCopy("fresh");
    EXPECT_EQ(cache_adopt(own), own);
    cache_setSize(5077);
    EXPECT_NE(first, second);
    EXPECT_NE(first, built);
    EXPECT_NE(built, same);
    EXPECT_STREQ(second, "fresh");
    EXPECT_STREQ(built, "fresh");
    EXPECT_STREQ(same, "fresh");
    for (const char *text : {first, second, built, same, static_cast<const char *>(own)})
        std::free(const_cast<char *>(text));
}

static bool isRemembered(const char *text)
{
    return cache_string(text) == cache_string(text);
}

static void limited()
{
    cache_setLimit(2);
    const bool remembered[] = {isRemembered("1"), isRemembered("2"), isRemembered("3"),
                               isRemembered("4"), isRemembered("1")};
    const bool expected[] = {true, true, true, false, true};
    std::_Exit(std::memcmp(remembered, expected, sizeof expected) == 0 ? 0 : 1);
}

TEST_F(StringCacheDeathTest, ALimitOfTwoTakesThreeStrings)
{
    EXPECT_EXIT(limited(), testing::ExitedWithCode(0), "");
}

static void adoptsPastTheLimit()
{
    cache_setLimit(1);
    cache_string("1");
    cache_string("2");
    char *own = heapCopy("3");
    std::_Exit(cache_adopt(own) == own && cache_string("3") != own ? 0 : 1);
}

TEST_F(StringCacheDeathTest, PastTheLimitAnAdoptedTextIsReturnedItself)
{
    EXPECT_EXIT(adoptsPastTheLimit(), testing::ExitedWithCode(0), "");
}

// ---- Formatting -------------------------------------------------------------------------------

TEST(StringCache, AResultLongerThanTheBufferIsFormattedAgainAndWhole)
{
    for (size_t length : {4094U, 4095U, 4096U, 5000U, 100000U}) {
        const std::string text(length, 'f');
        EXPECT_EQ(interned(cache_sprintf("%s", text.c_str())), text);
        EXPECT_EQ(interned(cache_sprintf("%s|%d", text.c_str(), 3)), text + "|3");
    }
}

TEST(StringCache, ALongFormatIsTakenWhole)
{
    // Ten times its length exceeds the buffer before anything is written.
#define BLANKS_100                                                                                 \
    "          "                                                                                   \
    "          "                                                                                   \
    "          "                                                                                   \
    "          "                                                                                   \
    "          "                                                                                   \
    "          "                                                                                   \
    "          "                                                                                   \
    "          "                                                                                   \
    "          "                                                                                   \
    "          "
    EXPECT_EQ(
        interned(cache_sprintf(BLANKS_100 BLANKS_100 BLANKS_100 BLANKS_100 BLANKS_100 "%d", 7)),
        std::string(500, ' ') + "7");
    EXPECT_EQ(interned(cache_sprintf("%.0s", "gone")), "");
}

TEST(StringCache, AFormattedEndOfTextEndsIt)
{
    EXPECT_EQ(interned(cache_sprintf("a%cb", 0)), "a");
}

TEST_F(StringCacheDeathTest, AFormatThatCannotBeWrittenAborts)
{
    const wchar_t bad[] = {static_cast<wchar_t>(0x7FFFFFFF), 0};
    EXPECT_EXIT(cache_sprintf("%ls", bad), testing::KilledBySignal(SIGABRT),
                "^vsnprintf failed in a mysterious way\n");
}

TEST(StringCache, ConcatenationOfTwo)
{
    EXPECT_EQ(interned(cache_concat("ab", "cd")), "abcd");
    EXPECT_EQ(interned(cache_concat("", "")), "");
}

TEST(StringCache, ConcatenationWithNullIsTheOtherArgumentItself)
{
    const std::string text = "not interned";
    EXPECT_EQ(cache_concat(nullptr, text.c_str()), text.c_str());
    EXPECT_EQ(cache_concat(text.c_str(), nullptr), text.c_str());
    EXPECT_EQ(cache_concat(nullptr, nullptr), nullptr);
}

TEST(StringCache, EveryTabBecomesFourBlanks)
{
    EXPECT_EQ(interned(cache_expandTabs("a\tb\t\tc\t")), "a    b        c    ");
    EXPECT_EQ(interned(cache_expandTabs("no tabs")), "no tabs");
    EXPECT_EQ(interned(cache_expandTabs("")), "");
    EXPECT_EQ(interned(cache_sprintfTabs("%s\t%d", "a\tb", 1)), "a    b    1");
}

TEST(StringCache, ManyTabsAreExpandedInLinearTime)
{
    const std::string tabs(1000000, '\t');
    EXPECT_EQ(interned(cache_expandTabs(tabs.c_str())), std::string(4000000, ' '));
}

// ---- Escaping and folding ---------------------------------------------------------------------

TEST(StringCache, EscapingWritesTheEscapeBeforeEveryCharacterOfTheSet)
{
    EXPECT_EQ(interned(cache_escape("a.b", ".", 0)), "a\\.b");
    EXPECT_EQ(interned(cache_escape("a b\\", " \\", '\\')), "a\\ b\\\\");
    EXPECT_EQ(interned(cache_escape("$x", "$", '$')), "$$x");
    EXPECT_EQ(interned(cache_escape("\xE9", "\xE9", '^')), "^\xE9");
}

TEST(StringCache, EscapingNothingIsTheInternedTextItself)
{
    EXPECT_EQ(cache_escape("plain", ".", 0), cache_string("plain"));
    EXPECT_EQ(cache_escape("plain.", "", 0), cache_string("plain."));
    EXPECT_EQ(cache_escape("", ".", 0), cache_string(""));
}

TEST(StringCache, QuotingEscapesDoubleQuotesOnly)
{
    EXPECT_EQ(interned(cache_quote("a \"b\" \\")), "\"a \\\"b\\\" \\\"");
    EXPECT_EQ(interned(cache_quote("")), "\"\"");
}

TEST(StringCache, FoldingChangesAsciiLettersOnly)
{
    EXPECT_EQ(interned(cache_lower("AZaz[@\xC9")), "azaz[@\xC9");
    EXPECT_EQ(interned(cache_upper("azAZ{`\xE9")), "AZAZ{`\xE9");
}

// ---- Splitting, joining, trimming -------------------------------------------------------------

TEST(StringCache, SplittingNeverGivesEmptyTokens)
{
    EXPECT_EQ(taken(cache_split("\n\nx\n", "\n")), Texts{"x"});
    EXPECT_EQ(taken(cache_split("a,b;;c", ",;")), (Texts{"a", "b", "c"}));
    EXPECT_EQ(taken(cache_split("whole", ",")), Texts{"whole"});
    EXPECT_EQ(taken(cache_split("whole", "")), Texts{"whole"});
}

TEST(StringCache, SplittingNothingOrOnlyDelimitersGivesAnEmptyVector)
{
    EXPECT_EQ(taken(cache_split("", ",")), Texts());
    EXPECT_EQ(taken(cache_split(",,,", ",")), Texts());
}

TEST(StringCache, JoiningPutsTheSeparatorBetween)
{
    Vector *texts = vec_new(MODULE, 1);
    for (const char *text : {"a", "", "c", "d"})
        vec_add(texts, text);
    EXPECT_EQ(interned(cache_join(texts, 0, ", ")), "a, , c, d");
    EXPECT_EQ(interned(cache_join(texts, 2, "")), "cd");
    EXPECT_EQ(interned(cache_join(texts, 3, ",")), "d");
    EXPECT_EQ(interned(cache_join(texts, 4, ",")), "");
    vec_destroy(texts);
}

TEST(StringCache, TrimmingTakesBlanksAndTabsAtBothEnds)
{
    EXPECT_EQ(interned(cache_trim(" \t a b\t ")), "a b");
    EXPECT_EQ(interned(cache_trim(" \n ")), "\n");
    EXPECT_EQ(interned(cache_trim(" \t")), "");
}

TEST(StringCache, TrimmingLineEndsTakesThemAtTheEndOnly)
{
    EXPECT_EQ(interned(cache_trimLineEnd("\na\r\n\n")), "\na");
    EXPECT_EQ(interned(cache_trimLineEnd("a ")), "a ");
    EXPECT_EQ(interned(cache_trimLineEnd("\r\n")), "");
}

TEST(StringCache, SeparatorsOfBothKindsAreReplaced)
{
    EXPECT_EQ(interned(cache_separators("a/b\\c", '/')), "a/b/c");
    EXPECT_EQ(interned(cache_separators("a/b\\c", '\\')), "a\\b\\c");
}

// ---- Suffixes and directories -----------------------------------------------------------------

TEST(StringCache, ReplacingASuffixCutsAtTheLastDot)
{
    EXPECT_EQ(interned(cache_replaceSuffix("main.x.c", "o")), "main.x.o");
    EXPECT_EQ(interned(cache_replaceSuffix("main", "o")), "main.o");
    EXPECT_EQ(interned(cache_replaceSuffix("dir.d/main", "o")), "dir.o");
}

TEST(StringCache, AddingASuffixSkipsItsDot)
{
    EXPECT_EQ(interned(cache_addSuffix("main.c", "o")), "main.c.o");
    EXPECT_EQ(interned(cache_addSuffix("main.c", ".o")), "main.c.o");
    EXPECT_EQ(interned(cache_addSuffix("main", "..o")), "main..o");
    EXPECT_EQ(interned(cache_addSuffix("", "")), ".");
}

TEST(StringCache, StrippingASuffixLeavesADirectorysDotAlone)
{
    EXPECT_EQ(interned(cache_stripSuffix("a/main.x.c")), "a/main.x");
    EXPECT_EQ(interned(cache_stripSuffix("dir.d/main")), "dir.d/main");
    EXPECT_EQ(interned(cache_stripSuffix("main")), "main");
    EXPECT_EQ(interned(cache_stripSuffix(".c")), "");
}

TEST(StringCache, TheDirectoryPartIsWhatStandsBeforeTheLastSlash)
{
    EXPECT_EQ(interned(cache_dirPart("a/b/c.o")), "a/b");
    EXPECT_EQ(interned(cache_dirPart("/c.o")), "");
    EXPECT_EQ(cache_dirPart("c.o"), nullptr);
    EXPECT_EQ(cache_dirPart(nullptr), nullptr);
}
