#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/utsname.h>
#include <unistd.h>

#include "common/base/sorting.h"
#include "common/os/osdep_host.h"
#include "common/os/osdep_process.h"
#include "common/text/osdep_bytes.h"
#include "common/text/osdep_path.h"
#include "common/text/osdep_wide.h"
#include "tests/common/broken_contract.h"

// The tests make the sort fail to get its buffer.
extern "C" const char *__asan_default_options()
{
    return "allocator_may_return_null=1";
}

namespace {

int s_comparisons;

int compare_u64(const void *a, const void *b)
{
    ++s_comparisons;
    uint64_t left;
    uint64_t right;
    std::memcpy(&left, a, sizeof left);
    std::memcpy(&right, b, sizeof right);
    return left < right ? -1 : left > right;
}

int compare_u8(const void *a, const void *b)
{
    return *static_cast<const uint8_t *>(a) - *static_cast<const uint8_t *>(b);
}

void expect_sorted_like_the_library(std::vector<uint64_t> values)
{
    std::vector<uint64_t> expected = values;
    std::sort(expected.begin(), expected.end());
    s_comparisons = 0;
    osdep_qsort(values.data(), values.size(), sizeof(uint64_t), compare_u64);
    EXPECT_EQ(values, expected);
}

// An element of N bytes whose order is in its first byte; its last byte is to move with it.
template <size_t N> void expect_sorts_elements_of()
{
    struct Element {
        uint8_t bytes[N];
    };
    std::vector<Element> elements(200);
    std::mt19937 random(N);
    for (Element &element : elements) {
        std::memset(element.bytes, 0, N);
        element.bytes[0] = static_cast<uint8_t>(random());
        if (N > 1)
            element.bytes[N - 1] = static_cast<uint8_t>(~element.bytes[0]);
    }
    std::string expected;
    for (const Element &element : elements)
        expected += static_cast<char>(element.bytes[0]);
    std::sort(expected.begin(), expected.end(),
              [](char a, char b) { return static_cast<uint8_t>(a) < static_cast<uint8_t>(b); });
    osdep_qsort(elements.data(), elements.size(), N, compare_u8);
    for (size_t i = 0; i < elements.size(); ++i) {
        ASSERT_EQ(elements[i].bytes[0], static_cast<uint8_t>(expected[i])) << N << " at " << i;
        if (N > 1) {
            ASSERT_EQ(elements[i].bytes[N - 1], static_cast<uint8_t>(~elements[i].bytes[0]));
        }
    }
}

} // namespace

// ---- Sorting ----------------------------------------------------------------------------------

TEST(Sort, SortsEveryOrderOfAShortArray)
{
    for (size_t count = 0; count <= 7; ++count) {
        std::vector<uint64_t> values(count);
        for (size_t i = 0; i < count; ++i)
            values[i] = i / 2;
        do {
            expect_sorted_like_the_library(values);
        } while (std::next_permutation(values.begin(), values.end()));
    }
}

TEST(Sort, SortsRandomArraysWithFewAndManyEqualElements)
{
    std::mt19937_64 random(1);
    for (size_t count : std::initializer_list<size_t>{11, 12, 13, 50, 100, 1000, 10000})
        for (uint64_t distinct : {1ULL, 2ULL, 10ULL, 1000000ULL}) {
            std::vector<uint64_t> values(count);
            for (uint64_t &value : values)
                value = random() % distinct;
            expect_sorted_like_the_library(values);
        }
}

TEST(Sort, TakesNoInputQuadratically)
{
    const size_t count = 100000;
    std::vector<std::vector<uint64_t>> inputs(5, std::vector<uint64_t>(count));
    for (size_t i = 0; i < count; ++i) {
        inputs[0][i] = i;                                  // ascending
        inputs[1][i] = count - i;                          // descending
        inputs[2][i] = 7;                                  // all equal
        inputs[3][i] = i < count / 2 ? i : count - i;      // up and down
        inputs[4][i] = i % 2 == 0 ? i : count / 2 + i / 2; // interleaved
    }
    for (const auto &input : inputs) {
        expect_sorted_like_the_library(input);
        EXPECT_LT(s_comparisons, 60 * static_cast<int>(count));
    }
}

// The adversary of McIlroy ("A Killer Adversary for Quicksort"): it decides what the elements are
// while they are being compared, so that every pivot comes out as bad as it can be.
namespace {
std::vector<size_t> s_values;
size_t s_gas;
size_t s_solid;
size_t s_candidate;

int compare_adversary(const void *a, const void *b)
{
    ++s_comparisons;
    uint64_t x;
    uint64_t y;
    std::memcpy(&x, a, sizeof x);
    std::memcpy(&y, b, sizeof y);
    if (s_values[x] == s_gas && s_values[y] == s_gas)
        s_values[x == s_candidate ? x : y] = s_solid++;
    if (s_values[x] == s_gas)
        s_candidate = x;
    else if (s_values[y] == s_gas)
        s_candidate = y;
    return s_values[x] < s_values[y] ? -1 : s_values[x] > s_values[y];
}
} // namespace

TEST(Sort, WithstandsAnAdversary)
{
    const size_t count = 20000;
    s_gas = count;
    s_solid = 0;
    s_candidate = 0;
    s_comparisons = 0;
    s_values.assign(count, s_gas);
    std::vector<uint64_t> indices(count);
    for (size_t i = 0; i < count; ++i)
        indices[i] = i;
    osdep_qsort(indices.data(), count, sizeof(uint64_t), compare_adversary);
    EXPECT_LT(s_comparisons, 100 * static_cast<int>(count)); // quadratic: 200,000,000
    for (size_t i = 1; i < count; ++i)
        ASSERT_LE(s_values[indices[i - 1]], s_values[indices[i]]);
}

TEST(Sort, StaysInsideTheArrayWhateverTheComparisonSays)
{
    std::vector<uint64_t> values(1000);
    for (OsdepCompare compare : {+[](const void *, const void *) { return 1; },
                                 +[](const void *, const void *) { return -1; },
                                 +[](const void *, const void *) { return 0; }}) {
        for (size_t i = 0; i < values.size(); ++i)
            values[i] = i;
        osdep_qsort(values.data(), values.size(), sizeof(uint64_t), compare);
        std::sort(values.begin(), values.end());
        for (size_t i = 0; i < values.size(); ++i)
            ASSERT_EQ(values[i], i);
    }
}

TEST(Sort, MovesElementsOfAnySize)
{
    expect_sorts_elements_of<1>();
    expect_sorts_elements_of<3>();
    expect_sorts_elements_of<4>();
    expect_sorts_elements_of<8>();
    expect_sorts_elements_of<16>();
    expect_sorts_elements_of<799>();
    expect_sorts_elements_of<800>();
    expect_sorts_elements_of<5000>();
}

TEST(Sort, LeavesTheArrayUnsortedWhenThereIsNoRoomForTheSwapBuffer)
{
    uint64_t values[2] = {2, 1};
    osdep_qsort(values, 2, SIZE_MAX / 4, compare_u64);
    EXPECT_EQ(values[0], 2U);
    EXPECT_EQ(values[1], 1U);
}

TEST(Sort, DoesNothingForFewerThanTwoElements)
{
    s_comparisons = 0;
    osdep_qsort(nullptr, 0, 8, compare_u64);
    osdep_qsort(nullptr, 1, 8, compare_u64);
    EXPECT_EQ(s_comparisons, 0);
}

TEST(SortDeathTest, ANullBaseWithTwoElementsIsABrokenContract)
{
    EXPECT_EXIT(osdep_qsort(nullptr, 2, 8, compare_u64), testing::ExitedWithCode(1),
                "^Assertion failed - vbase \\(common/osdep, line 1\\)\n$");
}

TEST(SortDeathTest, ANullComparisonIsABrokenContractWhereThereIsSomethingToCompare)
{
    int values[] = {2, 1};
    osdep_qsort(values, 1, sizeof *values, nullptr);
    EXPECT_BROKEN_IN("common/osdep", osdep_qsort(values, 2, sizeof *values, nullptr), "compare", 2);
}

// ---- Searching --------------------------------------------------------------------------------

namespace {
std::vector<size_t> s_indices;

int compare_key(const void *key, const void *element, size_t index)
{
    s_indices.push_back(index);
    const int wanted = *static_cast<const int *>(key);
    const int found = *static_cast<const int *>(element);
    return wanted < found ? -1 : wanted > found;
}
} // namespace

TEST(Search, FindsEveryElementAndNothingElse)
{
    for (size_t count = 0; count <= 17; ++count) {
        std::vector<int> values(count);
        for (size_t i = 0; i < count; ++i)
            values[i] = static_cast<int>(2 * i);
        for (int key = -1; key <= static_cast<int>(2 * count); ++key) {
            const bool present = key >= 0 && key % 2 == 0 && key / 2 < static_cast<int>(count);
            const void *expected = present ? &values[static_cast<size_t>(key / 2)] : nullptr;
            EXPECT_EQ(osdep_bsearch(&key, values.data(), count, sizeof(int), compare_key),
                      expected);
        }
    }
}

TEST(Search, TellsTheComparisonTheElementsIndex)
{
    const int values[] = {10, 20, 30};
    const int key = 30;
    s_indices.clear();
    EXPECT_EQ(osdep_bsearch(&key, values, 3, sizeof(int), compare_key), values + 2);
    EXPECT_EQ(s_indices, (std::vector<size_t>{1, 2}));
}

TEST(Search, GivesNullForAnEmptyArray)
{
    const int key = 1;
    EXPECT_EQ(osdep_bsearch(&key, nullptr, 0, sizeof(int), compare_key), nullptr);
}

TEST(SearchDeathTest, ANullComparisonIsABrokenContractWhereThereIsSomethingToCompare)
{
    const int values[] = {1, 2};
    EXPECT_EQ(osdep_bsearch(values, values, 0, sizeof *values, nullptr), nullptr);
    EXPECT_BROKEN_IN("common/osdep", osdep_bsearch(values, values, 2, sizeof *values, nullptr),
                     "compare", 3);
}

// ---- Strings ----------------------------------------------------------------------------------

TEST(FoldCase, ChangesAsciiLettersOnlyAndReturnsTheArgument)
{
    char text[] = "aZ[`{@ \xc3\x84\xe4 09";
    EXPECT_EQ(osdep_strlwr(text), text);
    EXPECT_STREQ(text, "az[`{@ \xc3\x84\xe4 09");
    EXPECT_EQ(osdep_strupr(text), text);
    EXPECT_STREQ(text, "AZ[`{@ \xc3\x84\xe4 09");
    EXPECT_EQ(osdep_strlwr(nullptr), nullptr);
    EXPECT_EQ(osdep_strupr(nullptr), nullptr);
}

TEST(WideStrings, AreCopiedWithTheirEnd)
{
    char32_t room[] = U"xxxxxx";
    EXPECT_EQ(osdep_wcscpy(room, U"ab\U0001F600"), room);
    EXPECT_EQ(std::u32string(room, 5), std::u32string(U"ab\U0001F600\0x", 5));
    char32_t *copy = osdep_wcsdup(room);
    EXPECT_EQ(std::u32string(copy), U"ab\U0001F600");
    EXPECT_NE(copy, room);
    std::free(copy);
    EXPECT_EQ(osdep_wcsdup(nullptr), nullptr);
}

TEST(WideStrings, AreMeasured)
{
    EXPECT_EQ(osdep_wcslen(U""), 0U);
    EXPECT_EQ(osdep_wcslen(U"\U0001F600bc"), 3U);
    EXPECT_EQ(osdep_wcslen(nullptr), 0U);
}

TEST(WideStrings, CompareAsMinusOneZeroOrOne)
{
    EXPECT_EQ(osdep_wcscmp(U"", U""), 0);
    EXPECT_EQ(osdep_wcscmp(U"abc", U"abc"), 0);
    EXPECT_EQ(osdep_wcscmp(U"abc", U"abz"), -1);
    EXPECT_EQ(osdep_wcscmp(U"b", U"abc"), 1);
    EXPECT_EQ(osdep_wcscmp(U"ab", U"abc"), -1);
    EXPECT_EQ(osdep_wcscmp(U"abc", U"ab"), 1);
    const char32_t large[] = {0xFFFFFFFF, 0};
    EXPECT_EQ(osdep_wcscmp(large, U"a"), 1);
}

TEST(WideStrings, NullComesBeforeEveryText)
{
    EXPECT_EQ(osdep_wcscmp(nullptr, nullptr), 0);
    EXPECT_EQ(osdep_wcscmp(nullptr, U""), -1);
    EXPECT_EQ(osdep_wcscmp(U"", nullptr), 1);
}

TEST(WideStrings, MayBeCopiedOntoThemselves)
{
    char32_t room[8] = U"abc";
    EXPECT_EQ(osdep_wcscpy(room + 1, room), room + 1);
    EXPECT_EQ(osdep_wcscmp(room, U"aabc"), 0);
}

TEST(WideStrings, NullIsNotCopied)
{
    char32_t room[] = U"ab";
    EXPECT_EQ(osdep_wcscpy(room, nullptr), room);
    EXPECT_EQ(osdep_wcscmp(room, U"ab"), 0);
    EXPECT_EQ(osdep_wcscpy(nullptr, room), nullptr);
}

TEST(WideStrings, FoldAsciiLettersInPlace)
{
    char32_t text[] = U"AbZ[\u00C4";
    EXPECT_EQ(osdep_wcslwr(text), text);
    EXPECT_EQ(std::u32string(text), U"abz[\u00C4");
    EXPECT_EQ(osdep_wcslwr(nullptr), nullptr);
}

// ---- Integers in a chosen byte order ----------------------------------------------------------

namespace {

struct Stream {
    explicit Stream(const std::string &contents = "") : file(std::tmpfile())
    {
        std::fwrite(contents.data(), 1, contents.size(), file);
        std::rewind(file);
    }
    ~Stream() { std::fclose(file); }
    Stream(const Stream &) = delete;
    Stream &operator=(const Stream &) = delete;

    std::string contents() const
    {
        std::rewind(file);
        std::string text;
        for (int c = std::fgetc(file); c != EOF; c = std::fgetc(file))
            text += static_cast<char>(c);
        return text;
    }
    FILE *file;
};

using Bytes = std::string;

template <class T> void expect_written(size_t (*write)(FILE *, T), T value, const Bytes &bytes)
{
    Stream stream;
    EXPECT_EQ(write(stream.file, value), 1U);
    EXPECT_EQ(stream.contents(), bytes);
}

template <class T> void expect_read(size_t (*read)(FILE *, T *), T value, const Bytes &bytes)
{
    Stream stream(bytes);
    T val = 0;
    EXPECT_EQ(read(stream.file, &val), 1U);
    EXPECT_EQ(val, value);
    EXPECT_EQ(read(stream.file, &val), 0U);
    EXPECT_TRUE(std::feof(stream.file));
    for (size_t cut = 0; cut < bytes.size(); ++cut) {
        Stream shorter(bytes.substr(0, cut));
        EXPECT_EQ(read(shorter.file, &val), 0U);
    }
}

template <class T> void expect_read_big(void (*read)(FILE *, T *), T value, const Bytes &bytes)
{
    Stream stream(bytes);
    T val = 0;
    read(stream.file, &val);
    EXPECT_EQ(val, value);
    EXPECT_FALSE(std::feof(stream.file));
    read(stream.file, &val);
    EXPECT_TRUE(std::feof(stream.file));
    for (size_t cut = 0; cut < bytes.size(); ++cut) {
        Stream shorter(bytes.substr(0, cut));
        read(shorter.file, &val);
        EXPECT_TRUE(std::feof(shorter.file));
    }
}

} // namespace

TEST(ByteOrder, EightBits)
{
    expect_written<uint8_t>(osdep_writeU8, 0xF2, "\xF2");
    expect_read<uint8_t>(osdep_readU8, 0xF2, "\xF2");
}

TEST(ByteOrder, LittleEndian)
{
    expect_written<uint16_t>(osdep_writeLEU16, 0xF234, "\x34\xF2");
    expect_written<uint32_t>(osdep_writeLEU32, 0x12345678, "\x78\x56\x34\x12");
    expect_written<uint64_t>(osdep_writeLEU64, 0xF23456789ABCDE01,
                             "\x01\xDE\xBC\x9A\x78\x56\x34\xF2");
    expect_read<uint16_t>(osdep_readLEU16, 0xF234, "\x34\xF2");
    expect_read<uint32_t>(osdep_readLEU32, 0xF2345678, "\x78\x56\x34\xF2");
    expect_read<uint64_t>(osdep_readLEU64, 0xF23456789ABCDE01, "\x01\xDE\xBC\x9A\x78\x56\x34\xF2");
}

TEST(ByteOrder, LittleEndianInMemory)
{
    const uint8_t bytes[] = {0x01, 0xDE, 0xBC, 0x9A, 0x78, 0x56, 0x34, 0xF2};
    EXPECT_EQ(osdep_getLEU16(bytes), 0xDE01);
    EXPECT_EQ(osdep_getLEU16(bytes + 6), 0xF234);
    EXPECT_EQ(osdep_getLEU32(bytes), 0x9ABCDE01U);
    EXPECT_EQ(osdep_getLEU32(bytes + 4), 0xF2345678U);
    EXPECT_EQ(osdep_getLEU64(bytes), 0xF23456789ABCDE01U);
}

TEST(ByteOrder, BigEndian)
{
    expect_written<uint16_t>(osdep_writeBEU16, 0xF234, "\xF2\x34");
    expect_written<uint32_t>(osdep_writeBEU32, 0x12345678, "\x12\x34\x56\x78");
    expect_written<uint64_t>(osdep_writeBEU64, 0xF23456789ABCDE01,
                             "\xF2\x34\x56\x78\x9A\xBC\xDE\x01");
    expect_read_big<uint16_t>(osdep_readBEU16, 0xF234, "\xF2\x34");
    expect_read_big<uint32_t>(osdep_readBEU32, 0xF2345678, "\xF2\x34\x56\x78");
    expect_read_big<uint64_t>(osdep_readBEU64, 0xF23456789ABCDE01,
                              "\xF2\x34\x56\x78\x9A\xBC\xDE\x01");
}

TEST(ByteOrder, WritersReportAStreamThatTakesNothing)
{
    FILE *full = std::fopen("/dev/full", "wb");
    ASSERT_NE(full, nullptr);
    std::setvbuf(full, nullptr, _IONBF, 0);
    EXPECT_EQ(osdep_writeU8(full, 1), 0U);
    EXPECT_EQ(osdep_writeLEU16(full, 1), 0U);
    EXPECT_EQ(osdep_writeLEU32(full, 1), 0U);
    EXPECT_EQ(osdep_writeLEU64(full, 1), 0U);
    EXPECT_EQ(osdep_writeBEU16(full, 1), 0U);
    EXPECT_EQ(osdep_writeBEU32(full, 1), 0U);
    EXPECT_EQ(osdep_writeBEU64(full, 1), 0U);
    std::fclose(full);
}

TEST(ByteOrderDeathTest, ANullStreamIsABrokenContractOfTheFunction)
{
    const auto dies = [](const std::string &function, int line, const std::function<void()> &call) {
        EXPECT_EXIT(call(), testing::ExitedWithCode(1),
                    "^Assertion failed - f != \\(\\(void\\*\\)0\\) \\(" + function + ", line " +
                        std::to_string(line) + "\\)\n$");
    };
    uint8_t u8;
    uint16_t u16;
    uint32_t u32;
    uint64_t u64;
    dies("osdep_readU8", 10, [&] { osdep_readU8(nullptr, &u8); });
    dies("osdep_readLEU16", 12, [&] { osdep_readLEU16(nullptr, &u16); });
    dies("osdep_readLEU32", 14, [&] { osdep_readLEU32(nullptr, &u32); });
    dies("osdep_readLEU64", 16, [&] { osdep_readLEU64(nullptr, &u64); });
    dies("osdep_readBEU16", 18, [&] { osdep_readBEU16(nullptr, &u16); });
    dies("osdep_readBEU32", 20, [&] { osdep_readBEU32(nullptr, &u32); });
    dies("osdep_readBEU64", 22, [&] { osdep_readBEU64(nullptr, &u64); });
    dies("osdep_writeU8", 30, [] { osdep_writeU8(nullptr, 0); });
    dies("osdep_writeLEU16", 31, [] { osdep_writeLEU16(nullptr, 0); });
    dies("osdep_writeLEU32", 32, [] { osdep_writeLEU32(nullptr, 0); });
    dies("osdep_writeLEU64", 33, [] { osdep_writeLEU64(nullptr, 0); });
    dies("osdep_writeBEU16", 34, [] { osdep_writeBEU16(nullptr, 0); });
    dies("osdep_writeBEU32", 35, [] { osdep_writeBEU32(nullptr, 0); });
    dies("osdep_writeBEU64", 36, [] { osdep_writeBEU64(nullptr, 0); });
}

TEST(ByteOrderDeathTest, ANullValueIsABrokenContractOfTheFunction)
{
    const auto dies = [](const std::string &function, int line, const std::function<void()> &call) {
        EXPECT_EXIT(call(), testing::ExitedWithCode(1),
                    "^Assertion failed - val != \\(\\(void\\*\\)0\\) \\(" + function + ", line " +
                        std::to_string(line) + "\\)\n$");
    };
    Stream stream("12345678");
    dies("osdep_readU8", 11, [&] { osdep_readU8(stream.file, nullptr); });
    dies("osdep_readLEU16", 13, [&] { osdep_readLEU16(stream.file, nullptr); });
    dies("osdep_readLEU32", 15, [&] { osdep_readLEU32(stream.file, nullptr); });
    dies("osdep_readLEU64", 17, [&] { osdep_readLEU64(stream.file, nullptr); });
    dies("osdep_readBEU16", 19, [&] { osdep_readBEU16(stream.file, nullptr); });
    dies("osdep_readBEU32", 21, [&] { osdep_readBEU32(stream.file, nullptr); });
    dies("osdep_readBEU64", 23, [&] { osdep_readBEU64(stream.file, nullptr); });
}

// ---- Host -------------------------------------------------------------------------------------

TEST(Host, InfoNamesTheRunningKernel)
{
    utsname names;
    ASSERT_EQ(uname(&names), 0);
    const std::string expected = std::string(names.sysname) + " " + names.release + " " +
                                 names.version + " " + names.machine;
    EXPECT_EQ(osdep_osInfo(), expected);
    EXPECT_EQ(osdep_osInfo(), osdep_osInfo()); // the same text, not a new one
}

TEST(Host, FlagsSayPosixOnly)
{
    EXPECT_EQ(osdep_osFlags(), 0x80000U);
}

TEST(Host, CommandLineLimitIsThatOfPosix)
{
    EXPECT_EQ(osdep_maxCommandLine(), 65535U);
}

TEST(Host, NumberOfCoresFollowsTheBuildServersHintWhenAskedTo)
{
    const int online = static_cast<int>(std::max(1L, sysconf(_SC_NPROCESSORS_ONLN)));
    const auto hinted = [](const char *hint) {
        setenv("bamboo_capability_Cores", hint, 1);
        return osdep_numCores(1);
    };
    EXPECT_EQ(hinted("123"), 123);
    EXPECT_EQ(osdep_numCores(0), online);
    EXPECT_EQ(hinted("0"), online);
    EXPECT_EQ(hinted(""), online);
    EXPECT_EQ(hinted("many"), online);
    EXPECT_EQ(hinted("-4"), 1);
    EXPECT_EQ(hinted("99999999999999999999"), INT_MAX);
    unsetenv("bamboo_capability_Cores");
    EXPECT_EQ(osdep_numCores(1), online);
}

TEST(Host, NameIsThatOfTheMachine)
{
    char expected[256] = "";
    ASSERT_EQ(gethostname(expected, sizeof expected), 0);
    char *name = osdep_hostName();
    EXPECT_STREQ(name, expected);
    std::free(name);
}

TEST(Host, ExecutablePathIsThisProgram)
{
    char *path = osdep_exePath();
    ASSERT_NE(path, nullptr);
    EXPECT_EQ(path[0], '/');
    EXPECT_STREQ(osdep_baseName(path), "osdep_test");
    std::free(path);
}

TEST(Host, SetenvPublishesAndReplacesAVariable)
{
    EXPECT_EQ(osdep_setenv("OSDEP_TEST_VARIABLE", "a=b"), 0);
    EXPECT_STREQ(std::getenv("OSDEP_TEST_VARIABLE"), "a=b");
    const std::string large(100000, 'v');
    EXPECT_EQ(osdep_setenv("OSDEP_TEST_VARIABLE", large.c_str()), 0);
    EXPECT_EQ(std::getenv("OSDEP_TEST_VARIABLE"), large);
    EXPECT_EQ(osdep_setenv("OSDEP_TEST_VARIABLE", nullptr), 0);
    EXPECT_STREQ(std::getenv("OSDEP_TEST_VARIABLE"), "");
    char value[] = "copied";
    EXPECT_EQ(osdep_setenv("OSDEP_TEST_VARIABLE", value), 0);
    value[0] = 'C';
    EXPECT_STREQ(std::getenv("OSDEP_TEST_VARIABLE"), "copied");
    EXPECT_EQ(osdep_setenv(nullptr, "value"), 0);
}

// ---- Streams ----------------------------------------------------------------------------------

TEST(Streams, WritingAtTheEndKeepsWhatAnotherHasAppended)
{
    char name[] = "/tmp/osdep_test.XXXXXX";
    close(mkstemp(name));
    FILE *stream = fopen(name, "w");
    EXPECT_EQ(osdep_writeAtEnd(stream), 0);
    fputs("first ", stream);
    fflush(stream);
    FILE *other = fopen(name, "a");
    fputs("other ", other);
    fclose(other);
    fputs("last", stream);
    fclose(stream);
    char text[64] = "";
    FILE *reader = fopen(name, "r");
    EXPECT_NE(fgets(text, sizeof text, reader), nullptr);
    fclose(reader);
    remove(name);
    EXPECT_STREQ(text, "first other last");
}

TEST(Streams, OneWithoutAFileCannotWriteAtItsEnd)
{
    char memory[4];
    FILE *stream = fmemopen(memory, sizeof memory, "w");
    EXPECT_EQ(osdep_writeAtEnd(stream), -1);
    EXPECT_EQ(osdep_writeAtEnd(nullptr), -1);
    fclose(stream);
}
