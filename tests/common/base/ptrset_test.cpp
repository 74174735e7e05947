#define MODULE "common/ptrset"
#include "common/base/ptrset.h"

#include <cstdlib>
#include <iterator>
#include <random>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/common/broken_contract.h"
#include "tests/common/report_lines.h"

using Numbers = std::vector<uintptr_t>;

static const void *number(uintptr_t n)
{
    return reinterpret_cast<const void *>(n);
}

static uintptr_t asNumber(const void *p)
{
    return reinterpret_cast<uintptr_t>(p);
}

static int falling(const void *slotA, const void *slotB)
{
    const uintptr_t a = asNumber(*static_cast<const void *const *>(slotA));
    const uintptr_t b = asNumber(*static_cast<const void *const *>(slotB));
    return a == b ? 0 : a > b ? -1 : 1;
}

static Numbers taken(Vector *vector)
{
    Numbers numbers;
    for (uint32_t i = 0; i < vec_size(vector); ++i)
        numbers.push_back(asNumber(vec_elementAt(vector, i)));
    vec_destroy(vector);
    return numbers;
}

static Numbers elements(const PtrSet *set)
{
    const Numbers numbers = taken(ptrset_elements(set));
    EXPECT_EQ(numbers.size(), ptrset_size(set));
    return numbers;
}

static void addAll(PtrSet *set, const Numbers &numbers)
{
    for (const uintptr_t n : numbers)
        ptrset_add(set, number(n));
}

// Two sets and the results of operations on them; all are destroyed at the end.
class PtrSetTest : public testing::Test {
  protected:
    PtrSet *first = ptrset_new(nullptr);
    PtrSet *second = ptrset_new(nullptr);
    PtrSet *result = nullptr;

    void TearDown() override
    {
        for (PtrSet *set : {first, second, result})
            ptrset_destroy(set);
    }

    void fill(const Numbers &a, const Numbers &b) const
    {
        addAll(first, a);
        addAll(second, b);
    }

    // The elements that the top iteration has left; it ends.
    static Numbers rest(PtrSet *set)
    {
        Numbers numbers;
        while (ptrset_iterHasNext(set) != 0) {
            const void *next = ptrset_iterLook(set);
            numbers.push_back(asNumber(ptrset_iterNext(set)));
            EXPECT_EQ(numbers.back(), asNumber(next));
        }
        EXPECT_EQ(ptrset_iterDone(set, 0), 0);
        return numbers;
    }

    static Numbers iterated(PtrSet *set)
    {
        ptrset_iterReset(set);
        return rest(set);
    }
};

// ---- Elements ---------------------------------------------------------------------------------

TEST_F(PtrSetTest, AddingAPresentElementHasNoEffect)
{
    EXPECT_EQ(ptrset_add(first, number(7)), 1);
    EXPECT_EQ(ptrset_add(first, number(7)), 0);
    EXPECT_EQ(elements(first), Numbers{7});
}

TEST_F(PtrSetTest, RemovingSaysWhetherTheElementWasThere)
{
    EXPECT_EQ(ptrset_remove(first, number(1)), 0);
    fill({1, 2}, {});
    EXPECT_EQ(ptrset_remove(first, number(1)), 1);
    EXPECT_EQ(ptrset_remove(first, number(1)), 0);
    EXPECT_EQ(elements(first), Numbers{2});
}

TEST_F(PtrSetTest, NullIsAnElementLikeOthers)
{
    EXPECT_EQ(ptrset_has(first, nullptr), 0);
    EXPECT_EQ(ptrset_add(first, nullptr), 1);
    EXPECT_EQ(ptrset_add(first, nullptr), 0);
    EXPECT_EQ(ptrset_has(first, nullptr), 1);
    EXPECT_EQ(ptrset_size(first), 1U);
    EXPECT_EQ(iterated(first), Numbers{0});
    EXPECT_EQ(ptrset_remove(first, nullptr), 1);
    EXPECT_EQ(ptrset_remove(first, nullptr), 0);
    EXPECT_EQ(ptrset_size(first), 0U);
}

TEST_F(PtrSetTest, HasAndSizeTellWhatIsIn)
{
    EXPECT_EQ(ptrset_has(first, number(1)), 0);
    EXPECT_EQ(ptrset_size(first), 0U);
    fill({1, 5}, {});
    EXPECT_EQ(ptrset_has(first, number(1)), 1);
    EXPECT_EQ(ptrset_has(first, number(2)), 0);
    EXPECT_EQ(ptrset_size(first), 2U);
}

TEST_F(PtrSetTest, WithoutAnOrderElementsComeByTheirLow32Bits)
{
    fill({0x500000001, 3, 0x200000002}, {});
    EXPECT_EQ(elements(first), (Numbers{0x500000001, 0x200000002, 3}));
}

TEST_F(PtrSetTest, ElementsAMultipleOf2ToThe32ndApartAreOne)
{
    fill({0x100000001}, {});
    EXPECT_EQ(ptrset_add(first, number(1)), 0);
    EXPECT_EQ(elements(first), Numbers{0x100000001});
}

TEST_F(PtrSetTest, AnOrderSortsElementsAndIterations)
{
    result = ptrset_new(falling);
    addAll(result, {2, 9, 4});
    EXPECT_EQ(elements(result), (Numbers{9, 4, 2}));
    EXPECT_EQ(iterated(result), (Numbers{9, 4, 2}));
    EXPECT_EQ(ptrset_getCmpFunc(result), &falling);
    EXPECT_EQ(ptrset_getCmpFunc(first), nullptr);
}

TEST_F(PtrSetTest, TheSumIsThatOfTheAddresses)
{
    EXPECT_EQ(ptrset_sum(first), 0U);
    fill({1, 20, 300}, {UINTPTR_MAX, 5});
    EXPECT_EQ(ptrset_sum(first), 321U);
    EXPECT_EQ(ptrset_sum(second), 4U);
}

TEST_F(PtrSetTest, SetsAreNumberedAsTheyAreCreated)
{
    result = ptrset_new(nullptr);
    EXPECT_EQ(ptrset_id(second), ptrset_id(first) + 1);
    EXPECT_EQ(ptrset_id(result), ptrset_id(first) + 2);
}

TEST_F(PtrSetTest, RecordsOfDestroyedSetsAreUsedAgain)
{
    PtrSet *old = ptrset_new(falling);
    addAll(old, {1, 2});
    ptrset_iterReset(old);
    const PtrSetIterator *iterator = old->iterators;
    const uint32_t id = ptrset_id(old);
    ptrset_destroy(old);
    result = ptrset_new(nullptr);
    EXPECT_EQ(result, old);
    EXPECT_EQ(ptrset_size(result), 0U);
    EXPECT_EQ(result->iterators, nullptr);
    EXPECT_EQ(ptrset_getCmpFunc(result), nullptr);
    EXPECT_EQ(ptrset_id(result), id + 1);
    addAll(result, {3});
    ptrset_iterReset(result);
    EXPECT_EQ(result->iterators, iterator);
    EXPECT_EQ(rest(result), Numbers{3});
}

TEST_F(PtrSetTest, ListsAndVectorsAreMadeAtTheirOwnPlaces)
{
    vec_debugEnable(1);
    skiplist_debugEnable(1);
    addAll(first, {1});
    skiplist_debugEnable(0);
    Vector *some = ptrset_elements(first);
    Vector *none = ptrset_elements(second);
    vec_debugEnable(0);
    EXPECT_STREQ(first->list->debug->file, "common/ptrset");
    EXPECT_EQ(first->list->debug->line, 130U);
    EXPECT_EQ(first->list->debug->flags, 7U);
    EXPECT_STREQ(some->debug->file, "common/skiplist");
    EXPECT_EQ(some->debug->line, 300U);
    EXPECT_STREQ(none->debug->file, "common/ptrset");
    EXPECT_EQ(none->debug->line, 379U);
    vec_destroy(some);
    vec_destroy(none);
}

// ---- Two sets ---------------------------------------------------------------------------------

TEST_F(PtrSetTest, TheUnionHasTheElementsOfBoth)
{
    fill({1, 2, 3}, {3, 4});
    ptrset_union(first, second);
    EXPECT_EQ(elements(first), (Numbers{1, 2, 3, 4}));
    EXPECT_EQ(elements(second), (Numbers{3, 4}));
}

TEST_F(PtrSetTest, TheIntersectionKeepsWhatBothHave)
{
    fill({1, 2, 3}, {3, 4, 1});
    ptrset_intersect(first, second);
    EXPECT_EQ(elements(first), (Numbers{1, 3}));
    EXPECT_EQ(elements(second), (Numbers{1, 3, 4}));
}

TEST_F(PtrSetTest, AnIntersectionWithAnEmptySetGivesUpTheList)
{
    fill({1, 2}, {});
    ptrset_intersect(first, second);
    EXPECT_EQ(elements(first), Numbers());
    EXPECT_EQ(first->list, nullptr);
    fill({1, 2}, {9});
    ptrset_remove(second, number(9)); // empty with a list
    ptrset_intersect(first, second);
    EXPECT_EQ(first->list, nullptr);
    ptrset_intersect(first, first);
    EXPECT_EQ(elements(first), Numbers());
}

TEST_F(PtrSetTest, SubtractionRemovesWhatTheSecondHas)
{
    fill({1, 2, 3}, {3, 4, 1});
    ptrset_subtract(first, second);
    EXPECT_EQ(elements(first), Numbers{2});
    EXPECT_EQ(elements(second), (Numbers{1, 3, 4}));
}

TEST_F(PtrSetTest, TogglingRemovesWhatIsPresentAndAddsTheRest)
{
    fill({1, 2, 3}, {3, 4, 1});
    ptrset_toggle(first, second);
    EXPECT_EQ(elements(first), (Numbers{2, 4}));
    EXPECT_EQ(elements(second), (Numbers{1, 3, 4}));
}

TEST_F(PtrSetTest, OperationsWithAnEmptySecondSetChangeNothing)
{
    fill({1, 2}, {});
    ptrset_union(first, second);
    ptrset_subtract(first, second);
    ptrset_toggle(first, second);
    EXPECT_EQ(elements(first), (Numbers{1, 2}));
}

TEST_F(PtrSetTest, ASetMayMeetItself)
{
    fill({1, 2, 3}, {1, 2, 3});
    ptrset_union(first, first);
    ptrset_intersect(first, first);
    ptrset_copy(first, first);
    EXPECT_EQ(elements(first), (Numbers{1, 2, 3}));
    ptrset_subtract(first, first);
    EXPECT_EQ(elements(first), Numbers());
    ptrset_toggle(second, second);
    EXPECT_EQ(elements(second), Numbers());
}

TEST_F(PtrSetTest, NewSetsLeaveTheirOriginsAlone)
{
    PtrSet *ordered = ptrset_new(falling);
    addAll(ordered, {1, 2, 3});
    fill({}, {3, 4});
    PtrSet *sum = ptrset_newUnion(ordered, second);
    PtrSet *common = ptrset_newIntersection(ordered, second);
    PtrSet *difference = ptrset_newDifference(ordered, second);
    EXPECT_EQ(elements(sum), (Numbers{4, 3, 2, 1})); // in the order of the first
    EXPECT_EQ(elements(common), Numbers{3});
    EXPECT_EQ(elements(difference), (Numbers{2, 1}));
    EXPECT_EQ(elements(ordered), (Numbers{3, 2, 1}));
    EXPECT_EQ(elements(second), (Numbers{3, 4}));
    for (PtrSet *set : {ordered, sum, common, difference})
        ptrset_destroy(set);
}

TEST_F(PtrSetTest, ACopyTakesThePlaceOfTheElementsAndKeepsTheOrder)
{
    result = ptrset_new(falling);
    addAll(result, {8, 9});
    const uint32_t id = ptrset_id(result);
    fill({1, 2}, {});
    ptrset_copy(result, first);
    EXPECT_EQ(elements(result), (Numbers{2, 1}));
    EXPECT_EQ(ptrset_id(result), id);
    ptrset_add(result, number(3));
    EXPECT_EQ(elements(first), (Numbers{1, 2}));
    ptrset_copy(result, second);
    EXPECT_EQ(elements(result), Numbers());
    ptrset_add(second, number(7));
    ptrset_copy(result, second);
    EXPECT_EQ(elements(result), Numbers{7});
    EXPECT_EQ(elements(first), (Numbers{1, 2}));
}

TEST_F(PtrSetTest, BehavesAsAnOrderedSetDoes)
{
    std::mt19937 random(3);
    std::set<uintptr_t> a;
    std::set<uintptr_t> b;
    for (int round = 0; round < 300; ++round) {
        for (int i = 0; i < 20; ++i) {
            const uintptr_t n = random() % 64;
            addAll(second, {n});
            b.insert(n);
        }
        std::vector<uintptr_t> combined;
        const auto out = std::back_inserter(combined);
        switch (random() % 4) {
        case 0:
            ptrset_union(first, second);
            std::set_union(a.begin(), a.end(), b.begin(), b.end(), out);
            break;
        case 1:
            ptrset_intersect(first, second);
            std::set_intersection(a.begin(), a.end(), b.begin(), b.end(), out);
            break;
        case 2:
            ptrset_subtract(first, second);
            std::set_difference(a.begin(), a.end(), b.begin(), b.end(), out);
            break;
        default:
            ptrset_toggle(first, second);
            std::set_symmetric_difference(a.begin(), a.end(), b.begin(), b.end(), out);
        }
        a = {combined.begin(), combined.end()};
        ASSERT_EQ(elements(first), combined);
        ptrset_subtract(second, second);
        b.clear();
    }
}

// ---- Queries ----------------------------------------------------------------------------------

TEST_F(PtrSetTest, SetsOfTheSameElementsAreEqual)
{
    fill({1, 2, 3}, {3, 2, 1});
    EXPECT_EQ(ptrset_queryEqual(first, second), 1);
    ptrset_remove(second, number(2));
    EXPECT_EQ(ptrset_queryEqual(first, second), 0);
    ptrset_add(second, number(4));
    EXPECT_EQ(ptrset_queryEqual(first, second), 0);
    EXPECT_EQ(ptrset_queryEqual(first, first), 1);
}

TEST_F(PtrSetTest, SetsThatDifferInOneElementOnlyAreNotEqual)
{
    fill({1, 2, 3}, {});
    for (const Numbers &others : {Numbers{0, 2, 3}, Numbers{1, 4, 3}, Numbers{1, 2, 5}}) {
        result = ptrset_new(nullptr);
        addAll(result, others);
        EXPECT_EQ(ptrset_queryEqual(first, result), 0);
        EXPECT_EQ(ptrset_queryEqual(result, first), 0);
        ptrset_destroy(result);
    }
    result = nullptr;
}

TEST_F(PtrSetTest, AnEmptySetIsEqualToAnotherAndToNoOther)
{
    EXPECT_EQ(ptrset_queryEqual(first, second), 1);
    fill({1}, {});
    EXPECT_EQ(ptrset_queryEqual(first, second), 0);
    EXPECT_EQ(ptrset_queryEqual(second, first), 0);
    ptrset_add(second, number(2));
    EXPECT_EQ(ptrset_queryEqual(first, second), 0);
    ptrset_remove(second, number(2));
    ptrset_remove(first, number(1)); // empty with a list
    EXPECT_EQ(ptrset_queryEqual(first, second), 1);
}

TEST_F(PtrSetTest, EqualityComparesPlaceByPlaceInEachSetsOwnOrder)
{
    result = ptrset_new(falling);
    addAll(result, {1, 2});
    fill({1, 2}, {});
    EXPECT_EQ(ptrset_queryEqual(first, result), 0);
    PtrSet *same = ptrset_new(falling);
    addAll(same, {2, 1});
    EXPECT_EQ(ptrset_queryEqual(same, result), 1);
    ptrset_destroy(same);
}

TEST_F(PtrSetTest, SetsIntersectWhenAnyElementIsInBoth)
{
    fill({1, 2, 3}, {4, 5});
    EXPECT_EQ(ptrset_queryIntersect(first, second), 0);
    ptrset_add(second, number(3));
    EXPECT_EQ(ptrset_queryIntersect(first, second), 1);
    EXPECT_EQ(ptrset_queryIntersect(second, first), 1);
}

TEST_F(PtrSetTest, ASubsetHasNoElementThatTheFirstLacks)
{
    fill({1, 2, 3}, {3, 1});
    EXPECT_EQ(ptrset_querySubset(first, second), 1);
    EXPECT_EQ(ptrset_querySubset(second, first), 0);
    EXPECT_EQ(ptrset_querySubset(first, first), 1);
    ptrset_add(second, number(4));
    EXPECT_EQ(ptrset_querySubset(first, second), 0);
}

TEST_F(PtrSetTest, TheComplementHasSomeElementThatTheSecondLacks)
{
    fill({1, 2}, {1, 2, 3});
    EXPECT_EQ(ptrset_queryComplement(first, second), 0);
    EXPECT_EQ(ptrset_queryComplement(second, first), 1);
    EXPECT_EQ(ptrset_queryComplement(first, first), 0);
}

TEST_F(PtrSetTest, AnEmptySetIsASubsetOfEverySetAndIntersectsNone)
{
    result = ptrset_new(nullptr);
    fill({1, 2}, {});
    EXPECT_EQ(ptrset_querySubset(first, second), 1);
    EXPECT_EQ(ptrset_querySubset(result, second), 1);
    EXPECT_EQ(ptrset_querySubset(second, first), 0);
    EXPECT_EQ(ptrset_queryIntersect(first, second), 0);
    EXPECT_EQ(ptrset_queryIntersect(second, first), 0);
    EXPECT_EQ(ptrset_queryComplement(first, second), 1);
    EXPECT_EQ(ptrset_queryComplement(second, first), 0);
}

// ---- Iterating --------------------------------------------------------------------------------

TEST_F(PtrSetTest, AnIterationSeesASnapshot)
{
    fill({1, 2, 3}, {});
    ptrset_iterReset(first);
    EXPECT_EQ(ptrset_iterNext(first), number(1));
    ptrset_remove(first, number(2));
    addAll(first, {4, 5});
    EXPECT_EQ(rest(first), (Numbers{2, 3}));
    EXPECT_EQ(iterated(first), (Numbers{1, 3, 4, 5}));
}

TEST_F(PtrSetTest, ASnapshotOutlivesTheList)
{
    fill({1, 2, 3}, {});
    ptrset_iterReset(first);
    ptrset_intersect(first, second);
    EXPECT_EQ(rest(first), (Numbers{1, 2, 3}));
    EXPECT_EQ(iterated(first), Numbers());
}

TEST_F(PtrSetTest, NestedIterationsSeeOnlyTheTopOne)
{
    fill({1, 2, 3}, {});
    ptrset_iterReset(first);
    EXPECT_EQ(ptrset_iterNext(first), number(1));
    ptrset_add(first, number(4));
    EXPECT_EQ(iterated(first), (Numbers{1, 2, 3, 4}));
    EXPECT_EQ(ptrset_iterLook(first), number(2));
    EXPECT_EQ(rest(first), (Numbers{2, 3}));
    EXPECT_EQ(first->iterators, nullptr);
}

TEST_F(PtrSetTest, AnIterationInsideAnotherOfASetThatWasEmptiedHasNoElements)
{
    fill({1, 2, 3}, {});
    ptrset_iterReset(first);
    EXPECT_EQ(ptrset_iterNext(first), number(1));
    ptrset_intersect(first, second);
    EXPECT_EQ(iterated(first), Numbers());
    EXPECT_EQ(rest(first), (Numbers{2, 3}));
}

TEST_F(PtrSetTest, TheEndOfAnIterationIsNull)
{
    fill({1}, {});
    ptrset_iterReset(first);
    ptrset_iterNext(first);
    EXPECT_EQ(ptrset_iterHasNext(first), 0);
    EXPECT_EQ(ptrset_iterLook(first), nullptr);
    EXPECT_EQ(ptrset_iterNext(first), nullptr);
    EXPECT_EQ(ptrset_iterDone(first, 1), 1);
    EXPECT_NE(first->iterators, nullptr);
    EXPECT_EQ(ptrset_iterDone(first, 0), 0);
    EXPECT_EQ(first->iterators, nullptr);
}

TEST_F(PtrSetTest, AnIterationOfAnEmptySetPushesNothingAndHasNoElements)
{
    ptrset_iterReset(first);
    EXPECT_EQ(first->iterators, nullptr);
    EXPECT_EQ(ptrset_iterHasNext(first), 0);
    EXPECT_EQ(ptrset_iterLook(first), nullptr);
    EXPECT_EQ(ptrset_iterNext(first), nullptr);
    EXPECT_EQ(ptrset_iterDone(first, 1), 1);
    EXPECT_EQ(ptrset_iterDone(first, 0), 0);
    fill({1}, {});
    ptrset_remove(first, number(1)); // empty with a list
    EXPECT_EQ(iterated(first), Numbers());
}

TEST_F(PtrSetTest, IterationsLeftOpenEndWithTheSet)
{
    fill({1, 2}, {});
    ptrset_iterReset(first);
    ptrset_iterReset(first);
    ptrset_iterNext(first);
}

// ---- Broken contracts -------------------------------------------------------------------------

using PtrSetTestDeathTest = PtrSetTest;

TEST_F(PtrSetTestDeathTest, IteratingWithoutAnIterationIsABrokenContract)
{
    fill({1}, {});
#define NOT_ITERATING "sp->table == NULL || sp->iterator != NULL"
    EXPECT_BROKEN(ptrset_iterLook(first), NOT_ITERATING, 441);
    EXPECT_BROKEN(ptrset_iterHasNext(first), NOT_ITERATING, 451);
    EXPECT_BROKEN(ptrset_iterNext(first), NOT_ITERATING, 461);
    EXPECT_BROKEN(ptrset_iterDone(first, 0), NOT_ITERATING, 471);
    EXPECT_BROKEN(ptrset_iterDone(first, 1), NOT_ITERATING, 471);
#undef NOT_ITERATING
}

TEST_F(PtrSetTestDeathTest, CopyingOverAnOpenIterationIsABrokenContract)
{
    fill({1}, {2});
    ptrset_iterReset(first);
    EXPECT_BROKEN(ptrset_copy(first, second), "dest->iterator == NULL", 227);
    EXPECT_BROKEN(ptrset_copy(first, first), "dest->iterator == NULL", 227);
}

TEST_F(PtrSetTestDeathTest, ANullSetIsABrokenContract)
{
    EXPECT_BROKEN(ptrset_add(nullptr, nullptr), "sp != NULL", 128);
    EXPECT_BROKEN(ptrset_remove(nullptr, nullptr), "sp != NULL", 138);
    EXPECT_BROKEN(ptrset_has(nullptr, nullptr), "sp != NULL", 150);
    EXPECT_BROKEN(ptrset_size(nullptr), "sp != NULL", 156);
    EXPECT_BROKEN(ptrset_elements(nullptr), "sp != NULL", 377);
    EXPECT_BROKEN(ptrset_sum(nullptr), "sp != NULL", 400);
    EXPECT_BROKEN(ptrset_iterReset(nullptr), "sp != NULL", 420);
    EXPECT_BROKEN(ptrset_iterLook(nullptr), "sp != NULL", 440);
    EXPECT_BROKEN(ptrset_iterHasNext(nullptr), "sp != NULL", 450);
    EXPECT_BROKEN(ptrset_iterNext(nullptr), "sp != NULL", 460);
    EXPECT_BROKEN(ptrset_iterDone(nullptr, 0), "sp != NULL", 470);
    EXPECT_BROKEN(ptrset_getCmpFunc(nullptr), "sp != NULL", 110);
    EXPECT_BROKEN(ptrset_id(nullptr), "sp != NULL", 116);
    ptrset_destroy(nullptr); // is allowed
}

TEST_F(PtrSetTestDeathTest, OneNullSetOfTwoIsABrokenContract)
{
    EXPECT_BROKEN(ptrset_union(nullptr, second), "sd != NULL", 170);
    EXPECT_BROKEN(ptrset_union(first, nullptr), "ss != NULL", 171);
    EXPECT_BROKEN(ptrset_intersect(nullptr, second), "sd != NULL", 182);
    EXPECT_BROKEN(ptrset_intersect(first, nullptr), "ss != NULL", 183);
    EXPECT_BROKEN(ptrset_subtract(nullptr, second), "sd != NULL", 200);
    EXPECT_BROKEN(ptrset_subtract(first, nullptr), "ss != NULL", 201);
    EXPECT_BROKEN(ptrset_toggle(nullptr, second), "sd != NULL", 212);
    EXPECT_BROKEN(ptrset_toggle(first, nullptr), "ss != NULL", 213);
    EXPECT_BROKEN(ptrset_copy(nullptr, second), "dest != NULL", 225);
    EXPECT_BROKEN(ptrset_copy(first, nullptr), "src != NULL", 226);
    EXPECT_BROKEN(ptrset_newUnion(nullptr, second), "s1 != NULL", 240);
    EXPECT_BROKEN(ptrset_newIntersection(first, nullptr), "s2 != NULL", 241);
    EXPECT_BROKEN(ptrset_newDifference(nullptr, nullptr), "s1 != NULL", 240);
    EXPECT_BROKEN(ptrset_queryIntersect(nullptr, second), "sp1 != NULL", 300);
    EXPECT_BROKEN(ptrset_queryIntersect(first, nullptr), "sp2 != NULL", 301);
    EXPECT_BROKEN(ptrset_querySubset(nullptr, second), "sp1 != NULL", 312);
    EXPECT_BROKEN(ptrset_querySubset(first, nullptr), "sp2 != NULL", 313);
    EXPECT_BROKEN(ptrset_queryComplement(nullptr, second), "sp1 != NULL", 324);
    EXPECT_BROKEN(ptrset_queryComplement(first, nullptr), "sp2 != NULL", 325);
    EXPECT_BROKEN(ptrset_queryEqual(nullptr, second), "sp1 != NULL", 340);
    EXPECT_BROKEN(ptrset_queryEqual(first, nullptr), "sp2 != NULL", 341);
}
