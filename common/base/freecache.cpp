#define MODULE "common/freecache"
#include "common/base/freecache.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "common/base/exitpath.h"
#include "common/base/memory.h"

// A free object's first 8 bytes link to the next. They are copied, not cast: the object belongs to
// somebody else's type.
static void *nextOf(const void *object)
{
    void *next;
    std::memcpy(&next, object, sizeof next);
    return next;
}

Freecache *freecache_new(uint64_t obj_size, uint32_t max_objs)
{
    ASSERT_AT(40, obj_size != 0);
    ASSERT_AT(41, max_objs != 0);
    ASSERT_TEXT_AT(42, obj_size >= sizeof(void *), "obj_size >= sizeof (void*)");
    Freecache *cache = static_cast<Freecache *>(xmalloc_must(sizeof(Freecache)));
    cache->obj_size = obj_size;
    cache->max_free = max_objs;
    return cache;
}

int freecache_destroy(Freecache *cache)
{
    if (cache == nullptr)
        return 0;
    for (void *object = cache->free_list; object != nullptr;) {
        void *next = nextOf(object);
        std::free(object);
        object = next;
    }
    std::free(cache);
    return 0;
}

void *freecache_get(Freecache *cache)
{
    if (cache == nullptr)
        return nullptr;
    void *object = cache->free_list;
    if (object == nullptr)
        return xmalloc_must(cache->obj_size);
    cache->free_list = nextOf(object);
    --cache->num_free;
    return std::memset(object, 0, cache->obj_size);
}

uint32_t freecache_add(Freecache *fc, void *obj)
{
    ASSERT_AT(70, fc != NULL);
    ASSERT_AT(71, obj != NULL);
    if (fc->num_free == fc->max_free) {
        std::free(obj);
        return 0;
    }
    std::memcpy(obj, &fc->free_list, sizeof fc->free_list);
    fc->free_list = obj;
    return ++fc->num_free;
}

uint32_t freecache_numFree(const Freecache *cache)
{
    return cache != nullptr ? cache->num_free : 0;
}

uint32_t freecache_maxFree(const Freecache *cache)
{
    return cache != nullptr ? cache->max_free : 0;
}

int freecache_isFull(const Freecache *cache)
{
    return cache == nullptr || cache->num_free == cache->max_free;
}

int freecache_isEmpty(const Freecache *cache)
{
    return cache == nullptr || cache->num_free == 0;
}

void freecache_dump(const Freecache *cache)
{
    std::fprintf(stderr, "Freecache: %p\n", static_cast<const void *>(cache));
    if (cache == nullptr)
        return;
    std::fprintf(stderr, "\tobj_size: %lu\n", static_cast<unsigned long>(cache->obj_size));
    std::fprintf(stderr, "\tnum_free: %u\n", cache->num_free);
    std::fprintf(stderr, "\tmax_free: %u\n", cache->max_free);
    std::fputs("\tfree_list:\n", stderr);
    for (void *object = cache->free_list; object != nullptr; object = nextOf(object))
        std::fprintf(stderr, "\t\t[%p]\n", object);
}
