#define MODULE "tests/vector"
#include "common/base/vector.h"

#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

using Texts = std::vector<std::string>;

static Vector *vectorOf(std::initializer_list<const char *> elements)
{
    Vector *v = vec_new(MODULE, 1);
    for (const char *element : elements)
        vec_add(v, element);
    return v;
}

static Texts contents(const Vector *v)
{
    Texts texts;
    for (uint32_t i = 0; i < vec_size(v); ++i) {
        const char *text = static_cast<const char *>(vec_elementAt(v, i));
        texts.push_back(text != nullptr ? text : "(null)");
    }
    return texts;
}

static std::string next(Vector *v)
{
    const char *text = static_cast<const char *>(vec_iterNext(v));
    return text != nullptr ? text : "(end)";
}

static const char A[] = "a", B[] = "b", C[] = "c", D[] = "d", E[] = "e";

class VectorTest : public testing::Test {
  protected:
    void SetUp() override { v = vectorOf({A, B, C, D}); }
    void TearDown() override { vec_destroy(v); }
    Vector *v = nullptr;
};

// ---- Growth -----------------------------------------------------------------------------------

TEST(VectorGrowth, StorageIsAllocatedByTheFirstAddition)
{
    Vector *v = vec_new(MODULE, 1);
    EXPECT_EQ(v->capacity, 0U);
    EXPECT_EQ(v->data, nullptr);
    vec_add(v, A);
    EXPECT_EQ(v->capacity, 10U);
    vec_destroy(v);
}

TEST(VectorGrowth, TheEleventhAndTwentyFirstAdditionDoubleTheStorage)
{
    Vector *v = vec_new(MODULE, 1);
    std::vector<uint32_t> capacities;
    for (uint32_t i = 0; i < 21; ++i) {
        EXPECT_EQ(vec_add(v, A), i);
        capacities.push_back(v->capacity);
    }
    EXPECT_EQ(capacities[9], 10U);
    EXPECT_EQ(capacities[10], 20U);
    EXPECT_EQ(capacities[19], 20U);
    EXPECT_EQ(capacities[20], 40U);
    vec_destroy(v);
}

TEST(VectorGrowth, SettingBeyondTheInitialCapacityDoublesItUntilItFits)
{
    Vector *v = vec_new_size(3, MODULE, 1);
    vec_setAt(v, E, 7);
    EXPECT_EQ(v->capacity, 12U);
    EXPECT_EQ(contents(v),
              (Texts{"(null)", "(null)", "(null)", "(null)", "(null)", "(null)", "(null)", "e"}));
    vec_destroy(v);
}

TEST(VectorGrowth, TheStorageIsAlwaysLargerThanTheIndexThatIsSet)
{
    std::vector<uint32_t> capacities;
    for (uint32_t index : {9U, 10U, 19U, 20U, 39U, 40U}) {
        Vector *v = vec_new(MODULE, 1);
        vec_setAt(v, A, index);
        capacities.push_back(v->capacity);
        vec_destroy(v);
    }
    EXPECT_EQ(capacities, (std::vector<uint32_t>{10, 20, 20, 40, 40, 80}));
}

TEST(VectorGrowth, GrowthClearsTheSlotsBehindTheCount)
{
    Vector *v = vec_new_size(2, MODULE, 1);
    vec_add(v, A);
    vec_add(v, B);
    vec_removeAll(v);
    vec_setAt(v, C, 3);
    EXPECT_EQ(contents(v), (Texts{"(null)", "(null)", "(null)", "c"}));
    vec_destroy(v);
}

TEST(VectorGrowthDeathTest, ACapacityBeyond32BitsIsOutOfMemory)
{
    EXPECT_EXIT(vec_setAt(vec_new(MODULE, 1), A, UINT32_MAX), testing::ExitedWithCode(1),
                "\\(296\\)");
    EXPECT_EXIT(vec_setAt(vec_new(MODULE, 1), A, 0x20000000), testing::ExitedWithCode(1),
                "\\(296\\)");
}

TEST(VectorGrowth, SerialNumbersCountCreations)
{
    Vector *first = vec_new(MODULE, 1);
    Vector *second = vec_new_size(5, MODULE, 1);
    EXPECT_EQ(second->serial, first->serial + 1);
    vec_destroy(first);
    vec_destroy(second);
}

// ---- Adding -----------------------------------------------------------------------------------

TEST_F(VectorTest, AddNotPresentAddsOnlyWhatIsMissing)
{
    EXPECT_EQ(vec_addNotPresent(v, C), 2U);
    EXPECT_EQ(vec_addNotPresent(v, E), 4U);
    EXPECT_EQ(contents(v), (Texts{"a", "b", "c", "d", "e"}));
}

TEST_F(VectorTest, AddAllAppendsInOrderAndReturnsTheSourcesCount)
{
    Vector *source = vectorOf({E, A});
    EXPECT_EQ(vec_addAll(v, source), 2U);
    EXPECT_EQ(contents(v), (Texts{"a", "b", "c", "d", "e", "a"}));
    EXPECT_EQ(source->iterators, nullptr);
    vec_destroy(source);
}

TEST_F(VectorTest, AddAllOfAnEmptyVectorAddsNothing)
{
    Vector *source = vec_new(MODULE, 1);
    EXPECT_EQ(vec_addAll(v, source), 0U);
    EXPECT_EQ(contents(v), (Texts{"a", "b", "c", "d"}));
    vec_destroy(source);
}

TEST_F(VectorTest, AddAllNotPresentSkipsWhatIsThere)
{
    Vector *source = vectorOf({B, E, E, D});
    EXPECT_EQ(vec_addAllNotPresent(v, source), 4U);
    EXPECT_EQ(contents(v), (Texts{"a", "b", "c", "d", "e"}));
    vec_destroy(source);
}

TEST_F(VectorTest, AVectorMayBeAddedToItself)
{
    EXPECT_EQ(vec_addAll(v, v), 4U);
    EXPECT_EQ(contents(v), (Texts{"a", "b", "c", "d", "a", "b", "c", "d"}));
}

TEST_F(VectorTest, InsertShiftsWhatFollows)
{
    vec_insert(v, E, 1);
    EXPECT_EQ(contents(v), (Texts{"a", "e", "b", "c", "d"}));
}

TEST_F(VectorTest, InsertBeyondTheEndAppends)
{
    vec_insert(v, E, 100);
    EXPECT_EQ(contents(v), (Texts{"a", "b", "c", "d", "e"}));
}

TEST_F(VectorTest, MoveForwardShiftsThoseBetweenDown)
{
    vec_move(v, 0, 2);
    EXPECT_EQ(contents(v), (Texts{"b", "c", "a", "d"}));
}

TEST_F(VectorTest, MoveBackShiftsThoseBetweenUp)
{
    vec_move(v, 3, 1);
    EXPECT_EQ(contents(v), (Texts{"a", "d", "b", "c"}));
}

TEST_F(VectorTest, MoveFromBeyondTheEndDoesNothing)
{
    vec_move(v, 4, 0);
    EXPECT_EQ(contents(v), (Texts{"a", "b", "c", "d"}));
    EXPECT_EQ(v->capacity, 10U);
}

TEST_F(VectorTest, MoveBeyondTheEndGrowsTheStorageNotTheCount)
{
    vec_move(v, 0, 11);
    EXPECT_EQ(contents(v), (Texts{"b", "c", "d", "(null)"}));
    EXPECT_EQ(v->capacity, 20U);
    EXPECT_EQ(v->data[11], A);
}

TEST_F(VectorTest, SetReplacesOrExtends)
{
    vec_setAt(v, E, 1);
    EXPECT_EQ(contents(v), (Texts{"a", "e", "c", "d"}));
    vec_setAt(v, B, 5);
    EXPECT_EQ(contents(v), (Texts{"a", "e", "c", "d", "(null)", "b"}));
}

TEST_F(VectorTest, SetAfterRemoveAllBringsTheSkippedElementsBack)
{
    vec_removeAll(v);
    EXPECT_EQ(vec_size(v), 0U);
    EXPECT_EQ(v->capacity, 10U);
    vec_setAt(v, E, 2);
    EXPECT_EQ(contents(v), (Texts{"a", "b", "e"}));
}

// ---- Removing and looking up ------------------------------------------------------------------

TEST_F(VectorTest, RemoveTakesTheFirstEqualElementOnly)
{
    vec_add(v, B);
    EXPECT_EQ(vec_remove(v, B), 1);
    EXPECT_EQ(contents(v), (Texts{"a", "c", "d", "b"}));
    EXPECT_EQ(v->data[4], nullptr);
    EXPECT_EQ(vec_remove(v, E), 0);
}

TEST_F(VectorTest, RemoveAtAnswersZeroBeyondTheEnd)
{
    EXPECT_EQ(vec_removeAt(v, 4), 0);
    EXPECT_EQ(vec_removeAt(v, 3), 1);
    EXPECT_EQ(vec_removeAt(v, 0), 1);
    EXPECT_EQ(contents(v), (Texts{"b", "c"}));
}

TEST_F(VectorTest, PopReturnsAndRemovesTheLast)
{
    EXPECT_EQ(vec_top(v), D);
    EXPECT_EQ(vec_pop(v), D);
    EXPECT_EQ(contents(v), (Texts{"a", "b", "c"}));
    EXPECT_EQ(v->data[3], nullptr);
}

TEST(Vector, AnEmptyVectorAnswersNullAndMinusOne)
{
    Vector *v = vec_new(MODULE, 1);
    EXPECT_EQ(vec_pop(v), nullptr);
    EXPECT_EQ(vec_top(v), nullptr);
    EXPECT_EQ(vec_indexOf(v, A), -1);
    EXPECT_EQ(vec_elementAt(v, 0), nullptr);
    EXPECT_EQ(vec_size(v), 0U);
    EXPECT_EQ(vec_size(nullptr), 0U);
    vec_destroy(v);
    vec_destroy(nullptr);
}

TEST_F(VectorTest, LookUpIsByPointer)
{
    const std::string equalText = "b";
    EXPECT_EQ(vec_indexOf(v, B), 1);
    EXPECT_EQ(vec_indexOf(v, equalText.c_str()), -1);
    EXPECT_EQ(vec_elementAt(v, 3), D);
    EXPECT_EQ(vec_elementAt(v, 4), nullptr);
}

static int compareTexts(const void *a, const void *b)
{
    return std::strcmp(*static_cast<const char *const *>(a), *static_cast<const char *const *>(b));
}

TEST(Vector, SortOrdersByTheComparison)
{
    Vector *v = vectorOf({D, B, E, A, C});
    vec_sort(v, compareTexts);
    EXPECT_EQ(contents(v), (Texts{"a", "b", "c", "d", "e"}));
    vec_removeAll(v);
    vec_sort(v, compareTexts);
    EXPECT_EQ(vec_size(v), 0U);
    vec_destroy(v);
}

// ---- Copying ----------------------------------------------------------------------------------

TEST_F(VectorTest, ACopySharesTheSerialNumberAndHasNoOpenIterators)
{
    vec_iterStart(v);
    Vector *copy = vec_copy_func(v, MODULE, 2);
    EXPECT_EQ(copy->serial, v->serial);
    EXPECT_EQ(copy->iterators, nullptr);
    EXPECT_EQ(copy->capacity, 10U);
    EXPECT_NE(copy->data, v->data);
    EXPECT_EQ(contents(copy), (Texts{"a", "b", "c", "d"}));
    vec_add(copy, E);
    EXPECT_EQ(vec_size(v), 4U);
    vec_iterDone(v, 0);
    vec_destroy(copy);
}

TEST(Vector, ACopyOfAnEmptyVectorGrowsLikeItsSource)
{
    Vector *source = vec_new_size(3, MODULE, 1);
    Vector *copy = vec_copy_func(source, MODULE, 2);
    EXPECT_EQ(copy->capacity, 0U);
    vec_add(copy, A);
    EXPECT_EQ(copy->capacity, 3U);
    EXPECT_EQ(contents(copy), (Texts{"a"}));
    EXPECT_EQ(vec_copy_func(nullptr, MODULE, 3), nullptr);
    vec_destroy(source);
    vec_destroy(copy);
}

// ---- Iterating --------------------------------------------------------------------------------

TEST_F(VectorTest, TheIdiomVisitsEveryElementAndLeavesNoIterator)
{
    Texts seen;
    const char *element = nullptr;
    vec_iterStart(v);
    while (vec_iterDone(
        v, vec_iterHasNext(v) ? (element = static_cast<const char *>(vec_iterNext(v)), 1) : 0))
        seen.push_back(element);
    EXPECT_EQ(seen, (Texts{"a", "b", "c", "d"}));
    EXPECT_EQ(v->iterators, nullptr);
}

TEST_F(VectorTest, ARangeLoopMayBeLeftEarlyAndNested)
{
    Texts seen;
    for (const char *outer : vec_each<const char>(v)) {
        for (const char *inner : vec_each<const char>(v)) {
            if (inner == B)
                break;
            seen.push_back(std::string(outer) + inner);
        }
        if (outer == C)
            break;
    }
    EXPECT_EQ(seen, (Texts{"aa", "ba", "ca"}));
    EXPECT_EQ(v->iterators, nullptr);
}

TEST_F(VectorTest, LookDoesNotAdvance)
{
    EXPECT_EQ(vec_iterFirst(v), A);
    EXPECT_EQ(vec_iterLook(v), B);
    EXPECT_EQ(vec_iterLook(v), B);
    EXPECT_EQ(next(v), "b");
    vec_iterDone(v, 0);
}

TEST_F(VectorTest, AtTheEndNextAndLookAreNull)
{
    Vector *empty = vec_new(MODULE, 1);
    EXPECT_EQ(vec_iterFirst(empty), nullptr);
    EXPECT_EQ(vec_iterLook(empty), nullptr);
    EXPECT_EQ(vec_iterHasNext(empty), 0);
    EXPECT_NE(empty->iterators, nullptr);
    vec_iterDone(empty, 0);
    EXPECT_EQ(empty->iterators, nullptr);
    vec_destroy(empty);
}

TEST(Vector, ANullVectorIteratesAsAnEmptyOne)
{
    vec_iterStart(nullptr);
    EXPECT_EQ(vec_iterFirst(nullptr), nullptr);
    EXPECT_EQ(vec_iterNext(nullptr), nullptr);
    EXPECT_EQ(vec_iterLook(nullptr), nullptr);
    EXPECT_EQ(vec_iterHasNext(nullptr), 0);
    EXPECT_EQ(vec_iterDone(nullptr, 0), 0);
    for (const char *element : vec_each<const char>(nullptr))
        ADD_FAILURE() << element;
}

TEST_F(VectorTest, RemovingTheElementUnderAnIteratorGoesOnWithItsFollower)
{
    vec_iterStart(v);
    EXPECT_EQ(next(v), "a");
    vec_remove(v, B); // the next one
    EXPECT_EQ(next(v), "c");
    vec_remove(v, C); // the one just returned
    EXPECT_EQ(next(v), "d");
    EXPECT_EQ(next(v), "(end)");
    vec_iterDone(v, 0);
}

TEST_F(VectorTest, InsertBeforeAnIteratorDoesNotRepeatAnElement)
{
    vec_iterStart(v);
    EXPECT_EQ(next(v), "a");
    vec_insert(v, E, 0);
    EXPECT_EQ(next(v), "b");
    vec_insert(v, E, 3); // at the iterator's own position: passed over
    EXPECT_EQ(next(v), "c");
    vec_iterDone(v, 0);
    EXPECT_EQ(contents(v), (Texts{"e", "a", "b", "e", "c", "d"}));
}

TEST_F(VectorTest, InsertAndRemoveAdjustEveryNestedIterator)
{
    vec_iterStart(v);
    next(v);
    next(v);
    vec_iterStart(v);
    next(v);
    vec_removeAt(v, 0);
    EXPECT_EQ(next(v), "b");
    vec_iterDone(v, 0);
    EXPECT_EQ(next(v), "c");
    vec_iterDone(v, 0);
}

TEST_F(VectorTest, ElementsAddedInsideALoopAreVisited)
{
    Texts seen;
    for (const char *element : vec_each<const char>(v)) {
        seen.push_back(element);
        if (element == B)
            vec_add(v, E);
    }
    EXPECT_EQ(seen, (Texts{"a", "b", "c", "d", "e"}));
}

TEST_F(VectorTest, DestructionRecyclesIteratorsLeftOpen)
{
    vec_iterStart(v);
    const VectorIterator *left = v->iterators;
    vec_destroy(v);
    v = vec_new(MODULE, 1);
    vec_iterStart(v);
    EXPECT_EQ(v->iterators, left);
    EXPECT_EQ(v->iterators->index, 0U);
}

// ---- Broken contracts -------------------------------------------------------------------------

static std::string failure(const char *expression, int line)
{
    return "^Assertion failed - " + std::string(expression) + " \\(common/vector, line " +
           std::to_string(line) + "\\)\n$";
}

#define EXPECT_BROKEN(statement, expression, line)                                                 \
    EXPECT_EXIT(statement, testing::ExitedWithCode(1), failure(expression, line))

TEST(VectorDeathTest, ANullVectorIsABrokenContract)
{
    const char any[] = "^Assertion failed - p != NULL \\(common/vector, line [0-9]+\\)\n$";
    Vector *v = vec_new(MODULE, 1);
    const auto exits = testing::ExitedWithCode(1);
    EXPECT_EXIT(vec_add(nullptr, A), exits, any);
    EXPECT_EXIT(vec_addNotPresent(nullptr, A), exits, any);
    EXPECT_EXIT(vec_addAll(nullptr, v), exits, any);
    EXPECT_EXIT(vec_addAllNotPresent(nullptr, v), exits, any);
    EXPECT_EXIT(vec_insert(nullptr, A, 0), exits, any);
    EXPECT_EXIT(vec_move(nullptr, 0, 1), exits, any);
    EXPECT_EXIT(vec_setAt(nullptr, A, 0), exits, any);
    EXPECT_EXIT(vec_remove(nullptr, A), exits, any);
    EXPECT_EXIT(vec_removeAt(nullptr, 0), exits, any);
    EXPECT_EXIT(vec_removeAll(nullptr), exits, any);
    EXPECT_EXIT(vec_elementAt(nullptr, 0), exits, any);
    EXPECT_EXIT(vec_indexOf(nullptr, A), exits, any);
    EXPECT_EXIT(vec_top(nullptr), exits, any);
    EXPECT_EXIT(vec_pop(nullptr), exits, any);
    EXPECT_EXIT(vec_sort(nullptr, compareTexts), exits, any);
    vec_destroy(v);
}

TEST_F(VectorTest, BrokenContractsNameTheirPlace)
{
    EXPECT_BROKEN(vec_addAll(v, nullptr), "n != NULL", 321);
    EXPECT_BROKEN(vec_addAllNotPresent(v, nullptr), "n != NULL", 338);
    EXPECT_BROKEN(vec_iterNext(v), "p->iterator != NULL", 533);
    EXPECT_BROKEN(vec_iterLook(v), "p->iterator != NULL", 545);
    EXPECT_BROKEN(vec_iterHasNext(v), "p->iterator != NULL", 590);
    EXPECT_BROKEN(vec_iterDone(v, 0), "p->iterator != NULL", 571);
    EXPECT_BROKEN(vec_iterDone(v, 1), "p->iterator != NULL", 571);
    EXPECT_BROKEN(vec_iterDone(nullptr, 1), "more == 0", 568);
    EXPECT_BROKEN(vec_new_size(0, MODULE, 1), "initial_capacity != 0", 229);
}

TEST(VectorDeathTest, ElementsWithoutStorageAreABrokenContract)
{
    Vector v = {};
    v.count = 1;
    v.capacity = 2;
    EXPECT_BROKEN(vec_add(&v, A), "p->data != NULL", 290);
    EXPECT_BROKEN(vec_sort(&v, compareTexts), "p->data != NULL", 600);
}

TEST(VectorDeathTest, RemovingFromAVectorWithoutStorageIsABrokenContract)
{
    Vector *v = vec_new(MODULE, 1);
    EXPECT_BROKEN(vec_remove(v, A), "p->data != NULL", 447);
    vec_destroy(v);
}
