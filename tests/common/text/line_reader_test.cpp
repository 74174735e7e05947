#include "common/text/line_reader.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/common/broken_contract.h"

namespace {

struct Reading {
    std::vector<std::string> lines;
    bool good;
};

Reading readAll(FILE *stream)
{
    Reading reading;
    LineReader reader;
    lines_start(&reader, stream);
    while (const char *line = lines_next(&reader))
        reading.lines.emplace_back(line);
    reading.good = lines_finish(&reader);
    return reading;
}

Reading read(const std::string &text)
{
    FILE *stream = tmpfile();
    fwrite(text.data(), 1, text.size(), stream);
    rewind(stream);
    Reading reading = readAll(stream);
    fclose(stream);
    return reading;
}

using Lines = std::vector<std::string>;

} // namespace

TEST(LineReader, GivesEveryLineWithoutItsLineFeed)
{
    const Reading reading = read("one\n\ntwo words\nlast\n");
    EXPECT_EQ(reading.lines, (Lines{"one", "", "two words", "last"}));
    EXPECT_TRUE(reading.good);
}

TEST(LineReader, ALastLineNeedsNoLineFeed)
{
    EXPECT_EQ(read("one\ntwo").lines, (Lines{"one", "two"}));
}

TEST(LineReader, AnEmptyInputHasNoLines)
{
    const Reading reading = read("");
    EXPECT_EQ(reading.lines, Lines{});
    EXPECT_TRUE(reading.good);
}

TEST(LineReader, KeepsTheCarriageReturn)
{
    EXPECT_EQ(read("one\r\ntwo\r\n").lines, (Lines{"one\r", "two\r"}));
}

TEST(LineReader, ANulEndsTheTextOfItsLineOnly)
{
    const std::string text("a\0b\n\0c\nd\n", 9);
    EXPECT_EQ(read(text).lines, (Lines{"a", "", "d"}));
}

TEST(LineReader, LinesOfEveryLengthAroundTheBufferComeWhole)
{
    std::string text;
    Lines expected;
    for (size_t length = 4080; length < 4110; ++length) {
        expected.emplace_back(length, static_cast<char>('a' + length % 26));
        text += expected.back() + '\n';
    }
    expected.emplace_back(1000000, 'x');
    text += expected.back();
    EXPECT_EQ(read(text).lines, expected);
}

TEST(LineReader, ALineAtTheLimitIsReadAndALongerOneFails)
{
    const std::string longest(LINE_LIMIT, 'x');
    EXPECT_EQ(read(longest + "\nnext\n").lines, (Lines{longest, "next"}));
    const Reading longer = read("first\n" + longest + "x\nnext\n");
    EXPECT_EQ(longer.lines, (Lines{"first"}));
    EXPECT_FALSE(longer.good);
    const Reading longerEnd = read(longest + "x");
    EXPECT_EQ(longerEnd.lines, Lines{});
    EXPECT_FALSE(longerEnd.good);
    const Reading endless = read("first\n" + std::string(3 * LINE_LIMIT, 'x') + "\nnext\n");
    EXPECT_EQ(endless.lines, (Lines{"first"}));
    EXPECT_FALSE(endless.good);
}

TEST(LineReader, AnErrorOfTheStreamFails)
{
    FILE *stream = fopen("/", "r"); // a directory can be opened but not read
    ASSERT_NE(stream, nullptr);
    const Reading reading = readAll(stream);
    fclose(stream);
    EXPECT_EQ(reading.lines, Lines{});
    EXPECT_FALSE(reading.good);
}

TEST(LineReader, TellsTheWholeLengthOfALine)
{
    FILE *stream = tmpfile();
    fwrite("a\0bc\n\nde\0", 1, 9, stream);
    rewind(stream);
    LineReader reader;
    lines_start(&reader, stream);
    std::vector<size_t> lengths;
    while (lines_next(&reader) != nullptr)
        lengths.push_back(reader.length);
    EXPECT_TRUE(lines_finish(&reader));
    fclose(stream);
    EXPECT_EQ(lengths, (std::vector<size_t>{4, 0, 3}));
}

TEST(LineReaderDeathTest, ANullArgumentIsABrokenContract)
{
    LineReader reader;
    EXPECT_BROKEN_IN("common/line_reader", lines_start(nullptr, stdin), "reader != NULL", 10);
    EXPECT_BROKEN_IN("common/line_reader", lines_start(&reader, nullptr), "stream != NULL", 11);
    EXPECT_BROKEN_IN("common/line_reader", lines_next(nullptr), "reader != NULL", 20);
    EXPECT_BROKEN_IN("common/line_reader", lines_finish(nullptr), "reader != NULL", 30);
}
