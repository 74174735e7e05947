// Manifests: the input is up to four documents, separated by lines "%%". Whatever they hold, the
// answer is 0 or 1, the same every time, and does not depend on a document that is no manifest.
#include "common/shahash.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <unistd.h>

#include "common/osdep.h"

static constexpr size_t MAX_DOCUMENTS = 4;

static void require(bool condition)
{
    if (!condition)
        std::abort();
}

static void put(const std::string &name, const std::string &text)
{
    FILE *file = std::fopen(name.c_str(), "wb");
    require(file != nullptr && std::fwrite(text.data(), 1, text.size(), file) == text.size());
    require(std::fclose(file) == 0);
}

static std::string nameOf(size_t document)
{
    return "manifests/vxp" + std::to_string(document) + ".xml";
}

static std::vector<std::string> documents(const std::string &text)
{
    static const std::string separator = "%%\n";
    std::vector<std::string> parts;
    size_t at = 0;
    while (parts.size() + 1 < MAX_DOCUMENTS) {
        const size_t end = text.find(separator, at);
        if (end == std::string::npos)
            break;
        parts.push_back(text.substr(at, end - at));
        at = end + separator.size();
    }
    parts.push_back(text.substr(at));
    return parts;
}

// Works in a directory of its own, with the file of the seeds.
static void prepare()
{
    char *directory = osdep_tempDir();
    require(directory != nullptr && chdir(directory) == 0);
    require(osdep_mkdirs("manifests") == 0 && osdep_mkdirs("tree") == 0);
    put("tree/abc", "abc");
    std::free(directory);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const bool prepared = (prepare(), true);
    require(prepared);
    const auto parts = documents(std::string(reinterpret_cast<const char *>(data), size));
    for (size_t i = 0; i < parts.size(); ++i)
        put(nameOf(i), parts[i]);
    const int answer = shahash_checkManifests("tree", "manifests");
    require(answer == 0 || answer == 1);
    put("manifests/vxp_none.xml", "<?xml version=\"1.0\"?>\n<package><other></other></package>\n");
    require(shahash_checkManifests("tree", "manifests") == answer);
    require(std::remove("manifests/vxp_none.xml") == 0);
    for (size_t i = 0; i < parts.size(); ++i)
        require(std::remove(nameOf(i).c_str()) == 0);
    return 0;
}
