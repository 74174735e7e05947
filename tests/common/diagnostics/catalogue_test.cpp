// The catalogue common/diagnostics/en_msgs.txt: its form, and that the program's own reader accepts
// all of it.
#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "common/diagnostics/alert.h"

namespace {

struct Message {
    unsigned number;
    std::string kind;
    std::string text;
};

std::vector<std::string> fileLines()
{
    std::ifstream file(CATALOGUE_FILE, std::ios::binary);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);)
        lines.push_back(line);
    return lines;
}

// Number, tab, kind, tab, text; a line of another form gives the number 0.
Message parseLine(const std::string &line)
{
    size_t first = line.find('\t');
    size_t second = first == std::string::npos ? first : line.find('\t', first + 1);
    if (second == std::string::npos)
        return {0, "", line};
    return {static_cast<unsigned>(std::strtoul(line.c_str(), nullptr, 10)),
            line.substr(first + 1, second - first - 1), line.substr(second + 1)};
}

std::vector<Message> catalogue()
{
    std::vector<Message> messages;
    for (const std::string &line : fileLines())
        if (line.empty() || line[0] != '#')
            messages.push_back(parseLine(line));
    return messages;
}

// "kind level text" of a record, and the same from the catalogue's kind field.
std::string describe(uint32_t kind, int32_t level, const std::string &text)
{
    return std::to_string(kind) + " " + std::to_string(level) + " " + text;
}

std::string describe(const Message &message)
{
    if (message.kind == "F")
        return describe(ALERT_FATAL, 0, message.text);
    if (message.kind == "E")
        return describe(ALERT_ERROR, 0, message.text);
    if (message.kind == "M")
        return describe(ALERT_MESSAGE, 0, message.text);
    return describe(ALERT_WARNING, std::atoi(message.kind.c_str()), message.text);
}

std::string lookedUp(unsigned number)
{
    AlertRecord *record = alert_lookup(number);
    std::string text =
        describe(record->kind, record->kind == ALERT_WARNING ? record->level : 0, record->text);
    std::free(record);
    return text;
}

// The first conversion of `text` that the suite does not use; empty when there is no such
// conversion.
std::string strangeConversion(const std::string &text)
{
    for (size_t at = text.find('%'); at != std::string::npos; at = text.find('%', at)) {
        size_t length = text.compare(at, 3, "%lu") == 0 ? 3 : 2;
        std::string conversion = text.substr(at, length);
        const char *known[] = {"%s", "%d", "%u", "%lu", "%c", "%x", "%m", "%%"};
        bool found = false;
        for (const char *one : known)
            found = found || conversion == one;
        if (!found)
            return conversion;
        at += length;
    }
    return "";
}

std::string hooked;

void keepText(const char *text)
{
    hooked += text;
}

} // namespace

TEST(Catalogue, OpensWithItsFormatAsAComment)
{
    std::vector<std::string> lines = fileLines();
    std::string header;
    for (const std::string &line : lines) {
        if (line[0] != '#')
            break;
        header += line + "\n";
    }
    EXPECT_NE(header.find("numbers must be larger than 0 and in numeric order"), std::string::npos);
    EXPECT_NE(header.find("F fatal error, E error, M message"), std::string::npos);
}

TEST(Catalogue, HoldsAboutSixtyTwoKilobytes)
{
    std::ifstream file(CATALOGUE_FILE, std::ios::binary);
    std::stringstream text;
    text << file.rdbuf();
    EXPECT_GT(text.str().size(), 60000u);
    EXPECT_LT(text.str().size(), 65536u);
}

TEST(Catalogue, EveryLineFitsTheReaderAndIsPrintableAscii)
{
    for (const std::string &line : fileLines()) {
        EXPECT_LT(line.size(), 255u) << line;
        for (char c : line)
            EXPECT_TRUE(c == '\t' || (c >= ' ' && c <= '~')) << line;
    }
}

TEST(Catalogue, NumbersAscendWithinTheirRange)
{
    unsigned last = 0;
    for (const Message &message : catalogue()) {
        EXPECT_GT(message.number, last) << message.text;
        last = message.number;
    }
    EXPECT_GT(last, 2000u);
    EXPECT_LE(last, 10000u);
}

TEST(Catalogue, EveryKindIsALetterOrALevelFromMinus9To8)
{
    for (const Message &message : catalogue()) {
        bool letter = message.kind == "F" || message.kind == "E" || message.kind == "M";
        int level = std::atoi(message.kind.c_str());
        bool isLevel = message.kind == std::to_string(level) && level >= -9 && level <= 8;
        EXPECT_TRUE(letter || isLevel) << message.number << " " << message.kind;
    }
}

TEST(Catalogue, ConversionsAreThoseThatCallersPass)
{
    for (const Message &message : catalogue())
        EXPECT_EQ(strangeConversion(message.text), "") << message.number << " " << message.text;
}

TEST(Catalogue, NoTextStandsTwiceUnderOneKind)
{
    std::map<std::string, unsigned> seen;
    for (const Message &message : catalogue()) {
        auto [place, isNew] = seen.emplace(message.kind + message.text, message.number);
        EXPECT_TRUE(isNew) << message.number << " repeats " << place->second;
    }
}

TEST(Catalogue, NoTextIsEmptyOrEdgedWithWhiteSpace)
{
    for (const Message &message : catalogue()) {
        ASSERT_FALSE(message.text.empty()) << message.number;
        EXPECT_NE(message.text.front(), ' ') << message.number;
        EXPECT_NE(message.text.back(), ' ') << message.number;
    }
}

TEST(Catalogue, IsReadByTheProgramWithoutAComplaint)
{
    hooked.clear();
    alert_setOutputHook(keepText);
    EXPECT_EQ(alert_loadFile(CATALOGUE_FILE), 1);
    EXPECT_EQ(hooked, "");
    EXPECT_EQ(alert_anyErrors(), 0);
    alert_setOutputHook(nullptr);
}

TEST(Catalogue, EveryMessageIsLookedUpAsItIsWritten)
{
    ASSERT_EQ(alert_loadFile(CATALOGUE_FILE), 1);
    for (const Message &message : catalogue())
        EXPECT_EQ(lookedUp(message.number), describe(message)) << message.number;
}

// The program's behaviour depends on these numbers: they keep their kind and text.
TEST(Catalogue, MessagesThatTheProgramRaisesKeepTheirKindAndText)
{
    const Message fixed[] = {
        {1, "M", "too many errors (%u)"},
        {2, "M", "error/warning (%u) generated but no description available"},
        {3, "M", "malformed error information on line * in file *"},
        {4, "F",
         "QZM has encountered an internal error and must quit; contact Vantrix support with "
         "details"},
        {141, "E", "could not open %s file \"%s\": %m"},
        {296, "F", "out of memory"},
        {917, "E", "argument too long"},
        {918, "F", "response file \"%s\" includes itself"},
        {919, "F", "response files are nested too deeply at \"%s\""},
        {920, "F", "response files expand to too much at \"%s\""},
        {1195, "E", "invalid syntax for \"%s\" option"},
        {1428, "0", "\"%s\" is not supported; this feature will be ignored"},
        {1501, "0", "assertion \"%s\" failed in %s, line %u"},
        {1502, "E", "assertion \"%s\" failed in %s, line %u"},
        {1503, "F", "assertion \"%s\" failed in %s, line %u"},
        {2041, "F", "missing argument after \"%s\""},
        {2042, "F", "no target device specified; use the -mcpu option to specify a target device"},
        {2043, "F", "target device was not recognized"},
        {2044, "0", "unrecognized option \"%s\""},
        {2045, "F", "could not find executable \"%s\""},
        {2046, "F", "8bit_device.info is missing"},
        {2047, "F", "8bit_device.info cannot be properly read"},
        {2048, "0", "C language extension \"%s\" is not supported and will be ignored"},
        {2050, "0", "use of the -mcci option is deprecated; use -mext=cci to avoid this warning"},
        {2054, "0", "the language standard \"%s\" is not supported; using C99"},
        {2082, "F", "internal error: could not create a temporary file"},
    };
    ASSERT_EQ(alert_loadFile(CATALOGUE_FILE), 1);
    for (const Message &message : fixed)
        EXPECT_EQ(lookedUp(message.number), describe(message)) << message.number;
}
