#include "common/base/hash.h"

#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "common/base/vector.h"
#include "common/trace/container_report.h"
#include "tests/common/report_lines.h"

static const char PLACE[] = "tests/place";

static const char LIST_HEAD[] = "# Hash Table Master List:";
static const char LIST_COLUMNS[] = "# ptr    file:line    max_util/capacity    "
                                   "max_usage/capacity    clashes    voidcmp    voidhash    alive";

static const void *number(uintptr_t n)
{
    return reinterpret_cast<const void *>(n);
}

static HashTable *recordedTable(uint32_t size, uint32_t line)
{
    hash_debugEnable(1);
    HashTable *table = hash_new_func(size, nullptr, nullptr, PLACE, line);
    hash_debugEnable(0);
    return table;
}

static void insert(HashTable *table, uintptr_t key)
{
    hash_insert_func(table, number(key), number(key), PLACE, 77);
}

TEST(HashRecord, CountsBucketsEntriesAndClashes)
{
    HashTable *table = recordedTable(4, 5);
    for (uintptr_t key : {1U, 5U, 9U, 2U})
        insert(table, key); // three in one bucket: 1 + 2 clashes
    EXPECT_EQ(table->debug->clashes, 3U);
    EXPECT_EQ(table->debug->util, 2U);
    hash_remove(table, number(5));
    EXPECT_EQ(table->debug->util, 2U);
    hash_remove(table, number(2));
    EXPECT_EQ(table->debug->util, 1U);
    hash_clear(table);
    const HashDebugRecord *record = table->debug;
    EXPECT_EQ(record->util, 0U);
    EXPECT_EQ(record->max_util, 2U);
    EXPECT_EQ(record->max_usage, 4U);
    EXPECT_EQ(record->clashes, 3U);
    EXPECT_EQ(record->capacity, 4U);
    EXPECT_EQ(record->table, table);
    EXPECT_EQ(record->file, PLACE);
    EXPECT_EQ(record->line, 5U);
    EXPECT_EQ(record->flags, 7U);
    hash_destroy(table);
    EXPECT_EQ(record->flags, 6U);
}

TEST(HashRecord, AnInsertOfAPresentKeyCountsNothing)
{
    HashTable *table = recordedTable(4, 5);
    insert(table, 1);
    insert(table, 1);
    EXPECT_EQ(table->debug->clashes, 0U);
    EXPECT_EQ(table->debug->max_usage, 1U);
    hash_destroy(table);
}

TEST(HashRecord, ARecordedTableCountsClashesHoweverLongItsChains)
{
    HashTable *table = recordedTable(1, 5);
    FILE *discarded = gDebugOut;
    EXPECT_EQ(discarded, nullptr);
    for (uintptr_t key = 1; key <= 100; ++key)
        insert(table, key);
    EXPECT_EQ(table->debug->clashes, 99U * 100 / 2);
    EXPECT_EQ(table->debug->util, 1U);
    EXPECT_EQ(table->debug->max_usage, 100U);
    EXPECT_EQ(hash_remove(table, number(50)), number(50));
    insert(table, 101);
    EXPECT_EQ(table->debug->clashes, 99U * 100 / 2 + 99);
    hash_destroy(table);
}

TEST(HashRecord, ACopyHasTheCountersUnderItsOwnPlace)
{
    HashTable *table = recordedTable(4, 5);
    insert(table, 1);
    insert(table, 5);
    HashTable *copy = hash_copy(nullptr, table, "tests/copy", 9);
    const HashDebugRecord *record = copy->debug;
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(record->table, copy);
    EXPECT_STREQ(record->file, "tests/copy");
    EXPECT_EQ(record->line, 9U);
    EXPECT_EQ(record->flags, 7U);
    EXPECT_EQ(record->clashes, 1U);
    EXPECT_EQ(record->max_usage, 2U);
    hash_destroy(copy);
    hash_destroy(table);
    std::free(const_cast<HashDebugRecord *>(record)); // on no list
}

static HashTable *s_clashing;

static void clash()
{
    insert(s_clashing, 1);
    insert(s_clashing, 5);
}

TEST(HashRecord, AClashIsTracedWhereTheInsertWasMade)
{
    s_clashing = recordedTable(4, 5);
    // The location column is 20 wide and has the base name of the source.
    EXPECT_EQ(debugOutputOf(clash), (Lines{"place:77            > HASH @ tests/place:5 (2/4) "
                                           "clashed 1 times inserting (0x5,0x5)"}));
    EXPECT_EQ(s_clashing->debug->util, 1U);
    hash_destroy(s_clashing);
}

static void clashWhileReplacing()
{
    hash_replace(s_clashing, number(5), number(1)); // absent
    hash_replace(s_clashing, number(1), number(2)); // present
}

TEST(HashRecord, AClashWhileReplacingIsTracedAtTheModulesOwnPlaces)
{
    s_clashing = recordedTable(4, 5);
    insert(s_clashing, 1);
    EXPECT_EQ(debugOutputOf(clashWhileReplacing),
              (Lines{"hash:362            > HASH @ tests/place:5 (2/4) clashed 1 times inserting "
                     "(0x5,0x1)",
                     "hash:364            > HASH @ tests/place:5 (2/4) clashed 1 times inserting "
                     "(0x1,0x2)"}));
    hash_destroy(s_clashing);
}

TEST(HashRecord, TheMostBucketsInUseStayKnown)
{
    HashTable *table = recordedTable(4, 5);
    insert(table, 1);
    insert(table, 2);
    hash_remove(table, number(1));
    hash_remove(table, number(2));
    insert(table, 3);
    EXPECT_EQ(table->debug->util, 1U);
    EXPECT_EQ(table->debug->max_util, 2U);
    hash_destroy(table);
}

TEST(HashRecord, ListsOfKeysAndValuesAreMadeAtTheModulesOwnPlaces)
{
    HashTable *table = hash_new_func(4, nullptr, nullptr, PLACE, 5);
    vec_debugEnable(1);
    Vector *values = hash_values(table);
    Vector *keys = hash_keys(table);
    vec_debugEnable(0);
    EXPECT_STREQ(values->debug->file, "common/hash");
    EXPECT_EQ(values->debug->line, 293U);
    EXPECT_STREQ(keys->debug->file, "common/hash");
    EXPECT_EQ(keys->debug->line, 310U);
    vec_destroy(values);
    vec_destroy(keys);
    hash_destroy(table);
}

using HashReportDeathTest = FreshProcessTest;

TEST_F(HashReportDeathTest, WithoutRecordedTablesNothingIsPrinted)
{
    EXPECT_EXIT(exitComparing(debugOutputOf(hash_report), {}), testing::ExitedWithCode(0), "");
}

// The list of tables is a recorded vector itself, and a copied table stays out of it.
static void masterListOfOne()
{
    vec_debugEnable(1);
    HashTable *table = recordedTable(4, 5);
    hash_copy(nullptr, table, PLACE, 6);
    Lines lines = debugOutputOf(hash_report);
    const Lines vectors = debugOutputOf(vec_report);
    for (const std::string &line : vectors)
        if (line.find("common/hash:151    1/10    Y") != std::string::npos)
            lines.push_back("made at common/hash:151");
    exitComparing(
        lines, {LIST_HEAD, LIST_COLUMNS,
                "# " + addressText(table) + "    tests/place:5    0/4    0/4    0    Y    Y    Y",
                "made at common/hash:151"});
}

TEST_F(HashReportDeathTest, TheListHoldsCreatedTablesAndNoCopies)
{
    EXPECT_EXIT(masterListOfOne(), testing::ExitedWithCode(0), "");
}

static void reportOfEquals()
{
    hash_debugEnable(1);
    const HashTable *lower = hash_new_func(4, nullptr, nullptr, PLACE, 1);
    const HashTable *higher = hash_new_func(4, nullptr, nullptr, PLACE, 1);
    if (lower->debug > higher->debug)
        std::swap(lower, higher);
    const char rest[] = "    tests/place:1    0/4    0/4    0    Y    Y    Y";
    exitComparing(debugOutputOf(hash_report),
                  {LIST_HEAD, LIST_COLUMNS, "# " + addressText(higher) + rest,
                   "# " + addressText(lower) + rest});
}

TEST_F(HashReportDeathTest, AmongEqualTablesTheHighestRecordComesFirst)
{
    EXPECT_EXIT(reportOfEquals(), testing::ExitedWithCode(0), "");
}

static uint32_t anyHash(const void *key)
{
    return voidhash(key);
}

static int anyCompare(const void *a, const void *b)
{
    return voidcmp(a, b);
}

static void sortedReport()
{
    hash_debugEnable(1);
    HashTable *quiet = hash_new_func(10, anyHash, anyCompare, PLACE, 1);
    HashTable *clashing = hash_new_func(4, nullptr, anyCompare, PLACE, 2);
    HashTable *dead = hash_new_func(5, anyHash, nullptr, PLACE, 3);
    insert(quiet, 1);
    for (uintptr_t key : {1U, 5U, 2U, 9U})
        insert(clashing, key);
    insert(dead, 1);
    insert(dead, 6);
    const std::string deadAddress = addressText(dead);
    hash_destroy(dead);
    exitComparing(
        debugOutputOf(hash_report),
        {LIST_HEAD, LIST_COLUMNS,
         "# " + addressText(clashing) + "    tests/place:2    2/4    4/4    3    n    Y    Y",
         "# " + deadAddress + "    tests/place:3    1/5    2/5    1    Y    n    n",
         "# " + addressText(quiet) + "    tests/place:1    1/10    1/10    0    n    n    Y"});
}

TEST_F(HashReportDeathTest, TablesAreSortedByTheirClashes)
{
    EXPECT_EXIT(sortedReport(), testing::ExitedWithCode(0), "");
}
