#include "common/base/freecache.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

// An object of 16 bytes that its user left dirty.
static void *dirtyObject(Freecache *cache)
{
    return memset(freecache_get(cache), 0xAA, 16);
}

static std::string bytes(const void *object)
{
    return std::string(static_cast<const char *>(object), 16);
}

static std::string address(const void *p)
{
    char text[40];
    std::snprintf(text, sizeof text, "%p", p);
    return text;
}

static std::string dump(const Freecache *cache)
{
    testing::internal::CaptureStderr();
    freecache_dump(cache);
    return testing::internal::GetCapturedStderr();
}

TEST(Freecache, ANewCacheIsEmpty)
{
    Freecache *cache = freecache_new(16, 2);
    EXPECT_EQ(cache->obj_size, 16U);
    EXPECT_EQ(freecache_numFree(cache), 0U);
    EXPECT_EQ(freecache_maxFree(cache), 2U);
    EXPECT_EQ(freecache_isEmpty(cache), 1);
    EXPECT_EQ(freecache_isFull(cache), 0);
    EXPECT_EQ(freecache_destroy(cache), 0);
}

TEST(Freecache, AnObjectHandedBackDirtyComesOutAllZeros)
{
    Freecache *cache = freecache_new(16, 2);
    void *object = dirtyObject(cache);
    freecache_add(cache, object);
    void *again = freecache_get(cache);
    EXPECT_EQ(again, object);
    EXPECT_EQ(bytes(again), std::string(16, '\0'));
    freecache_add(cache, again);
    freecache_destroy(cache);
}

TEST(Freecache, TheLinkOfARecycledObjectIsZeroedToo)
{
    Freecache *cache = freecache_new(16, 2);
    void *first = dirtyObject(cache);
    void *second = dirtyObject(cache);
    freecache_add(cache, first);
    freecache_add(cache, second); // its link points to the first
    void *again = freecache_get(cache);
    EXPECT_EQ(again, second);
    EXPECT_EQ(bytes(again), std::string(16, '\0'));
    freecache_add(cache, again);
    freecache_destroy(cache);
}

TEST(Freecache, ObjectsAreRecycledLastInFirstOut)
{
    Freecache *cache = freecache_new(16, 3);
    void *first = freecache_get(cache);
    void *second = freecache_get(cache);
    EXPECT_EQ(freecache_add(cache, first), 1U);
    EXPECT_EQ(freecache_add(cache, second), 2U);
    EXPECT_EQ(freecache_get(cache), second);
    EXPECT_EQ(freecache_get(cache), first);
    EXPECT_EQ(freecache_isEmpty(cache), 1);
    std::free(first);
    std::free(second);
    freecache_destroy(cache);
}

TEST(Freecache, AddingToAFullCacheFreesTheObject)
{
    Freecache *cache = freecache_new(16, 1);
    void *first = freecache_get(cache);
    void *second = freecache_get(cache);
    EXPECT_EQ(freecache_add(cache, first), 1U);
    EXPECT_EQ(freecache_isFull(cache), 1);
    EXPECT_EQ(freecache_add(cache, second), 0U);
    EXPECT_EQ(freecache_isFull(cache), 1);
    EXPECT_EQ(freecache_numFree(cache), 1U);
    EXPECT_EQ(cache->free_list, first);
    freecache_destroy(cache);
}

TEST(Freecache, ANullCacheIsFullEmptyAndHoldsNothing)
{
    EXPECT_EQ(freecache_isFull(nullptr), 1);
    EXPECT_EQ(freecache_isEmpty(nullptr), 1);
    EXPECT_EQ(freecache_numFree(nullptr), 0U);
    EXPECT_EQ(freecache_maxFree(nullptr), 0U);
    EXPECT_EQ(freecache_get(nullptr), nullptr);
    EXPECT_EQ(freecache_destroy(nullptr), 0);
}

TEST(Freecache, DumpListsTheFreeObjectsFromTheHead)
{
    Freecache *cache = freecache_new(16, 8);
    void *first = freecache_get(cache);
    void *second = freecache_get(cache);
    freecache_add(cache, first);
    freecache_add(cache, second);
    EXPECT_EQ(dump(cache), "Freecache: " + address(cache) +
                               "\n\tobj_size: 16\n\tnum_free: 2\n\tmax_free: 8\n\tfree_list:\n"
                               "\t\t[" +
                               address(second) + "]\n\t\t[" + address(first) + "]\n");
    freecache_destroy(cache);
}

TEST(Freecache, DumpOfANullCacheStopsAfterItsAddress)
{
    EXPECT_EQ(dump(nullptr), "Freecache: (nil)\n");
}

TEST(FreecacheDeathTest, CreationChecksItsArgumentsInOrder)
{
    EXPECT_EXIT(freecache_new(0, 0), testing::ExitedWithCode(1),
                "^Assertion failed - obj_size != 0 \\(common/freecache, line 40\\)\n$");
    EXPECT_EXIT(freecache_new(4, 0), testing::ExitedWithCode(1),
                "^Assertion failed - max_objs != 0 \\(common/freecache, line 41\\)\n$");
    EXPECT_EXIT(freecache_new(4, 1), testing::ExitedWithCode(1),
                "^Assertion failed - obj_size >= sizeof \\(void\\*\\) \\(common/freecache, line 42"
                "\\)\n$");
}

TEST(FreecacheDeathTest, AddingNeedsACacheAndAnObject)
{
    int object = 0;
    EXPECT_EXIT(freecache_add(nullptr, &object), testing::ExitedWithCode(1),
                "^Assertion failed - fc != NULL \\(common/freecache, line 70\\)\n$");
    EXPECT_EXIT(freecache_add(freecache_new(16, 1), nullptr), testing::ExitedWithCode(1),
                "^Assertion failed - obj != NULL \\(common/freecache, line 71\\)\n$");
}
