#include "common/formats/fileutils.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include "common/formats/metadata.h"
#include "common/trace/qzdebug.h"

namespace fs = std::filesystem;

namespace {

const std::string intermediate = "Version 3.8\nNORVELL Software Intermediate Code\nrest";

std::string number(uint64_t value, int size)
{
    std::string bytes;
    for (int i = 0; i < size; ++i)
        bytes += static_cast<char>(value >> (8 * i));
    return bytes;
}

std::string record(int type, const std::string &data = "")
{
    return number(data.size(), 2) + number(static_cast<uint64_t>(type), 1) + data;
}

const std::string object = record(1, "text") + record(2) + record(6, "end");

// A library module and its entry in the directory.
struct Module {
    std::string name;
    std::string data;
    std::vector<std::string> symbols;
};

std::string directoryEntry(const Module &module)
{
    std::string entry = number(0xAAAA, 2) + number(module.symbols.size(), 2) +
                        number(module.data.size(), 4) + number(0xBBBBBBBB, 4) + module.name + '\0';
    for (const std::string &symbol : module.symbols)
        entry += "T" + symbol + '\0';
    return entry;
}

std::string library(const std::vector<Module> &modules)
{
    std::string directory = number(0xCCCC, 2) + number(modules.size(), 2);
    std::string data;
    for (const Module &module : modules) {
        directory += directoryEntry(module);
        data += module.data;
    }
    return directory + data;
}

std::string elf(int elfClass, unsigned machine)
{
    std::string header = "\177ELF" + number(static_cast<uint64_t>(elfClass), 1);
    header.resize(52, '\0');
    return header.replace(18, 2, number(machine, 2));
}

// A scratch directory, and the trace of every action in it.
class FileUtils : public ::testing::Test {
  protected:
    void SetUp() override
    {
        char name[] = "/tmp/fileutils_test_XXXXXX";
        dir_ = mkdtemp(name);
    }
    void TearDown() override
    {
        traceOff();
        fs::remove_all(dir_);
    }

    std::string path(const std::string &name) const { return dir_ / name; }

    // Writes a file and returns its path.
    std::string file(const std::string &name, const std::string &content) const
    {
        std::ofstream(path(name), std::ios::binary) << content;
        return path(name);
    }
    std::string content(const std::string &name) const
    {
        std::ifstream stream(path(name), std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(stream), {});
    }
    uint64_t type(const std::string &name, const std::string &bytes) const
    {
        return fileid(file(name, bytes).c_str());
    }

    // Traces `action` and returns the texts it wrote.
    template <class Action> std::string traced(Action action)
    {
        char *data = nullptr;
        size_t size = 0;
        gDebugOut = open_memstream(&data, &size);
        gDebugFlags = DEBUG_TRACE;
        action();
        traceOff();
        const std::string result(data, size);
        free(data);
        return result;
    }
    static void traceOff()
    {
        gDebugFlags = 0;
        if (gDebugOut != nullptr)
            fclose(gDebugOut);
        gDebugOut = nullptr;
    }

    fs::path dir_;
};

// Expects that the trace of `action` shows `line`.
#define EXPECT_TRACE(action, line)                                                                 \
    do {                                                                                           \
        const std::string trace_ = traced([&] { action; });                                        \
        EXPECT_NE(trace_.find(line), std::string::npos) << trace_;                                 \
    } while (0)

FILE *streamOf(std::string &bytes)
{
    FILE *stream =
        bytes.empty() ? fopen("/dev/null", "rb") : fmemopen(bytes.data(), bytes.size(), "rb");
    return stream;
}

template <class Answer> auto ofStream(Answer answer, std::string bytes)
{
    FILE *stream = streamOf(bytes);
    const auto result = answer(stream);
    fclose(stream);
    return result;
}

// ---- Extensions -------------------------------------------------------------------------------

struct Word {
    const char *extension;
    uint64_t type;
};

// Every extension whose word does not depend on the content.
const Word plainWords[] = {
    {"S", 0x400000020D},     {"as", 0x200209},       {"asm", 0x400209},
    {"cfgdata", 0x40000600}, {"cfgmap", 0x20000600}, {"cmf", 0x80000600},
    {"cof", 0x4000180},      {"crf", 0x8000000500},  {"dep", 0x400000600},
    {"dmp", 0x40000000600},  {"h", 0x8000000000A00}, {"hex", 0x1000280},
    {"hxl", 0x2000000600},   {"i", 0x100205},        {"inc", 0x800000209},
    {"ini", 0x10000600},     {"lkr", 0x8000600},     {"lst", 0x10000000600},
    {"map", 0x1000000600},   {"pre", 0x80205},       {"qzmapp", 0x200000000180},
    {"rlf", 0x20000000500},  {"s", 0x800209},        {"sdb", 0x200000600},
    {"sx", 0x400000020D},    {"sym", 0x100000600},   {"xml", 0x100000000200},
};

TEST_F(FileUtils, AnExtensionGivesItsWord)
{
    for (const Word &word : plainWords)
        EXPECT_EQ(type(std::string("name.x.") + word.extension, ""), word.type) << word.extension;
}

TEST_F(FileUtils, AMissingFileHasItsBit)
{
    for (const Word &word : plainWords)
        EXPECT_EQ(fileid(path(std::string("none.") + word.extension).c_str()), word.type | 0x1000)
            << word.extension;
    EXPECT_EQ(fileid(path("none.a").c_str()), 0x9010u);
    EXPECT_EQ(fileid(path("none.o").c_str()), 0x21020u);
    EXPECT_EQ(fileid(path("none.obj").c_str()), 0x21020u);
    EXPECT_EQ(fileid(path("none.p1").c_str()), 0x1000u);
    EXPECT_EQ(fileid(path("none.dat").c_str()), 0x1000u);
    EXPECT_EQ(fileid(path("none.elf").c_str()), 0x1000u);
    EXPECT_EQ(fileid(path("none").c_str()), 0x1000u);
}

TEST_F(FileUtils, CSourcesCarryTheMissingBitAlways)
{
    EXPECT_EQ(type("a.c", "int x;"), 0x1203u);
    EXPECT_EQ(fileid(path("none.c").c_str()), 0x1203u);
    EXPECT_EQ(type("a.usb", ""), 0x80000001203u);
}

TEST_F(FileUtils, UpperCaseIsAnotherExtension)
{
    EXPECT_EQ(type("a.C", "x"), 0u);
    EXPECT_EQ(type("a.ASM", "x"), 0u);
    EXPECT_EQ(type("a.SX", "x"), 0u);
}

TEST_F(FileUtils, UnknownOrNoExtensionIsScanned)
{
    EXPECT_EQ(type("a.xyz", intermediate), 0x40240u);
    EXPECT_EQ(type("b", object), 0x10020u);
    EXPECT_EQ(type("c.", elf(1, 83)), 0x800002000180u);
    EXPECT_EQ(type("d.xyz", "nothing of the kind"), 0u);
    EXPECT_EQ(type("e.xyz", ""), 0u);
    EXPECT_EQ(fileid(dir_.c_str()), 0u);
}

TEST_F(FileUtils, ScanSaysWhatItFinds)
{
    EXPECT_TRACE(type("a", intermediate), "scan \"" + path("a") + "\"");
    EXPECT_TRACE(type("a", intermediate), "found p1 file");
    EXPECT_TRACE(type("a", object), "found object file");
    EXPECT_TRACE(type("a", elf(1, 83)), "found ELF file");
    EXPECT_TRACE(fileid(path("none").c_str()), "Could not open: \"" + path("none") + "\"");
}

TEST_F(FileUtils, IntermediateAndObjectShareTheExtensionO)
{
    EXPECT_EQ(type("a.o", intermediate), 0x20060u);
    EXPECT_EQ(type("a.o", object), 0x10020u);
    EXPECT_EQ(type("a.o", "neither"), 0x20020u);
    EXPECT_EQ(type("a.obj", object), 0x10020u);
    EXPECT_EQ(type("a.obj", intermediate), 0x20020u);
}

TEST_F(FileUtils, P1WithoutItsMarkersIsScanned)
{
    EXPECT_EQ(type("a.p1", intermediate), 0x40240u);
    EXPECT_EQ(type("a.p1", object), 0x10020u);
    EXPECT_EQ(type("a.p1", "neither"), 0u);
}

TEST_F(FileUtils, DatIsMetadataOrScanned)
{
    Metadata *metadata = metadata_create(nullptr);
    FILE *out = fopen(path("a.dat").c_str(), "wb");
    EXPECT_TRUE(metadata_write(metadata, out));
    fclose(out);
    metadata_destroy(metadata);
    EXPECT_EQ(fileid(path("a.dat").c_str()), 0x10000000000500u);
    EXPECT_EQ(type("b.dat", intermediate), 0x40240u);
    EXPECT_EQ(type("b.dat", "neither"), 0u);
}

TEST_F(FileUtils, LibrariesAreClassifiedByTheirModules)
{
    const std::string kinds[] = {library({}), library({{"o", object, {}}}),
                                 library({{"p", intermediate, {}}}),
                                 library({{"o", object, {}}, {"p", intermediate, {}}})};
    const uint64_t words[] = {0x8010, 0x4010, 0x2010, 0x6010};
    for (const char *extension : {"a", "lib", "lpp"})
        for (int i = 0; i < 4; ++i)
            EXPECT_EQ(type(std::string("x.") + extension, kinds[i]), words[i]) << extension << i;
}

// No writer ever opens the pipe, so to open it would be to wait for ever.
TEST_F(FileUtils, PipesAndDevicesAreNotOpened)
{
    const std::pair<const char *, uint64_t> words[] = {
        {"pipe", 0},     {"pipe.o", 0x20020}, {"pipe.obj", 0x20020}, {"pipe.p1", 0},
        {"pipe.dat", 0}, {"pipe.elf", 0},     {"pipe.lib", 0x8010},  {"pipe.xml", 0x100000000200},
    };
    for (const auto &[name, word] : words) {
        ASSERT_EQ(mkfifo(path(name).c_str(), 0600), 0);
        EXPECT_EQ(fileid(path(name).c_str()), word) << name;
    }
    fs::create_symlink("/dev/zero", path("zero.dat"));
    EXPECT_EQ(fileid(path("zero.dat").c_str()), 0u);
    EXPECT_EQ(fileid("-"), 0x1000u);
    EXPECT_TRACE(EXPECT_EQ(which_elf(path("pipe").c_str()), 0u),
                 "could not open input file \"" + path("pipe") + "\"");
}

TEST_F(FileUtils, NullNamesAreAnsweredWithNothing)
{
    EXPECT_EQ(fileid(nullptr), 0u);
    EXPECT_EQ(valid_ext(nullptr, "p1:o"), 0);
    EXPECT_EQ(which_elf(nullptr), 0u);
    EXPECT_EQ(which_elf_fp(nullptr), 0u);
    EXPECT_EQ(fileid_is_p1(nullptr), 0);
    EXPECT_EQ(fileid_is_p1_fp(nullptr), 0);
    EXPECT_EQ(fileid_is_obj(nullptr), 0);
    EXPECT_EQ(fileid_is_obj_fp(nullptr), 0);
    EXPECT_EQ(fileid_is_library(nullptr), 0);
    EXPECT_EQ(fileid_is_library_fp(nullptr), 0);
    EXPECT_EQ(fileid_is_metadata(nullptr), 0);
    EXPECT_EQ(getString(nullptr), nullptr);
    ObjectRecord record;
    EXPECT_EQ(getrec(nullptr, &record), 0);
    EXPECT_EQ(getrec(stdin, nullptr), 0);
    EXPECT_EQ(copyfile_helper(nullptr, "a", "copied"), 0);
    EXPECT_EQ(copyfile_helper("a", nullptr, "copied"), 0);
}

TEST_F(FileUtils, NullNamesAndStreamsAreTraced)
{
    EXPECT_TRACE(fileid(nullptr), "input file name was NULL");
    EXPECT_TRACE(valid_ext(nullptr, "p1:o"), "input file name was NULL");
    EXPECT_TRACE(which_elf(nullptr), "input file name was NULL");
    EXPECT_TRACE(copyfile_helper(nullptr, "a", "copied"), "input file name was NULL");
    EXPECT_TRACE(fileid_is_p1(nullptr), "input file name is NULL");
    EXPECT_TRACE(fileid_is_obj(nullptr), "input file name is NULL");
    EXPECT_TRACE(fileid_is_library(nullptr), "input file name is NULL");
    EXPECT_TRACE(fileid_is_metadata(nullptr), "input file name is NULL");
    EXPECT_TRACE(fileid_is_p1_fp(nullptr), "not a valid file pointer");
    EXPECT_TRACE(which_elf_fp(nullptr), "not a valid file pointer");
    EXPECT_TRACE(getString(nullptr), "not a valid file pointer");
    EXPECT_TRACE(fileid_is_obj_fp(nullptr), "no valid file pointer");
    EXPECT_TRACE(fileid_is_library_fp(nullptr), "no valid file pointer");
    EXPECT_TRACE(getrec(nullptr, nullptr), "no valid file pointer");
}

TEST_F(FileUtils, ValidExtComparesWithEveryEntryOfTheList)
{
    EXPECT_EQ(valid_ext("a.p1", "p1:o"), 1);
    EXPECT_EQ(valid_ext("a.o", "p1:o"), 1);
    EXPECT_EQ(valid_ext("a.b.lpp", "lib,lpp;a"), 1);
    EXPECT_EQ(valid_ext("a.a", "lib,lpp;a"), 1);
    EXPECT_EQ(valid_ext("a.O", "p1:o"), 0);
    EXPECT_EQ(valid_ext("a.p", "p1:o"), 0);
    EXPECT_EQ(valid_ext("a.p1:o", "p1:o"), 0);
    EXPECT_EQ(valid_ext("a.p12", "p1:o"), 0);
    EXPECT_EQ(valid_ext("o", "p1:o"), 0);
    EXPECT_EQ(valid_ext("a.", "p1::o:"), 0);
    EXPECT_EQ(valid_ext("a.o", ""), 0);
    EXPECT_EQ(valid_ext("a.o", nullptr), 0);
    EXPECT_TRACE(valid_ext("a", "p1:o"), "file \"a\" has no extension");
    EXPECT_TRACE(valid_ext("a.o", "p1:o"), "found extension \"o\"");
    EXPECT_TRACE(valid_ext("a.b", "p1:o"), "file \"a.b\" does not match extension \"p1:o\"");
    EXPECT_TRACE(valid_ext("a.b", nullptr), "file \"a.b\" does not match extension \"\"");
}

TEST_F(FileUtils, OnlyAssemblySourcesHaveTheAssemblyBits)
{
    for (const char *extension : {"as", "asm", "s", "S", "sx"}) {
        EXPECT_EQ(fileid_is_asm_fid(fileid(path(std::string("x.") + extension).c_str())), 1);
        EXPECT_EQ(fileid_is_asm_fid(type(std::string("x.") + extension, "")), 1);
    }
    for (const Word &word : plainWords)
        EXPECT_EQ(fileid_is_asm_fid(word.type),
                  std::set<std::string>({"as", "asm", "s", "S", "sx"}).count(word.extension))
            << word.extension;
    for (uint64_t word :
         {0x1203ul, 0x80000001203ul, 0x4010ul, 0x6010ul, 0x10020ul, 0x40240ul, 0x0ul,
          0x10000000000500ul, 0x4000002000180ul, 0x200000600ul, 0x100000600ul})
        EXPECT_EQ(fileid_is_asm_fid(word), 0) << word;
    EXPECT_TRACE(fileid_is_asm_fid(0x200209), "found asm file");
    EXPECT_TRACE(fileid_is_asm_fid(0x1203), "did not find asm file");
}

// ---- ELF --------------------------------------------------------------------------------------

TEST_F(FileUtils, ElfMachineGivesItsWord)
{
    const struct {
        unsigned machine;
        uint64_t word;
        const char *found;
    } rows[] = {
        {204, 0x400002000180, "found ORB ELF file"},   {83, 0x800002000180, "found ELM ELF file"},
        {118, 0x1000002000180, "found KORB ELF file"}, {8, 0x2000002000180, "found MIPS ELF file"},
        {40, 0x4000002000180, "found ARM ELF file"},   {3, 0x2000180, "found ELF file"},
        {0xCC00, 0x2000180, "found ELF file"},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(which_elf(file("a.elf", elf(1, row.machine)).c_str()), row.word) << row.machine;
        EXPECT_EQ(fileid(path("a.elf").c_str()), row.word);
        EXPECT_TRACE(which_elf(path("a.elf").c_str()), row.found);
    }
}

TEST_F(FileUtils, ElfMachineIsReadLowByteFirstWhateverTheHeaderSays)
{
    for (char order : {'\0', '\1', '\2'}) {
        std::string header = elf(1, 83);
        header[5] = order;
        EXPECT_EQ(which_elf(file("a.elf", header).c_str()), 0x800002000180u);
        std::swap(header[18], header[19]);
        EXPECT_EQ(which_elf(file("a.elf", header).c_str()), 0x2000180u);
    }
}

TEST_F(FileUtils, Elf64IsNotIdentified)
{
    for (unsigned machine : {3u, 8u, 40u, 83u, 118u, 204u})
        EXPECT_EQ(which_elf(file("a.elf", elf(2, machine)).c_str()), 0u);
    EXPECT_TRACE(which_elf(path("a.elf").c_str()), "did not recognize ELF class");
}

TEST_F(FileUtils, ElfSaysWhyItIsNone)
{
    EXPECT_TRACE(which_elf(path("none.elf").c_str()),
                 "could not open input file \"" + path("none.elf") + "\"");
    file("a.elf", elf(1, 83).substr(0, 51));
    EXPECT_TRACE(which_elf(path("a.elf").c_str()),
                 "could not read input file \"" + path("a.elf") + "\"");
    file("a.elf", "\177elf" + elf(1, 83).substr(4));
    EXPECT_TRACE(which_elf(path("a.elf").c_str()), "did not recognize ELF magic number");
}

TEST_F(FileUtils, NoTruncatedOrCorruptedElfIsTakenForAnother)
{
    const std::string valid = elf(1, 204);
    for (size_t length = 0; length < valid.size(); ++length)
        EXPECT_EQ(ofStream(which_elf_fp, valid.substr(0, length)), 0u) << length;
    for (size_t at = 0; at < valid.size(); ++at)
        for (unsigned value = 0; value < 256; ++value) {
            std::string bytes = valid;
            bytes[at] = static_cast<char>(value);
            const uint64_t word = ofStream(which_elf_fp, bytes);
            if (bytes == valid || (at > 4 && at != 18 && at != 19))
                EXPECT_EQ(word, 0x400002000180u);
            else if (at < 5)
                EXPECT_EQ(word, 0u);
            else
                EXPECT_EQ(word & 0x2000180u, 0x2000180u);
        }
}

// ---- Intermediate files -----------------------------------------------------------------------

TEST_F(FileUtils, IntermediateMarkersMayBeParted)
{
    const std::string text = "NORVELL Software Intermediate Code";
    EXPECT_EQ(ofStream(fileid_is_p1_fp, "Version 3.8\n" + text), 1);
    EXPECT_EQ(ofStream(fileid_is_p1_fp, "Version" + std::string(1, '\0') + text), 1);
    EXPECT_EQ(ofStream(fileid_is_p1_fp, "Version" + text + "."), 1);
    EXPECT_EQ(ofStream(fileid_is_p1_fp, "Version" + std::string(19, '1') + text), 1);
    EXPECT_EQ(ofStream(fileid_is_p1_fp, "Version" + std::string(20, '1') + text), 0);
    EXPECT_EQ(ofStream(fileid_is_p1_fp, "Version a\n" + text), 0);
    EXPECT_EQ(ofStream(fileid_is_p1_fp, " Version 1\n" + text), 0);
    EXPECT_EQ(ofStream(fileid_is_p1_fp, "version 1\n" + text), 0);
    EXPECT_EQ(ofStream(fileid_is_p1_fp, "Version" + text), 0);
}

TEST_F(FileUtils, IntermediateSaysWhy)
{
    EXPECT_EQ(fileid_is_p1(file("a.p1", intermediate).c_str()), 1);
    EXPECT_EQ(fileid_is_p1(file("a.o", intermediate).c_str()), 1);
    EXPECT_EQ(fileid_is_p1(file("a.i", intermediate).c_str()), 0);
    EXPECT_TRACE(fileid_is_p1(path("a.p1").c_str()), "file identified as a p1 file");
    EXPECT_TRACE(fileid_is_p1(path("a.i").c_str()),
                 "file \"" + path("a.i") + "\" does not have a valid extention");
    EXPECT_TRACE(fileid_is_p1(path("none.p1").c_str()),
                 "could not open file \"" + path("none.p1") + "\"");
    file("a.p1", intermediate.substr(0, 41));
    EXPECT_TRACE(fileid_is_p1(path("a.p1").c_str()), "short read from file");
    file("a.p1", std::string(60, 'x'));
    EXPECT_TRACE(fileid_is_p1(path("a.p1").c_str()), "file doesn't have p1 markers");
}

TEST_F(FileUtils, NoTruncatedOrCorruptedIntermediateMarkerPasses)
{
    const std::string valid = "Version 1\nNORVELL Software Intermediate Code";
    for (size_t length = 0; length < valid.size(); ++length)
        EXPECT_EQ(ofStream(fileid_is_p1_fp, valid.substr(0, length)), 0) << length;
    for (size_t at = 0; at < valid.size(); ++at)
        for (unsigned value = 0; value < 256; ++value) {
            std::string bytes = valid;
            bytes[at] = static_cast<char>(value);
            const unsigned folded = value | 0x20;
            const bool letter = value < 0x80 && folded >= 'a' && folded <= 'z';
            const bool between = at >= 7 && at < 10 && !letter;
            EXPECT_EQ(ofStream(fileid_is_p1_fp, bytes), bytes == valid || between)
                << at << " " << value;
        }
}

// ---- Object files -----------------------------------------------------------------------------

TEST_F(FileUtils, RecordsUpToAnEndRecordAreAnObjectFile)
{
    EXPECT_EQ(ofStream(fileid_is_obj_fp, object), 1);
    EXPECT_EQ(ofStream(fileid_is_obj_fp, object + "anything"), 1);
    EXPECT_EQ(ofStream(fileid_is_obj_fp, record(6)), 1);
    EXPECT_EQ(ofStream(fileid_is_obj_fp, record(1) + record(23)), 0);
    EXPECT_EQ(ofStream(fileid_is_obj_fp, record(23, std::string(512, 'x')) + record(6)), 1);
    EXPECT_EQ(ofStream(fileid_is_obj_fp, record(1, std::string(513, 'x')) + record(6)), 0);
    EXPECT_EQ(ofStream(fileid_is_obj_fp, record(24) + record(6)), 0);
    EXPECT_EQ(ofStream(fileid_is_obj_fp, record(0) + record(6)), 0);
    EXPECT_EQ(ofStream(fileid_is_obj_fp, record(255) + record(6)), 0);
}

TEST_F(FileUtils, EveryRecordIsTracedByItsName)
{
    const char *names[] = {"TEXT",    "PSECT",      "RELOC",     "SYM",      "START",
                           "IDENT",   "XPSECT",     "SEGMENT",   "XSYM",     "SIGNAT",
                           "FNINFO",  "FNCONF",     "SEGSTART",  "PSECTLIM", "LISTRELOC",
                           "LR_TEXT", "LR_RELOC",   "COND_EXPR", "DABS",     "Unknown",
                           "FNALIGN", "PSECTBOUND", "END"};
    std::string bytes;
    for (int type :
         {1, 2, 3, 4, 5, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 21, 22, 23, 6})
        bytes += record(type);
    const std::string trace = traced([&] { EXPECT_EQ(ofStream(fileid_is_obj_fp, bytes), 1); });
    size_t at = 0;
    for (const char *name : names) {
        at = trace.find(std::string("\tRECORD: ") + name + "\n", at);
        ASSERT_NE(at, std::string::npos) << name;
    }
    EXPECT_NE(trace.find("Identified file as an object file", at), std::string::npos);
}

TEST_F(FileUtils, ObjectSaysWhy)
{
    EXPECT_EQ(fileid_is_obj(file("a.obj", object).c_str()), 1);
    EXPECT_EQ(fileid_is_obj(file("a.o", object).c_str()), 1);
    EXPECT_EQ(fileid_is_obj(file("a.p1", object).c_str()), 0);
    EXPECT_TRACE(fileid_is_obj(path("a.p1").c_str()),
                 "file \"" + path("a.p1") + "\" doe not have a known extension");
    EXPECT_TRACE(fileid_is_obj(path("none.o").c_str()),
                 "Could not open: \"" + path("none.o") + "\"");
    EXPECT_TRACE(ofStream(fileid_is_obj_fp, record(24)), "Unknown record type: 24");
    EXPECT_TRACE(ofStream(fileid_is_obj_fp, record(24)), "Bad record type");
    EXPECT_TRACE(ofStream(fileid_is_obj_fp, record(2, std::string(513, 'x'))),
                 "Record too long: \"PSECT\" (513)");
    EXPECT_TRACE(ofStream(fileid_is_obj_fp, record(4, "data").substr(0, 6)),
                 "Incomplete record: \"SYM\" (4)");
}

TEST_F(FileUtils, GetrecReadsOneRecord)
{
    std::string bytes = record(4, "data") + record(6);
    FILE *stream = streamOf(bytes);
    ObjectRecord result;
    EXPECT_EQ(getrec(stream, &result), 1);
    EXPECT_EQ(result.type, 4);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(result.data), result.length), "data");
    EXPECT_EQ(getrec(stream, &result), 1);
    EXPECT_EQ(result.type, RECORD_END);
    EXPECT_EQ(result.length, 0);
    EXPECT_EQ(getrec(stream, &result), 0);
    fclose(stream);
    EXPECT_EQ(getrec(nullptr, &result), 0);
}

TEST_F(FileUtils, NoTruncatedObjectFilePasses)
{
    for (size_t length = 0; length < object.size(); ++length)
        EXPECT_EQ(ofStream(fileid_is_obj_fp, object.substr(0, length)), 0) << length;
}

// The rules of an object file, in another form.
bool isObjectFile(const std::string &bytes)
{
    for (size_t at = 0; at + 3 <= bytes.size();) {
        const auto *b = reinterpret_cast<const unsigned char *>(bytes.data()) + at;
        const size_t length = b[0] + 256u * b[1];
        if (b[2] < 1 || b[2] > 23 || length > 512 || at + 3 + length > bytes.size())
            return false;
        if (b[2] == 6)
            return true;
        at += 3 + length;
    }
    return false;
}

TEST_F(FileUtils, EveryCorruptionOfAnObjectFileGetsItsAnswer)
{
    for (size_t at = 0; at < object.size(); ++at)
        for (unsigned value = 0; value < 256; ++value) {
            std::string bytes = object;
            bytes[at] = static_cast<char>(value);
            EXPECT_EQ(ofStream(fileid_is_obj_fp, bytes), isObjectFile(bytes)) << at << " " << value;
        }
}

// ---- Libraries --------------------------------------------------------------------------------

TEST_F(FileUtils, LibrariesAreToldByWhatTheyHold)
{
    const Module o = {"o.o", object, {"_a", "_b"}};
    const Module p = {"p.p1", intermediate, {"_c"}};
    const Module other = {"x", "neither", {}};
    const struct {
        std::vector<Module> modules;
        int kinds;
        const char *trace;
    } rows[] = {
        {{o}, 1, "Identified as a library containing obj files"},
        {{p, p}, 2, "Identified as a library containing p1 files"},
        {{other, p, o}, 3, "Identified as a library containing p1 and obj files"},
        {{o, other, p}, 3, "Identified as a library containing p1 and obj files"},
    };
    for (const auto &row : rows) {
        const std::string name = file("x.lpp", library(row.modules));
        EXPECT_EQ(fileid_is_library(name.c_str()), row.kinds);
        EXPECT_TRACE(fileid_is_library(name.c_str()), row.trace);
    }
    EXPECT_TRACE(fileid_is_library(file("x.a", library({o})).c_str()), "Found module: \"o.o\"");
    EXPECT_EQ(ofStream(fileid_is_library_fp, library({other})), 0);
    EXPECT_EQ(ofStream(fileid_is_library_fp, library({})), 0);
}

TEST_F(FileUtils, LibraryStopsAtTheSecondKind)
{
    const std::string bytes =
        library({{"p", intermediate, {}}, {"o", object, {}}, {"x", record(1) + record(7), {}}});
    const std::string trace = traced([&] { EXPECT_EQ(ofStream(fileid_is_library_fp, bytes), 3); });
    EXPECT_NE(trace.find("RECORD: END"), std::string::npos);
    EXPECT_EQ(trace.find("RECORD: IDENT"), std::string::npos);
}

TEST_F(FileUtils, LibrarySaysWhy)
{
    const std::string bytes = library({{"o", object, {}}});
    EXPECT_EQ(fileid_is_library(file("x.lib", bytes).c_str()), 1);
    EXPECT_EQ(fileid_is_library(file("x.o", bytes).c_str()), 0);
    EXPECT_TRACE(fileid_is_library(path("none.a").c_str()),
                 "Cannot open file: \"" + path("none.a") + "\"");
}

TEST_F(FileUtils, AModuleEndsWhereItsSizeSays)
{
    // The END record lies after the end of the first module.
    std::string bytes = library({{"o", record(1), {}}, {"x", record(6).substr(0, 1), {}}}) + "\0\6";
    EXPECT_EQ(ofStream(fileid_is_library_fp, bytes), 0);
    bytes = library({{"p", intermediate.substr(0, 20), {}}, {"x", intermediate.substr(20), {}}});
    EXPECT_EQ(ofStream(fileid_is_library_fp, bytes), 0);
}

TEST_F(FileUtils, ASymbolMayNotBeEmpty)
{
    EXPECT_EQ(ofStream(fileid_is_library_fp, library({{"o", object, {"a"}}})), 1);
    EXPECT_EQ(ofStream(fileid_is_library_fp, library({{"o", object, {"a", ""}}})), 0);
}

TEST_F(FileUtils, LyingCountsAndSizesAreBounded)
{
    struct rusage before;
    getrusage(RUSAGE_SELF, &before);
    EXPECT_EQ(ofStream(fileid_is_library_fp, number(0, 2) + number(0xFFFF, 2)), 0);
    std::string bytes = library({{"o", object, {}}});
    bytes.replace(4 + 2, 2, number(0xFFFF, 2)); // symbols
    EXPECT_EQ(ofStream(fileid_is_library_fp, bytes), 0);
    bytes = library({{"o", object, {}}, {"p", intermediate, {}}});
    bytes.replace(4 + 4, 4, number(0xFFFFFFFF, 4)); // the first module's size
    EXPECT_EQ(ofStream(fileid_is_library_fp, bytes), 1);
    EXPECT_EQ(ofStream(fileid_is_library_fp,
                       number(0x10000, 4) + std::string(12, '\0') + std::string(5000000, 'n')),
              0);
    struct rusage after;
    getrusage(RUSAGE_SELF, &after);
    EXPECT_LT(after.ru_maxrss - before.ru_maxrss, 32 * 1024);
}

TEST_F(FileUtils, EveryTruncationAndCorruptionOfALibraryGetsAnAnswer)
{
    const std::string valid = library({{"o", object, {"s"}}, {"p", intermediate, {}}});
    const size_t directory = valid.size() - object.size() - intermediate.size();
    ASSERT_EQ(ofStream(fileid_is_library_fp, valid), 3);
    for (size_t length = 0; length < valid.size(); ++length) {
        const int expected = length < directory + object.size()         ? 0
                             : length < valid.size() - strlen("\nrest") ? 1
                                                                        : 3;
        EXPECT_EQ(ofStream(fileid_is_library_fp, valid.substr(0, length)), expected) << length;
    }
    for (size_t at = 0; at < valid.size(); ++at)
        for (unsigned value = 0; value < 256; ++value) {
            std::string bytes = valid;
            bytes[at] = static_cast<char>(value);
            const int kinds = ofStream(fileid_is_library_fp, bytes);
            EXPECT_TRUE(kinds >= 0 && kinds <= 3);
            if (at < 2 || (at >= valid.size() - strlen("\nrest"))) {
                EXPECT_EQ(kinds, 3);
            }
        }
}

// ---- Metadata ---------------------------------------------------------------------------------

TEST_F(FileUtils, MetadataIsWhatReadsAsIt)
{
    Metadata *metadata = metadata_create(nullptr);
    FILE *out = fopen(path("m").c_str(), "wb");
    metadata_write(metadata, out);
    fclose(out);
    metadata_destroy(metadata);
    EXPECT_EQ(fileid_is_metadata(path("m").c_str()), 1);
    EXPECT_TRACE(fileid_is_metadata(path("m").c_str()),
                 "File \"" + path("m") + "\" is a metadata file");
    const std::string bytes = content("m");
    for (size_t length = 0; length < bytes.size(); ++length)
        EXPECT_EQ(fileid_is_metadata(file("t", bytes.substr(0, length)).c_str()), 0) << length;
    EXPECT_TRACE(fileid_is_metadata(path("t").c_str()),
                 "File \"" + path("t") + "\" is not a metadata file");
    EXPECT_TRACE(fileid_is_metadata(path("none").c_str()),
                 "Could not open: \"" + path("none") + "\"");
}

// ---- Copying ----------------------------------------------------------------------------------

TEST_F(FileUtils, CopyReplacesAndAppendExtends)
{
    const std::string big(100000, 'b');
    file("a", big);
    file("b", "old");
    EXPECT_EQ(copyfile_helper(path("a").c_str(), path("b").c_str(), "copied"), 1);
    EXPECT_EQ(content("b"), big);
    file("a", std::string("new\0\n", 5));
    EXPECT_TRACE(EXPECT_EQ(copyfile_helper(path("a").c_str(), path("b").c_str(), "appended"), 1),
                 "file \"" + path("a") + "\" was successfully appended to \"" + path("b") + "\"");
    EXPECT_EQ(content("b"), big + std::string("new\0\n", 5));
    EXPECT_TRACE(EXPECT_EQ(copyfile_helper(path("a").c_str(), path("c").c_str(), "copied"), 1),
                 "file \"" + path("a") + "\" was successfully copied to \"" + path("c") + "\"");
    EXPECT_EQ(content("c"), content("a"));
}

TEST_F(FileUtils, CopyKnowsTwoModes)
{
    file("a", "new");
    file("b", "old");
    for (const char *mode : {static_cast<const char *>(nullptr), "", "copy", "COPIED", "a"})
        EXPECT_TRACE(EXPECT_EQ(copyfile_helper(path("a").c_str(), path("b").c_str(), mode), 0),
                     "a file is \"copied\" or \"appended\"");
    EXPECT_EQ(content("b"), "old");
}

TEST_F(FileUtils, AFileIsNotCopiedOntoItselfByAnyName)
{
    file("a", "keep");
    fs::create_hard_link(path("a"), path("hard"));
    fs::create_symlink(path("a"), path("soft"));
    fs::create_directory(path("d"));
    for (const std::string name : {"a", "hard", "soft", "./a", "d/../a"})
        for (const char *mode : {"copied", "appended"}) {
            EXPECT_TRACE(EXPECT_EQ(copyfile_helper(path("a").c_str(), path(name).c_str(), mode), 0),
                         "source and destination files seem to be the same");
            EXPECT_EQ(copyfile_helper(path(name).c_str(), path("a").c_str(), mode), 0);
            EXPECT_EQ(content("a"), "keep") << name;
        }
}

TEST_F(FileUtils, CopySaysWhichFileCannotBeOpened)
{
    file("a", "keep");
    EXPECT_TRACE(EXPECT_EQ(copyfile_helper(path("none").c_str(), path("b").c_str(), "copied"), 0),
                 "could not open source file \"" + path("none") + "\", error: 2");
    EXPECT_FALSE(fs::exists(path("b")));
    EXPECT_TRACE(EXPECT_EQ(copyfile_helper(path("a").c_str(), path("x/b").c_str(), "copied"), 0),
                 "could not open destination file \"" + path("x/b") + "\", error: 2");
}

TEST_F(FileUtils, AFullDiskFailsTheCopy)
{
    for (size_t size : {size_t{1}, size_t{1000000}}) {
        file("a", std::string(size, 'x'));
        for (const char *mode : {"copied", "appended"})
            EXPECT_TRACE(EXPECT_EQ(copyfile_helper(path("a").c_str(), "/dev/full", mode), 0),
                         "error copying file");
    }
}

TEST_F(FileUtils, ASourceThatCannotBeReadFailsTheCopy)
{
    EXPECT_TRACE(EXPECT_EQ(copyfile_helper("/proc/self/mem", path("b").c_str(), "copied"), 0),
                 "error copying file");
}

TEST_F(FileUtils, ASourceThatIsNoRegularFileLeavesTheDestinationAlone)
{
    ASSERT_EQ(mkfifo(path("pipe").c_str(), 0600), 0);
    file("b", "keep");
    for (const std::string &source : std::vector<std::string>{path("pipe"), dir_, "/dev/zero"})
        EXPECT_TRACE(EXPECT_EQ(copyfile_helper(source.c_str(), path("b").c_str(), "copied"), 0),
                     "could not open source file \"" + source + "\", error: 22");
    EXPECT_EQ(content("b"), "keep");
}

// ---- Long strings -----------------------------------------------------------------------------

std::string stringOf(const std::string &bytes)
{
    char *text = ofStream(getString, bytes);
    const std::string result = text == nullptr ? "(null)" : text;
    free(text);
    return result;
}

TEST_F(FileUtils, GetStringReadsUpToTheTerminator)
{
    EXPECT_EQ(stringOf(std::string("one\0two", 7)), "one");
    EXPECT_EQ(stringOf(std::string(1, '\0')), "");
    for (size_t length : {63u, 64u, 65u, 127u, 128u, 5000u, 65535u}) {
        const std::string text(length, 'x');
        EXPECT_EQ(stringOf(text + '\0'), text);
        EXPECT_EQ(stringOf(text), "(null)") << length;
    }
    EXPECT_EQ(stringOf(""), "(null)");
}

TEST_F(FileUtils, GetStringHasALimit)
{
    EXPECT_EQ(stringOf(std::string(65536, 'x') + '\0'), "(null)");
    EXPECT_TRACE(stringOf(std::string(65537, 'x')),
                 "expected string has exceeded reasonable length");
    EXPECT_TRACE(stringOf(std::string(64, 'x') + '\0'),
                 "copying string to new, larger buffer, deallocating old buffer");
}

} // namespace
