// The files of the sample ORB suite: modules, libraries, and the outputs of the linker. They are
// also given to the program's own file identification.
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <unistd.h>

#include "common/formats/fileutils.h"
#include "sample/orb_assembler.h"
#include "sample/orb_linker.h"

namespace {

const char SOURCE[] = "\tglobal _main, shared\n"
                      "\tpsect reset\n"
                      "start:\tclr flag\n"
                      "\tcall _main\n"
                      "shared:\tjmp start+2\n"
                      "\tpsect flags, data\n"
                      "flag:\tds 2\n"
                      "\tend start\n";

OrbModule *assemble(const std::string &text, std::string *messages = nullptr)
{
    Report report = {};
    report.formats[SEVERITY_ERROR] = "%f:%l (%n) %s";
    testing::internal::CaptureStderr();
    OrbModule *module =
        orbasm_assemble(arena_copy(text.c_str()), "a.s", "16z20a", &report, nullptr);
    std::string shown = testing::internal::GetCapturedStderr();
    if (messages != nullptr)
        *messages = shown;
    return module;
}

std::string messagesFor(const std::string &text)
{
    std::string messages;
    assemble(text, &messages);
    return messages;
}

OrbModule *intermediate()
{
    OrbModule *module = assemble("\tglobal _main, _helper\n\tpsect text\n_main:\tret\n"
                                 "\tdw 1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,16,17,18\n"
                                 "\tpsect vars, data\n\tds 3\n");
    module->isIntermediate = 1;
    return module;
}

std::string bytesOf(const OrbModule *module)
{
    Buffer file = {};
    EXPECT_TRUE(orbmodule_write(module, &file));
    return std::string(file.items, file.count);
}

std::string hexOf(const std::string &bytes)
{
    std::string text;
    char digits[4];
    for (char c : bytes) {
        std::snprintf(digits, sizeof digits, "%02x", static_cast<uint8_t>(c));
        text += digits;
    }
    return text;
}

OrbModule *read(const std::string &bytes)
{
    return orbmodule_read("name", bytes.data(), bytes.size());
}

std::string saved(const std::string &name, const std::string &bytes)
{
    std::string path = name.substr(0, name.find('.')) + "." + std::to_string(getpid()) +
                       name.substr(name.find('.'));
    std::ofstream(path, std::ios::binary) << bytes;
    return path;
}

Buffer bufferOf(const std::string &bytes)
{
    Buffer buffer = {};
    buffer_add(&buffer, bytes.data(), bytes.size());
    return buffer;
}

std::string libraryOf(const std::vector<std::pair<const char *, std::string>> &modules)
{
    Library library = {};
    for (const auto &[name, bytes] : modules) {
        Buffer *file = static_cast<Buffer *>(arena_alloc(sizeof(Buffer)));
        *file = bufferOf(bytes);
        LibraryModule entry = {};
        EXPECT_TRUE(orblibrary_entry(name, file, &entry));
        list_add(&library, entry);
    }
    Buffer file = {};
    EXPECT_TRUE(orblibrary_write(&library, &file));
    return std::string(file.items, file.count);
}

// Links and returns the messages; `program` holds the result.
std::string link(OrbProgram *program, const std::vector<OrbModule *> &modules)
{
    Report report = {};
    report.formats[SEVERITY_ERROR] = "(%n) %s";
    program->chip = device_find("16z20a", DEVICES_ORB | DEVICES_ORB18);
    program->name = "prog.hex";
    program->report = &report;
    for (OrbModule *module : modules)
        list_add(&program->modules, module);
    testing::internal::CaptureStderr();
    int done = orblink(program);
    std::string messages = testing::internal::GetCapturedStderr();
    EXPECT_EQ(done != 0, messages.empty());
    program->report = nullptr;
    return messages;
}

// Every line of the HEX text must add up to 0 modulo 256.
void expectChecksums(const std::string &hex)
{
    for (size_t at = 0; at < hex.size(); at = hex.find('\n', at) + 1) {
        std::string line = hex.substr(at, hex.find('\n', at) - at);
        ASSERT_EQ(line[0], ':');
        unsigned sum = 0;
        for (size_t i = 1; i + 1 < line.size(); i += 2)
            sum += static_cast<unsigned>(std::stoul(line.substr(i, 2), nullptr, 16));
        EXPECT_EQ(sum % 256, 0u) << line;
        EXPECT_EQ(std::stoul(line.substr(1, 2), nullptr, 16) * 2 + 11, line.size()) << line;
    }
}

} // namespace

TEST(OrbAssembler, EncodesInstructions)
{
    OrbModule *module = assemble("\tpsect a\n\tnop\n\tldk 0x7F\n\tldk -1\n\tst 5\n\tjmp 0x100\n"
                                 "k equ 3\n\taddk k+1 ; comment\n\tdb 'A', 2\n\tdw 0x1234\n");
    ASSERT_NE(module, nullptr);
    const Buffer &bytes = module->sections.items[0].bytes;
    EXPECT_EQ(hexOf(std::string(bytes.items, bytes.count)), "00007f10ff10052100308000"
                                                            "041141023412");
}

TEST(OrbAssembler, ReportsEachErrorWithItsLine)
{
    EXPECT_EQ(messagesFor("\tpsect a\n\tfoo 1\n\tldk 300\nx:\tnop\nx:\tnop\n\tcall\n\tcall zed\n"),
              "a.s:2 (1210) instruction \"foo\" is not known\n"
              "a.s:3 (1260) value 0x12c does not fit into 8 bits\n"
              "a.s:5 (1248) symbol \"x\" is defined more than once; the first definition is in "
              "line 4\n"
              "a.s:6 (1262) an operand was expected, found \"\"\n"
              "a.s: (1247) symbol \"zed\" is not defined\n");
}

TEST(OrbAssembler, FollowsThePreprocessorsLineMarkers)
{
    EXPECT_EQ(messagesFor("# 7 \"inc/b.inc\" 1\n\tpsect a\n\tfoo\n"),
              "inc/b.inc:8 (1210) instruction \"foo\" is not known\n");
}

TEST(OrbModule, ObjectFilesHaveTheDocumentedRecords)
{
    OrbModule *module = assemble("\tglobal f\n\tpsect t\nf:\tcall f\n\tend f\n");
    EXPECT_EQ(hexOf(bytesOf(module)), "0b0007"
                                      "31367a32306100"
                                      "612e7300"
                                      "070002"
                                      "00"
                                      "04000000"
                                      "7400"
                                      "0a0001"
                                      "0000"
                                      "00000000"
                                      "00310000"
                                      "090004"
                                      "01"
                                      "0000"
                                      "00000000"
                                      "6600"
                                      "0d0003"
                                      "01"
                                      "0000"
                                      "02000000"
                                      "0000"
                                      "00000000"
                                      "020005"
                                      "0000"
                                      "000006");
}

TEST(OrbModule, IntermediateFilesHaveTheDocumentedLines)
{
    EXPECT_EQ(bytesOf(intermediate()), "Version 2.32 NORVELL Software Intermediate Code\n"
                                       "chip 16z20a\n"
                                       "source a.s\n"
                                       "section code 26 text\n"
                                       "bytes 0 0100010002000300040005000600070008000900"
                                       "0a000b000c000d000e000f00\n"
                                       "bytes 20 100011001200\n"
                                       "section data 3 vars\n"
                                       "bytes 0 000000\n"
                                       "symbol 0 0 _main\n"
                                       "symbol - 0 _helper\n"
                                       "end\n");
}

TEST(OrbModule, AFileReadAndWrittenAgainIsTheSame)
{
    for (const OrbModule *module : {assemble(SOURCE), intermediate()}) {
        std::string bytes = bytesOf(module);
        OrbModule *again = read(bytes);
        ASSERT_NE(again, nullptr);
        EXPECT_EQ(bytesOf(again), bytes);
    }
}

TEST(OrbModule, NoTruncatedFileIsRead)
{
    for (const OrbModule *module : {assemble(SOURCE), intermediate()}) {
        std::string bytes = bytesOf(module);
        for (size_t size = 0; size + 1 < bytes.size(); size++)
            EXPECT_EQ(read(bytes.substr(0, size)), nullptr) << size;
    }
}

TEST(OrbModule, NoDamagedByteDoesHarm)
{
    for (const OrbModule *module : {assemble(SOURCE), intermediate()}) {
        std::string bytes = bytesOf(module);
        for (size_t at = 0; at < bytes.size(); at++)
            for (int flip : {0x01, 0x80, 0xFF}) {
                std::string damaged = bytes;
                damaged[at] = static_cast<char>(damaged[at] ^ flip);
                OrbModule *again = read(damaged);
                if (again != nullptr) {
                    EXPECT_NE(bytesOf(again), "");
                }
            }
    }
}

TEST(OrbModule, FileIdentificationKnowsBothKinds)
{
    std::string object = saved("modules_test.o", bytesOf(assemble(SOURCE)));
    std::string p1 = saved("modules_test.p1", bytesOf(intermediate()));
    EXPECT_EQ(fileid_is_obj(object.c_str()), 1);
    EXPECT_EQ(fileid_is_p1(object.c_str()), 0);
    EXPECT_EQ(fileid_is_p1(p1.c_str()), 1);
    EXPECT_EQ(fileid(object.c_str()), 0x10020u);
    EXPECT_EQ(fileid(p1.c_str()), 0x40240u);
    std::remove(object.c_str());
    std::remove(p1.c_str());
}

TEST(OrbLibrary, FileIdentificationTellsWhatItHolds)
{
    std::string object = bytesOf(assemble(SOURCE));
    std::string p1 = bytesOf(intermediate());
    const std::pair<std::string, int> cases[] = {
        {libraryOf({{"a.o", object}}), 1},
        {libraryOf({{"b.p1", p1}}), 2},
        {libraryOf({{"a.o", object}, {"b.p1", p1}}), 3},
    };
    for (const auto &[bytes, kind] : cases) {
        std::string path = saved("modules_test.lib", bytes);
        EXPECT_EQ(fileid_is_library(path.c_str()), kind);
        std::remove(path.c_str());
    }
}

TEST(OrbLibrary, NoTruncatedOrDamagedFileDoesHarm)
{
    std::string bytes = libraryOf({{"a.o", bytesOf(assemble(SOURCE))}});
    Library library = {};
    for (size_t size = 0; size < bytes.size(); size++) {
        Buffer file = bufferOf(bytes.substr(0, size));
        EXPECT_FALSE(orblibrary_read(&file, &library)) << size;
    }
    for (size_t at = 0; at < bytes.size(); at++) {
        Buffer file = bufferOf(bytes);
        file.items[at] = static_cast<char>(~file.items[at]);
        library.count = 0;
        if (orblibrary_read(&file, &library)) {
            EXPECT_EQ(library.count, 1u);
        }
    }
}

TEST(OrbLinker, PlacesCodeAndPutsAddressesIn)
{
    OrbProgram program = {};
    OrbModule *other = assemble("\tglobal _main\n\tpsect text\n_main:\tret\n"
                                "\tpsect vars, data\n\tds 3\n");
    EXPECT_EQ(link(&program, {other, assemble(SOURCE)}), "");
    // clr 0x23 (after the three bytes of vars), call 0x0A, jmp 0x02; _main: ret; 5 bytes of data
    EXPECT_EQ(hexOf(std::string(program.image.items, program.image.count)), "23220031050000300100"
                                                                            "0100"
                                                                            "0000000000");
    EXPECT_EQ(program.start, 0u);
    EXPECT_EQ(program.dataUsed, 5u);
}

TEST(OrbLinker, HexLinesHaveRightLengthsAndChecksums)
{
    OrbProgram program = {};
    program.codeOffset = 0xFFF8;
    program.chip = device_find("18z80", DEVICES_ORB | DEVICES_ORB18);
    for (int i = 0; i < 40; i++)
        buffer_add(&program.image, "\x5A", 1);
    Buffer file = {};
    orblink_writeHex(&program, 1, &file);
    std::string hex = buffer_text(&file);
    EXPECT_EQ(hex, ":020000040000FA\n"
                   ":08FFF8005A5A5A5A5A5A5A5A31\n"
                   ":020000040001F9\n"
                   ":100000005A5A5A5A5A5A5A5A5A5A5A5A5A5A5A5A50\n"
                   ":100010005A5A5A5A5A5A5A5A5A5A5A5A5A5A5A5A40\n"
                   ":00000001FF\n");
    expectChecksums(hex);
}

TEST(OrbLinker, ElfFilesAreIdentifiedAsOrb)
{
    OrbProgram program = {};
    buffer_add(&program.image, "\1\2", 2);
    Buffer file = {};
    orblink_writeElf(&program, &file);
    std::string path = saved("modules_test.elf", std::string(file.items, file.count));
    EXPECT_EQ(which_elf(path.c_str()), 0x2000180u | 0x400000000000u);
    std::remove(path.c_str());
}

TEST(OrbLinker, ReportsWhatIsMissingOnceAName)
{
    OrbProgram program = {};
    EXPECT_EQ(link(&program, {assemble("\tglobal f\n\tpsect t\n\tcall f\n\tcall f\n")}),
              "(1600) symbol \"f\" is not defined; it is used in \"a.s\"\n");
}

TEST(OrbLinker, ReportsWhatIsDefinedTwice)
{
    const char *source = "\tglobal f\n\tpsect t\nf:\tret\n";
    OrbProgram program = {};
    EXPECT_EQ(link(&program, {assemble(source), assemble(source)}),
              "(1602) symbol \"f\" is defined in \"a.s\" and in \"a.s\"\n");
}

TEST(OrbLinker, ReportsWhatDoesNotFit)
{
    OrbProgram program = {};
    EXPECT_EQ(link(&program, {assemble("\tpsect t\n\tds 0x4002\n\tpsect d,data\n\tds 0x401\n")}),
              "(1658) program needs 0x4403 bytes of program memory; device \"16z20a\" has 0x4000\n"
              "(1659) data needs 0x401 bytes of data memory; device \"16z20a\" has 0x400\n");
}

TEST(OrbLinker, TakesFromALibraryOnlyWhatIsNeeded)
{
    std::string bytes = libraryOf({
        {"unused.o", bytesOf(assemble("\tglobal u\n\tpsect t\nu:\tnop\n"))},
        {"g.o", bytesOf(assemble("\tglobal g\n\tpsect t\ng:\tret\n"))},
        {"f.o", bytesOf(assemble("\tglobal f, g\n\tpsect t\nf:\tcall g\n"))},
    });
    Buffer file = bufferOf(bytes);
    OrbProgram program = {};
    ASSERT_TRUE(orblibrary_read(&file, &program.libraryModules));
    EXPECT_EQ(link(&program, {assemble("\tglobal f\n\tpsect t\n\tcall f\n")}), "");
    EXPECT_EQ(program.modules.count, 3u);
    EXPECT_EQ(hexOf(std::string(program.image.items, program.image.count)),
              "00310200" // call f
              "00310400" // f: call g
              "0100");   // g: ret
}

TEST(OrbLinker, AddsStartUpCodeToACProgramThatHasNone)
{
    OrbModule *main = assemble("\tglobal _main\n\tpsect t\n_main:\tret\n");
    main->isIntermediate = 1;
    OrbProgram program = {};
    EXPECT_EQ(link(&program, {main}), "");
    // start: call _main; jmp start
    EXPECT_EQ(hexOf(std::string(program.image.items, program.image.count)), "00310400003000000100");
}

TEST(OrbLinker, SuppliesTheFunctionsOfTheCLibraryUnlessToldNotTo)
{
    const char *source = "\tglobal _memcpy\n\tpsect t\n\tcall _memcpy\n";
    OrbProgram program = {};
    EXPECT_EQ(link(&program, {assemble(source)}), "");
    OrbProgram without = {};
    without.noLibrary = 1;
    EXPECT_EQ(link(&without, {assemble(source)}),
              "(1600) symbol \"_memcpy\" is not defined; it is used in \"a.s\"\n");
}
