#define MODULE "common/tally_table"
#include "common/base/tally_table.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "common/base/memory.h"
#include "common/base/vector.h"
#include "common/diagnostics/alert.h"
#include "common/trace/qzdebug.h"
#include "tests/common/report_lines.h"

using Counts = std::vector<std::pair<std::string, uint32_t>>;

static const char A[] = "a";
static const char B[] = "b";
static const char C[] = "c";
static const char D[] = "d";

// ---- Memory and messages ----------------------------------------------------------------------

static bool s_refuseMemory;

extern "C" void *__real__Z7xmallocj(uint32_t size);
extern "C" void *__wrap__Z7xmallocj(uint32_t size);

// Like xmalloc() when the report of exhausted memory returns.
void *__wrap__Z7xmallocj(uint32_t size)
{
    return s_refuseMemory ? nullptr : __real__Z7xmallocj(size);
}

static std::string s_emitted;

static void keepMessage(const char *text)
{
    s_emitted += text;
}

// ---- Tables -----------------------------------------------------------------------------------

class TallyTest : public testing::Test {
  protected:
    TallyTable *t = nullptr;

    void SetUp() override
    {
        gDebugAssertMode = 0;
        s_refuseMemory = false;
        s_emitted.clear();
        alert_setErrorLimit(1000);
        alert_setOutputHook(keepMessage);
    }
    void TearDown() override
    {
        gDebugAssertMode = 0;
        alert_setOutputHook(nullptr);
        tally_destroy(t);
    }

    void create(uint32_t topListSize, TallyTieBreak tieBreak = nullptr)
    {
        t = tally_new(7, topListSize, nullptr, tieBreak);
    }
    std::vector<uint32_t> addAll(const std::vector<const char *> &keys) const
    {
        std::vector<uint32_t> counts;
        for (const char *key : keys)
            counts.push_back(tally_add(t, key));
        return counts;
    }
    Counts top() const
    {
        Counts counts;
        for (const auto *entry : vec_each<TallyEntry>(tally_topList(t))) {
            EXPECT_EQ(entry->in_top, 1);
            counts.emplace_back(static_cast<const char *>(tally_entryKey(entry)), entry->count);
        }
        return counts;
    }
};

using Added = std::vector<uint32_t>;

static int byName(const TallyEntry *a, const TallyEntry *b)
{
    return std::strcmp(static_cast<const char *>(a->key), static_cast<const char *>(b->key));
}

TEST_F(TallyTest, TheTopOfAFreshTableIsNull)
{
    create(2);
    EXPECT_EQ(tally_top(t), nullptr);
    EXPECT_EQ(vec_size(tally_topList(t)), 0U);
}

TEST_F(TallyTest, AnAddGivesTheKeysNewCount)
{
    create(10);
    EXPECT_EQ(addAll({A, B, A, A, B}), (Added{1, 1, 2, 3, 2}));
    EXPECT_EQ(top(), (Counts{{"a", 3}, {"b", 2}}));
    EXPECT_EQ(tally_top(t), A);
}

TEST_F(TallyTest, AKeyWithAHigherCountReplacesTheLastOfAFullTopList)
{
    create(2, byName);
    EXPECT_EQ(addAll({A, B, C}), (Added{1, 1, 1}));
    EXPECT_EQ(top(), (Counts{{"a", 1}, {"b", 1}}));
    EXPECT_EQ(tally_add(t, C), 2U);
    EXPECT_EQ(top(), (Counts{{"a", 1}, {"c", 2}})); // not sorted
    EXPECT_EQ(tally_top(t), A);
}

TEST_F(TallyTest, TheNextSortingAddPutsAReplacementInItsPlace)
{
    create(2, byName);
    addAll({A, B, C, C});
    EXPECT_EQ(tally_add(t, C), 3U);
    EXPECT_EQ(top(), (Counts{{"c", 3}, {"a", 1}}));
    EXPECT_EQ(tally_top(t), C);
}

TEST_F(TallyTest, AReplacedKeyMayComeBack)
{
    create(2, byName);
    addAll({A, B, C, C}); // a 1, c 2; b 1 is out
    EXPECT_EQ(addAll({B, B, A}), (Added{2, 3, 2}));
    EXPECT_EQ(top(), (Counts{{"b", 3}, {"a", 2}}));
    EXPECT_EQ(tally_add(t, C), 3U);
    EXPECT_EQ(top(), (Counts{{"b", 3}, {"c", 3}}));
    EXPECT_EQ(tally_add(t, C), 4U);
    EXPECT_EQ(top(), (Counts{{"c", 4}, {"b", 3}}));
}

TEST_F(TallyTest, AnAddThatDoesNotExceedTheLastLeavesTheTopListUntouched)
{
    create(2, byName);
    addAll({B, B, A, A, C, C});
    EXPECT_EQ(top(), (Counts{{"a", 2}, {"b", 2}}));
    addAll({D});
    EXPECT_EQ(top(), (Counts{{"a", 2}, {"b", 2}}));
}

TEST_F(TallyTest, TwoPointersToEqualTextAreDifferentKeys)
{
    const std::string text = "key";
    const std::string same = "key";
    create(2);
    EXPECT_EQ(addAll({text.c_str(), same.c_str(), text.c_str()}), (Added{1, 1, 2}));
    EXPECT_EQ(tally_top(t), text.c_str());
}

TEST_F(TallyTest, NullIsAKeyLikeOthers)
{
    create(2);
    EXPECT_EQ(tally_add(t, nullptr), 1U);
    EXPECT_EQ(tally_add(t, nullptr), 2U);
    EXPECT_EQ(vec_size(tally_topList(t)), 1U);
    EXPECT_EQ(tally_top(t), nullptr);
}

TEST_F(TallyTest, TheTieBreakOrdersEqualCounts)
{
    create(4, byName);
    addAll({D, B, C, A, B});
    EXPECT_EQ(top(), (Counts{{"b", 2}, {"a", 1}, {"c", 1}, {"d", 1}}));
}

TEST_F(TallyTest, EachTableIsSortedByItsOwnTieBreak)
{
    create(4, byName);
    TallyTable *other = tally_new(
        7, 4, nullptr, [](const TallyEntry *a, const TallyEntry *b) { return -byName(a, b); });
    for (const char *key : {B, C, A}) {
        tally_add(t, key);
        tally_add(other, key);
    }
    EXPECT_EQ(top(), (Counts{{"a", 1}, {"b", 1}, {"c", 1}}));
    std::swap(t, other);
    EXPECT_EQ(top(), (Counts{{"c", 1}, {"b", 1}, {"a", 1}}));
    tally_destroy(other);
}

TEST_F(TallyTest, TheGivenHashFunctionChoosesTheBuckets)
{
    static uint32_t calls;
    calls = 0;
    t = tally_new(
        7, 2, [](const void *) { return ++calls * 0; }, nullptr);
    addAll({A, B, A});
    EXPECT_GT(calls, 0U);
    EXPECT_EQ(t->table->size, 7U);
    EXPECT_EQ(top(), (Counts{{"a", 2}, {"b", 1}}));
}

TEST_F(TallyTest, AClearedTableStartsAgain)
{
    create(2);
    addAll({A, A, B, C});
    tally_clear(t);
    EXPECT_EQ(tally_top(t), nullptr);
    EXPECT_EQ(top(), Counts());
    EXPECT_EQ(addAll({B, A, B}), (Added{1, 1, 2}));
    EXPECT_EQ(top(), (Counts{{"b", 2}, {"a", 1}}));
}

// The counts of all keys, and of those in the top list, after many adds in random order.
TEST_F(TallyTest, CountsAsAMapDoes)
{
    std::mt19937 random(11);
    std::vector<std::string> names;
    for (int i = 0; i < 50; ++i)
        names.push_back("key" + std::to_string(i));
    std::map<std::string, uint32_t> counts;
    create(5);
    for (int i = 0; i < 20000; ++i) {
        const std::string &name = names[random() % (1 + random() % names.size())];
        ASSERT_EQ(tally_add(t, name.c_str()), ++counts[name]);
        ASSERT_LE(vec_size(tally_topList(t)), 5U);
    }
    const auto most =
        std::max_element(counts.begin(), counts.end(),
                         [](const auto &a, const auto &b) { return a.second < b.second; });
    EXPECT_STREQ(static_cast<const char *>(tally_top(t)), most->first.c_str());
    for (const auto &[name, count] : top())
        EXPECT_EQ(count, counts[name]);
}

TEST_F(TallyTest, ContainersAreMadeAtTheModulesOwnPlaces)
{
    vec_debugEnable(1);
    hash_debugEnable(1);
    create(2);
    hash_debugEnable(0);
    vec_debugEnable(0);
    EXPECT_STREQ(t->table->debug->file, MODULE);
    EXPECT_EQ(t->table->debug->line, 119U);
    EXPECT_EQ(t->table->debug->flags, 7U);
    EXPECT_STREQ(t->top->debug->file, MODULE);
    EXPECT_EQ(t->top->debug->line, 122U);
}

static TallyTable *s_clashing;

static void clash()
{
    tally_add(s_clashing, A);
    tally_add(s_clashing, B);
}

TEST_F(TallyTest, AClashIsTracedAtTheModulesOwnPlace)
{
    hash_debugEnable(1);
    t = s_clashing = tally_new(1, 2, nullptr, nullptr);
    hash_debugEnable(0);
    const Lines lines = debugOutputOf(clash);
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].find("tally_table:157     > HASH @ common/tally_table:119 (2/1) clashed 1 "
                            "times inserting ("),
              0U);
}

// ---- Checks -----------------------------------------------------------------------------------

static std::string failed(const char *expression, int line)
{
    return std::string("assertion \"") + expression + "\" failed in " MODULE ", line " +
           std::to_string(line);
}

static std::string error(const char *expression, int line)
{
    return "(1502) " + failed(expression, line) + "\n";
}

static std::string warning(const char *expression, int line)
{
    return "(1501) " + failed(expression, line) + " (warning)\n";
}

TEST_F(TallyTest, WhatIsNotThereIsNull)
{
    EXPECT_EQ(tally_topList(nullptr), nullptr);
    EXPECT_EQ(tally_entryKey(nullptr), nullptr);
    tally_clear(nullptr);
    tally_destroy(nullptr);
    EXPECT_EQ(s_emitted, "");
}

TEST_F(TallyTest, FailedChecksAreIgnoredByDefault)
{
    EXPECT_EQ(tally_add(nullptr, A), 0U);
    EXPECT_EQ(tally_top(nullptr), nullptr);
    t = tally_new(0, 0, nullptr, nullptr);
    EXPECT_EQ(s_emitted, "");
}

TEST_F(TallyTest, FailedChecksAreErrorsOrWarningsByTheAssertMode)
{
    gDebugAssertMode = 2;
    tally_add(nullptr, A);
    EXPECT_EQ(s_emitted, error("t != NULL", 146));
    s_emitted.clear();
    gDebugAssertMode = 3;
    EXPECT_EQ(tally_top(nullptr), nullptr);
    t = tally_new(0, 0, nullptr, nullptr);
    EXPECT_EQ(s_emitted,
              warning("t != NULL", 167) + warning("size", 115) + warning("top_list_size", 116));
}

TEST_F(TallyTest, WithoutATopListATableStillCounts)
{
    t = tally_new(0, 0, nullptr, nullptr);
    EXPECT_EQ(addAll({A, B, A}), (Added{1, 1, 2}));
    EXPECT_EQ(tally_top(t), nullptr);
    EXPECT_EQ(top(), Counts());
    EXPECT_EQ(t->table->size, 1U);
}

TEST_F(TallyTest, ACountBeyond32BitsFailsACheckAndStartsAgain)
{
    create(2);
    tally_add(t, A);
    auto *entry = static_cast<TallyEntry *>(vec_elementAt(tally_topList(t), 0));
    entry->count = UINT32_MAX - 1;
    gDebugAssertMode = 3;
    EXPECT_EQ(tally_add(t, A), UINT32_MAX);
    EXPECT_EQ(s_emitted, "");
    EXPECT_EQ(tally_add(t, A), 0U);
    EXPECT_EQ(s_emitted, warning("te->count != 0", 150));
    EXPECT_EQ(tally_add(t, A), 1U);
}

TEST_F(TallyTest, WithoutMemoryThereIsNoTable)
{
    s_refuseMemory = true;
    gDebugAssertMode = 3;
    EXPECT_EQ(tally_new(7, 2, nullptr, nullptr), nullptr);
    s_refuseMemory = false;
    EXPECT_EQ(s_emitted, warning("tab != NULL", 118));
}

using TallyTestDeathTest = TallyTest;

TEST_F(TallyTestDeathTest, AFailedCheckEndsTheRunWhenTheAssertModeIsFatal)
{
    const auto fatal = [] {
        alert_setOutputHook(nullptr);
        gDebugAssertMode = 1;
        tally_add(nullptr, A);
        std::_Exit(0);
    };
    EXPECT_EXIT(fatal(), testing::ExitedWithCode(1),
                "assertion \"t != NULL\" failed in common/tally_table, line 146\n$");
}
