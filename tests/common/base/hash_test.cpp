#define MODULE "tests/hash"
#include "common/base/hash.h"

#include <algorithm>
#include <ctime>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "common/base/stringcache.h"
#include "common/base/vector.h"
#include "tests/common/base/colliding_texts.h"
#include "tests/common/broken_contract.h"
#include "tests/common/report_lines.h"

using Pairs = std::vector<std::pair<std::string, std::string>>;

static const void *number(uintptr_t n)
{
    return reinterpret_cast<const void *>(n);
}

static HashTable *textTable(uint32_t size)
{
    return hash_new_func(size, hash_string, hash_stringCompare, MODULE, 1);
}

// One bucket for all, so that the order of a chain shows.
static uint32_t sameHash(const void *)
{
    return 7;
}

static int insert(HashTable *table, const char *key, const char *value)
{
    return hash_insert_func(table, key, value, MODULE, 2);
}

static std::string get(const HashTable *table, const char *key)
{
    const char *value = static_cast<const char *>(hash_get(table, key));
    return value != nullptr ? value : "(null)";
}

static int collect(void *context, const void *key, void *value)
{
    static_cast<Pairs *>(context)->emplace_back(static_cast<const char *>(key),
                                                static_cast<const char *>(value));
    return 0;
}

static Pairs contents(const HashTable *table)
{
    Pairs pairs;
    EXPECT_EQ(hash_foreach(table, &pairs, collect), 0);
    return pairs;
}

// ---- Text -------------------------------------------------------------------------------------

TEST(HashText, KnownHashes)
{
    EXPECT_EQ(hash_string(""), 5381U);
    EXPECT_EQ(hash_string("a"), 177670U);
    EXPECT_EQ(hash_string("\xE9"), 5381U * 33 - 23);
    EXPECT_EQ(hash_string("ab"), 177670U * 33 + 98);
}

TEST(HashText, TheFoldingHashIgnoresTheCaseOfAsciiLettersOnly)
{
    EXPECT_EQ(hash_stringNoCase("MiXed[@`{"), hash_string("mixed[@`{"));
    EXPECT_EQ(hash_stringNoCase("\xC9"), hash_string("\xC9"));
    EXPECT_NE(hash_string("A"), hash_string("a"));
}

TEST(HashText, ComparisonIsTheDifferenceOfTheFirstDifferingBytesAsUnsigned)
{
    EXPECT_EQ(hash_stringCompare("abc", "abc"), 0);
    EXPECT_EQ(hash_stringCompare("abe", "abc"), 2);
    EXPECT_EQ(hash_stringCompare("ab", "abc"), -'c');
    EXPECT_EQ(hash_stringCompare("\xFF", "a"), 0xFF - 'a');
    EXPECT_EQ(hash_stringCompare("A", "a"), -32);
}

TEST(HashText, TheFoldingComparisonIgnoresTheCaseOfAsciiLettersOnly)
{
    EXPECT_EQ(hash_stringCompareNoCase("MiXed", "mIxED"), 0);
    EXPECT_EQ(hash_stringCompareNoCase("B", "a"), 1);
    EXPECT_EQ(hash_stringCompareNoCase("", "A"), -'a');
    EXPECT_EQ(hash_stringCompareNoCase("[", "{"), '[' - '{');
    EXPECT_EQ(hash_stringCompareNoCase("\xC9", "\xE9"), 0xC9 - 0xE9);
}

// ---- Entries ----------------------------------------------------------------------------------

TEST(Hash, InsertingAnExistingKeyKeepsTheOldValue)
{
    HashTable *table = textTable(5);
    EXPECT_EQ(insert(table, "k", "old"), 1);
    const std::string equalKey = "k";
    EXPECT_EQ(insert(table, equalKey.c_str(), "new"), 0);
    EXPECT_EQ(contents(table), (Pairs{{"k", "old"}}));
    EXPECT_EQ(hash_count(table), 1U);
    hash_destroy(table);
}

TEST(Hash, AnAbsentKeyIsNullAndNotThere)
{
    HashTable *table = textTable(5);
    insert(table, "null", nullptr);
    EXPECT_EQ(hash_get(table, "absent"), nullptr);
    EXPECT_EQ(hash_haskey(table, "absent"), 0);
    EXPECT_EQ(hash_get(table, "null"), nullptr);
    EXPECT_EQ(hash_haskey(table, "null"), 1);
    EXPECT_EQ(hash_remove(table, "absent"), nullptr);
    hash_destroy(table);
}

TEST(Hash, EqualHashesOfDifferentKeysAreKeptApart)
{
    // "Ab" and "BA" share their hash: 65 x 33 + 98 = 66 x 33 + 65.
    ASSERT_EQ(hash_string("Ab"), hash_string("BA"));
    HashTable *table = textTable(5);
    insert(table, "Ab", "1");
    insert(table, "BA", "2");
    EXPECT_EQ(get(table, "Ab"), "1");
    EXPECT_EQ(get(table, "BA"), "2");
    hash_destroy(table);
}

TEST(Hash, ReplaceTakesTheEntrysPlaceOrAdds)
{
    HashTable *table = textTable(5);
    hash_replace(table, "k", "1");
    hash_replace(table, "k", "2");
    EXPECT_EQ(contents(table), (Pairs{{"k", "2"}}));
    hash_destroy(table);
}

TEST(Hash, ReplaceLeavesANullValueAlone)
{
    HashTable *table = textTable(5);
    insert(table, "k", nullptr);
    hash_replace(table, "k", "2");
    EXPECT_EQ(hash_get(table, "k"), nullptr);
    EXPECT_EQ(hash_count(table), 1U);
    hash_destroy(table);
}

TEST(Hash, RemoveReturnsTheValueAndKeepsTheChain)
{
    HashTable *table = hash_new_func(3, sameHash, hash_stringCompare, MODULE, 1);
    insert(table, "a", "1");
    insert(table, "b", "2");
    insert(table, "c", "3");
    EXPECT_STREQ(static_cast<char *>(hash_remove(table, "b")), "2");
    EXPECT_EQ(contents(table), (Pairs{{"a", "1"}, {"c", "3"}}));
    EXPECT_STREQ(static_cast<char *>(hash_remove(table, "c")), "3");
    insert(table, "d", "4");
    EXPECT_EQ(contents(table), (Pairs{{"a", "1"}, {"d", "4"}}));
    hash_destroy(table);
}

TEST(Hash, AChainIsVisitedFromItsOldestEntry)
{
    HashTable *table = hash_new_func(3, sameHash, hash_stringCompare, MODULE, 1);
    insert(table, "z", "1");
    insert(table, "a", "2");
    insert(table, "m", "3");
    EXPECT_EQ(contents(table), (Pairs{{"z", "1"}, {"a", "2"}, {"m", "3"}}));
    hash_destroy(table);
}

TEST(Hash, BucketsAreVisitedInOrder)
{
    HashTable *table = hash_new_func(4, nullptr, nullptr, MODULE, 1);
    for (uintptr_t n : {7U, 1U, 4U, 2U, 5U})
        hash_insert_func(table, number(n), number(n * 10), MODULE, 2);
    Vector *keys = hash_keys(table);
    Vector *values = hash_values(table);
    const uintptr_t expected[] = {4, 1, 5, 2, 7};
    ASSERT_EQ(vec_size(keys), 5U);
    ASSERT_EQ(vec_size(values), 5U);
    for (uint32_t i = 0; i < 5; ++i) {
        EXPECT_EQ(vec_elementAt(keys, i), number(expected[i]));
        EXPECT_EQ(vec_elementAt(values, i), number(expected[i] * 10));
    }
    vec_destroy(keys);
    vec_destroy(values);
    hash_destroy(table);
}

static int stopAtOnce(void *context, const void *, void *)
{
    ++*static_cast<int *>(context);
    return 42;
}

TEST(Hash, ANonZeroVisitStopsAtOnceAndIsReturned)
{
    HashTable *table = textTable(5);
    insert(table, "a", "1");
    insert(table, "b", "2");
    int visits = 0;
    EXPECT_EQ(hash_foreach(table, &visits, stopAtOnce), 42);
    EXPECT_EQ(visits, 1);
    hash_destroy(table);
}

static int removeVisited(void *context, const void *key, void *)
{
    hash_remove(static_cast<HashTable *>(context), key);
    return 0;
}

TEST(Hash, AVisitorMayRemoveTheEntryItVisits)
{
    HashTable *table = hash_new_func(2, sameHash, hash_stringCompare, MODULE, 1);
    insert(table, "a", "1");
    insert(table, "b", "2");
    insert(table, "c", "3");
    EXPECT_EQ(hash_foreach(table, table, removeVisited), 0);
    EXPECT_EQ(contents(table), Pairs());
    EXPECT_EQ(hash_count(table), 0U);
    hash_destroy(table);
}

TEST(Hash, WithoutFunctionsKeysArePointers)
{
    const std::string a = "k", b = "k";
    HashTable *table = hash_new_func(5, nullptr, nullptr, MODULE, 1);
    EXPECT_EQ(insert(table, a.c_str(), "1"), 1);
    EXPECT_EQ(insert(table, b.c_str(), "2"), 1);
    EXPECT_EQ(insert(table, a.c_str(), "3"), 0);
    EXPECT_EQ(get(table, b.c_str()), "2");
    EXPECT_EQ(voidhash(number(0x1'2345'6789)), 0x2345'6789U);
    EXPECT_EQ(voidcmp(a.c_str(), b.c_str()), 1);
    EXPECT_EQ(voidcmp(a.c_str(), a.c_str()), 0);
    hash_destroy(table);
}

TEST(Hash, ClearLeavesAnEmptyTableForUse)
{
    HashTable *table = textTable(5);
    insert(table, "a", "1");
    hash_clear(table);
    EXPECT_EQ(contents(table), Pairs());
    EXPECT_EQ(insert(table, "a", "2"), 1);
    EXPECT_EQ(contents(table), (Pairs{{"a", "2"}}));
    hash_destroy(table);
    hash_destroy(nullptr);
}

TEST(Hash, ARemovedEntrysNodeIsUsedAgain)
{
    HashTable *table = textTable(1);
    insert(table, "a", "1");
    const HashEntry *node = table->buckets[0];
    hash_remove(table, "a");
    insert(table, "b", "2");
    EXPECT_EQ(table->buckets[0], node);
    hash_destroy(table);
}

// ---- Copying ----------------------------------------------------------------------------------

TEST(Hash, ACopyToNothingIsANewTableInTheSameOrder)
{
    HashTable *source = hash_new_func(3, sameHash, hash_stringCompare, MODULE, 1);
    insert(source, "z", "1");
    insert(source, "a", "2");
    HashTable *copy = hash_copy(nullptr, source, MODULE, 3);
    insert(source, "later", "3");
    EXPECT_EQ(copy->size, 3U);
    EXPECT_EQ(hash_count(copy), 2U);
    EXPECT_EQ(contents(copy), (Pairs{{"z", "1"}, {"a", "2"}}));
    EXPECT_EQ(get(copy, "a"), "2");
    hash_destroy(source);
    hash_destroy(copy);
}

TEST(Hash, ACopyIntoATableReplacesItsEntriesAndSize)
{
    HashTable *source = textTable(7);
    insert(source, "a", "1");
    HashTable *destination = textTable(3);
    insert(destination, "b", "2");
    EXPECT_EQ(hash_copy(destination, source, MODULE, 3), destination);
    EXPECT_EQ(destination->size, 7U);
    EXPECT_EQ(contents(destination), (Pairs{{"a", "1"}}));
    EXPECT_EQ(hash_copy(destination, destination, MODULE, 3), destination);
    EXPECT_EQ(contents(destination), (Pairs{{"a", "1"}}));
    hash_destroy(source);
    hash_destroy(destination);
}

TEST(Hash, ACopyIntoATableKeepsTheTablesOwnFunctions)
{
    HashTable *source = textTable(7);
    insert(source, "a", "1");
    HashTable *destination =
        hash_new_func(3, hash_stringNoCase, hash_stringCompareNoCase, MODULE, 1);
    hash_copy(destination, source, MODULE, 3);
    EXPECT_STREQ(static_cast<const char *>(hash_get(destination, "A")), "1");
    EXPECT_EQ(hash_get(source, "A"), nullptr);
    hash_destroy(source);
    hash_destroy(destination);
}

TEST(Hash, ACopyOfNothingDestroysTheDestination)
{
    // The leak check of a sanitized run fails if it does not.
    EXPECT_EQ(hash_copy(textTable(3), nullptr, MODULE, 3), nullptr);
    EXPECT_EQ(hash_copy(nullptr, nullptr, MODULE, 3), nullptr);
}

// ---- Long chains ------------------------------------------------------------------------------

// A table whose chains are long enough for an index, with the numbers from 1 to `count`.
static HashTable *longTable(uintptr_t count)
{
    HashTable *table = hash_new_func(5, nullptr, nullptr, MODULE, 1);
    for (uintptr_t n = 1; n <= count; ++n)
        EXPECT_EQ(hash_insert_func(table, number(n), number(n + 1), MODULE, 2), 1);
    return table;
}

// The keys in visiting order.
static std::vector<uintptr_t> keysOf(const HashTable *table)
{
    std::vector<uintptr_t> keys;
    Vector *found = hash_keys(table);
    for (const void *key : vec_each<const void>(found))
        keys.push_back(reinterpret_cast<uintptr_t>(key));
    vec_destroy(found);
    return keys;
}

// The expected result of keysOf(): bucket by bucket, oldest first.
static std::vector<uintptr_t> inBuckets(const std::vector<uintptr_t> &inserted, uint32_t size)
{
    std::vector<uintptr_t> keys;
    for (uintptr_t bucket = 0; bucket < size; ++bucket) {
        for (uintptr_t key : inserted) {
            if (key % size == bucket)
                keys.push_back(key);
        }
    }
    return keys;
}

TEST(HashIndex, IsBuiltWhenChainsHaveBecomeLongAndKeepsTheOrder)
{
    HashTable *table = longTable(19);
    EXPECT_EQ(table->index, nullptr);
    hash_destroy(table);
    table = longTable(5000);
    EXPECT_NE(table->index, nullptr);
    std::vector<uintptr_t> inserted;
    for (uintptr_t n = 1; n <= 5000; ++n) {
        inserted.push_back(n);
        EXPECT_EQ(hash_get(table, number(n)), number(n + 1));
        EXPECT_EQ(hash_insert_func(table, number(n), nullptr, MODULE, 2), 0);
    }
    EXPECT_EQ(hash_haskey(table, number(5001)), 0);
    EXPECT_EQ(keysOf(table), inBuckets(inserted, 5));
    hash_destroy(table);
}

TEST(HashIndex, RemovedEntriesAreGoneAndTheOthersStayInOrder)
{
    HashTable *table = longTable(3000);
    std::vector<uintptr_t> left;
    for (uintptr_t n = 1; n <= 3000; ++n) {
        if (n % 3 == 0 || n > 2990)
            EXPECT_EQ(hash_remove(table, number(n)), number(n + 1));
        else
            left.push_back(n);
    }
    for (uintptr_t n = 4001; n <= 4020; ++n) {
        left.push_back(n);
        EXPECT_EQ(hash_insert_func(table, number(n), number(1), MODULE, 2), 1);
    }
    for (uintptr_t n = 1; n <= 3000; ++n)
        EXPECT_EQ(hash_haskey(table, number(n)), n % 3 != 0 && n <= 2990) << n;
    EXPECT_EQ(hash_count(table), left.size());
    EXPECT_EQ(keysOf(table), inBuckets(left, 5));
    hash_destroy(table);
}

TEST(HashIndex, AnEmptiedTableFindsNothingAndFillsAgain)
{
    HashTable *table = longTable(100);
    for (uintptr_t n = 1; n <= 100; ++n)
        hash_remove(table, number(n));
    EXPECT_EQ(keysOf(table), std::vector<uintptr_t>());
    EXPECT_EQ(hash_insert_func(table, number(6), number(7), MODULE, 2), 1);
    EXPECT_EQ(hash_insert_func(table, number(1), number(7), MODULE, 2), 1);
    EXPECT_EQ(keysOf(table), (std::vector<uintptr_t>{6, 1}));
    hash_clear(table);
    EXPECT_EQ(hash_haskey(table, number(6)), 0);
    hash_destroy(table);
}

TEST(HashIndex, ACopyHasItsOwn)
{
    HashTable *source = longTable(100);
    HashTable *copy = hash_copy(nullptr, source, MODULE, 3);
    EXPECT_NE(copy->index, nullptr);
    EXPECT_NE(copy->index, source->index);
    EXPECT_EQ(keysOf(copy), keysOf(source));
    hash_remove(source, number(9));
    EXPECT_EQ(hash_get(copy, number(9)), number(10));
    EXPECT_EQ(hash_copy(copy, source, MODULE, 3), copy);
    EXPECT_EQ(hash_haskey(copy, number(9)), 0);
    EXPECT_EQ(hash_get(copy, number(10)), number(11));
    hash_destroy(source);
    hash_destroy(copy);
}

TEST(HashIndex, IsBuiltForOneLongChainAmongManyBuckets)
{
    const std::vector<std::string> texts = collidingTexts(18);
    HashTable *table = textTable(5077);
    for (const std::string &text : texts) {
        EXPECT_EQ(table->index != nullptr, &text > &texts[16]);
        EXPECT_EQ(insert(table, text.c_str(), "value"), 1);
    }
    hash_destroy(table);
}

TEST(HashIndex, TextsMadeToCollideCostNoMoreThanOthers)
{
    const std::vector<std::string> texts = collidingTexts(20000);
    EXPECT_EQ(hash_string(texts.front().c_str()), hash_string(texts.back().c_str()));
    const std::clock_t start = std::clock();
    HashTable *table = textTable(199);
    Pairs expected;
    for (const std::string &text : texts) {
        EXPECT_EQ(insert(table, text.c_str(), text.c_str()), 1);
        expected.emplace_back(text, text);
    }
    for (const std::string &text : texts) {
        EXPECT_EQ(get(table, text.c_str()), text);
        EXPECT_EQ(insert(table, text.c_str(), "other"), 0);
        EXPECT_EQ(hash_haskey(table, (text + "Ab").c_str()), 0);
    }
    EXPECT_EQ(contents(table), expected);
    HashTable *copy = hash_copy(nullptr, table, MODULE, 3);
    EXPECT_EQ(contents(copy), expected);
    for (const std::string &text : texts)
        EXPECT_EQ(hash_get(copy, text.c_str()), text.c_str());
    hash_destroy(copy);
    // The newest first: its chain is the longest then.
    for (size_t i = texts.size(); i-- != 0;)
        EXPECT_EQ(hash_remove(table, texts[i].c_str()), texts[i].c_str());
    EXPECT_EQ(hash_count(table), 0U);
    EXPECT_EQ(contents(table), Pairs());
    hash_destroy(table);
    EXPECT_LT(std::clock() - start, CLOCKS_PER_SEC);
}

// The number of calls of the text comparisons. The linker replaces the real functions by these.
static uint64_t s_compared;

extern "C" {
int __real__Z18hash_stringComparePKvS0_(const void *a, const void *b);
int __real__Z24hash_stringCompareNoCasePKvS0_(const void *a, const void *b);
int __wrap__Z18hash_stringComparePKvS0_(const void *a, const void *b);
int __wrap__Z24hash_stringCompareNoCasePKvS0_(const void *a, const void *b);
}

int __wrap__Z18hash_stringComparePKvS0_(const void *a, const void *b)
{
    ++s_compared;
    return __real__Z18hash_stringComparePKvS0_(a, b);
}

int __wrap__Z24hash_stringCompareNoCasePKvS0_(const void *a, const void *b)
{
    ++s_compared;
    return __real__Z24hash_stringCompareNoCasePKvS0_(a, b);
}

// Inserts every key with itself as value, looks each up, also in a copy, and removes it, the newest
// first: its chain is the longest then. All keys are in one bucket.
static void useEveryKey(HashTable *table, const std::vector<const void *> &keys)
{
    for (const void *key : keys)
        ASSERT_EQ(hash_insert_func(table, key, key, MODULE, 2), 1);
    HashTable *copy = hash_copy(nullptr, table, MODULE, 3);
    for (const void *key : keys) {
        ASSERT_EQ(hash_get(table, key), key);
        ASSERT_EQ(hash_get(copy, key), key);
        ASSERT_EQ(hash_insert_func(table, key, nullptr, MODULE, 2), 0);
    }
    Vector *visited = hash_keys(copy);
    ASSERT_EQ(vec_size(visited), keys.size());
    for (uint32_t i = 0; i < keys.size(); ++i)
        ASSERT_EQ(vec_elementAt(visited, i), keys[i]);
    vec_destroy(visited);
    hash_destroy(copy);
    for (size_t i = keys.size(); i-- != 0;)
        ASSERT_EQ(hash_remove(table, keys[i]), keys[i]);
    ASSERT_EQ(hash_count(table), 0U);
    hash_destroy(table);
}

static constexpr unsigned KEYS = 32768;

// The number of comparisons that this takes with texts of one hash.
static uint64_t comparisonsOf(HashFunction hash, HashCompare compare, const char *const (&pairs)[2])
{
    const std::vector<std::string> texts = collidingTexts(KEYS, pairs);
    std::vector<const void *> keys;
    for (const std::string &text : texts) {
        EXPECT_EQ(hash(text.c_str()), hash(texts[0].c_str()));
        keys.push_back(text.c_str());
    }
    s_compared = 0;
    useEveryKey(hash_new_func(199, hash, compare, MODULE, 1), keys);
    return s_compared;
}

TEST(HashIndex, TextsThatCollideTakeAFewComparisonsEach)
{
    // The first of them are compared with all before, until there are too many to be an accident.
    static constexpr uint64_t first = 300 * 300 / 2;
    EXPECT_LE(comparisonsOf(hash_string, hash_stringCompare, COLLIDING), first + KEYS * 5);
    EXPECT_LE(comparisonsOf(hash_stringNoCase, hash_stringCompareNoCase, COLLIDING_NO_CASE),
              first + KEYS * 5);
}

TEST(HashIndex, TextsThatDifferInCaseAloneStayOneKeyHoweverManyCollide)
{
    const std::vector<std::string> texts = collidingTexts(1000, COLLIDING_NO_CASE);
    HashTable *table = hash_new_func(7, hash_stringNoCase, hash_stringCompareNoCase, MODULE, 1);
    for (const std::string &text : texts)
        EXPECT_EQ(insert(table, text.c_str(), text.c_str()), 1);
    for (const std::string &text : texts)
        EXPECT_EQ(get(table, cache_upper(text.c_str())), text);
    hash_destroy(table);
}

// Processor time of all this with pointers whose distance is `step`.
static std::clock_t timeOf(HashFunction hash, uintptr_t step)
{
    std::vector<const void *> keys;
    for (uintptr_t n = 1; n <= KEYS; ++n)
        keys.push_back(number(n * step));
    const std::clock_t start = std::clock();
    useEveryKey(hash_new_func(1, hash, nullptr, MODULE, 1), keys);
    return std::clock() - start;
}

TEST(HashIndex, PointersThatCollideTakeAboutAsLongAsOthers)
{
    const std::clock_t others = timeOf(nullptr, 16) + CLOCKS_PER_SEC / 1000;
    EXPECT_LT(timeOf(nullptr, uintptr_t{1} << 32), others * 20);
    EXPECT_LT(timeOf(sameHash, 16), others * 20);
}

TEST(HashIndex, EntriesMayBeRemovedFromTheMiddleOfACollidingChain)
{
    const std::vector<std::string> texts = collidingTexts(3000);
    HashTable *table = textTable(7);
    for (const std::string &text : texts)
        insert(table, text.c_str(), "old");
    Pairs expected;
    for (size_t i = 0; i < texts.size(); ++i) {
        if (i % 7 < 3 || i > 2900)
            EXPECT_STREQ(static_cast<char *>(hash_remove(table, texts[i].c_str())), "old");
        else
            expected.emplace_back(texts[i], "old");
    }
    hash_replace(table, texts[3].c_str(), "new"); // the first one left
    expected.erase(expected.begin());
    expected.emplace_back(texts[3], "new");
    insert(table, texts[2999].c_str(), "again");
    expected.emplace_back(texts[2999], "again");
    EXPECT_EQ(contents(table), expected);
    hash_destroy(table);
}

TEST(HashIndex, FindsWhatAMapFindsHoweverTheTableChanges)
{
    std::vector<std::string> texts = collidingTexts(700);
    for (int i = 0; i < 2000; ++i)
        texts.push_back("text " + std::to_string(i));
    std::mt19937 random(1); // the same every time
    HashTable *table = textTable(13);
    std::map<std::string, const char *> map;
    for (int i = 0; i < 40000; ++i) {
        const std::string &key = texts[random() % texts.size()];
        const auto found = map.find(key);
        ASSERT_EQ(hash_get(table, key.c_str()), found == map.end() ? nullptr : found->second);
        // The table fills in the first half and empties in the second.
        if ((random() % 4 == 0) == (i < 20000)) {
            EXPECT_EQ(hash_remove(table, key.c_str()) != nullptr, found != map.end());
            map.erase(key);
        } else {
            EXPECT_EQ(insert(table, key.c_str(), key.c_str()), found == map.end());
            map.emplace(key, key.c_str());
        }
        ASSERT_EQ(hash_count(table), map.size());
    }
    Pairs left = contents(table);
    std::sort(left.begin(), left.end());
    EXPECT_EQ(left, Pairs(map.begin(), map.end()));
    hash_destroy(table);
}

// ---- Broken contracts -------------------------------------------------------------------------

TEST(HashDeathTest, ATableNeedsBuckets)
{
    EXPECT_EXIT(textTable(0), testing::ExitedWithCode(1),
                "^Assertion failed - size != 0 \\(common/hash, line 136\\)\n$");
}

TEST(HashDeathTest, ANullTableIsABrokenContract)
{
    EXPECT_BROKEN_IN("common/hash", hash_clear(nullptr), "table != NULL", 165);
    EXPECT_BROKEN_IN("common/hash", insert(nullptr, "a", "1"), "table != NULL", 230);
    EXPECT_BROKEN_IN("common/hash", hash_replace(nullptr, "a", "1"), "table != NULL", 230);
    EXPECT_BROKEN_IN("common/hash", hash_get(nullptr, "a"), "table != NULL", 230);
    EXPECT_BROKEN_IN("common/hash", hash_haskey(nullptr, "a"), "table != NULL", 230);
    EXPECT_BROKEN_IN("common/hash", hash_remove(nullptr, "a"), "table != NULL", 230);
    EXPECT_BROKEN_IN("common/hash", hash_foreach(nullptr, nullptr, collect), "table != NULL", 275);
    EXPECT_BROKEN_IN("common/hash", hash_values(nullptr), "table != NULL", 292);
    EXPECT_BROKEN_IN("common/hash", hash_keys(nullptr), "table != NULL", 309);
    EXPECT_BROKEN_IN("common/hash", hash_count(nullptr), "h != NULL", 397);
}

TEST(HashDeathTest, ANullVisitorIsABrokenContract)
{
    HashTable *table = textTable(1);
    EXPECT_BROKEN_IN("common/hash", hash_foreach(table, nullptr, nullptr), "visitor != NULL", 276);
    hash_destroy(table);
}

TEST(HashDeathTest, ADeadTableIsABrokenContract)
{
    hash_debugEnable(1);
    HashTable *table = textTable(3);
    hash_debugEnable(0);
    insert(table, "a", "1");
    table->debug->flags = 0;
    const auto failure = [](int line) {
        return "^Assertion failed - is_alive\\(h\\) \\(common/hash, line " + std::to_string(line) +
               "\\)\n$";
    };
    EXPECT_EXIT(insert(table, "b", "2"), testing::ExitedWithCode(1), failure(339));
    EXPECT_EXIT(hash_remove(table, "a"), testing::ExitedWithCode(1), failure(381));
    EXPECT_EXIT(hash_destroy(table), testing::ExitedWithCode(1), failure(182));
    table->debug->flags = 1;
    hash_destroy(table);
}
