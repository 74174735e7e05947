#define MODULE "common/skiplist"
#include "common/base/skiplist.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "common/base/vector.h"
#include "common/trace/container_report.h"
#include "tests/common/broken_contract.h"
#include "tests/common/report_lines.h"

static const char PLACE[] = "tests/place";

static const char LIST_HEAD[] = "# Skiplist Master List:";
static const char LIST_COLUMNS[] = "# ptr    file:line    max_usage    clashes/inserts    "
                                   "max_chain    voidcmp    voidhash    alive";

static const void *number(uintptr_t n)
{
    return reinterpret_cast<const void *>(n);
}

static uint32_t tensHash(const void *key)
{
    return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(key) / 10);
}

static int32_t order(const void *a, const void *b)
{
    return a == b ? 0 : a < b ? -1 : 1;
}

static const char *nameOf(const void *key)
{
    static const char *const names[] = {"zero", "one", "two", "three"};
    const auto n = reinterpret_cast<uintptr_t>(key);
    return n < 4 ? names[n] : "many";
}

static SkipList *recordedList(SkipHash hash, SkipCompare compare, SkipText toText, uint32_t line)
{
    skiplist_debugEnable(1);
    SkipList *list = skiplist_new_func(hash, compare, toText, PLACE, line);
    skiplist_debugEnable(0);
    return list;
}

static int insert(SkipList *list, uintptr_t key)
{
    return skiplist_insert_func(list, number(key), number(key + 100), PLACE, 77);
}

// ---- Counters ---------------------------------------------------------------------------------

TEST(SkipListRecord, CountsUsageInsertsAndClashes)
{
    SkipList *list = recordedList(tensHash, order, nullptr, 5);
    const SkipListDebugRecord *record = list->debug;
    EXPECT_EQ(insert(list, 15), 1);
    EXPECT_EQ(insert(list, 25), 1);
    EXPECT_EQ(record->clashes, 0U);
    EXPECT_EQ(insert(list, 17), 1); // beside its predecessor
    EXPECT_EQ(record->clashes, 1U);
    EXPECT_EQ(insert(list, 21), 1); // beside its successor
    EXPECT_EQ(record->clashes, 2U);
    EXPECT_EQ(insert(list, 16), 1); // beside both: once
    EXPECT_EQ(record->clashes, 3U);
    EXPECT_EQ(insert(list, 16), 0); // nothing is added
    EXPECT_EQ(record->clashes, 3U);
    EXPECT_EQ(record->inserts, 5U);
    skiplist_remove(list, number(16));
    skiplist_remove(list, number(17));
    EXPECT_EQ(insert(list, 5), 1);
    EXPECT_EQ(record->inserts, 6U);
    EXPECT_EQ(record->max_usage, 5U);
    EXPECT_EQ(record->list, list);
    EXPECT_EQ(record->file, PLACE);
    EXPECT_EQ(record->line, 5U);
    EXPECT_EQ(record->flags, 1U);
    skiplist_destroy(list);
    EXPECT_EQ(record->flags, 0U);
}

// The head has the hash 0 and no key.
TEST(SkipListRecord, TheHeadIsNoNeighbour)
{
    SkipList *list = recordedList(tensHash, order, nullptr, 5);
    insert(list, 3);
    EXPECT_EQ(list->debug->clashes, 0U);
    EXPECT_EQ(list->debug->max_chain, 0U);
    insert(list, 4);
    EXPECT_EQ(list->debug->clashes, 1U);
    skiplist_destroy(list);
}

// Gives the list's nodes one level each, so that the lowest level is walked from the head.
static void flatten(SkipList *list)
{
    list->head->level = 1;
    for (uint32_t i = 1; i < SKIPLIST_LEVELS; ++i)
        list->head->forward[i] = nullptr;
    for (SkipNode *node = list->head->forward[0]; node != nullptr; node = node->forward[0])
        node->level = 1;
}

TEST(SkipListRecord, TheLongestRunOfEqualHashesMetByAnInsertIsKept)
{
    SkipList *list = recordedList(tensHash, order, nullptr, 5);
    const auto chainAfter = [list](uintptr_t key) {
        flatten(list);
        insert(list, key);
        return list->debug->max_chain;
    };
    EXPECT_EQ(chainAfter(15), 0U);
    EXPECT_EQ(chainAfter(25), 0U); // passes one of another hash
    EXPECT_EQ(chainAfter(17), 1U); // passes one
    EXPECT_EQ(chainAfter(16), 2U); // passes one, stops at one
    EXPECT_EQ(chainAfter(10), 2U); // stops at the first of three
    EXPECT_EQ(chainAfter(19), 4U);
    EXPECT_EQ(chainAfter(19), 5U); // present: counted as met, none added
    EXPECT_EQ(chainAfter(21), 5U);
    skiplist_get(list, number(19));
    EXPECT_EQ(list->debug->max_chain, 5U);
    skiplist_destroy(list);
}

TEST(SkipListRecord, WhatTheLevelAboveHasPassedIsNotMetOnTheLowest)
{
    SkipList *list = recordedList([](const void *) { return 7U; }, order, nullptr, 5);
    const uint32_t count = 60;
    for (uintptr_t key = 1; key <= count; ++key)
        insert(list, key);
    // Gives some node that has room for two levels the second level, as the only one.
    SkipNode *high = list->head->forward[0];
    uint32_t behind = count - 1;
    for (; high != nullptr && high->level < 2; high = high->forward[0])
        --behind;
    ASSERT_NE(high, nullptr);
    flatten(list);
    list->head->level = high->level = 2;
    list->head->forward[1] = high;
    high->forward[1] = nullptr;
    list->debug->max_chain = 0;
    insert(list, count + 1);
    EXPECT_EQ(list->debug->max_chain, behind);
    skiplist_destroy(list);
}

TEST(SkipListRecord, DefaultFunctionsAreFlagged)
{
    SkipList *list = recordedList(nullptr, nullptr, nullptr, 1);
    EXPECT_EQ(list->debug->flags, 7U);
    skiplist_destroy(list);
    list = recordedList(nullptr, order, nullptr, 1);
    EXPECT_EQ(list->debug->flags, 5U);
    skiplist_destroy(list);
    list = recordedList(tensHash, nullptr, nullptr, 1);
    EXPECT_EQ(list->debug->flags, 3U);
    skiplist_destroy(list);
}

TEST(SkipListRecord, KeysAreShownAsPointersUnlessTheCreatorKnowsBetter)
{
    SkipList *plain = recordedList(nullptr, nullptr, nullptr, 1);
    EXPECT_STREQ(plain->debug->key_tostring(nullptr), "NULL");
    EXPECT_STREQ(plain->debug->key_tostring(number(0xabc)), "0xabc");
    EXPECT_STREQ(plain->debug->key_tostring(number(UINTPTR_MAX)), "0xffffffffffffffff");
    SkipList *named = recordedList(nullptr, nullptr, nameOf, 1);
    EXPECT_STREQ(named->debug->key_tostring(number(2)), "two");
    skiplist_destroy(plain);
    skiplist_destroy(named);
}

TEST(SkipListRecord, ACopyIsRecordedAtTheModulesOwnPlaceAndCountsForItself)
{
    SkipList *list = recordedList(nullptr, order, nameOf, 5);
    insert(list, 1);
    insert(list, 2);
    skiplist_remove(list, number(1));
    skiplist_debugEnable(1);
    SkipList *copy = skiplist_copy(list);
    skiplist_debugEnable(0);
    ASSERT_NE(copy->debug, nullptr);
    EXPECT_STREQ(copy->debug->file, MODULE);
    EXPECT_EQ(copy->debug->line, 260U);
    EXPECT_EQ(copy->debug->flags, 5U);
    EXPECT_EQ(copy->debug->inserts, 1U);
    EXPECT_EQ(copy->debug->max_usage, 1U);
    EXPECT_EQ(copy->debug->key_tostring, nameOf);
    skiplist_destroy(copy);
    copy = skiplist_copy(list);
    EXPECT_EQ(copy->debug, nullptr);
    skiplist_destroy(copy);
    skiplist_destroy(list);
}

// ---- Traces -----------------------------------------------------------------------------------

static SkipList *s_list;

static void clash()
{
    insert(s_list, 15);
    insert(s_list, 25);
    insert(s_list, 17);
    insert(s_list, 17);
}

TEST(SkipListRecord, AClashIsTracedWhereTheInsertWasMade)
{
    s_list = recordedList(tensHash, order, nullptr, 5);
    EXPECT_EQ(debugOutputOf(clash), (Lines{"place:77            > SKIPLIST @ tests/place:5 (#3) "
                                           "clashed 1 times inserting (0x11,0x75)"}));
    skiplist_destroy(s_list);
}

static void copyClashing()
{
    skiplist_debugEnable(1);
    SkipList *copy = skiplist_copy(s_list);
    skiplist_debugEnable(0);
    skiplist_destroy(copy);
}

TEST(SkipListRecord, AClashWhileCopyingIsTracedAtTheModulesOwnPlace)
{
    s_list = skiplist_new_func(tensHash, order, nullptr, PLACE, 5);
    insert(s_list, 15);
    insert(s_list, 17);
    EXPECT_EQ(debugOutputOf(copyClashing),
              (Lines{"skiplist:260        > SKIPLIST @ common/skiplist:260 (#2) clashed 1 times "
                     "inserting (0x11,0x75)"}));
    skiplist_destroy(s_list);
}

// Runs a comparison of the output so far at the exit of a run that is ending.
static char *s_text;
static size_t s_size;

[[noreturn]] static void exitShowingOutput(int status)
{
    std::fclose(gDebugOut);
    std::fputs(s_text, stderr);
    std::_Exit(status);
}

static SkipList *listOfThree()
{
    SkipList *list = recordedList(nullptr, nullptr, nameOf, 5);
    for (const uintptr_t key : {1U, 2U, 3U})
        insert(list, key);
    flatten(list);
    return list;
}

static void insertOutOfOrder()
{
    SkipList *list = listOfThree();
    list->head->forward[0]->forward[0]->hash = 0xABC; // the second
    const uint32_t serial = list->head->serial;
    exitpath_setRoutine(exitShowingOutput);
    gDebugOut = open_memstream(&s_text, &s_size);
    std::fprintf(stderr, "first %u\n", serial);
    insert(list, 0);
}

using SkipListReportDeathTest = FreshProcessTest;

// In a fresh process: the numbers of the nodes and the level of the new one are known.
TEST_F(SkipListReportDeathTest, AListOutOfOrderIsPrintedAndEndsTheRun)
{
    EXPECT_EXIT(insertOutOfOrder(), testing::ExitedWithCode(1),
                matching("first 0\n"
                         "Assertion failed - n->hash <= n->forward[i]->hash (common/skiplist, "
                         "line 474)\n"
                         "place:77            > SKIPLIST Node out-of-order: @ tests/place:5\n"
                         "KEY: three\n"
                         "    number: 3\n"
                         "    hash:   3\n"
                         "    order:  1\n"
                         "        0) Nil\n"
                         "List AFTER:\n"
                         "HEAD(   1)\n"
                         "KEY: zero\n"
                         "    number: 4\n"
                         "    hash:   0\n"
                         "    order:  1\n"
                         "        0) one\n"
                         "KEY: one\n"
                         "    number: 1\n"
                         "    hash:   1\n"
                         "    order:  1\n"
                         "        0) two\n"
                         "KEY: two\n"
                         "    number: 2\n"
                         "    hash:   ABC\n"
                         "    order:  1\n"
                         "        0) three\n"
                         "KEY: three\n"
                         "    number: 3\n"
                         "    hash:   3\n"
                         "    order:  1\n"
                         "        0) Nil\n"));
}

// Two nodes on two levels; the hash of the second is too small there as well.
static void insertOutOfOrderAbove()
{
    SkipList *list = recordedList(nullptr, nullptr, nameOf, 5);
    for (uintptr_t key = 10; key < 60; ++key)
        insert(list, key);
    SkipNode *above = list->head->forward[1];
    above->forward[1]->hash = 0;
    exitpath_setRoutine(exitShowingOutput);
    gDebugOut = open_memstream(&s_text, &s_size);
    insert(list, 1);
}

TEST_F(SkipListReportDeathTest, EveryLevelIsChecked)
{
    EXPECT_EXIT(insertOutOfOrderAbove(), testing::ExitedWithCode(1),
                "line 474\\)\n.*out-of-order: @ tests/place:5\nKEY: many\n.*\n    hash:   0\n"
                "    order:  [2-9]\n        0\\) many\n        1\\) many\n");
}

TEST_F(SkipListReportDeathTest, WithoutDebugOutputAListOutOfOrderStillEndsTheRun)
{
    const auto damaged = [] {
        SkipList *list = listOfThree();
        list->head->forward[0]->hash = 9;
        insert(list, 0);
    };
    EXPECT_BROKEN(damaged(), "n->hash <= n->forward[i]->hash", 474);
}

TEST_F(SkipListReportDeathTest, PrintingANodeNeedsATextFunction)
{
    const auto textless = [] {
        SkipList *list = listOfThree();
        list->head->forward[0]->hash = 9;
        list->debug->key_tostring = nullptr;
        insert(list, 0);
    };
    EXPECT_BROKEN(textless(), "key_tostring != NULL", 150);
}

TEST(SkipListRecord, WithoutARecordNoOrderIsChecked)
{
    SkipList *list = skiplist_new_func(nullptr, nullptr, nullptr, PLACE, 5);
    insert(list, 1);
    insert(list, 2);
    list->head->forward[0]->hash = 9;
    EXPECT_EQ(insert(list, 0), 1);
    skiplist_destroy(list);
}

TEST(SkipListRecordDeathTest, ADeadListIsABrokenContract)
{
    SkipList *list = recordedList(nullptr, nullptr, nullptr, 5);
    list->debug->flags &= ~1U;
    EXPECT_BROKEN(insert(list, 1), "h->debug == NULL || isalive(h)", 411);
    EXPECT_BROKEN(skiplist_destroy(list), "isalive(h)", 241);
    list->debug->flags |= 1U;
    skiplist_destroy(list);
}

// ---- The report -------------------------------------------------------------------------------

TEST_F(SkipListReportDeathTest, WithoutRecordedListsTheReportHasItsHeadings)
{
    EXPECT_EXIT(exitComparing(debugOutputOf(skiplist_report), {LIST_HEAD, "# None.", LIST_COLUMNS}),
                testing::ExitedWithCode(0), "");
}

static void reportOfThree()
{
    SkipList *own = recordedList(tensHash, order, nullptr, 1);
    SkipList *plain = recordedList(nullptr, nullptr, nullptr, 2);
    SkipList *dead = recordedList(tensHash, nullptr, nullptr, 3);
    skiplist_new_func(nullptr, nullptr, nullptr, PLACE, 4); // not recorded
    for (const uintptr_t key : {15U, 25U})
        insert(own, key);
    flatten(own);
    insert(own, 17);
    skiplist_remove(own, number(17));
    skiplist_remove(own, number(25));
    insert(own, 35);
    insert(plain, 1);
    const std::string deadAddress = addressText(dead);
    skiplist_destroy(dead);
    exitComparing(debugOutputOf(skiplist_report),
                  {LIST_HEAD, LIST_COLUMNS,
                   "# " + addressText(own) + "    tests/place:1    3    1/4    1    n    n    Y",
                   "# " + addressText(plain) + "    tests/place:2    1    0/1    0    Y    Y    Y",
                   "# " + deadAddress + "    tests/place:3    0    0/0    0    Y    n    n"});
}

TEST_F(SkipListReportDeathTest, ListsComeInTheOrderOfTheirCreation)
{
    EXPECT_EXIT(reportOfThree(), testing::ExitedWithCode(0), "");
}

// The list of lists is a recorded vector itself.
static void masterListIsAVector()
{
    vec_debugEnable(1);
    recordedList(nullptr, nullptr, nullptr, 1);
    for (const std::string &line : debugOutputOf(vec_report))
        if (line.find("common/skiplist:206    1/10    Y") != std::string::npos)
            std::_Exit(0);
    std::_Exit(1);
}

TEST_F(SkipListReportDeathTest, TheMasterListIsMadeAtTheModulesOwnPlace)
{
    EXPECT_EXIT(masterListIsAVector(), testing::ExitedWithCode(0), "");
}
