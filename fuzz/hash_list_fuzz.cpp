// Hash lists. Any bytes are read by the format's rules, which are stated a second time here. A list
// matches exactly if it can be read and all of its entries match.
#include <algorithm>
#include <optional>
#include <utility>

#include <sys/mman.h>
#include <unistd.h>

#include "common/base/vector.h"
#include "common/formats/shahash.h"
#include "fuzz/support.h"

using Entries = std::vector<std::pair<std::string, std::string>>; // name and digest

// The entries of a text, or nothing if it is not a list.
static std::optional<Entries> expectedEntries(const std::string &text)
{
    Entries entries;
    for (size_t at = 0; at < text.size();) {
        const size_t end = std::min(text.find('\n', at), text.size());
        const std::string line = text.substr(at, end - at);
        const size_t blank = line.find(' ');
        if (blank == std::string::npos || line.find('\0') != std::string::npos)
            return std::nullopt;
        size_t name = line.find_first_not_of(" \t\n\v\f\r", blank);
        name = std::min(name, line.size());
        if (name < line.size() && line[name] == '*')
            ++name;
        entries.emplace_back(line.substr(name), line.substr(0, blank));
        at = end + 1;
    }
    return entries.empty() ? std::nullopt : std::optional(entries);
}

static std::optional<Entries> readEntries(const char *path, const char *prefix)
{
    Vector *vector = shahash_readList(path, prefix);
    if (vector == nullptr)
        return std::nullopt;
    Entries entries;
    for (const FileEntry *entry : vec_each<const FileEntry>(vector))
        entries.emplace_back(entry->name, entry->digest);
    shahash_freeEntries(vector);
    return entries;
}

static std::optional<Entries> withPrefix(std::optional<Entries> entries, const std::string &prefix)
{
    if (entries)
        for (auto &[name, digest] : *entries)
            if (!name.empty())
                name.insert(0, name[0] == '/' ? prefix : prefix + "/");
    return entries;
}

// Whether the list can be read, and each of its entries has a digest and a name and matches. The
// names are those of the scratch directory.
static int expectedAnswer(const std::optional<Entries> &entries)
{
    if (!entries)
        return 0;
    for (const auto &[name, digest] : *entries) {
        const std::string path = name[0] == '/' ? name : scratchDirectory() + "/" + name;
        if (digest.empty() || name.empty() || !shahash_checkFile(digest.c_str(), path.c_str()))
            return 0;
    }
    return 1;
}

// The files of the seeds.
static void prepare()
{
    for (const char *name : {"abc", "two words"})
        writeFile(scratchDirectory() + "/" + name, "abc");
}

static void checkList(const std::string &path, const std::string &text)
{
    const std::optional<Entries> expected = expectedEntries(text);
    require(readEntries(path.c_str(), nullptr) == expected);
    require(readEntries(path.c_str(), "some/where") == withPrefix(expected, "some/where"));
    const char *directory = scratchDirectory().c_str();
    require(shahash_checkList(directory, path.c_str()) == expectedAnswer(expected));
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const bool prepared = (prepare(), true);
    require(prepared);
    const int memory = memfd_create("list", MFD_CLOEXEC);
    require(write(memory, data, size) == static_cast<ssize_t>(size));
    const std::string path = "/proc/self/fd/" + std::to_string(memory);
    const std::string text(reinterpret_cast<const char *>(data), size);
    noting([&] { checkList(path, text); });
    freeNoted();
    close(memory);
    return 0;
}
