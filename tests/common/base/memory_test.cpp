#include "common/base/memory.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <gtest/gtest.h>
#include <sys/resource.h>

#include "tests/common/broken_contract.h"

// Takes over a helper's string and frees the original.
static std::string taken(char *text)
{
    std::string copy = text;
    std::free(text);
    return copy;
}

// The result of `make`, which must write only `expected` to standard error.
template <class F> static std::string withStderr(const std::string &expected, F make)
{
    testing::internal::CaptureStderr();
    std::string result = taken(make());
    EXPECT_EQ(testing::internal::GetCapturedStderr(), expected);
    return result;
}

TEST(Memory, AllocatedBytesAreZero)
{
    // Dirty a block first, so that a recycled one is likely.
    void *dirty = std::malloc(1000);
    memset(dirty, 0xAA, 1000);
    std::free(dirty);
    char *block = static_cast<char *>(xmalloc(1000));
    EXPECT_EQ(std::string(block, 1000), std::string(1000, '\0'));
    std::free(block);
}

TEST(Memory, ZeroBytesGiveAPointerThatMayBeFreed)
{
    void *block = xmalloc(0);
    EXPECT_NE(block, nullptr);
    std::free(block);
}

TEST(Memory, GrownBlockKeepsWhatIsUsedAndZeroesTheRest)
{
    char *block = static_cast<char *>(xmalloc_must(8));
    memcpy(block, "abcdefgh", 8);
    block = static_cast<char *>(xrealloc_must(block, 3, 16));
    EXPECT_EQ(std::string(block, 16), std::string("abc") + std::string(13, '\0'));
    std::free(block);
}

TEST(Memory, GrowingNothingAllocates)
{
    char *block = static_cast<char *>(xrealloc_must(nullptr, 0, 4));
    EXPECT_EQ(std::string(block, 4), std::string(4, '\0'));
    std::free(block);
}

TEST(MemoryDeathTest, MoreThan32BitsAreOutOfMemoryNotWrapped)
{
    EXPECT_EXIT(xmalloc_must(uint64_t{UINT32_MAX} + 1), testing::ExitedWithCode(1), "\\(296\\)");
    EXPECT_EXIT(xrealloc_must(xmalloc(8), 8, uint64_t{UINT32_MAX} + 9), testing::ExitedWithCode(1),
                "\\(296\\)");
}

// The address sanitizer keeps its shadow in more address space than the limit allows.
#if defined(__SANITIZE_ADDRESS__)
#define ADDRESS_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define ADDRESS_SANITIZED 1
#endif
#endif

#ifndef ADDRESS_SANITIZED
// Leaves the process without room for a large block.
static void limitMemory()
{
    const rlimit limit = {256U << 20, 256U << 20};
    setrlimit(RLIMIT_AS, &limit);
}

TEST(MemoryDeathTest, ExhaustionIsMessage296AndEndsTheRun)
{
    EXPECT_EXIT(limitMemory(); xmalloc(0xF0000000), testing::ExitedWithCode(1), "\\(296\\)");
    EXPECT_EXIT(limitMemory(); xmalloc_must(0xF0000000), testing::ExitedWithCode(1), "\\(296\\)");
}

// Takes all memory, so that the report of the exhaustion finds none either.
static void exhaust()
{
    limitMemory();
    void *volatile taken = nullptr; // an optimiser drops blocks that are not used
    for (size_t size = 64U << 20; size >= 16; size /= 2) {
        do
            taken = std::malloc(size);
        while (taken != nullptr);
    }
    xmalloc(4096);
}

TEST(MemoryDeathTest, ExhaustionWithNothingLeftEndsTheRunAllTheSame)
{
    EXPECT_EXIT(exhaust(), testing::ExitedWithCode(1), "");
}
#endif

TEST(Memory, ACopyHoldsTheTextOrItsFirstCharacters)
{
    EXPECT_EQ(taken(xstrdup_must("abc")), "abc");
    EXPECT_EQ(taken(xstrdup_must("")), "");
    EXPECT_EQ(taken(xstrndup_must("abc", 2)), "ab");
    EXPECT_EQ(taken(xstrndup_must("abc", 0)), "");
}

TEST(Memory, ConcatenationHoldsBothTexts)
{
    EXPECT_EQ(taken(xstrcat("ab", "cde")), "abcde");
    EXPECT_EQ(taken(xstrcat("", "")), "");
}

TEST(Memory, StepwiseConcatenationFreesTheFirstArgument)
{
    // The leak check of a sanitized run fails if the pieces are not freed.
    char *text = xstrcat("a", "b");
    text = xstrcat_free(text, "c");
    text = xstrcat_free(text, "d");
    EXPECT_EQ(taken(text), "abcd");
}

TEST(Memory, FormattedTextIsReturnedSilently)
{
    EXPECT_EQ(withStderr("", [] { return xsprintf("%s/%d", "dir", 7); }), "dir/7");
}

TEST(Memory, LongestFormattedTextIsReturnedSilently)
{
    const std::string longest(4095, 'x');
    EXPECT_EQ(withStderr("", [&] { return xsprintf("%s", longest.c_str()); }), longest);
}

TEST(Memory, OverlongFormattedTextIsCutAt4095CharactersWithAWarning)
{
    const std::string text(5000, 'x');
    EXPECT_EQ(
        withStderr("buffer overflow in vsnprintf", [&] { return xsprintf("%s", text.c_str()); }),
        std::string(4095, 'x'));
    EXPECT_EQ(withStderr("buffer overflow in vsnprintf",
                         [&] { return xsprintf("%.4096s", text.c_str()); }),
              std::string(4095, 'x'));
}

TEST(MemoryDeathTest, ACopyOfANullTextIsABrokenContract)
{
    EXPECT_BROKEN_IN("common/memory", std::free(xstrndup_must(nullptr, 1)), "text != NULL", 20);
    EXPECT_BROKEN_IN("common/memory", std::free(xstrdup_must(nullptr)), "text != NULL", 30);
}
