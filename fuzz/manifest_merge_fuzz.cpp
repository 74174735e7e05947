// Manifests. The input is up to four documents, separated by lines "%%". Whatever they hold, the
// answer is 0 or 1 and the same every time, and a document that is not a manifest does not change
// it.
#include <filesystem>

#include "common/formats/shahash.h"
#include "fuzz/support.h"

static constexpr size_t MAX_DOCUMENTS = 4;

static std::string inScratch(const std::string &name)
{
    return scratchDirectory() + "/" + name;
}

static std::string nameOf(size_t document)
{
    return inScratch("manifests/vxp" + std::to_string(document) + ".xml");
}

// The file of the seeds, and the directories.
static void prepare()
{
    std::filesystem::create_directory(inScratch("manifests"));
    std::filesystem::create_directory(inScratch("tree"));
    writeFile(inScratch("tree/abc"), "abc");
}

static int check()
{
    const std::string tree = inScratch("tree");
    const std::string manifests = inScratch("manifests");
    const int answer =
        noting([&] { return shahash_checkManifests(tree.c_str(), manifests.c_str()); });
    freeNoted();
    return answer;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const bool prepared = (prepare(), true);
    require(prepared);
    const std::string text(reinterpret_cast<const char *>(data), size);
    const auto parts = splitFields(text, "%%\n", MAX_DOCUMENTS);
    for (size_t i = 0; i < parts.size(); ++i)
        writeFile(nameOf(i), parts[i]);
    const int answer = check();
    require(answer == 0 || answer == 1);
    const std::string other = inScratch("manifests/vxp_none.xml");
    writeFile(other, "<?xml version=\"1.0\"?>\n<package><other></other></package>\n");
    require(check() == answer);
    require(std::remove(other.c_str()) == 0);
    for (size_t i = 0; i < parts.size(); ++i)
        require(std::remove(nameOf(i).c_str()) == 0);
    return 0;
}
