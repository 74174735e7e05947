// Takes the bytes for an existing package and appends to it. If that fails, the bytes are
// unchanged; if it succeeds, the new package has all of the old one and one more entry.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <sys/stat.h>
#include <unistd.h>

#include "common/diagnostics/package_zip.h"
#include "common/diagnostics/package_zip_internal.h"

static std::string s_directory;

static void removeDirectory()
{
    for (const char *name : {"/p.zip", "/m"})
        unlink((s_directory + name).c_str());
    rmdir(s_directory.c_str()); // fails if a file was left in it, which can then be seen
}

static void writeFile(const std::string &path, const void *data, size_t size)
{
    FILE *file = fopen(path.c_str(), "wb");
    if (file == nullptr || fwrite(data, 1, size, file) != size || fclose(file) != 0)
        abort();
}

static std::string readFile(const std::string &path)
{
    std::string text;
    FILE *file = fopen(path.c_str(), "rb");
    char buffer[4096];
    for (size_t n; (n = fread(buffer, 1, sizeof buffer, file)) > 0;)
        text.append(buffer, n);
    fclose(file);
    return text;
}

static void makeDirectory()
{
    struct stat info;
    s_directory = stat("/dev/shm", &info) == 0 ? "/dev/shm/qzfuzzXXXXXX" : "/tmp/qzfuzzXXXXXX";
    if (mkdtemp(s_directory.data()) == nullptr)
        abort();
    atexit(removeDirectory);
    writeFile(s_directory + "/m", "member\n", 7);
}

static bool append(const std::string &path)
{
    Package *package = package_claim(path.c_str());
    bool good = package_openReader(package) != 0;
    good = package_toWriter(package) != 0 && good;
    good = package_addFile(package, "m", (s_directory + "/m").c_str()) != 0 && good;
    good = package_finalise(package) != 0 && good;
    good = package_end(package) != 0 && good;
    package_release(package);
    return good;
}

static PackageDirectory directoryOf(const std::string &bytes)
{
    PackageDirectory directory;
    FILE *file = fmemopen(const_cast<char *>(bytes.data()), bytes.size(), "rb");
    if (!packageDirectory_read(file, bytes.size(), &directory))
        abort();
    fclose(file);
    return directory;
}

static void checkAppended(const std::string &before, const std::string &after)
{
    const PackageDirectory old = directoryOf(before);
    const PackageDirectory now = directoryOf(after);
    const size_t members = old.front + old.offset;
    if (now.count != old.count + 1 || now.front != old.front ||
        after.compare(0, members, before, 0, members) != 0 ||
        after.compare(now.front + now.offset, old.size, before, members, old.size) != 0 ||
        after.compare(now.front + now.end, std::string::npos, before, old.front + old.end) != 0)
        abort();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (s_directory.empty())
        makeDirectory();
    const std::string path = s_directory + "/p.zip";
    const std::string before(reinterpret_cast<const char *>(data), size);
    writeFile(path, before.data(), size);
    const bool good = append(path);
    const std::string after = readFile(path);
    if (good)
        checkAppended(before, after);
    else if (after != before)
        abort();
    return 0;
}
