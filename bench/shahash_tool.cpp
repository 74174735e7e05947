// The operations that bench/shahash measures, one per run:
//
//     shahash_tool digest FILE          digest-portable FILE
//     shahash_tool list DIRECTORY LIST  check DIRECTORY LIST  merge DIRECTORY
//
// It also makes the inputs: a tree of FILES files with BYTES bytes in all, and manifests.
//
//     shahash_tool make-tree DIRECTORY FILES BYTES
//     shahash_tool make-manifests DIRECTORY MANIFESTS FILES
#include "common/formats/shahash.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>

#include "common/formats/sha.h"
#include "common/os/osdep_file.h"

namespace {

// Stops at any failure, because then there is nothing to measure.
void require(bool condition)
{
    if (!condition)
        std::abort();
}

FILE *create(const std::string &path)
{
    FILE *file = std::fopen(path.c_str(), "wb");
    require(file != nullptr);
    return file;
}

void digestPortably(const char *path)
{
    static char block[16384];
    FILE *file = std::fopen(path, "rb");
    require(file != nullptr);
    std::setvbuf(file, nullptr, _IONBF, 0);
    ShaState state;
    sha_startPortable(&state, &SHA_256);
    while (const size_t size = std::fread(block, 1, sizeof block, file))
        sha_update(&state, block, size);
    std::fclose(file);
    uint8_t digest[SHA256_SIZE];
    sha_finish(&state, digest);
    for (const uint8_t byte : digest)
        std::printf("%02x", byte);
    std::printf("\n");
}

// Files of all sizes up to twice the mean, 100 in a directory.
void makeTree(const std::string &top, size_t files, size_t bytes)
{
    std::mt19937 random(1);
    std::string data(2 * bytes / files + 1, '\0');
    for (char &byte : data)
        byte = static_cast<char>(random());
    for (size_t i = 0; i < files; ++i) {
        const std::string directory = top + "/directory" + std::to_string(i / 100);
        require(osdep_mkdirs(directory.c_str()) == 0);
        FILE *file = create(directory + "/file" + std::to_string(i));
        const size_t size = random() % data.size();
        require(std::fwrite(data.data() + data.size() - size, 1, size, file) == size);
        require(std::fclose(file) == 0);
    }
}

void makeManifests(const std::string &directory, size_t manifests, size_t files)
{
    for (size_t m = 1; m <= manifests; ++m) {
        FILE *file = create(directory + "/vxp" + std::to_string(m) + ".xml");
        std::fprintf(file,
                     "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<package>\n"
                     "  <content datestamp=\"%zu\">\n",
                     m);
        for (size_t i = 0; i < files; ++i)
            std::fprintf(file,
                         "    <file name=\"./directory%zu/file%zu\">\n"
                         "      <hash>%064zx</hash>\n    </file>\n",
                         i / 100, i, i * m);
        std::fprintf(file, "  </content>\n</package>\n");
        require(std::fclose(file) == 0);
    }
}

size_t number(const char *text)
{
    return std::strtoull(text, nullptr, 10);
}

} // namespace

int main(int argc, char **argv)
{
    const std::string what = argc < 3 ? "" : argv[1];
    if (what == "digest")
        std::puts(sha256_path(argv[2]));
    else if (what == "digest-portable")
        digestPortably(argv[2]);
    else if (what == "merge")
        std::printf("%d\n", shahash_checkManifests(nullptr, argv[2]));
    else if (what == "list" && argc == 4)
        require(shahash_writeListDefault(argv[2], argv[3]));
    else if (what == "check" && argc == 4)
        require(shahash_checkList(argv[2], argv[3]) == 1);
    else if (what == "make-tree" && argc == 5)
        makeTree(argv[2], number(argv[3]), number(argv[4]));
    else if (what == "make-manifests" && argc == 5)
        makeManifests(argv[2], number(argv[3]), number(argv[4]));
    else
        return 2;
    return 0;
}
