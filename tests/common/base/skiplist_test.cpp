#define MODULE "common/skiplist"
#include "common/base/skiplist.h"

#include <cstdlib>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "common/base/vector.h"
#include "tests/common/broken_contract.h"

using Numbers = std::vector<uintptr_t>;
using Pairs = std::vector<std::pair<uintptr_t, uintptr_t>>;

static const void *number(uintptr_t n)
{
    return reinterpret_cast<const void *>(n);
}

static uintptr_t asNumber(const void *p)
{
    return reinterpret_cast<uintptr_t>(p);
}

// ---- The random generator, as the list draws from it ------------------------------------------

static std::vector<unsigned> s_seeds;
static uint64_t s_draws;
static bool s_alwaysRise; // every draw lets a level rise

extern "C" int __real_rand();
extern "C" int __wrap_rand();
extern "C" void __real_srand(unsigned seed);
extern "C" void __wrap_srand(unsigned seed);

int __wrap_rand()
{
    ++s_draws;
    return s_alwaysRise ? 4 : __real_rand();
}

void __wrap_srand(unsigned seed)
{
    s_seeds.push_back(seed);
    __real_srand(seed);
}

// ---- Lists ------------------------------------------------------------------------------------

class SkipListTest : public testing::Test {
  protected:
    SkipList *list = skiplist_new_func(nullptr, nullptr, nullptr, "tests/place", 1);

    void SetUp() override { s_alwaysRise = false; }
    void TearDown() override
    {
        s_alwaysRise = false;
        skiplist_destroy(list);
    }

    // Gives the list these functions.
    void useFunctions(SkipHash hash, SkipCompare compare)
    {
        skiplist_destroy(list);
        list = skiplist_new_func(hash, compare, nullptr, "tests/place", 1);
    }

    int insert(uintptr_t key, uintptr_t value) const
    {
        return skiplist_insert_func(list, number(key), number(value), "tests/place", 2);
    }
    void insertAll(const Numbers &keys) const
    {
        for (const uintptr_t key : keys)
            insert(key, key + 1000);
    }
    uintptr_t get(uintptr_t key) const { return asNumber(skiplist_get(list, number(key))); }
    uintptr_t nearest(uintptr_t key) const { return asNumber(skiplist_nearest(list, number(key))); }
    uintptr_t next(uintptr_t key) const { return asNumber(skiplist_next(list, number(key))); }
    uintptr_t remove(uintptr_t key) const { return asNumber(skiplist_remove(list, number(key))); }
};

static int collect(void *context, const void *key, void *value)
{
    static_cast<Pairs *>(context)->emplace_back(asNumber(key), asNumber(value));
    return 0;
}

static Pairs contents(const SkipList *list)
{
    Pairs pairs;
    EXPECT_EQ(skiplist_foreach(list, &pairs, collect), 0);
    EXPECT_EQ(pairs.size(), skiplist_count(list));
    return pairs;
}

static Numbers keysOf(const SkipList *list)
{
    Numbers keys;
    for (const auto &pair : contents(list))
        keys.push_back(pair.first);
    return keys;
}

// Every level holds exactly the nodes that reach it, in the order of the lowest.
static void expectWellFormed(const SkipList *list)
{
    for (uint32_t level = 0; level < list->head->level; ++level) {
        const SkipNode *above = list->head->forward[level];
        for (const SkipNode *node = list->head->forward[0]; node; node = node->forward[0]) {
            ASSERT_LE(node->level, list->head->level);
            if (node->level <= level)
                continue;
            ASSERT_EQ(above, node);
            above = above->forward[level];
        }
        ASSERT_EQ(above, nullptr);
    }
    for (uint32_t level = list->head->level; level < SKIPLIST_LEVELS; ++level)
        ASSERT_EQ(list->head->forward[level], nullptr);
}

static std::vector<uint32_t> levelsOf(const SkipList *list)
{
    std::vector<uint32_t> levels;
    for (const SkipNode *node = list->head->forward[0]; node != nullptr; node = node->forward[0])
        levels.push_back(node->level);
    return levels;
}

static uint32_t sameHash(const void *)
{
    return 7;
}

static uint32_t tensHash(const void *key)
{
    return static_cast<uint32_t>(asNumber(key) / 10);
}

static int32_t fallingOrder(const void *a, const void *b)
{
    return a == b ? 0 : asNumber(a) > asNumber(b) ? -1 : 1;
}

// ---- Order ------------------------------------------------------------------------------------

TEST_F(SkipListTest, EntriesComeInAscendingOrderOfTheirUnsignedHashes)
{
    insertAll({5, 0xFFFFFFFF, 0x80000000, 1, 0x7FFFFFFF});
    EXPECT_EQ(contents(list), (Pairs{{1, 1001},
                                     {5, 1005},
                                     {0x7FFFFFFF, 0x7FFFFFFFUL + 1000},
                                     {0x80000000, 0x80000000UL + 1000},
                                     {0xFFFFFFFF, 0xFFFFFFFFUL + 1000}}));
}

TEST_F(SkipListTest, EntriesOfEqualHashComeInTheOrderOfTheComparison)
{
    useFunctions(tensHash, fallingOrder);
    insertAll({11, 25, 19, 3, 15, 21});
    EXPECT_EQ(keysOf(list), (Numbers{3, 19, 15, 11, 25, 21}));
    expectWellFormed(list);
}

TEST_F(SkipListTest, WithOneHashForAllTheComparisonAloneOrders)
{
    useFunctions(sameHash, nullptr);
    insertAll({4, 1, 3, 5, 2});
    EXPECT_EQ(keysOf(list), (Numbers{1, 2, 3, 4, 5}));
    EXPECT_EQ(get(3), 1003U);
    EXPECT_EQ(remove(3), 1003U);
    EXPECT_EQ(keysOf(list), (Numbers{1, 2, 4, 5}));
}

TEST_F(SkipListTest, TheDefaultComparisonIsTheDifferenceTruncatedTo32Bits)
{
    EXPECT_EQ(list->compare(number(9), number(4)), 5);
    EXPECT_EQ(list->compare(number(4), number(9)), -5);
    EXPECT_EQ(list->compare(number(0x80000000), number(0)), INT32_MIN);
    EXPECT_EQ(list->compare(number(0x300000001), number(0x100000000)), 1);
}

TEST_F(SkipListTest, KeysAMultipleOf2ToThe32ndApartAreOneKey)
{
    EXPECT_EQ(insert(5, 1), 1);
    EXPECT_EQ(insert(0x100000005, 2), 0);
    EXPECT_EQ(insert(0x700000005, 3), 0);
    EXPECT_EQ(get(0x300000005), 1U);
    EXPECT_EQ(contents(list), (Pairs{{5, 1}}));
}

// ---- Entries ----------------------------------------------------------------------------------

TEST_F(SkipListTest, InsertingAPresentKeyKeepsTheOldValue)
{
    EXPECT_EQ(insert(1, 10), 1);
    EXPECT_EQ(insert(1, 20), 0);
    EXPECT_EQ(contents(list), (Pairs{{1, 10}}));
}

TEST_F(SkipListTest, AnAbsentKeyIsNullAndNotThere)
{
    insert(1, 0);
    EXPECT_EQ(skiplist_get(list, number(1)), nullptr);
    EXPECT_EQ(skiplist_haskey(list, number(1)), 1);
    EXPECT_EQ(skiplist_get(list, number(2)), nullptr);
    EXPECT_EQ(skiplist_haskey(list, number(2)), 0);
    EXPECT_EQ(skiplist_remove(list, number(2)), nullptr);
    EXPECT_EQ(skiplist_count(list), 1U);
}

TEST_F(SkipListTest, TheNullKeyIsAKeyLikeOthers)
{
    EXPECT_EQ(skiplist_haskey(list, nullptr), 0);
    EXPECT_EQ(insert(0, 5), 1);
    EXPECT_EQ(insert(0, 6), 0);
    EXPECT_EQ(get(0), 5U);
    EXPECT_EQ(remove(0), 5U);
    EXPECT_EQ(skiplist_haskey(list, nullptr), 0);
}

TEST_F(SkipListTest, RemovingGivesTheValueAndLeavesTheOthers)
{
    insertAll({1, 2, 3});
    EXPECT_EQ(remove(2), 1002U);
    EXPECT_EQ(remove(2), 0U);
    EXPECT_EQ(contents(list), (Pairs{{1, 1001}, {3, 1003}}));
    EXPECT_EQ(insert(2, 7), 1);
    EXPECT_EQ(contents(list), (Pairs{{1, 1001}, {2, 7}, {3, 1003}}));
}

TEST_F(SkipListTest, TheFirstValueIsThatOfTheLowestKey)
{
    EXPECT_EQ(skiplist_first(list), nullptr);
    insertAll({7, 3, 9});
    EXPECT_EQ(skiplist_first(list), number(1003));
}

TEST_F(SkipListTest, TheNearestIsTheKeysOrElseTheLastInFrontOfItsPlace)
{
    EXPECT_EQ(nearest(5), 0U);
    insertAll({10, 20, 30});
    EXPECT_EQ(nearest(9), 0U);
    EXPECT_EQ(nearest(10), 1010U);
    EXPECT_EQ(nearest(19), 1010U);
    EXPECT_EQ(nearest(30), 1030U);
    EXPECT_EQ(nearest(31), 1030U);
}

TEST_F(SkipListTest, TheNextFollowsTheKeyOrItsPlace)
{
    EXPECT_EQ(next(5), 0U);
    insertAll({10, 20, 30});
    EXPECT_EQ(next(9), 1010U);
    EXPECT_EQ(next(10), 1020U);
    EXPECT_EQ(next(15), 1020U);
    EXPECT_EQ(next(29), 1030U);
    EXPECT_EQ(next(30), 0U);
    EXPECT_EQ(next(31), 0U);
}

TEST_F(SkipListTest, TheWalkStopsAtTheFirstNonZeroResult)
{
    insertAll({1, 2, 3});
    const auto stopAtTwo = [](void *context, const void *key, void *) {
        static_cast<Numbers *>(context)->push_back(asNumber(key));
        return key == number(2) ? 42 : 0;
    };
    Numbers seen;
    EXPECT_EQ(skiplist_foreach(list, &seen, stopAtTwo), 42);
    EXPECT_EQ(seen, (Numbers{1, 2}));
}

TEST_F(SkipListTest, AVisitorMayRemoveItsEntry)
{
    insertAll({1, 2, 3, 4, 5});
    const auto removeOdd = [](void *context, const void *key, void *) {
        if (asNumber(key) % 2 != 0)
            skiplist_remove(static_cast<SkipList *>(context), key);
        return 0;
    };
    EXPECT_EQ(skiplist_foreach(list, list, removeOdd), 0);
    EXPECT_EQ(keysOf(list), (Numbers{2, 4}));
}

TEST_F(SkipListTest, ListsOfKeysAndValuesComeInOrderAndFromTheModulesOwnPlaces)
{
    insertAll({3, 1, 2});
    vec_debugEnable(1);
    Vector *values = skiplist_values(list);
    Vector *keys = skiplist_keys(list);
    vec_debugEnable(0);
    ASSERT_EQ(vec_size(values), 3U);
    ASSERT_EQ(vec_size(keys), 3U);
    for (uint32_t i = 0; i < 3; ++i) {
        EXPECT_EQ(vec_elementAt(keys, i), number(i + 1));
        EXPECT_EQ(vec_elementAt(values, i), number(i + 1001));
    }
    EXPECT_STREQ(values->debug->file, MODULE);
    EXPECT_EQ(values->debug->line, 300U);
    EXPECT_STREQ(keys->debug->file, MODULE);
    EXPECT_EQ(keys->debug->line, 315U);
    vec_destroy(values);
    vec_destroy(keys);
}

TEST_F(SkipListTest, AClearedListIsAsNew)
{
    for (uintptr_t key = 0; key < 1000; ++key)
        insert(key, key);
    EXPECT_GT(list->head->level, 1U);
    skiplist_clear(list);
    EXPECT_EQ(contents(list), Pairs());
    EXPECT_EQ(list->head->level, 1U);
    expectWellFormed(list);
    EXPECT_EQ(insert(3, 4), 1);
    EXPECT_EQ(contents(list), (Pairs{{3, 4}}));
}

TEST_F(SkipListTest, ACopyHasTheEntriesAndFunctionsAndIsItsOwn)
{
    useFunctions(tensHash, fallingOrder);
    insertAll({11, 19, 3});
    SkipList *copy = skiplist_copy(list);
    EXPECT_EQ(contents(copy), (Pairs{{3, 1003}, {19, 1019}, {11, 1011}}));
    EXPECT_EQ(copy->hash, tensHash);
    EXPECT_EQ(copy->compare, fallingOrder);
    remove(19);
    EXPECT_EQ(keysOf(copy), (Numbers{3, 19, 11}));
    expectWellFormed(copy);
    skiplist_destroy(copy);
    EXPECT_EQ(keysOf(list), (Numbers{3, 11}));
}

TEST(SkipList, NothingIsCopiedOrDestroyedOfNull)
{
    EXPECT_EQ(skiplist_copy(nullptr), nullptr);
    skiplist_destroy(nullptr);
}

// The whole content, and the answers for absent keys, after many operations in random order.
TEST_F(SkipListTest, BehavesAsAnOrderedMapDoes)
{
    std::mt19937 random(5);
    std::map<uintptr_t, uintptr_t> map;
    for (int i = 0; i < 20000; ++i) {
        const uintptr_t key = random() % 500 * 8;
        const auto found = map.find(key);
        if (random() % 2 == 0) {
            ASSERT_EQ(insert(key, key + 1), map.emplace(key, key + 1).second ? 1 : 0);
        } else {
            ASSERT_EQ(remove(key), found != map.end() ? found->second : 0);
            map.erase(key);
        }
        const auto after = map.upper_bound(key);
        ASSERT_EQ(next(key), after != map.end() ? after->second : 0);
        ASSERT_EQ(nearest(key), after != map.begin() ? std::prev(after)->second : 0);
    }
    EXPECT_EQ(contents(list), Pairs(map.begin(), map.end()));
    expectWellFormed(list);
}

// ---- Shape ------------------------------------------------------------------------------------

TEST_F(SkipListTest, ANewListHasOneLevelAndNoEntries)
{
    EXPECT_EQ(list->head->level, 1U);
    EXPECT_EQ(skiplist_count(list), 0U);
    EXPECT_EQ(list->debug, nullptr);
    expectWellFormed(list);
}

TEST_F(SkipListTest, NodesAndListsAreNumberedTogether)
{
    insert(1, 1);
    SkipList *second = skiplist_new_func(nullptr, nullptr, nullptr, "tests/place", 1);
    insert(2, 2);
    const uint32_t start = list->head->serial;
    EXPECT_EQ(list->head->forward[0]->serial, start + 1);
    EXPECT_EQ(second->head->serial, start + 2);
    EXPECT_EQ(list->head->forward[0]->forward[0]->serial, start + 3);
    skiplist_destroy(second);
}

TEST_F(SkipListTest, ALevelGoesAtMostOneBeyondTheListsAndNeverAbove16)
{
    s_alwaysRise = true;
    for (uintptr_t key = 1; key <= 20; ++key)
        insert(key, key);
    std::vector<uint32_t> levels;
    for (uint32_t level = 2; level <= 16; ++level)
        levels.push_back(level);
    levels.insert(levels.end(), 5, 16);
    EXPECT_EQ(levelsOf(list), levels);
    EXPECT_EQ(list->head->level, 16U);
    EXPECT_EQ(skiplist_count(list), 20U);
    expectWellFormed(list);
    for (uintptr_t key = 20; key > 0; --key)
        EXPECT_EQ(remove(key), key);
    expectWellFormed(list);
}

TEST_F(SkipListTest, RemovingNodesKeepsTheListsLevel)
{
    s_alwaysRise = true;
    insertAll({1, 2, 3});
    EXPECT_EQ(list->head->level, 4U);
    for (const uintptr_t key : {1U, 2U, 3U})
        remove(key);
    EXPECT_EQ(list->head->level, 4U);
    expectWellFormed(list);
}

TEST_F(SkipListTest, APresentKeyDrawsNoLevel)
{
    insert(1, 1);
    const uint64_t before = s_draws;
    insert(1, 1);
    EXPECT_EQ(s_draws, before);
}

// In a process of its own, because all lists share the generator.
[[noreturn]] static void exitWithTheFirstLevels()
{
    s_draws = 0;
    SkipList *first = skiplist_new_func(nullptr, nullptr, nullptr, "tests/place", 1);
    SkipList *second = skiplist_new_func(nullptr, nullptr, nullptr, "tests/place", 1);
    const bool untouched = s_seeds.empty() && s_draws == 0;
    for (uintptr_t key = 1; key <= 40; ++key)
        skiplist_insert_func(key <= 20 ? first : second, number(key), nullptr, "tests/place", 1);
    const std::vector<uint32_t> firstLevels = {1, 1, 1, 1, 1, 1, 2, 1, 1, 1,
                                               1, 1, 1, 1, 1, 2, 3, 1, 2, 1};
    const std::vector<uint32_t> secondLevels = {1, 1, 1, 1, 1, 1, 1, 1, 1, 1,
                                                1, 1, 1, 2, 1, 1, 1, 1, 1, 1};
    const bool same = levelsOf(first) == firstLevels && levelsOf(second) == secondLevels;
    // One that is discarded, one per node, and three more where a node rose and the list's level
    // did not stop it.
    const bool counted = s_draws == 44 && s_seeds == std::vector<unsigned>{0};
    std::_Exit(untouched && same && counted ? 0 : 1);
}

TEST(SkipListDeathTest, ListsHaveTheSameShapeInEveryRun)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(exitWithTheFirstLevels(), testing::ExitedWithCode(0), "");
    GTEST_FLAG_SET(death_test_style, "fast");
}

TEST_F(SkipListTest, AboutAQuarterOfTheNodesReachesTheNextLevel)
{
    for (uintptr_t key = 0; key < 20000; ++key)
        insert(key, key);
    std::map<uint32_t, int> reaching;
    for (const uint32_t level : levelsOf(list))
        for (uint32_t i = 1; i <= level; ++i)
            ++reaching[i];
    EXPECT_EQ(reaching[1], 20000);
    EXPECT_NEAR(reaching[2], 5000, 500);
    EXPECT_NEAR(reaching[3], 1250, 250);
    EXPECT_LT(list->head->level, 13U);
}

// ---- Broken contracts -------------------------------------------------------------------------

TEST(SkipListDeathTest, ANullListIsABrokenContract)
{
    EXPECT_BROKEN(skiplist_clear(nullptr), "h != NULL", 225);
    EXPECT_BROKEN(skiplist_foreach(nullptr, nullptr, collect), "h != NULL", 275);
    EXPECT_BROKEN(skiplist_values(nullptr), "h != NULL", 299);
    EXPECT_BROKEN(skiplist_keys(nullptr), "h != NULL", 314);
    EXPECT_BROKEN(skiplist_get(nullptr, nullptr), "h != NULL", 322);
    EXPECT_BROKEN(skiplist_haskey(nullptr, nullptr), "h != NULL", 329);
    EXPECT_BROKEN(skiplist_count(nullptr), "h != NULL", 336);
    EXPECT_BROKEN(skiplist_first(nullptr), "h != NULL", 342);
    EXPECT_BROKEN(skiplist_nearest(nullptr, nullptr), "h != NULL", 348);
    EXPECT_BROKEN(skiplist_next(nullptr, nullptr), "h != NULL", 356);
    EXPECT_BROKEN(skiplist_insert_func(nullptr, nullptr, nullptr, "x", 1), "h != NULL", 410);
    EXPECT_BROKEN(skiplist_remove(nullptr, nullptr), "h != NULL", 490);
}

TEST(SkipListDeathTest, ANullVisitorIsABrokenContract)
{
    SkipList *list = skiplist_new_func(nullptr, nullptr, nullptr, "x", 1);
    EXPECT_BROKEN(skiplist_foreach(list, nullptr, nullptr), "visitor != NULL", 276);
    skiplist_destroy(list);
}

using SkipListTestDeathTest = SkipListTest;

TEST_F(SkipListTestDeathTest, RemovingANodeWithoutAPredecessorIsABrokenContract)
{
    insert(1, 1);
    const auto removeDamaged = [this] {
        list->head->forward[0]->level = 12;
        remove(1);
    };
    EXPECT_BROKEN(removeDamaged(), "h->update[i] != NULL", 498);
}

static SkipList *s_damaged;

// Damages the result of the search so far.
static int32_t damagingOrder(const void *a, const void *b)
{
    s_damaged->update[1] = nullptr;
    return asNumber(a) == asNumber(b) ? 0 : asNumber(a) < asNumber(b) ? -1 : 1;
}

TEST_F(SkipListTestDeathTest, InsertingANodeWithoutAPredecessorIsABrokenContract)
{
    useFunctions(sameHash, damagingOrder);
    s_damaged = list;
    const auto insertMany = [this] {
        s_alwaysRise = true;
        insert(1, 1); // levels 1 and 2, after the head
        s_alwaysRise = false;
        for (uintptr_t key = 1000; key > 1; --key)
            insert(key, key);
    };
    EXPECT_BROKEN(insertMany(), "h->update[i] != NULL", 442);
}
