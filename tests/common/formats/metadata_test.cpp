#include "common/formats/metadata.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/resource.h>

#include "common/base/vector.h"
#include "common/trace/qzdebug.h"
#include "tests/common/base/colliding_texts.h"

namespace {

struct Destroy {
    void operator()(Metadata *metadata) const { metadata_destroy(metadata); }
};
using Object = std::unique_ptr<Metadata, Destroy>;

Object create()
{
    return Object(metadata_create("2.32"));
}

// ---- Bytes of files ---------------------------------------------------------------------------

std::string number(uint64_t value, int size)
{
    std::string bytes;
    for (int i = 0; i < size; ++i)
        bytes += static_cast<char>(value >> (8 * i));
    return bytes;
}

std::string u8(uint64_t value)
{
    return number(value, 1);
}
std::string u16(uint64_t value)
{
    return number(value, 2);
}
std::string u32(uint64_t value)
{
    return number(value, 4);
}
std::string u64(uint64_t value)
{
    return number(value, 8);
}
std::string text(const std::string &value)
{
    return value + '\0';
}

std::string callee(uint32_t id, uint32_t function)
{
    return u32(id) + u32(function) + u8(0) + u8(0);
}

std::string function(uint32_t id, const std::string &name, const std::string &callees = u32(0),
                     uint32_t duplicate = 0)
{
    return u32(id) + u32(0) + text("") + u32(0) + text("") + u8(0) + text(name) + u32(0) + u32(0) +
           u8(0) + u8(0) + u8(0) + u8(0) + callees + u32(duplicate);
}

std::string root(uint32_t id, uint32_t function_id)
{
    return u32(id) + u32(function_id) + u32(0) + u32(0);
}

std::string level(uint32_t id, uint32_t mask, const std::string &roots = u32(0))
{
    return u32(id) + u32(mask) + text("") + u32(0) + u32(0) + u32(0) + roots;
}

// A file in its sections; each test changes the one it is about.
struct File {
    std::string magic = "!QZMMETA";
    std::string title = "title" + std::string(123, '\0');
    std::string version = u16(1) + u16(0);
    std::string reserved = std::string(128, '\0');
    std::string general = "GENATTRS" + u32(0);
    std::string printf = "PRFATTRS" + u32(0);
    std::string callees = "FCALLEES" + u32(0);
    std::string functions = "FUNCTNS " + u32(0);
    std::string roots = "INTROOTS" + u32(0);
    std::string levels = "INTLVLS " + u32(0);

    std::string bytes() const
    {
        return magic + title + version + reserved + general + printf + callees + functions + roots +
               levels;
    }
};

// Reads `bytes` into the object; returns the code of the failure, or 0.
uint32_t readInto(Metadata *metadata, const std::string &bytes)
{
    std::string copy = bytes.empty() ? std::string(1, '\0') : bytes;
    FILE *in = fmemopen(copy.data(), copy.size(), "rb");
    if (bytes.empty())
        getc(in);
    const bool ok = metadata_read(metadata, in);
    fclose(in);
    EXPECT_EQ(ok, metadata_error(metadata) == METADATA_OK);
    return metadata_error(metadata);
}

uint32_t readCode(const std::string &bytes)
{
    return readInto(create().get(), bytes);
}
uint32_t readCode(const File &file)
{
    return readCode(file.bytes());
}

template <class Function> std::string captured(Function print)
{
    char *data = nullptr;
    size_t size = 0;
    FILE *out = open_memstream(&data, &size);
    print(out);
    fclose(out);
    const std::string result(data, size);
    free(data);
    return result;
}

std::string written(Metadata *metadata)
{
    return captured([&](FILE *out) { EXPECT_TRUE(metadata_write(metadata, out)); });
}

std::string dumped(Metadata *metadata)
{
    return captured([&](FILE *out) { EXPECT_TRUE(metadata_dump(metadata, out)); });
}

// An object with something in every section.
Object sample()
{
    Object object = create();
    Metadata *metadata = object.get();
    metadata_setKey(metadata, METADATA_STKOPT, 2);
    metadata_setAttribute(metadata, METADATA_PRINTF, "%d", 0x123456789ABCDEF0);
    MetadataFunction *entry = metadata_addFunction(metadata, "main");
    entry->source_file = "main.c";
    entry->source_line = 7;
    entry->text = "text";
    entry->interrupt_levels = 0x8;
    entry->hardware_stack = 3;
    entry->software_stack = 300;
    entry->uses_cstack = true;
    entry->has_extern_call = true;
    MetadataFunction *copy = metadata_addFunction(metadata, "i1_main");
    copy->is_extern = true;
    copy->is_recursive = true;
    copy->is_reentrant = true;
    copy->duplicate = entry;
    metadata_addCallee(metadata, entry, copy)->arg_call = true;
    metadata_addCallee(metadata, entry, entry)->indirect_call = true;
    MetadataRoot *interrupt = metadata_addRoot(metadata, copy);
    interrupt->hardware_stack = 4;
    interrupt->software_stack = 5;
    MetadataLevel *low = metadata_addLevel(metadata, 0xC, "low");
    low->hardware_stack = 6;
    low->software_stack = 7;
    low->stack_allocated = 8;
    metadata_addLevelRoot(metadata, low, interrupt);
    metadata_addLevel(metadata, 0x1, nullptr);
    return object;
}

// The bytes of sample(), as docs/metadata-format.md lays them out.
File sampleFile()
{
    File file;
    file.title = "\nVantrix Kestrel QZM V2.32 program metadata\nMetadata format V1.0\n";
    file.title.resize(128, '\0');
    file.general = "GENATTRS" + u32(1) + text("stkopt") + u64(2);
    file.printf = "PRFATTRS" + u32(1) + text("%d") + u64(0x123456789ABCDEF0);
    file.callees = "FCALLEES" + u32(2)               //
                   + u32(1) + u32(2) + u8(1) + u8(0) //
                   + u32(2) + u32(1) + u8(0) + u8(1);
    file.functions = "FUNCTNS " + u32(2)                                                 //
                     + u32(1) + u32(8) + text("main.c") + u32(7) + text("text") + u8(0)  //
                     + text("main") + u32(3) + u32(300) + u8(1) + u8(0) + u8(0) + u8(1)  //
                     + u32(2) + u32(1) + u32(2) + u32(0)                                 //
                     + u32(2) + u32(0) + text("") + u32(0) + text("") + u8(1)            //
                     + text("i1_main") + u32(0) + u32(0) + u8(0) + u8(1) + u8(1) + u8(0) //
                     + u32(0) + u32(1);
    file.roots = "INTROOTS" + u32(1) + u32(1) + u32(2) + u32(4) + u32(5);
    file.levels = "INTLVLS " + u32(3)                                              //
                  + u32(1) + u32(1) + text("") + u32(0) + u32(0) + u32(0) + u32(0) //
                  + u32(0)                                                         //
                  + u32(3) + u32(0xC) + text("low") + u32(6) + u32(7) + u32(8) + u32(1) + u32(1);
    return file;
}

// ---- Creating ---------------------------------------------------------------------------------

TEST(Metadata, IsCreatedWithTheHeaderAndNothingElse)
{
    Object object(metadata_create("9.9"));
    File file;
    file.title = "\nVantrix Kestrel QZM V9.9 program metadata\nMetadata format V1.0\n";
    file.title.resize(128, '\0');
    EXPECT_EQ(written(object.get()), file.bytes());
    EXPECT_EQ(metadata_error(object.get()), METADATA_OK);
}

TEST(Metadata, NamesItsOwnCompilerVersionWhenNoneIsGiven)
{
    Object object(metadata_create(nullptr));
    const std::string title =
        "\nVantrix Kestrel QZM V2.32 program metadata\nMetadata format V1.0\n";
    EXPECT_EQ(std::string(object->header.title), title);
}

TEST(Metadata, TitleMayFillItsFieldButNotMore)
{
    const std::string rest = "\nVantrix Kestrel QZM V program metadata\nMetadata format V1.0\n";
    const std::string fits(128 - rest.size(), '1');
    Object object(metadata_create(fits.c_str()));
    ASSERT_NE(object, nullptr);
    EXPECT_EQ(object->header.title[127], '\n');
    EXPECT_EQ(metadata_create((fits + "1").c_str()), nullptr);
}

TEST(Metadata, DestroyAcceptsNull)
{
    metadata_destroy(nullptr);
}

TEST(Metadata, EveryErrorHasItsText)
{
    const std::vector<std::string> expected = {
        "OK",
        "Null argument",
        "Empty string",
        "Out of memory",
        "Reading/writing header magic number",
        "Reading/writing header title",
        "Reading/writing header version",
        "Reading/writing header reserved area",
        "Reading/writing general attributes magic number",
        "Reading/writing general attributes list",
        "Reading/writing printf attributes magic number",
        "Reading/writing printf attributes list",
        "Bad source line-number",
        "Data stack conflict",
        "Invalid circular reference",
        "Reading/writing function list magic number",
        "Reading/writing the function list",
        "Callee has no function",
        "Callee does not exist",
        "Reading/writing function callees magic number",
        "Reading/writing fucntion callees list",
        "Invalid interrupt-level mask",
        "Reading/writing interrupt-level list magic number",
        "Reading/writing the interrupt-level list",
        "Root has no function",
        "Reading/writing root list magic number",
        "Reading/writing the root list",
        "Foreign metadata",
    };
    std::vector<std::string> texts;
    for (uint32_t code = 0; code < METADATA_ERROR_COUNT; ++code)
        texts.emplace_back(metadata_errorText(code));
    EXPECT_EQ(texts, expected);
    EXPECT_STREQ(metadata_errorText(28), "Unknown error");
}

// ---- Attributes -------------------------------------------------------------------------------

TEST(MetadataAttributes, MissingKeysReadAsTheirDefaults)
{
    Object object = create();
    std::vector<uint64_t> values;
    for (uint32_t key = 0; key < METADATA_KEY_COUNT; ++key) {
        EXPECT_FALSE(metadata_hasKey(object.get(), static_cast<MetadataKey>(key)));
        values.push_back(metadata_getKey(object.get(), static_cast<MetadataKey>(key)));
    }
    EXPECT_EQ(values, (std::vector<uint64_t>{9, 0, 0, 0, 0, 0}));
}

TEST(MetadataAttributes, KeysAreAttributesOfTheirNames)
{
    const std::vector<const char *> names = {"stbisypw",   "stkopt",         "stkguideopt",
                                             "optimlevel", "debugger_hwstk", "hwstk_size"};
    Object object = create();
    for (uint32_t key = 0; key < METADATA_KEY_COUNT; ++key) {
        EXPECT_TRUE(metadata_setKey(object.get(), static_cast<MetadataKey>(key), 0xFFFFFFFF - key));
        EXPECT_TRUE(metadata_hasKey(object.get(), static_cast<MetadataKey>(key)));
        EXPECT_EQ(metadata_getKey(object.get(), static_cast<MetadataKey>(key)), 0xFFFFFFFF - key);
        EXPECT_EQ(metadata_getAttribute(object.get(), METADATA_GENERAL, names[key], 1),
                  0xFFFFFFFF - key);
        EXPECT_FALSE(metadata_hasAttribute(object.get(), METADATA_PRINTF, names[key]));
    }
}

TEST(MetadataAttributes, ZeroIsAValueThatCanBeSetAndReplaced)
{
    Object object = create();
    EXPECT_TRUE(metadata_setKey(object.get(), METADATA_STBISYPW, 0));
    EXPECT_TRUE(metadata_hasKey(object.get(), METADATA_STBISYPW));
    EXPECT_EQ(metadata_getKey(object.get(), METADATA_STBISYPW), 0u);
    EXPECT_TRUE(metadata_setKey(object.get(), METADATA_STBISYPW, 5));
    EXPECT_EQ(metadata_getKey(object.get(), METADATA_STBISYPW), 5u);
}

TEST(MetadataAttributes, SettingRefusesANullAndAnEmptyName)
{
    Object object = create();
    EXPECT_FALSE(metadata_setAttribute(object.get(), METADATA_GENERAL, nullptr, 1));
    EXPECT_EQ(metadata_error(object.get()), METADATA_NULL_ARGUMENT);
    EXPECT_FALSE(metadata_setAttribute(object.get(), METADATA_GENERAL, "", 1));
    EXPECT_EQ(metadata_error(object.get()), METADATA_EMPTY_STRING);
    EXPECT_FALSE(metadata_setAttribute(nullptr, METADATA_GENERAL, "a", 1));
    EXPECT_EQ(metadata_error(nullptr), METADATA_NULL_ARGUMENT);
}

TEST(MetadataAttributes, ALaterDuplicateInAFileReplacesTheValue)
{
    File file;
    file.general =
        "GENATTRS" + u32(3) + text("a") + u64(1) + text("b") + u64(0) + text("a") + u64(3);
    Object object = create();
    EXPECT_EQ(readInto(object.get(), file.bytes()), METADATA_OK);
    file.general = "GENATTRS" + u32(2) + text("a") + u64(3) + text("b") + u64(0);
    EXPECT_EQ(written(object.get()), file.bytes());
}

TEST(MetadataAttributes, ANameInAFileMayNotBeEmpty)
{
    File file;
    file.general = "GENATTRS" + u32(1) + text("") + u64(1);
    EXPECT_EQ(readCode(file), METADATA_GENERAL_LIST);
    file = {};
    file.printf = "PRFATTRS" + u32(1) + text("") + u64(1);
    EXPECT_EQ(readCode(file), METADATA_PRINTF_LIST);
}

// ---- Layout, dump and round trip --------------------------------------------------------------

// The page docs/metadata-format.md names this test.
TEST(MetadataFormat, LayoutIsPinned)
{
    EXPECT_EQ(written(sample().get()), sampleFile().bytes());
}

TEST(MetadataFormat, EveryByteOfASmallFileIsSpelledOut)
{
    Object object(metadata_create("1"));
    metadata_addFunction(object.get(), "f");
    const std::string bytes = written(object.get());
    const std::string expected =
        std::string("!QZMMETA\nVantrix Kestrel QZM V1 program metadata\nMetadata format V1.0\n") +
        std::string(128 - 62, '\0') + std::string("\1\0\0\0", 4) + std::string(128, '\0') +
        std::string("GENATTRS\0\0\0\0PRFATTRS\0\0\0\0FCALLEES\0\0\0\0", 36) +
        std::string("FUNCTNS \1\0\0\0", 12) + std::string("\1\0\0\0\0\0\0\0\0\0\0\0\0\0\0f\0", 17) +
        std::string("\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0", 20) +
        std::string("INTROOTS\0\0\0\0INTLVLS \0\0\0\0", 24);
    EXPECT_EQ(bytes, expected);
}

std::string spelled(const std::string &bytes)
{
    std::string result;
    for (char c : bytes) {
        char piece[8];
        const auto byte = static_cast<unsigned char>(c);
        snprintf(piece, sizeof piece, byte >= 32 && byte <= 126 ? " '%c'" : " %02X", byte);
        result += piece;
    }
    return result + "\n";
}

TEST(MetadataDump, ShowsEverySection)
{
    const std::string rule = std::string(80, '=') + "\n";
    const std::string expected = rule + "QZM METADATA DUMP\n" + rule + "HEADER:\n" +
                                 "\tmagic :" + spelled("!QZMMETA") +
                                 "\ttitle :" + spelled(sampleFile().title) +
                                 "\treserved :" + spelled(std::string(128, '\0')) +
                                 "\tversion.major: 1\n\tversion.minor: 0\n" + rule +
                                 "GENERAL ATTRIBUTES:\n\tmagic :" + spelled("GENATTRS") +
                                 "\tcount : 1\n\t\tstkopt => 0x2\n" + rule +
                                 "PRINTF ATTRIBUTES:\n\tmagic :" + spelled("PRFATTRS") +
                                 "\tcount : 1\n\t\t%d => 0x123456789ABCDEF0\n" + rule +
                                 "FCALLEES:\n\tmagic :" + spelled("FCALLEES") +
                                 "\tcount : 2\n"
                                 "\tcallee: (1)\n"
                                 "\t\tfunction      : (2) i1_main\n"
                                 "\t\targ call      : 1\n"
                                 "\t\tindirect call : 0\n"
                                 "\tcallee: (2)\n"
                                 "\t\tfunction      : (1) main\n"
                                 "\t\targ call      : 0\n"
                                 "\t\tindirect call : 1\n" +
                                 rule + "FUNCTIONS:\n\tmagic :" + spelled("FUNCTNS ") +
                                 "\tcount : 2\n"
                                 "\tFunction: (1) main\n"
                                 "\t\tintlevels       : 0x8\n"
                                 "\t\tsource          : main.c:7\n"
                                 "\t\ts/w stack used  : 300 bytes\n"
                                 "\t\tuses cstack     : 1\n"
                                 "\t\th/w stack used  : 3 levels\n"
                                 "\t\tis recursive    : 0\n"
                                 "\t\tis reentrant    : 0\n"
                                 "\t\tis extern       : 0\n"
                                 "\t\thas extern call : 1\n"
                                 "\t\tduplicates      : <nothing>\n"
                                 "\t\t\t(1) i1_main (2)\n"
                                 "\t\t\t(2) main (1)\n"
                                 "\tFunction: (2) i1_main\n"
                                 "\t\tintlevels       : 0x0\n"
                                 "\t\tsource          : <unknown>\n"
                                 "\t\ts/w stack used  : 0 bytes\n"
                                 "\t\tuses cstack     : 0\n"
                                 "\t\th/w stack used  : 0 levels\n"
                                 "\t\tis recursive    : 1\n"
                                 "\t\tis reentrant    : 1\n"
                                 "\t\tis extern       : 1\n"
                                 "\t\thas extern call : 0\n"
                                 "\t\tduplicates      : (1) main\n" +
                                 rule + "ROOTS:\n\tmagic :" + spelled("INTROOTS") +
                                 "\tcount : 1\n"
                                 "\troot : (1)\n"
                                 "\t\tfunction : i1_main (2)\n"
                                 "\t\thwstack.used : 4 levels\n"
                                 "\t\tswstack.used : 5 bytes\n" +
                                 rule + "INTLEVELS:\n\tmagic :" + spelled("INTLVLS ") +
                                 "\tcount : 3\n"
                                 "\tinlevel: 0 (1)\n"
                                 "\t\tmask          : 0x1\n"
                                 "\t\tname          : \"<undefined>\"\n"
                                 "\t\thwstack.used  : 0 levels\n"
                                 "\t\tswstack.used  : 0 bytes\n"
                                 "\t\tswstack.alloc : 0 bytes\n"
                                 "\t\troots         : 0\n"
                                 "\tinlevel: 1 <undefined>\n"
                                 "\tinlevel: 2 (3)\n"
                                 "\t\tmask          : 0xC\n"
                                 "\t\tname          : \"low\"\n"
                                 "\t\thwstack.used  : 6 levels\n"
                                 "\t\tswstack.used  : 7 bytes\n"
                                 "\t\tswstack.alloc : 8 bytes\n"
                                 "\t\troots         : 1\n"
                                 "\t\t\t(1) i1_main (2)\n" +
                                 rule;
    EXPECT_EQ(dumped(sample().get()), expected);
}

TEST(MetadataDump, SpellsBytesFromBlankToTildeAsCharacters)
{
    Object object = sample();
    const uint8_t edges[] = {31, 32, 126, 127, 255};
    memcpy(object->header.reserved, edges, sizeof edges);
    const std::string dump = dumped(object.get());
    EXPECT_NE(dump.find("\treserved : 1F ' ' '~' 7F FF 00"), std::string::npos) << dump;
}

TEST(MetadataDump, FailsForNullArguments)
{
    Object object = create();
    EXPECT_FALSE(metadata_dump(object.get(), nullptr));
    EXPECT_EQ(metadata_error(object.get()), METADATA_NULL_ARGUMENT);
    EXPECT_FALSE(metadata_dump(nullptr, stdout));
}

TEST(MetadataDump, AFullDiskIsNoticed)
{
    Object object = create();
    FILE *out = fopen("/dev/full", "w");
    EXPECT_FALSE(metadata_dump(object.get(), out));
    fclose(out);
}

TEST(MetadataRoundTrip, DumpOfAWrittenAndReadFileIsIdentical)
{
    Object original = sample();
    Object copy(metadata_create("other"));
    ASSERT_EQ(readInto(copy.get(), written(original.get())), METADATA_OK);
    EXPECT_EQ(dumped(copy.get()), dumped(original.get()));
    EXPECT_EQ(written(copy.get()), written(original.get()));
}

TEST(MetadataRoundTrip, KeepsManyAttributesAndFunctionsInOrder)
{
    Object original = create();
    for (uint32_t i = 0; i < 5000; ++i) {
        const std::string name = "name_" + std::to_string(i * 7919 % 5000);
        metadata_setAttribute(original.get(), METADATA_GENERAL, name.c_str(), i);
        MetadataFunction *entry = metadata_addFunction(original.get(), name.c_str());
        metadata_addCallee(original.get(), entry, metadata_functionById(original.get(), i / 2 + 1));
    }
    Object copy = create();
    ASSERT_EQ(readInto(copy.get(), written(original.get())), METADATA_OK);
    EXPECT_EQ(dumped(copy.get()), dumped(original.get()));
    EXPECT_EQ(metadata_functionByName(copy.get(), "name_7919"), nullptr);
    EXPECT_EQ(metadata_functionByName(copy.get(), "name_4999")->owner, copy.get());
}

TEST(MetadataRoundTrip, KeepsAVersionTitleAndReservedAreaItDoesNotKnow)
{
    File file;
    file.title = std::string(128, '\xFF');
    file.version = u16(0xFFFF) + u16(0x1234);
    file.reserved = std::string(128, '\x5A');
    Object object = create();
    EXPECT_EQ(readInto(object.get(), file.bytes()), METADATA_OK);
    EXPECT_EQ(written(object.get()), file.bytes());
}

TEST(MetadataRoundTrip, TracingChangesNothing)
{
    gDebugFlags = DEBUG_TRACE;
    Object copy = create();
    const uint32_t code = readInto(copy.get(), sampleFile().bytes());
    const std::string dump = dumped(copy.get());
    gDebugFlags = 0;
    EXPECT_EQ(code, METADATA_OK);
    EXPECT_EQ(dump, dumped(sample().get()));
}

// ---- Reading what it should -------------------------------------------------------------------

TEST(MetadataRead, NullStreamAndObjectFail)
{
    Object object = create();
    EXPECT_FALSE(metadata_read(object.get(), nullptr));
    EXPECT_EQ(metadata_error(object.get()), METADATA_NULL_ARGUMENT);
    EXPECT_FALSE(metadata_read(nullptr, stdin));
}

TEST(MetadataRead, ConnectsRecords)
{
    Object object = create();
    ASSERT_EQ(readInto(object.get(), sampleFile().bytes()), METADATA_OK);
    MetadataFunction *entry = metadata_functionByName(object.get(), "main");
    MetadataFunction *copy = metadata_functionById(object.get(), 2);
    ASSERT_NE(entry, nullptr);
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy->duplicate, entry);
    EXPECT_EQ(entry->duplicate, nullptr);
    ASSERT_EQ(vec_size(entry->callees), 2u);
    auto *first = static_cast<MetadataCallee *>(vec_elementAt(entry->callees, 0));
    EXPECT_EQ(first->function, copy);
    EXPECT_EQ(first->caller, entry);
    ASSERT_NE(object->levels[2], nullptr);
    auto *interrupt = static_cast<MetadataRoot *>(vec_elementAt(object->levels[2]->roots, 0));
    EXPECT_EQ(interrupt->function, copy);
}

TEST(MetadataRead, LevelWithMask8OccupiesSlot3)
{
    File file;
    file.levels = "INTLVLS " + u32(1) + level(1, 0x8);
    Object object = create();
    ASSERT_EQ(readInto(object.get(), file.bytes()), METADATA_OK);
    EXPECT_EQ(object->level_count, 4u);
    ASSERT_NE(object->levels[3], nullptr);
    EXPECT_EQ(object->levels[3]->mask, 0x8u);
    file.levels = "INTLVLS " + u32(4) + u32(0) + u32(0) + u32(0) + level(1, 0x8);
    EXPECT_EQ(written(object.get()), file.bytes());
}

TEST(MetadataRead, HighestBitHasTheLastSlot)
{
    File file;
    file.levels = "INTLVLS " + u32(1) + level(9, 0x80000000);
    Object object = create();
    ASSERT_EQ(readInto(object.get(), file.bytes()), METADATA_OK);
    EXPECT_EQ(object->level_count, 32u);
    EXPECT_EQ(object->levels[31]->id, 9u);
}

TEST(MetadataRead, IdsMayBeSparseAndInAnyOrder)
{
    File file;
    file.callees = "FCALLEES" + u32(2) + callee(0xFFFFFFFF, 4000000000) + callee(5, 9);
    file.functions = "FUNCTNS " + u32(2) + function(4000000000, "b", u32(1) + u32(5)) +
                     function(9, "a", u32(1) + u32(0xFFFFFFFF), 4000000000);
    file.roots = "INTROOTS" + u32(2) + root(7, 9) + root(3, 4000000000);
    file.levels = "INTLVLS " + u32(1) + level(1, 1, u32(2) + u32(7) + u32(3));
    Object object = create();
    ASSERT_EQ(readInto(object.get(), file.bytes()), METADATA_OK);
    EXPECT_EQ(metadata_functionById(object.get(), 9)->duplicate,
              metadata_functionById(object.get(), 4000000000));
    EXPECT_EQ(metadata_functionById(object.get(), 1), nullptr);

    file.callees = "FCALLEES" + u32(2) + callee(5, 9) + callee(0xFFFFFFFF, 4000000000);
    file.functions = "FUNCTNS " + u32(2) + function(9, "a", u32(1) + u32(0xFFFFFFFF), 4000000000) +
                     function(4000000000, "b", u32(1) + u32(5));
    file.roots = "INTROOTS" + u32(2) + root(3, 4000000000) + root(7, 9);
    EXPECT_EQ(written(object.get()), file.bytes());

    MetadataFunction *next = metadata_addFunction(object.get(), "c");
    EXPECT_EQ(next->id, 4000000001u);
    EXPECT_EQ(metadata_addCallee(object.get(), next, next), nullptr);
    EXPECT_EQ(metadata_error(object.get()), METADATA_CALLEE_LIST);
}

TEST(MetadataRead, DuplicatesMayBeCircular)
{
    File file;
    file.functions = "FUNCTNS " + u32(3) + function(1, "a", u32(0), 2) +
                     function(2, "b", u32(0), 1) + function(3, "c", u32(0), 3);
    Object object = create();
    ASSERT_EQ(readInto(object.get(), file.bytes()), METADATA_OK);
    EXPECT_EQ(written(object.get()), file.bytes());
    const std::string dump = dumped(object.get());
    EXPECT_NE(dump.find("duplicates      : (2) b\n"), std::string::npos);
    EXPECT_NE(dump.find("duplicates      : (3) c\n"), std::string::npos);
}

TEST(MetadataRead, AnyOtherByteThanZeroIsASetFlag)
{
    File file;
    file.callees = "FCALLEES" + u32(1) + u32(1) + u32(1) + u8(0xFF) + u8(2);
    file.functions = "FUNCTNS " + u32(1) + function(1, "a");
    Object object = create();
    ASSERT_EQ(readInto(object.get(), file.bytes()), METADATA_OK);
    file.callees = "FCALLEES" + u32(1) + u32(1) + u32(1) + u8(1) + u8(1);
    EXPECT_EQ(written(object.get()), file.bytes());
}

TEST(MetadataRead, KeepsVeryLongStrings)
{
    const std::string name(1000000, 'n');
    File file;
    file.functions = "FUNCTNS " + u32(1) + function(1, name);
    Object object = create();
    ASSERT_EQ(readInto(object.get(), file.bytes()), METADATA_OK);
    EXPECT_EQ(metadata_functionById(object.get(), 1)->name, name);
    EXPECT_EQ(written(object.get()), file.bytes());
}

TEST(MetadataRead, NamesMadeToCollideCostNoMoreThanOthers)
{
    File file;
    const std::vector<std::string> names = collidingTexts(20000);
    file.functions = "FUNCTNS " + u32(names.size());
    file.general = "GENATTRS" + u32(names.size());
    for (uint32_t i = 0; i < names.size(); ++i) {
        file.functions += function(i + 1, names[i]);
        file.general += text(names[i]) + u64(i);
    }
    const std::string bytes = file.bytes();
    const std::clock_t start = std::clock();
    EXPECT_EQ(readCode(bytes), METADATA_OK);
    EXPECT_LT(std::clock() - start, CLOCKS_PER_SEC / 2);
}

TEST(MetadataRead, RecordsComeToThoseThatAreThere)
{
    Object object = create();
    metadata_addFunction(object.get(), "mine");
    metadata_addLevel(object.get(), 1, "low");
    metadata_setAttribute(object.get(), METADATA_GENERAL, "kept", 1);
    metadata_setAttribute(object.get(), METADATA_GENERAL, "replaced", 1);
    File file;
    file.general = "GENATTRS" + u32(1) + text("replaced") + u64(2);
    file.functions = "FUNCTNS " + u32(1) + function(7, "theirs");
    file.levels = "INTLVLS " + u32(1) + level(4, 8);
    ASSERT_EQ(readInto(object.get(), file.bytes()), METADATA_OK);
    EXPECT_STREQ(object->header.title, "title");
    EXPECT_EQ(metadata_getAttribute(object.get(), METADATA_GENERAL, "kept", 0), 1U);
    EXPECT_EQ(metadata_getAttribute(object.get(), METADATA_GENERAL, "replaced", 0), 2U);
    EXPECT_EQ(metadata_functionByName(object.get(), "mine")->id, 1U);
    EXPECT_EQ(metadata_functionByName(object.get(), "theirs")->id, 7U);
    EXPECT_EQ(metadata_functionById(object.get(), 7),
              metadata_functionByName(object.get(), "theirs"));
    EXPECT_STREQ(object->levels[0]->name, "low");
    EXPECT_EQ(object->levels[3]->id, 4U);
}

TEST(MetadataRead, WhatIsInUseMakesAReadFailAsIfTheFileNamedItTwice)
{
    const auto readOver = [](const File &file) {
        Object object = create();
        MetadataFunction *mine = metadata_addFunction(object.get(), "mine");
        metadata_addCallee(object.get(), mine, mine);
        metadata_addRoot(object.get(), mine);
        metadata_addLevel(object.get(), 1, "low");
        return readInto(object.get(), file.bytes());
    };
    File file;
    EXPECT_EQ(readOver(file), METADATA_OK);
    file.functions = "FUNCTNS " + u32(1) + function(1, "theirs");
    EXPECT_EQ(readOver(file), METADATA_FUNCTION_LIST);
    file.functions = "FUNCTNS " + u32(1) + function(7, "mine");
    EXPECT_EQ(readOver(file), METADATA_FUNCTION_LIST);
    file.functions = "FUNCTNS " + u32(1) + function(7, "theirs");
    file.roots = "INTROOTS" + u32(1) + root(1, 7);
    EXPECT_EQ(readOver(file), METADATA_ROOT_LIST);
    file.roots = "INTROOTS" + u32(1) + root(2, 7);
    file.levels = "INTLVLS " + u32(1) + level(4, 1);
    EXPECT_EQ(readOver(file), METADATA_LEVEL_LIST);
    file.levels = "INTLVLS " + u32(1) + level(4, 8);
    file.callees = "FCALLEES" + u32(1) + callee(1, 7);
    EXPECT_EQ(readOver(file), METADATA_CALLEE_LIST);
    file.callees = "FCALLEES" + u32(1) + callee(2, 7);
    EXPECT_EQ(readOver(file), METADATA_OK);
}

TEST(MetadataRead, FailureLeavesWhatWasRead)
{
    File file;
    file.functions = "FUNCTNS " + u32(2) + function(1, "a") + function(2, "");
    Object object = create();
    EXPECT_EQ(readInto(object.get(), file.bytes()), METADATA_FUNCTION_LIST);
    EXPECT_NE(metadata_functionByName(object.get(), "a"), nullptr);
    EXPECT_EQ(metadata_functionById(object.get(), 2), nullptr);
}

TEST(MetadataRead, ObjectOfAFailedReadCanBeDumpedButNotWritten)
{
    File file;
    file.callees = "FCALLEES" + u32(1) + callee(1, 7);
    Object object = create();
    EXPECT_EQ(readInto(object.get(), file.bytes()), METADATA_FUNCTION_LIST);
    EXPECT_NE(dumped(object.get()).find("\t\tfunction      : (7) <undefined>\n"),
              std::string::npos);
    captured([&](FILE *out) { EXPECT_FALSE(metadata_write(object.get(), out)); });
    EXPECT_EQ(metadata_error(object.get()), METADATA_CALLEE_WITHOUT_FUNCTION);
}

// ---- Refusing what it should ------------------------------------------------------------------

TEST(MetadataRefuses, AWrongMagicWithItsSectionsCode)
{
    const struct {
        std::string File::*section;
        uint32_t code;
    } rows[] = {
        {&File::magic, METADATA_HEADER_MAGIC},       {&File::general, METADATA_GENERAL_MAGIC},
        {&File::printf, METADATA_PRINTF_MAGIC},      {&File::callees, METADATA_FUNCTION_MAGIC},
        {&File::functions, METADATA_FUNCTION_MAGIC}, {&File::roots, METADATA_ROOT_MAGIC},
        {&File::levels, METADATA_LEVEL_MAGIC},
    };
    for (const auto &row : rows)
        for (size_t i = 0; i < 8; ++i) {
            File file;
            (file.*row.section)[i] = static_cast<char>((file.*row.section)[i] ^ 1);
            EXPECT_EQ(readCode(file), row.code) << file.*row.section;
        }
}

TEST(MetadataRefuses, BadCallees)
{
    const std::string callees[] = {
        u32(1) + callee(0, 1),                // no id
        u32(1) + callee(1, 0),                // no function
        u32(2) + callee(1, 1) + callee(1, 1), // an id twice
        u32(3) + callee(2, 1) + callee(1, 1) + callee(2, 1),
    };
    for (const std::string &list : callees) {
        File file;
        file.callees = "FCALLEES" + list;
        file.functions = "FUNCTNS " + u32(1) + function(1, "a");
        EXPECT_EQ(readCode(file), METADATA_CALLEE_LIST);
    }
}

TEST(MetadataRefuses, BadFunctions)
{
    const std::string functions[] = {
        u32(0),                                       // callee 1 calls no function
        u32(1) + function(0, "a"),                    // no id
        u32(1) + function(1, ""),                     // no name
        u32(2) + function(1, "a") + function(1, "b"), // an id twice
        u32(3) + function(2, "a") + function(1, "b") + function(2, "c"),
        u32(2) + function(1, "a") + function(2, "a"), // a name twice
        u32(1) + function(1, "a", u32(1) + u32(0)),   // callee 0
        u32(1) + function(1, "a", u32(1) + u32(2)),   // an unknown callee
        u32(1) + function(1, "a", u32(0), 2),         // duplicates an unknown function
        u32(1) + function(2, "a"),                    // callee 1 calls an unknown function
    };
    for (const std::string &list : functions) {
        File file;
        file.callees = "FCALLEES" + u32(1) + callee(1, 1);
        file.functions = "FUNCTNS " + list;
        EXPECT_EQ(readCode(file), METADATA_FUNCTION_LIST);
    }
}

TEST(MetadataRefuses, BadRoots)
{
    const std::string roots[] = {
        u32(1) + root(0, 1),
        u32(1) + root(1, 0),
        u32(1) + root(1, 2),
        u32(2) + root(1, 1) + root(1, 1),
    };
    for (const std::string &list : roots) {
        File file;
        file.functions = "FUNCTNS " + u32(1) + function(1, "a");
        file.roots = "INTROOTS" + list;
        EXPECT_EQ(readCode(file), METADATA_ROOT_LIST);
    }
}

TEST(MetadataRefuses, BadLevels)
{
    const std::string levels[] = {
        u32(1) + level(1, 1, u32(1) + u32(0)), // root 0
        u32(1) + level(1, 1, u32(1) + u32(2)), // an unknown root
        u32(2) + level(1, 2) + level(2, 6),    // a slot twice
        u32(33),                               // more slots than a mask has bits
    };
    for (const std::string &list : levels) {
        File file;
        file.functions = "FUNCTNS " + u32(1) + function(1, "a");
        file.roots = "INTROOTS" + u32(1) + root(1, 1);
        file.levels = "INTLVLS " + list;
        EXPECT_EQ(readCode(file), METADATA_LEVEL_LIST);
    }
}

TEST(MetadataRefuses, ALevelWithoutAMask)
{
    File file;
    file.levels = "INTLVLS " + u32(1) + level(1, 0);
    EXPECT_EQ(readCode(file), METADATA_BAD_MASK);
}

TEST(MetadataRefuses, EveryTruncationWithItsSectionsCode)
{
    const File file = sampleFile();
    const struct {
        const std::string &bytes;
        uint32_t magic_code; // when the first 8 bytes are not all there
        uint32_t code;       // later
    } sections[] = {
        {file.magic, METADATA_HEADER_MAGIC, 0},
        {file.title, METADATA_HEADER_TITLE, METADATA_HEADER_TITLE},
        {file.version, METADATA_HEADER_VERSION, 0},
        {file.reserved, METADATA_HEADER_RESERVED, METADATA_HEADER_RESERVED},
        {file.general, METADATA_GENERAL_MAGIC, METADATA_GENERAL_LIST},
        {file.printf, METADATA_PRINTF_MAGIC, METADATA_PRINTF_LIST},
        {file.callees, METADATA_CALLEE_MAGIC, METADATA_CALLEE_LIST},
        {file.functions, METADATA_FUNCTION_MAGIC, METADATA_FUNCTION_LIST},
        {file.roots, METADATA_ROOT_MAGIC, METADATA_ROOT_LIST},
        {file.levels, METADATA_LEVEL_MAGIC, METADATA_LEVEL_LIST},
    };
    std::string before;
    for (const auto &section : sections) {
        for (size_t length = 0; length < section.bytes.size(); ++length)
            EXPECT_EQ(readCode(before + section.bytes.substr(0, length)),
                      length < 8 ? section.magic_code : section.code)
                << "cut " << length << " bytes into the section behind " << before.size();
        before += section.bytes;
    }
    EXPECT_EQ(readCode(before), METADATA_OK);
}

TEST(MetadataRefuses, NoCorruptionGetsPastTheFormatsRules)
{
    const std::string valid = sampleFile().bytes();
    unsigned refused = 0;
    for (size_t at = 0; at < valid.size(); ++at)
        for (int bit = 0; bit < 9; ++bit) {
            std::string bytes = valid;
            bytes[at] = static_cast<char>(bit == 8 ? 0xFF : bytes[at] ^ 1 << bit);
            Object object = create();
            if (readInto(object.get(), bytes) != METADATA_OK) {
                ++refused;
                dumped(object.get());
                continue;
            }
            Object copy = create();
            ASSERT_EQ(readInto(copy.get(), written(object.get())), METADATA_OK);
            EXPECT_EQ(dumped(copy.get()), dumped(object.get())) << "byte " << at;
        }
    EXPECT_GT(refused, 0u);
}

TEST(MetadataRefuses, HugeCountsWithoutTakingMemoryForThem)
{
    struct rusage before;
    getrusage(RUSAGE_SELF, &before);
    File files[8];
    files[0].general = "GENATTRS" + u32(0xFFFFFFFF);
    files[1].printf = "PRFATTRS" + u32(0xFFFFFFFF);
    files[2].callees = "FCALLEES" + u32(0xFFFFFFFF);
    files[3].functions = "FUNCTNS " + u32(0xFFFFFFFF);
    files[4].functions = "FUNCTNS " + u32(1) + function(1, "a", u32(0xFFFFFFFF));
    files[5].roots = "INTROOTS" + u32(0xFFFFFFFF);
    files[6].levels = "INTLVLS " + u32(0xFFFFFFFF);
    files[7].levels = "INTLVLS " + u32(1) + level(1, 1, u32(0xFFFFFFFF));
    std::vector<uint32_t> codes;
    for (const File &file : files)
        codes.push_back(readCode(file));
    EXPECT_EQ(codes, (std::vector<uint32_t>{9, 11, 20, 16, 16, 26, 23, 23}));
    struct rusage after;
    getrusage(RUSAGE_SELF, &after);
    EXPECT_LT(after.ru_maxrss - before.ru_maxrss, 16 * 1024);
}

TEST(MetadataRefuses, AStringOfMoreThan16MiB)
{
    const std::string longest(16 * 1024 * 1024, 'n');
    File file;
    file.functions = "FUNCTNS " + u32(1) + function(1, longest);
    EXPECT_EQ(readCode(file), METADATA_OK);
    file.functions = "FUNCTNS " + u32(1) + function(1, longest + "n");
    EXPECT_EQ(readCode(file), METADATA_FUNCTION_LIST);
}

TEST(MetadataRefuses, AStringWithoutAnEnd)
{
    File file;
    file.general = "GENATTRS" + u32(1) + std::string(3000000, 'x');
    file.printf = file.callees = file.functions = file.roots = file.levels = "";
    EXPECT_EQ(readCode(file), METADATA_GENERAL_LIST);
}

// ---- Adding -----------------------------------------------------------------------------------

TEST(MetadataAdd, FunctionsNeedANameOfTheirOwn)
{
    Object object = create();
    MetadataFunction *first = metadata_addFunction(object.get(), "a");
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first->id, 1u);
    EXPECT_EQ(metadata_addFunction(object.get(), nullptr), nullptr);
    EXPECT_EQ(metadata_error(object.get()), METADATA_NULL_ARGUMENT);
    EXPECT_EQ(metadata_addFunction(object.get(), ""), nullptr);
    EXPECT_EQ(metadata_error(object.get()), METADATA_EMPTY_STRING);
    EXPECT_EQ(metadata_addFunction(object.get(), "a"), nullptr);
    EXPECT_EQ(metadata_error(object.get()), METADATA_FUNCTION_LIST);
    EXPECT_EQ(metadata_addFunction(nullptr, "a"), nullptr);
    EXPECT_EQ(metadata_addFunction(object.get(), "b")->id, 2u);
}

TEST(MetadataAdd, CalleesAndRootsNeedFunctionsOfTheObject)
{
    Object object = create();
    Object other = create();
    MetadataFunction *own = metadata_addFunction(object.get(), "a");
    MetadataFunction *foreign = metadata_addFunction(other.get(), "a");
    EXPECT_EQ(metadata_addCallee(object.get(), own, nullptr), nullptr);
    EXPECT_EQ(metadata_error(object.get()), METADATA_NULL_ARGUMENT);
    EXPECT_EQ(metadata_addCallee(object.get(), own, foreign), nullptr);
    EXPECT_EQ(metadata_error(object.get()), METADATA_FOREIGN);
    EXPECT_EQ(metadata_addRoot(other.get(), nullptr), nullptr);
    EXPECT_EQ(metadata_error(other.get()), METADATA_NULL_ARGUMENT);
    EXPECT_EQ(metadata_addRoot(other.get(), own), nullptr);
    EXPECT_EQ(metadata_error(other.get()), METADATA_FOREIGN);
}

TEST(MetadataAdd, LevelsNeedAFreeSlot)
{
    Object object = create();
    EXPECT_EQ(metadata_addLevel(object.get(), 0, "none"), nullptr);
    EXPECT_EQ(metadata_error(object.get()), METADATA_BAD_MASK);
    MetadataLevel *first = metadata_addLevel(object.get(), 0x6, "one");
    EXPECT_EQ(object->levels[1], first);
    EXPECT_EQ(metadata_addLevel(object.get(), 0x2, "two"), nullptr);
    EXPECT_EQ(metadata_error(object.get()), METADATA_LEVEL_LIST);
}

TEST(MetadataAdd, LevelsTakeRootsOfTheObject)
{
    Object object = create();
    Object other = create();
    MetadataLevel *slot = metadata_addLevel(object.get(), 1, nullptr);
    MetadataRoot *foreign = metadata_addRoot(other.get(), metadata_addFunction(other.get(), "a"));
    EXPECT_FALSE(metadata_addLevelRoot(object.get(), slot, foreign));
    EXPECT_EQ(metadata_error(object.get()), METADATA_FOREIGN);
    EXPECT_FALSE(metadata_addLevelRoot(object.get(), slot, nullptr));
    EXPECT_EQ(metadata_error(object.get()), METADATA_NULL_ARGUMENT);
}

// ---- Checking ---------------------------------------------------------------------------------

TEST(MetadataVerify, AcceptsAnObjectThatIsInOrder)
{
    EXPECT_TRUE(metadata_verify(create().get()));
    EXPECT_TRUE(metadata_verify(sample().get()));
    EXPECT_FALSE(metadata_verify(nullptr));
}

// The code that verifying sample() gives after `change`.
template <class Change> uint32_t verified(Change change)
{
    Object object = sample();
    change(object.get(), metadata_functionByName(object.get(), "main"));
    EXPECT_FALSE(metadata_verify(object.get()));
    return metadata_error(object.get());
}

TEST(MetadataVerify, NamesWhatIsWrong)
{
    Object other = sample();
    MetadataFunction *foreign = metadata_functionByName(other.get(), "main");
    MetadataCallee stray = {7, 1, foreign, nullptr, false, false};
    EXPECT_EQ(verified([](Metadata *, MetadataFunction *entry) { entry->source_line = 0; }),
              METADATA_BAD_LINE);
    EXPECT_EQ(verified([](Metadata *, MetadataFunction *entry) { entry->is_reentrant = true; }),
              METADATA_STACK_CONFLICT);
    EXPECT_EQ(verified([](Metadata *metadata, MetadataFunction *entry) {
                  entry->duplicate = metadata_functionByName(metadata, "i1_main");
              }),
              METADATA_CIRCULAR);
    EXPECT_EQ(verified([](Metadata *, MetadataFunction *entry) { entry->duplicate = entry; }),
              METADATA_CIRCULAR);
    EXPECT_EQ(verified([](Metadata *, MetadataFunction *entry) {
                  static_cast<MetadataCallee *>(vec_top(entry->callees))->function = nullptr;
              }),
              METADATA_CALLEE_WITHOUT_FUNCTION);
    EXPECT_EQ(
        verified([&](Metadata *, MetadataFunction *entry) { vec_add(entry->callees, &stray); }),
        METADATA_NO_SUCH_CALLEE);
    EXPECT_EQ(
        verified([](Metadata *metadata, MetadataFunction *) { metadata->levels[2]->mask = 0; }),
        METADATA_BAD_MASK);
    EXPECT_EQ(verified([](Metadata *metadata, MetadataFunction *) {
                  static_cast<MetadataRoot *>(vec_top(metadata->roots.records))->function = nullptr;
              }),
              METADATA_ROOT_WITHOUT_FUNCTION);
    EXPECT_EQ(verified([&](Metadata *, MetadataFunction *entry) { entry->duplicate = foreign; }),
              METADATA_FOREIGN);
}

// ---- Writing ----------------------------------------------------------------------------------

TEST(MetadataWrite, NullStreamAndObjectFail)
{
    Object object = create();
    EXPECT_FALSE(metadata_write(object.get(), nullptr));
    EXPECT_EQ(metadata_error(object.get()), METADATA_NULL_ARGUMENT);
    EXPECT_FALSE(metadata_write(nullptr, stdout));
}

TEST(MetadataWrite, ARootWithoutAFunctionIsRefused)
{
    Object object = sample();
    static_cast<MetadataRoot *>(vec_top(object->roots.records))->function = nullptr;
    captured([&](FILE *out) { EXPECT_FALSE(metadata_write(object.get(), out)); });
    EXPECT_EQ(metadata_error(object.get()), METADATA_ROOT_WITHOUT_FUNCTION);
}

TEST(MetadataWrite, AFullDiskIsNoticed)
{
    Object object = sample();
    FILE *out = fopen("/dev/full", "wb");
    ASSERT_NE(out, nullptr);
    EXPECT_FALSE(metadata_write(object.get(), out));
    EXPECT_EQ(metadata_error(object.get()), METADATA_LEVEL_LIST);
    fclose(out);
}

// The code of a write to a stream that takes `room` bytes and one more.
static uint32_t codeOfWriteInto(size_t room)
{
    Object object = sample();
    std::string buffer(room + 1, '\0');
    FILE *out = fmemopen(buffer.data(), buffer.size(), "wb");
    setvbuf(out, nullptr, _IONBF, 0);
    EXPECT_FALSE(metadata_write(object.get(), out));
    fclose(out);
    return metadata_error(object.get());
}

TEST(MetadataWrite, AFailureHasTheCodeOfTheSectionItMeets)
{
    const File file = sampleFile();
    const struct {
        const std::string &bytes;
        uint32_t code;     // of a failure at its start
        uint32_t listCode; // of a failure after its magic number, or 0
    } sections[] = {
        {file.magic, METADATA_HEADER_MAGIC, 0},
        {file.title, METADATA_HEADER_TITLE, 0},
        {file.version, METADATA_HEADER_VERSION, 0},
        {file.reserved, METADATA_HEADER_RESERVED, 0},
        {file.general, METADATA_GENERAL_MAGIC, METADATA_GENERAL_LIST},
        {file.printf, METADATA_PRINTF_MAGIC, METADATA_PRINTF_LIST},
        {file.callees, METADATA_CALLEE_MAGIC, METADATA_CALLEE_LIST},
        {file.functions, METADATA_FUNCTION_MAGIC, METADATA_FUNCTION_LIST},
        {file.roots, METADATA_ROOT_MAGIC, METADATA_ROOT_LIST},
        {file.levels, METADATA_LEVEL_MAGIC, METADATA_LEVEL_LIST},
    };
    size_t room = 0;
    for (const auto &section : sections) {
        EXPECT_EQ(codeOfWriteInto(room), section.code) << "room for " << room;
        const size_t end = room + section.bytes.size();
        for (size_t at = room + 8; section.listCode != 0 && at + 1 < end; ++at)
            EXPECT_EQ(codeOfWriteInto(at), section.listCode) << "room for " << at;
        room = end;
    }
}

} // namespace
