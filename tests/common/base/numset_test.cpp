#define MODULE "common/numset"
#include "common/base/numset.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "common/base/vector.h"
#include "tests/common/broken_contract.h"

using Numbers = std::vector<uint64_t>;

static Numbers elements(const NumSet *set)
{
    Numbers numbers;
    Vector *vector = numset_elements(set);
    for (uint32_t i = 0; i < vec_size(vector); ++i)
        numbers.push_back(reinterpret_cast<uintptr_t>(vec_elementAt(vector, i)));
    vec_destroy(vector);
    EXPECT_EQ(numbers.size(), numset_size(set));
    return numbers;
}

// The elements that the top iteration has left; it ends.
static Numbers rest(NumSet *set)
{
    Numbers numbers;
    while (numset_iterHasNext(set) != 0) {
        const uint64_t next = numset_iterLook(set);
        numbers.push_back(numset_iterNext(set));
        EXPECT_EQ(numbers.back(), next);
    }
    EXPECT_EQ(numset_iterDone(set, 0), 0);
    return numbers;
}

class NumSetTest : public testing::Test {
  protected:
    NumSet *first = numset_new();
    NumSet *second = numset_new();

    void TearDown() override
    {
        numset_destroy(first);
        numset_destroy(second);
    }

    static void addAll(NumSet *set, const Numbers &numbers)
    {
        for (const uint64_t n : numbers)
            EXPECT_EQ(numset_add(set, n), 1);
    }
    void fill(const Numbers &a, const Numbers &b) const
    {
        addAll(first, a);
        addAll(second, b);
    }
};

TEST_F(NumSetTest, HoldsZero)
{
    EXPECT_EQ(numset_has(first, 0), 0);
    EXPECT_EQ(numset_add(first, 0), 1);
    EXPECT_EQ(numset_add(first, 0), 0);
    EXPECT_EQ(numset_has(first, 0), 1);
    EXPECT_EQ(elements(first), Numbers{0});
    EXPECT_EQ(numset_min(first), 0U);
    EXPECT_EQ(numset_remove(first, 0), 1);
    EXPECT_EQ(numset_remove(first, 0), 0);
    EXPECT_EQ(elements(first), Numbers());
}

TEST_F(NumSetTest, EveryNumberButTheLargestCanBeAMember)
{
    EXPECT_EQ(numset_canContain(0), 1);
    EXPECT_EQ(numset_canContain(UINT64_MAX - 1), 1);
    EXPECT_EQ(numset_canContain(UINT64_MAX), 0);
    addAll(first, {UINT64_MAX - 1});
    EXPECT_EQ(elements(first), Numbers{UINT64_MAX - 1});
}

using NumSetTestDeathTest = NumSetTest;

TEST_F(NumSetTestDeathTest, AddingTheLargestNumberIsABrokenContract)
{
    EXPECT_BROKEN(numset_add(first, UINT64_MAX), "numset_canContain(n)", 36);
}

// Plus one it is 0, which in 32 bits is the same as 2 to the 32nd.
TEST_F(NumSetTest, TheLargestNumberIsNeverPresent)
{
    addAll(first, {0xFFFFFFFF});
    EXPECT_EQ(numset_has(first, UINT64_MAX), 0);
    EXPECT_EQ(numset_remove(first, UINT64_MAX), 0);
    EXPECT_EQ(elements(first), Numbers{0xFFFFFFFF});
}

TEST_F(NumSetTest, NumbersAMultipleOf2ToThe32ndApartCountAsOne)
{
    addAll(first, {5});
    EXPECT_EQ(numset_add(first, 0x100000005), 0);
    EXPECT_EQ(numset_has(first, 0x200000005), 1);
    EXPECT_EQ(elements(first), Numbers{5});
}

TEST_F(NumSetTest, MembersComeInAscendingOrder)
{
    addAll(first, {0x500000001, 7, 0xFFFFFFFF, 0, 0x200000002});
    const Numbers ascending = {0, 7, 0xFFFFFFFF, 0x200000002, 0x500000001};
    EXPECT_EQ(elements(first), ascending);
    numset_iterReset(first);
    EXPECT_EQ(rest(first), ascending);
}

TEST_F(NumSetTest, TheSmallestAndTheLargestAreThoseOfTheNumbers)
{
    addAll(first, {0xFFFFFFFF, 7, 0x200000002, 9}); // plus one, 0xFFFFFFFF has the low bits 0
    EXPECT_EQ(numset_min(first), 7U);
    EXPECT_EQ(numset_max(first), 0x200000002U);
    addAll(second, {0});
    EXPECT_EQ(numset_max(second), 0U);
}

TEST_F(NumSetTest, AnEmptySetHasNoSmallestAndNoLargest)
{
    EXPECT_EQ(numset_min(first), UINT64_MAX);
    EXPECT_EQ(numset_max(first), UINT64_MAX);
    addAll(first, {1});
    numset_remove(first, 1); // empty with a list
    EXPECT_EQ(numset_min(first), UINT64_MAX);
    EXPECT_EQ(numset_max(first), UINT64_MAX);
}

TEST_F(NumSetTest, TheSumIsThatOfTheMembers)
{
    EXPECT_EQ(numset_sum(first), 0U);
    addAll(first, {0, 1, 20, 300});
    EXPECT_EQ(numset_sum(first), 321U);
    EXPECT_EQ(numset_size(first), 4U);
}

TEST_F(NumSetTest, SetsAreChangedByOthers)
{
    fill({0, 1, 2}, {2, 3});
    numset_union(first, second);
    EXPECT_EQ(elements(first), (Numbers{0, 1, 2, 3}));
    numset_subtract(first, second);
    EXPECT_EQ(elements(first), (Numbers{0, 1}));
    addAll(second, {1});
    numset_toggle(first, second);
    EXPECT_EQ(elements(first), (Numbers{0, 2, 3}));
    numset_intersect(first, second);
    EXPECT_EQ(elements(first), (Numbers{2, 3}));
    numset_copy(first, second);
    EXPECT_EQ(elements(first), (Numbers{1, 2, 3}));
}

TEST_F(NumSetTest, NewSetsLeaveTheirOriginsAlone)
{
    fill({0, 1, 2}, {2, 3});
    NumSet *sum = numset_newUnion(first, second);
    NumSet *common = numset_newIntersection(first, second);
    NumSet *difference = numset_newDifference(first, second);
    EXPECT_EQ(elements(sum), (Numbers{0, 1, 2, 3}));
    EXPECT_EQ(elements(common), Numbers{2});
    EXPECT_EQ(elements(difference), (Numbers{0, 1}));
    EXPECT_EQ(elements(first), (Numbers{0, 1, 2}));
    EXPECT_EQ(elements(second), (Numbers{2, 3}));
    for (NumSet *set : {sum, common, difference})
        numset_destroy(set);
}

TEST_F(NumSetTest, QueriesCompareTheMembers)
{
    EXPECT_EQ(numset_queryEqual(first, second), 1);
    fill({0, 1, 2}, {2, 0});
    EXPECT_EQ(numset_queryEqual(first, second), 0);
    EXPECT_EQ(numset_queryIntersect(first, second), 1);
    EXPECT_EQ(numset_querySubset(first, second), 1);
    EXPECT_EQ(numset_querySubset(second, first), 0);
    EXPECT_EQ(numset_queryComplement(first, second), 1);
    EXPECT_EQ(numset_queryComplement(second, first), 0);
    addAll(second, {1});
    EXPECT_EQ(numset_queryEqual(first, second), 1);
}

TEST_F(NumSetTest, AnIterationSeesASnapshotAndEndsWithNone)
{
    addAll(first, {0, 1, 2});
    numset_iterReset(first);
    EXPECT_EQ(numset_iterNext(first), 0U);
    numset_remove(first, 2);
    EXPECT_EQ(numset_iterNext(first), 1U);
    EXPECT_EQ(numset_iterNext(first), 2U);
    EXPECT_EQ(numset_iterHasNext(first), 0);
    EXPECT_EQ(numset_iterLook(first), NUMSET_NONE);
    EXPECT_EQ(numset_iterNext(first), NUMSET_NONE);
    EXPECT_EQ(numset_iterDone(first, 1), 1);
    EXPECT_EQ(numset_iterDone(first, 0), 0);
    numset_iterReset(second);
    EXPECT_EQ(rest(second), Numbers());
}

TEST_F(NumSetTest, SetsAreNumberedAsTheyAreCreated)
{
    EXPECT_EQ(numset_id(second), numset_id(first) + 1);
}

TEST_F(NumSetTestDeathTest, ANullSetIsABrokenContract)
{
    EXPECT_BROKEN(numset_add(nullptr, 1), "sp != NULL", 35);
    EXPECT_BROKEN(numset_remove(nullptr, 1), "sp != NULL", 43);
    EXPECT_BROKEN(numset_has(nullptr, 1), "sp != NULL", 50);
    EXPECT_BROKEN(numset_size(nullptr), "sp != NULL", 56);
    EXPECT_BROKEN(numset_sum(nullptr), "sp != NULL", 140);
    EXPECT_BROKEN(numset_min(nullptr), "sp != NULL", 150);
    EXPECT_BROKEN(numset_max(nullptr), "sp != NULL", 156);
    EXPECT_BROKEN(numset_elements(nullptr), "sp != NULL", 162);
    EXPECT_BROKEN(numset_iterReset(nullptr), "sp != NULL", 180);
    EXPECT_BROKEN(numset_iterHasNext(nullptr), "sp != NULL", 186);
    EXPECT_BROKEN(numset_iterLook(nullptr), "sp != NULL", 192);
    EXPECT_BROKEN(numset_iterNext(nullptr), "sp != NULL", 198);
    EXPECT_BROKEN(numset_iterDone(nullptr, 0), "sp != NULL", 204);
    EXPECT_BROKEN(numset_id(nullptr), "sp != NULL", 210);
    numset_destroy(nullptr); // is allowed
}

TEST_F(NumSetTestDeathTest, OneNullSetOfTwoIsABrokenContract)
{
    EXPECT_BROKEN(numset_union(nullptr, second), "sd != NULL", 70);
    EXPECT_BROKEN(numset_union(first, nullptr), "ss != NULL", 71);
    EXPECT_BROKEN(numset_intersect(nullptr, second), "sd != NULL", 80);
    EXPECT_BROKEN(numset_intersect(first, nullptr), "ss != NULL", 81);
    EXPECT_BROKEN(numset_subtract(nullptr, second), "sd != NULL", 90);
    EXPECT_BROKEN(numset_subtract(first, nullptr), "ss != NULL", 91);
    EXPECT_BROKEN(numset_toggle(nullptr, second), "sd != NULL", 100);
    EXPECT_BROKEN(numset_toggle(first, nullptr), "ss != NULL", 101);
    EXPECT_BROKEN(numset_newUnion(nullptr, second), "s1 != NULL", 110);
    EXPECT_BROKEN(numset_newIntersection(first, nullptr), "s2 != NULL", 111);
    EXPECT_BROKEN(numset_newDifference(nullptr, nullptr), "s1 != NULL", 110);
    EXPECT_BROKEN(numset_copy(nullptr, second), "dest != NULL", 120);
    EXPECT_BROKEN(numset_copy(first, nullptr), "src != NULL", 121);
    EXPECT_BROKEN(numset_queryEqual(nullptr, second), "sp1 != NULL", 130);
    EXPECT_BROKEN(numset_queryIntersect(first, nullptr), "sp2 != NULL", 131);
    EXPECT_BROKEN(numset_querySubset(nullptr, second), "sp1 != NULL", 130);
    EXPECT_BROKEN(numset_queryComplement(first, nullptr), "sp2 != NULL", 131);
}
