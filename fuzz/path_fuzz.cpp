// Path names made of any bytes: the properties that hold for every one of them.

#include "common/os/osdep_file.h"
#include "common/text/osdep_path.h"
#include "fuzz/support.h"

// Takes over a string that the function under test has made; it must not be null.
static std::string taken(char *text)
{
    require(text != nullptr);
    std::string copy = text;
    std::free(text);
    return copy;
}

static void check_normalise(const std::string &path)
{
    const std::string normal = taken(osdep_normalisePath(path.c_str()));
    require(taken(osdep_normalisePath(normal.c_str())) == normal);
    require(normal.find("//") == std::string::npos);
    require(normal.find("/./") == std::string::npos);
    require(normal.empty() == path.empty());
    require(osdep_isAbsolute(normal.c_str()) == osdep_isAbsolute(path.c_str()));
    require(normal.size() <= path.size() + 1);
    require(path.empty() || path[0] != '/' || normal.find("/../") == std::string::npos);
    const bool keepsSlash = normal.size() < 3 || normal[normal.size() - 2] == ':';
    require(normal.empty() || normal.back() != '/' || keepsSlash);
}

static void check_absolute(const std::string &path)
{
    const std::string absolute = taken(osdep_absolutePath(path.c_str()));
    require(absolute[0] == '/');
    require(taken(osdep_absolutePath(absolute.c_str())) == absolute);
    // The relative path leads back to the same place.
    const std::string relative = taken(osdep_relativePath(path.c_str()));
    if (relative != ".")
        require(taken(osdep_absolutePath(relative.c_str())) == absolute);
}

static void check_parts(const std::string &path)
{
    const std::string base = osdep_baseName(path.c_str());
    require(base.find('/') == std::string::npos);
    require(taken(osdep_baseNameCopy(path.c_str())) == base);
    const std::string stem = taken(osdep_stem(path.c_str()));
    const std::string dotted = taken(osdep_stemDot(path.c_str()));
    require(base.compare(0, dotted.size(), dotted) == 0);
    require(dotted == (stem.size() == base.size() ? stem : stem + "."));
    const char *extension = osdep_extension(path.c_str());
    require(*extension == '\0' || *extension == '.');
    char *dir = osdep_dirName(path.c_str());
    require((dir == nullptr) == (path.find('/') == std::string::npos));
    require(dir == nullptr || taken(dir) + "/" + base == path);
}

static void check_join(const std::string &dir, const std::string &name)
{
    char *joined = osdep_pathJoin(dir.c_str(), name.c_str());
    require((joined == nullptr) == dir.empty());
    if (joined == nullptr)
        return;
    const std::string path = taken(joined);
    const size_t dropped = static_cast<size_t>(dir.back() == '/') +
                           static_cast<size_t>(!name.empty() && name[0] == '/');
    require(path.size() == dir.size() + name.size() + 1 - dropped);
    require(osdep_isAbsolute(path.c_str()) == osdep_isAbsolute(dir.c_str()));
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    // The bytes up to the first zero are one path, those after it another.
    const std::string all(reinterpret_cast<const char *>(data), size);
    const std::string first = all.c_str();
    const std::string second =
        first.size() < all.size() ? all.substr(first.size() + 1).c_str() : "";
    for (const std::string &path : {first, second}) {
        check_normalise(path);
        check_absolute(path);
        check_parts(path);
    }
    check_join(first, second);
    check_join(second, first);
    return 0;
}
