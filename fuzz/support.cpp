#include "fuzz/support.h"

#include <cstring>
#include <filesystem>

#include "common/base/stringcache.h"

#ifdef __clang__
#if __has_feature(address_sanitizer)
#include <sanitizer/allocator_interface.h>
#define ALLOCATIONS_CAN_BE_SEEN
#endif
#endif

FILE *memoryFile(const std::string &bytes)
{
    FILE *stream = bytes.empty() ? std::fopen("/dev/null", "rb")
                                 : fmemopen(const_cast<char *>(bytes.data()), bytes.size(), "rb");
    require(stream != nullptr);
    return stream;
}

static void removeScratch()
{
    std::error_code ignored;
    std::filesystem::remove_all(scratchDirectory(), ignored);
}

const std::string &scratchDirectory()
{
    static std::string directory;
    if (directory.empty()) {
        const bool memory = std::filesystem::is_directory("/dev/shm");
        directory = memory ? "/dev/shm/qzfuzzXXXXXX" : "/tmp/qzfuzzXXXXXX";
        require(mkdtemp(directory.data()) != nullptr);
        std::atexit(removeScratch);
    }
    return directory;
}

void writeFile(const std::string &path, const std::string &bytes)
{
    FILE *file = std::fopen(path.c_str(), "wb");
    require(file != nullptr && std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size());
    require(std::fclose(file) == 0);
}

std::vector<std::string> splitFields(const std::string &bytes, const std::string &separator,
                                     size_t count)
{
    std::vector<std::string> parts;
    size_t at = 0;
    while (parts.size() + 1 < count) {
        const size_t end = bytes.find(separator, at);
        if (end == std::string::npos)
            break;
        parts.push_back(bytes.substr(at, end - at));
        at = end + separator.size();
    }
    parts.push_back(bytes.substr(at));
    return parts;
}

// ---- Strings ----------------------------------------------------------------------------------

#ifdef ALLOCATIONS_CAN_BE_SEEN

static constexpr uint32_t USUAL_BUCKETS = 5077;

struct Allocation {
    const volatile void *start;
    size_t size;
};

// The blocks that have been allocated while strings were noted and have not been freed. The hooks
// must not allocate.
static Allocation s_allocations[1 << 18];
static size_t s_count;
static bool s_noting;

static void allocated(const volatile void *start, size_t size)
{
    if (!s_noting)
        return;
    require(s_count < std::size(s_allocations));
    s_allocations[s_count++] = {start, size};
}

static void freed(const volatile void *start)
{
    for (size_t i = s_count; i-- > 0;) {
        if (s_allocations[i].start == start) {
            s_allocations[i] = s_allocations[--s_count];
            return;
        }
    }
}

static bool isText(const Allocation &allocation)
{
    const auto *text = static_cast<const char *>(const_cast<const void *>(allocation.start));
    return strnlen(text, allocation.size) + 1 == allocation.size;
}

bool noteStrings(bool on)
{
    static const bool hooked = __sanitizer_install_malloc_and_free_hooks(allocated, freed) != 0;
    require(hooked);
    const bool before = s_noting;
    cache_setSize(on ? 0 : USUAL_BUCKETS);
    s_noting = on;
    return before;
}

void freeNoted()
{
    while (s_count != 0) {
        const Allocation last = s_allocations[--s_count];
        if (isText(last))
            std::free(const_cast<void *>(last.start));
    }
}

#else

bool noteStrings(bool)
{
    return false;
}

void freeNoted() {}

#endif
