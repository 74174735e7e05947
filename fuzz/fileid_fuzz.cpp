// The dispatcher of file identification. A file of any extension and any content gets the word of
// its extension, or, if that does not decide, the answer of the readers of the single formats.
//
// The first line is the extension, after an "!" if the file is not to exist. The second line is a
// list of extensions. The rest is the content.
#include <algorithm>
#include <cstring>
#include <filesystem>

#include "common/formats/fileutils.h"
#include "common/formats/metadata.h"
#include "fuzz/support.h"

struct File {
    std::string extension;
    std::string list;
    std::string content;
    bool exists;
};

static File parse(const uint8_t *data, size_t size)
{
    const std::string all(reinterpret_cast<const char *>(data), size);
    std::vector<std::string> parts = splitFields(all, "\n", 3);
    parts.resize(3);
    File file = {parts[0].c_str(), parts[1].c_str(), parts[2], true};
    if (file.extension[0] == '!') {
        file.exists = false;
        file.extension.erase(0, 1);
    }
    if (file.extension.size() > 32)
        file.extension.resize(32);
    std::replace(file.extension.begin(), file.extension.end(), '/', '.');
    return file;
}

template <class Reader> static auto readBy(Reader reader, const File &file)
{
    static const std::string nothing;
    FILE *stream = memoryFile(file.exists ? file.content : nothing);
    const auto answer = reader(stream);
    std::fclose(stream);
    return answer;
}

static bool readsAsMetadata(FILE *stream)
{
    Metadata *metadata = metadata_create(nullptr);
    const bool good = metadata_read(metadata, stream);
    metadata_destroy(metadata);
    return good;
}

static uint64_t scanned(const File &file)
{
    if (readBy(fileid_is_p1_fp, file))
        return FILEID_P1;
    if (readBy(fileid_is_obj_fp, file))
        return FILEID_OBJECT;
    return readBy(which_elf_fp, file);
}

static bool isAny(const std::string &text, std::initializer_list<const char *> texts)
{
    return std::find(texts.begin(), texts.end(), text) != texts.end();
}

// The word by content, for the extensions that leave it to the content. `other` is the word of the
// extension without content; extensions that decide alone have it with any content.
static uint64_t expectedWord(const File &file, const std::string &extension, uint64_t other)
{
    static const uint64_t libraries[] = {FILEID_LIBRARY_BAD, FILEID_LIBRARY_OBJECT,
                                         FILEID_LIBRARY_INTERMEDIATE, FILEID_LIBRARY_BOTH};
    if (isAny(extension, {"a", "lib", "lpp"}))
        return libraries[readBy(fileid_is_library_fp, file)];
    if (extension == "elf")
        return readBy(which_elf_fp, file);
    if (extension == "o" && readBy(fileid_is_p1_fp, file))
        return FILEID_O_INTERMEDIATE;
    if (isAny(extension, {"o", "obj"}))
        return readBy(fileid_is_obj_fp, file) ? FILEID_OBJECT : FILEID_O_UNKNOWN;
    if (extension == "dat" && readBy(readsAsMetadata, file))
        return FILEID_METADATA;
    return other == FILEID_UNKNOWN || isAny(extension, {"dat", "p1"}) ? scanned(file) : other;
}

static void checkList(const File &file, const std::string &path, const std::string &extension)
{
    std::string list = file.list;
    std::replace_if(
        list.begin(), list.end(), [](char c) { return c == ';' || c == ':'; }, ',');
    const auto entries = splitFields(list, ",", list.size() + 1);
    const bool listed =
        !extension.empty() && std::find(entries.begin(), entries.end(), extension) != entries.end();
    require(valid_ext(path.c_str(), file.list.c_str()) == listed);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const File file = parse(data, size);
    const std::string path = scratchDirectory() + "/file." + file.extension;
    const std::string extension = file.extension.substr(file.extension.rfind('.') + 1);
    const uint64_t missing = fileid(path.c_str());
    if (file.exists)
        writeFile(path, file.content);
    const uint64_t word = fileid(path.c_str());
    checkList(file, path, extension);
    if (file.exists)
        require(std::remove(path.c_str()) == 0);

    require((missing & FILE_MISSING) != 0);
    const bool neverLookedFor = isAny(extension, {"c", "usb"});
    require(((word & FILE_MISSING) != 0) == (!file.exists || neverLookedFor));
    const uint64_t present = ~uint64_t{FILE_MISSING};
    require((word & present) == (expectedWord(file, extension, missing & present) & present));
    const bool assembly = isAny(extension, {"as", "asm", "s", "S", "sx"});
    require((fileid_is_asm_fid(word) != 0) == assembly);
    return 0;
}
