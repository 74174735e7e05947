#include "common/trace/qzdebug.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <regex>
#include <string>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include "common/base/stringcache.h"
#include "common/base/vector.h"
#include "common/diagnostics/alert.h"

namespace {

std::string emitted;

void keep_message(const char *text)
{
    emitted += text;
}

std::string read_all(FILE *file)
{
    std::string text;
    rewind(file);
    for (int c = getc(file); c != EOF; c = getc(file))
        text += static_cast<char>(c);
    return text;
}

class QzdebugTest : public testing::Test {
  protected:
    void SetUp() override
    {
        gDebugOut = tmpfile();
        ASSERT_NE(gDebugOut, nullptr);
        gDebugFlags = 0;
        gDebugEcho = 0;
        gDebugAssertMode = 0;
        gAlertSrc = nullptr;
        trace_setIndentStep(4);
        trace_setIndentLevel(0);
        trace_setWidth(20);
        emitted.clear();
        alert_setErrorLimit(1000);
        alert_setOutputHook(keep_message);
    }

    void TearDown() override
    {
        gDebugFlags = 0;
        alert_setOutputHook(nullptr);
        if (gDebugOut != nullptr)
            fclose(gDebugOut);
        gDebugOut = nullptr;
    }

    // The text written so far, read through a second descriptor, which does not see unflushed text.
    std::string written()
    {
        FILE *copy = fopen(("/proc/self/fd/" + std::to_string(fileno(gDebugOut))).c_str(), "r");
        std::string text = read_all(copy);
        fclose(copy);
        return text;
    }

    // The same with the line numbers of the trace's locations replaced.
    std::string writtenWithoutLines()
    {
        return std::regex_replace(written(), std::regex(":[0-9]+ *> "), ":N> ");
    }
};

std::string pointer_text(const void *pointer)
{
    char text[64];
    snprintf(text, sizeof text, "%p", pointer);
    return text;
}

// The numbered message for a null argument.
std::string null_report(uint32_t number, const char *expression, uint32_t line)
{
    AlertRecord *record = alert_lookup(number);
    std::string format = record->text;
    free(record);
    const std::string values[] = {expression, "common/qzdebug", std::to_string(line)};
    for (const std::string &value : values) {
        size_t at = format.find('%');
        format.replace(at, 2, value);
    }
    const char *kind = number == 1501 ? " (warning)\n" : "\n";
    return "(" + std::to_string(number) + ") " + format + kind;
}

// ---- Lines ------------------------------------------------------------------------------------

TEST_F(QzdebugTest, ALocationIsTheFileNameAndLinePaddedToTheWidth)
{
    trace("common/deep/fileutils", 7, "text");
    EXPECT_EQ(written(), "fileutils:7         > text\n");
}

TEST_F(QzdebugTest, ALocationWithoutADirectoryIsWrittenWhole)
{
    trace("vector", 1234567, "text");
    EXPECT_EQ(written(), "vector:1234567      > text\n");
}

TEST_F(QzdebugTest, ALocationLongerThanTheWidthPushesTheLineRight)
{
    trace("dir/a_very_long_source_file_name", 123, "text");
    EXPECT_EQ(written(), "a_very_long_source_file_name:123> text\n");
}

TEST_F(QzdebugTest, ALocationAsLongAsTheWidthIsNotPadded)
{
    trace("seventeen_letters", 42, "text");
    trace("seventeen_letter", 42, "text");
    EXPECT_EQ(written(), "seventeen_letters:42> text\nseventeen_letter:42 > text\n");
}

TEST_F(QzdebugTest, ALocationThatEndsInASlashHasNoName)
{
    trace("dir/", 1, "text");
    EXPECT_EQ(written(), ":1                  > text\n");
}

TEST_F(QzdebugTest, TheIndentComesBehindTheLocation)
{
    trace_setIndentLevel(2);
    trace("x", 1, "text");
    EXPECT_EQ(written(), "x:1                 >         text\n");
}

TEST_F(QzdebugTest, OnlyTheFirstLineOfAFormatTakesValues)
{
    tracef("x", 1, "a=%d\nb=%s", 5, "unused");
    EXPECT_EQ(written(), "x:1                 > a=5\n"
                         "x:1                 > b=%s\n");
}

TEST_F(QzdebugTest, AFormatsEmptyLinesAndLineEndVanish)
{
    tracef("x", 1, "\n\na=%d\n\nlast\n", 5);
    EXPECT_EQ(written(), "x:1                 > a=5\n"
                         "x:1                 > last\n");
}

TEST_F(QzdebugTest, AFormatWithALineEndOnlyAtItsEndIsOneLine)
{
    tracef("x", 1, "%s=%u\n", "a", 4294967295U);
    EXPECT_EQ(written(), "x:1                 > a=4294967295\n");
}

TEST_F(QzdebugTest, AFormatIsWrittenAsLongAsItIs)
{
    std::string value(100000, 'v');
    tracef("x", 1, "%s", value.c_str());
    EXPECT_EQ(written(), "x:1                 > " + value + "\n");
}

TEST_F(QzdebugTest, AValueWithLineEndsIsWrittenAsItStands)
{
    tracef("x", 1, "<%s>", "a\nb");
    EXPECT_EQ(written(), "x:1                 > <a\nb>\n");
}

TEST_F(QzdebugTest, AFormatWithoutLinesWarnsAndWritesNothing)
{
    tracef("common/x", 12, "\n\n");
    EXPECT_EQ(written(), "");
    EXPECT_EQ(emitted, "QZDEBUG (warning): tracef (at common/x:12) contains no lines\n");
}

TEST_F(QzdebugTest, AnEmptyFormatWarnsAndWritesNothing)
{
    const char *volatile empty = "";
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
    tracef("common/x", 12, empty);
#pragma GCC diagnostic pop
    EXPECT_EQ(written(), "");
    EXPECT_EQ(emitted, "QZDEBUG (warning): tracef (at common/x:12) contains no lines\n");
}

TEST_F(QzdebugTest, TextIsNeverTakenAsAFormat)
{
    trace("x", 1, "100%s%n\nsecond %d\n");
    EXPECT_EQ(written(), "x:1                 > 100%s%n\n"
                         "x:1                 > second %d\n");
}

TEST_F(QzdebugTest, TextWithoutLinesWarnsAndWritesNothing)
{
    trace("common/x", 12, "\n");
    EXPECT_EQ(written(), "");
    EXPECT_EQ(emitted, "QZDEBUG (warning): trace (at common/x:12) contains no lines\n");
}

TEST_F(QzdebugTest, ATraceLeavesInternedStringsAsTheyAre)
{
    const char *interned = cache_sprintf("%s-%d", "interned", 1);
    tracef("x", 1, "%s\nsecond", interned);
    EXPECT_STREQ(interned, "interned-1");
    EXPECT_EQ(interned, cache_string("interned-1"));
    EXPECT_EQ(written(), "x:1                 > interned-1\nx:1                 > second\n");
}

TEST_F(QzdebugTest, PlainOutputHasALineEndAndNoPrefix)
{
    trace_setIndentLevel(3);
    trace_printf("%u of %s", 3U, "four");
    trace_puts("100%d");
    trace_printf("two\nlines");
    EXPECT_EQ(written(), "3 of four\n100%d\ntwo\nlines\n");
}

// ---- Entries and exits ------------------------------------------------------------------------

TEST_F(QzdebugTest, AnExitAlignsWithItsEntry)
{
    trace_enter("x", 1, "outer", "a=%d, b=\"%s\"", 1, "two");
    trace_enter("x", 2, "inner");
    trace("x", 3, "inside");
    trace_exit("x", 4, "inner");
    trace_exit("x", 5, "outer", "%d", -1);
    EXPECT_EQ(written(), "x:1                 > ENTER outer(a=1, b=\"two\")\n"
                         "x:2                 >     ENTER inner()\n"
                         "x:3                 >         inside\n"
                         "x:4                 >     EXIT inner()\n"
                         "x:5                 > EXIT outer() -> -1\n");
    EXPECT_EQ(emitted, "");
    EXPECT_EQ(trace_indentLevel(), 0U);
}

TEST_F(QzdebugTest, AnExitWithoutAnEntryWarnsAndIsWrittenWithoutIndent)
{
    trace_exit("x", 1, "lonely", "%d", 3);
    EXPECT_EQ(written(), "x:1                 > EXIT lonely() -> 3\n");
    EXPECT_EQ(emitted, "QZDEBUG (warning): min debug-out indent level reached\n");
    EXPECT_EQ(trace_indentLevel(), 0U);
    EXPECT_EQ(trace_indent(), 0U);
}

TEST_F(QzdebugTest, AnEntryOrExitWithANullFormatHasNoValues)
{
    const char *volatile none = nullptr;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    trace_enter("x", 1, "f", none, 1);
    trace_exit("x", 2, "f", none, 1);
#pragma GCC diagnostic pop
    EXPECT_EQ(written(), "x:1                 > ENTER f()\nx:2                 > EXIT f()\n");
}

// ---- Indentation and width --------------------------------------------------------------------

TEST_F(QzdebugTest, TheTraceStartsWithItsDefaults)
{
    EXPECT_EQ(trace_width(), 20U);
    EXPECT_EQ(trace_indentStep(), 4U);
    EXPECT_EQ(trace_indentLevel(), 0U);
    EXPECT_EQ(trace_indent(), 0U);
}

// Checks the settings that the fixture changes, in a process that has not changed any.
[[noreturn]] void exit_with_defaults()
{
    const bool good = trace_width() == 20 && trace_indentStep() == 4 && trace_indentLevel() == 0 &&
                      trace_indent() == 0 && gDebugFlags == 0 && gDebugOut == nullptr &&
                      gDebugEcho == 0 && gDebugTty == nullptr && gDebugAssertMode == 0 &&
                      gAlertSrc == nullptr;
    _Exit(good ? 0 : 1);
}

TEST(QzdebugDeathTest, AProcessStartsWithTheTraceOffAndItsDefaults)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe"); // without the settings of other tests
    EXPECT_EXIT(exit_with_defaults(), testing::ExitedWithCode(0), "");
    GTEST_FLAG_SET(death_test_style, "fast");
}

TEST_F(QzdebugTest, GoingDeeperAndShallowerMovesTheIndentByTheStep)
{
    trace_setIndentStep(3);
    EXPECT_EQ(trace_indentIn(), 3U);
    EXPECT_EQ(trace_indentIn(), 6U);
    EXPECT_EQ(trace_indentLevel(), 2U);
    EXPECT_EQ(trace_indentOut(), 3U);
    EXPECT_EQ(trace_indentLevel(), 1U);
    EXPECT_EQ(emitted, "");
}

TEST_F(QzdebugTest, SettingTheStepOrTheLevelKeepsTheIndentInStep)
{
    trace_setIndentLevel(5);
    EXPECT_EQ(trace_indent(), 20U);
    trace_setIndentStep(2);
    EXPECT_EQ(trace_indent(), 10U);
    trace_setIndentLevel(1);
    EXPECT_EQ(trace_indent(), 2U);
    EXPECT_EQ(trace_indentStep(), 2U);
    EXPECT_EQ(trace_indentLevel(), 1U);
}

TEST_F(QzdebugTest, TheLevelSaturatesWithAWarning)
{
    trace_setIndentStep(1);
    trace_setIndentLevel(UINT32_MAX - 1);
    EXPECT_EQ(trace_indentIn(), UINT32_MAX);
    EXPECT_EQ(emitted, "");
    EXPECT_EQ(trace_indentIn(), UINT32_MAX);
    EXPECT_EQ(trace_indentLevel(), UINT32_MAX);
    EXPECT_EQ(emitted, "QZDEBUG (warning): max debug-out indent level readched\n");
}

TEST_F(QzdebugTest, TheIndentSaturatesOnItsOwn)
{
    trace_setIndentStep(UINT32_MAX);
    EXPECT_EQ(trace_indentIn(), UINT32_MAX);
    EXPECT_EQ(trace_indentIn(), UINT32_MAX);
    EXPECT_EQ(trace_indentLevel(), 2U);
    trace_setIndentLevel(3);
    EXPECT_EQ(trace_indent(), UINT32_MAX);
    trace_setIndentStep(7);
    EXPECT_EQ(trace_indent(), 21U);
    EXPECT_EQ(emitted, "");
}

TEST_F(QzdebugTest, GoingShallowerAtTheTopWarnsAndStays)
{
    trace_setIndentLevel(1);
    EXPECT_EQ(trace_indentOut(), 0U);
    EXPECT_EQ(emitted, "");
    EXPECT_EQ(trace_indentOut(), 0U);
    EXPECT_EQ(trace_indentLevel(), 0U);
    EXPECT_EQ(emitted, "QZDEBUG (warning): min debug-out indent level reached\n");
}

TEST_F(QzdebugTest, AnIndentBeyondAllReasonIsNotWrittenInFull)
{
    trace_setIndentLevel(UINT32_MAX);
    trace("x", 1, "text");
    EXPECT_EQ(written(), "x:1                 > " + std::string(65536, ' ') + "text\n");
}

TEST_F(QzdebugTest, AWidthIsStoredAndUsed)
{
    trace_setWidth(4);
    trace("x", 1, "text");
    EXPECT_EQ(trace_width(), 4U);
    EXPECT_EQ(written(), "x:1 > text\n");
    EXPECT_EQ(emitted, "");
}

TEST_F(QzdebugTest, AWidthBelowFourWarnsAndIsStored)
{
    trace_setWidth(3);
    EXPECT_EQ(trace_width(), 3U);
    trace("xyz", 1, "text");
    EXPECT_EQ(written(), "xyz:1> text\n");
    EXPECT_EQ(emitted, "QZDEBUG (warning): desired trace width (3) is < default (20)\n");
}

TEST_F(QzdebugTest, AWidthOfZeroIsANullArgumentAndWarns)
{
    gDebugAssertMode = 2;
    trace_setWidth(0);
    EXPECT_EQ(trace_width(), 0U);
    EXPECT_EQ(emitted, null_report(1502, "width != 0", 10) +
                           "QZDEBUG (warning): desired trace width (0) is < default (20)\n");
}

TEST_F(QzdebugTest, AWidthBeyondAllReasonIsNotPaddedInFull)
{
    trace_setWidth(UINT32_MAX);
    EXPECT_EQ(trace_width(), UINT32_MAX);
    trace("x", 1, "text");
    EXPECT_EQ(written(), "x:1" + std::string(65533, ' ') + "> text\n");
}

// ---- Hex dump ---------------------------------------------------------------------------------

const unsigned char BYTES[] = {0x41, 0x7E, 0x00, 0x7F, 0xFF, 0x20};

TEST_F(QzdebugTest, ADumpOfNoBytesSaysSo)
{
    trace_hexdump("data", BYTES, 0, 16, 1, "x", 1);
    EXPECT_EQ(written(),
              "x:1                 > Hexdump: data (" + pointer_text(BYTES) + ") zero bytes\n");
}

TEST_F(QzdebugTest, ADumpThatFitsItsRowIsASingleLine)
{
    trace_hexdump("data", BYTES, 5, 16, 1, "x", 1);
    EXPECT_EQ(written(), "x:1                 > Hexdump: data (" + pointer_text(BYTES) +
                             ") | 41 7E 00 7F FF |A~...\n");
}

TEST_F(QzdebugTest, ADumpAsLongAsItsRowIsASingleLine)
{
    trace_hexdump("data", BYTES, 6, 6, 0, "x", 1);
    EXPECT_EQ(written(), "x:1                 > Hexdump: data (" + pointer_text(BYTES) +
                             ") | 41 7E 00 7F FF 20\n");
}

TEST_F(QzdebugTest, ALongerDumpHasARowALineAndFillsTheLast)
{
    trace_setIndentLevel(1);
    trace_hexdump("data", BYTES, 6, 4, 1, "x", 1);
    EXPECT_EQ(written(), "x:1                 >     Hexdump: data (" + pointer_text(BYTES) +
                             ")\n"
                             "x:1                 >     " +
                             pointer_text(BYTES) +
                             " | 41 7E 00 7F |A~..\n"
                             "x:1                 >     " +
                             pointer_text(BYTES + 4) + " | FF 20       |. \n");
}

TEST_F(QzdebugTest, ALongerDumpWithoutCharactersIsNotFilled)
{
    trace_hexdump("data", BYTES, 3, 2, 0, "x", 1);
    EXPECT_EQ(written(), "x:1                 > Hexdump: data (" + pointer_text(BYTES) +
                             ")\n"
                             "x:1                 > " +
                             pointer_text(BYTES) +
                             " | 41 7E\n"
                             "x:1                 > " +
                             pointer_text(BYTES + 2) + " | 00\n");
}

TEST_F(QzdebugTest, ADumpWithoutARowLengthIsASingleLine)
{
    trace_hexdump("data", BYTES, 2, 0, 0, "x", 1);
    EXPECT_EQ(written(),
              "x:1                 > Hexdump: data (" + pointer_text(BYTES) + ") | 41 7E\n");
}

TEST_F(QzdebugTest, ADumpOfNothingReadsNothing)
{
    trace_hexdump(nullptr, nullptr, 5, 2, 1, "x", 1);
    EXPECT_EQ(written(),
              "x:1                 > Hexdump: (null) (" + pointer_text(nullptr) + ") zero bytes\n");
}

// ---- Messages ---------------------------------------------------------------------------------

TEST_F(QzdebugTest, AMessageIsEchoedWithoutALineEndOfItsOwn)
{
    trace_alert("(2044) 100%s\n");
    trace_alert("second");
    EXPECT_EQ(written(), "ALERT> (2044) 100%s\nALERT> second");
}

[[gnu::format(printf, 1, 0)]] void emit_through_trace(const char *format, va_list values)
{
    char text[100];
    vsnprintf(text, sizeof text, format, values);
    trace_alert(text);
}

TEST_F(QzdebugTest, AMessageWithARecordedSourceHasAPrefix)
{
    trace_alertFrom(emit_through_trace, "driver/options", 77, "value %d\n", 5);
    trace_alert("afterwards\n");
    EXPECT_EQ(written(), "options:77          > value 5\nALERT> afterwards\n");
    EXPECT_STREQ(gAlertSrc, "driver/options");
}

[[gnu::format(printf, 1, 0)]] void emit_plain(const char *format, va_list values)
{
    alert_vprint(format, values);
}

TEST_F(QzdebugTest, AMessageIsEmittedThroughItsEmitterWithoutADebugOutFile)
{
    fclose(gDebugOut);
    gDebugOut = nullptr;
    trace_alertFrom(emit_plain, "driver/options", 77, "value %d", 5);
    EXPECT_EQ(emitted, "value 5\n");
}

TEST_F(QzdebugTest, AWarningIsPlainMessageOutput)
{
    qzdebug_warning("unknown option \"%s\"", "100%d");
    EXPECT_EQ(emitted, "QZDEBUG (warning): unknown option \"100%d\"\n");
    EXPECT_EQ(written(), "");
}

TEST_F(QzdebugTest, AWarningIsCutLikeEveryPlainOutput)
{
    std::string value(20000, 'v');
    qzdebug_warning("%s", value.c_str());
    EXPECT_EQ(emitted, ("QZDEBUG (warning): " + value).substr(0, 8191));
}

// ---- Argument lists ---------------------------------------------------------------------------

TEST_F(QzdebugTest, ArgumentsAreListedBehindTheApplication)
{
    Vector *args = vec_new("test", 1);
    vec_add(args, "-c");
    vec_add(args, "100%s.c");
    trace_args(args);
    EXPECT_EQ(written(), "\nAPP: qzm-cc\nARGS: -c 100%s.c\n");
    EXPECT_EQ(vec_size(args), 2U);
    vec_destroy(args);
}

TEST_F(QzdebugTest, AnEmptyArgumentListSaysNone)
{
    Vector *args = vec_new("test", 1);
    trace_args(args);
    EXPECT_EQ(written(), "\nAPP: qzm-cc\nARGS: None\n");
    vec_destroy(args);
}

TEST_F(QzdebugTest, AnArgumentArrayIsListedLikeAVector)
{
    char program[] = "qzm-cc";
    char option[] = "-c";
    char *argv[] = {program, option, nullptr};
    trace_argv(2, argv);
    trace_argv(0, argv);
    EXPECT_EQ(written(), "\nAPP: qzm-cc\nARGS: qzm-cc -c\n\nAPP: qzm-cc\nARGS: None\n");
}

// ---- Null arguments ---------------------------------------------------------------------------

const char *volatile noText = nullptr;
Vector *volatile noVector = nullptr;

void misuse_every_operation()
{
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
    trace_enter(noText, 1, noText);
    trace_exit(noText, 2, noText);
    tracef(noText, 3, "line");
    tracef("x", 3, noText);
    trace(noText, 4, noText);
    trace_printf(noText);
    trace_puts(noText);
    trace_hexdump(noText, noText, 3, 2, 1, noText, 5);
    trace_alert(noText);
    trace_args(noVector);
    trace_argv(3, nullptr);
    trace_alertFrom(nullptr, noText, 6, "unused");
    qzdebug_warning(noText);
#pragma GCC diagnostic pop
}

TEST_F(QzdebugTest, IgnoredNullArgumentsAreShownOrSkipped)
{
    misuse_every_operation();
    EXPECT_EQ(written(), "(null):1            > ENTER (null)()\n"
                         "(null):2            > EXIT (null)()\n"
                         "(null):3            > line\n"
                         "(null)\n"
                         "(null)\n"
                         "(null):5            > Hexdump: (null) (" +
                             pointer_text(nullptr) +
                             ") zero bytes\n"
                             "ALERT> (null)"
                             "\nAPP: qzm-cc\nARGS: None\n"
                             "\nAPP: qzm-cc\nARGS: None\n");
    EXPECT_EQ(emitted, "QZDEBUG (warning): tracef (at x:3) contains no lines\n"
                       "QZDEBUG (warning): trace (at (null):4) contains no lines\n"
                       "QZDEBUG (warning): (null)\n");
}

TEST_F(QzdebugTest, NullArgumentsAreReportedAsErrors)
{
    gDebugAssertMode = 2;
    misuse_every_operation();
    std::string expected =
        null_report(1502, "src != NULL", 20) + null_report(1502, "func != NULL", 21) +
        null_report(1502, "src != NULL", 30) + null_report(1502, "func != NULL", 31) +
        null_report(1502, "src != NULL", 40) + null_report(1502, "fmt != NULL", 41) +
        "QZDEBUG (warning): tracef (at x:3) contains no lines\n" +
        null_report(1502, "src != NULL", 50) + null_report(1502, "txt != NULL", 51) +
        "QZDEBUG (warning): trace (at (null):4) contains no lines\n" +
        null_report(1502, "fmt != NULL", 60) + null_report(1502, "str != NULL", 70) +
        null_report(1502, "name != NULL", 80) + null_report(1502, "addr != NULL", 81) +
        null_report(1502, "src != NULL", 82) + null_report(1502, "msg != NULL", 90) +
        null_report(1502, "args != NULL", 110) + null_report(1502, "argv != NULL", 120) +
        null_report(1502, "alert_func != NULL", 100) + null_report(1502, "src != NULL", 101) +
        null_report(1502, "fmt != NULL", 130) + "QZDEBUG (warning): (null)\n";
    EXPECT_EQ(emitted, expected);
}

TEST_F(QzdebugTest, ANullArgumentIsReportedAsAWarning)
{
    gDebugAssertMode = 3;
    trace_puts(noText);
    EXPECT_EQ(emitted, null_report(1501, "str != NULL", 70));
    EXPECT_EQ(written(), "(null)\n");
}

TEST_F(QzdebugTest, AnAssertModeOutsideTheTableIsIgnored)
{
    gDebugAssertMode = 4;
    trace_puts(noText);
    EXPECT_EQ(emitted, "");
    EXPECT_EQ(written(), "(null)\n");
}

void end_by_null_argument()
{
    alert_setOutputHook(nullptr);
    gDebugAssertMode = 1;
    trace_puts(noText);
    _exit(99);
}

TEST_F(QzdebugTest, ANullArgumentEndsTheRunWhenItIsFatal)
{
    EXPECT_EXIT(end_by_null_argument(), testing::ExitedWithCode(1),
                "\\(1503\\) .*str != NULL.*common/qzdebug.*70");
}

TEST_F(QzdebugTest, AMissingRecordedSourceIsReportedOnceAndShownAsNull)
{
    gDebugAssertMode = 3;
    gDebugFlags = DEBUG_ALERTS;
    trace_alertFrom(emit_through_trace, noText, 5, "text\n");
    EXPECT_EQ(emitted,
              null_report(1501, "src != NULL", 101) + null_report(1501, "gAlertSrc != NULL", 91));
    EXPECT_NE(written().find("(null):5            > text\n"), std::string::npos);
}

// ---- Complaints while everything is traced ----------------------------------------------------

TEST_F(QzdebugTest, AComplaintThatIsTracedItselfComesOnceAndKeepsTheLevel)
{
    gDebugFlags = DEBUG_TRACE | DEBUG_ALERTS;
    trace_setIndentStep(0);
    trace_setIndentLevel(UINT32_MAX);
    trace_enter("x", 1, "deep");
    gDebugFlags = 0;
    EXPECT_EQ(trace_indentLevel(), UINT32_MAX);
    EXPECT_EQ(emitted, "QZDEBUG (warning): max debug-out indent level readched\n");
}

TEST_F(QzdebugTest, AComplaintAtTheTopThatIsTracedItselfComesOnceAndKeepsTheLevel)
{
    gDebugFlags = DEBUG_TRACE | DEBUG_ALERTS;
    gDebugAssertMode = 3;
    trace_exit("x", 1, "lonely");
    tracef("x", 2, "\n");
    gDebugFlags = 0;
    EXPECT_EQ(trace_indentLevel(), 0U);
    EXPECT_EQ(emitted, "QZDEBUG (warning): min debug-out indent level reached\n"
                       "QZDEBUG (warning): tracef (at x:2) contains no lines\n");
}

TEST_F(QzdebugTest, AWarningRaisedInsideAComplaintIsStillShown)
{
    alert_setOutputHook([](const char *text) {
        bool first = emitted.empty();
        emitted += text;
        if (first)
            qzdebug_warning("package not written");
    });
    gDebugAssertMode = 3;
    trace_puts(noText);
    EXPECT_EQ(emitted,
              null_report(1501, "str != NULL", 70) + "QZDEBUG (warning): package not written\n");
}

// ---- errno and the closed file ----------------------------------------------------------------

void call_every_operation()
{
    static char argument[] = "a";
    static char *argv[] = {argument, nullptr};
    trace_enter("x", 1, "f", "%s", "v");
    trace_enter("x", 1, "g");
    trace_exit("x", 1, "g");
    trace_exit("x", 1, "f", "%s", "v");
    trace_exit("x", 1, "lonely");
    tracef("x", 1, "%d", 1);
    tracef("x", 1, "%d\nsecond", 1);
    tracef("x", 1, "\n");
    trace("x", 1, "text");
    trace_printf("%d", 1);
    trace_puts("text");
    trace_hexdump("data", BYTES, 6, 4, 1, "x", 1);
    trace_alert("text\n");
    trace_argv(1, argv);
}

TEST_F(QzdebugTest, EveryOperationKeepsErrno)
{
    gDebugAssertMode = 3;
    gDebugFlags = DEBUG_TRACE | DEBUG_ALERTS;
    errno = ENOTTY;
    call_every_operation();
    EXPECT_EQ(errno, ENOTTY);
    misuse_every_operation();
    EXPECT_EQ(errno, ENOTTY);
}

TEST_F(QzdebugTest, AWriteErrorIsIgnored)
{
    fclose(gDebugOut);
    gDebugOut = fopen("/dev/full", "w");
    if (gDebugOut == nullptr)
        GTEST_SKIP() << "no /dev/full";
    errno = ENOTTY;
    call_every_operation();
    EXPECT_EQ(errno, ENOTTY);
    EXPECT_EQ(trace_indentLevel(), 0U);
}

TEST_F(QzdebugTest, NothingHappensWhileTheDebugOutFileIsClosed)
{
    fclose(gDebugOut);
    gDebugOut = nullptr;
    gDebugEcho = 1;
    gDebugAssertMode = 2;
    call_every_operation();
    misuse_every_operation();
    EXPECT_EQ(gDebugTty, nullptr);
    EXPECT_EQ(trace_indentLevel(), 0U);
    EXPECT_EQ(emitted, null_report(1502, "alert_func != NULL", 100) +
                           null_report(1502, "src != NULL", 101) +
                           null_report(1502, "fmt != NULL", 130) + "QZDEBUG (warning): (null)\n");
}

// ---- Echo -------------------------------------------------------------------------------------

// Reads from `descriptor` until `length` bytes have come or ten seconds have passed.
std::string read_some(int descriptor, size_t length)
{
    std::string text;
    struct pollfd waiting = {descriptor, POLLIN, 0};
    while (text.size() < length && poll(&waiting, 1, 10000) == 1) {
        char buffer[256];
        ssize_t count = read(descriptor, buffer, sizeof buffer);
        if (count <= 0)
            break;
        text.append(buffer, static_cast<size_t>(count));
    }
    return text;
}

// Runs `action` in a child whose controlling terminal is `terminal` (null: no terminal); the
// child's status is the result of the action. The child stays until `release` is closed.
pid_t run_on_terminal(const char *terminal, int release, int (*action)())
{
    pid_t child = fork();
    if (child != 0)
        return child;
    setsid();
    if (terminal != nullptr && open(terminal, O_RDWR) < 0)
        _exit(98);
    int status = action();
    char byte;
    if (release >= 0 && read(release, &byte, 1) < 0)
        _exit(97);
    _exit(status);
}

int exit_status(pid_t child)
{
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

int echo_twice()
{
    gDebugEcho = 1;
    trace_puts("one");
    FILE *first = gDebugTty;
    trace_enter("x", 1, "f", "%s and %d", "text", 2);
    return first != nullptr && first == gDebugTty ? 0 : 1;
}

TEST_F(QzdebugTest, TheEchoGoesToTheTerminalWhichIsOpenedOnce)
{
    int controller = posix_openpt(O_RDWR | O_NOCTTY);
    if (controller < 0 || grantpt(controller) != 0 || unlockpt(controller) != 0)
        GTEST_SKIP() << "no pseudo terminals";
    int release[2];
    ASSERT_EQ(pipe2(release, O_CLOEXEC), 0);
    pid_t child = fork();
    if (child == 0) {
        close(release[1]);
        pid_t inner = run_on_terminal(ptsname(controller), release[0], echo_twice);
        _exit(exit_status(inner));
    }
    close(release[0]);
    const std::string expected = "one\nx:1                 > ENTER f(text and 2)\n";
    const std::string shown = std::regex_replace(expected, std::regex("\n"), "\r\n");
    EXPECT_EQ(read_some(controller, shown.size()), shown);
    close(release[1]);
    EXPECT_EQ(exit_status(child), 0);
    EXPECT_EQ(written(), expected);
    close(controller);
}

int echo_to_nothing()
{
    gDebugEcho = 1;
    errno = ENOTTY;
    trace_puts("one");
    trace_puts("two");
    return gDebugTty == nullptr && errno == ENOTTY ? 0 : 1;
}

TEST_F(QzdebugTest, WithoutATerminalTheFileIsWrittenAllTheSame)
{
    EXPECT_EQ(exit_status(run_on_terminal(nullptr, -1, echo_to_nothing)), 0);
    EXPECT_EQ(written(), "one\ntwo\n");
}

TEST_F(QzdebugTest, TheTerminalShowsEachOperationAtOnce)
{
    FILE *terminal = tmpfile();
    gDebugTty = terminal;
    gDebugEcho = 1;
    trace_puts("now");
    gDebugEcho = 0;
    gDebugTty = nullptr;
    FILE *copy = fopen(("/proc/self/fd/" + std::to_string(fileno(terminal))).c_str(), "r");
    EXPECT_EQ(read_all(copy), "now\n");
    fclose(copy);
    fclose(terminal);
}

TEST_F(QzdebugTest, TheEchoUsesATerminalThatIsAlreadyOpen)
{
    FILE *terminal = tmpfile();
    gDebugTty = terminal;
    gDebugEcho = 1;
    trace_puts("both");
    gDebugEcho = 0;
    trace_puts("file");
    gDebugTty = nullptr;
    EXPECT_EQ(read_all(terminal), "both\n");
    EXPECT_EQ(written(), "both\nfile\n");
    fclose(terminal);
}

// ---- The macros -------------------------------------------------------------------------------

int evaluations = 0;

int counted(int value)
{
    evaluations++;
    return value;
}

int traced_sum(int a, int b)
{
    TRACE_ENTER("a=%d, b=%d", counted(a), b);
    TRACE("adding %d", counted(b));
    return TRACE_RETURN("%d", counted(a + b));
}

void traced_nothing()
{
    TRACE_ENTER();
}

const char *traced_text(const char *text)
{
    TRACE_ENTER("text=\"%s\"", text);
    return TRACE_RETURN("\"%s\"", text);
}

void traced_switching_on()
{
    TRACE_ENTER();
    gDebugFlags = DEBUG_TRACE;
    TRACE("on");
}

int traced_switching_off()
{
    TRACE_ENTER();
    gDebugFlags = 0;
    TRACE("off");
    return TRACE_RETURN("%d", 1);
}

int traced_errno()
{
    TRACE_ENTER("errno=%d", errno);
    errno = ERANGE;
    TRACE("errno=%d", errno);
    return TRACE_RETURN("%d", -1);
}

TEST_F(QzdebugTest, ATracedFunctionWritesItsEntryAndItsResult)
{
    gDebugFlags = DEBUG_TRACE;
    EXPECT_EQ(traced_sum(2, 3), 5);
    traced_nothing();
    EXPECT_EQ(writtenWithoutLines(), "qzdebug_test:N> ENTER traced_sum(a=2, b=3)\n"
                                     "qzdebug_test:N>     adding 3\n"
                                     "qzdebug_test:N> EXIT traced_sum() -> 5\n"
                                     "qzdebug_test:N> ENTER traced_nothing()\n"
                                     "qzdebug_test:N> EXIT traced_nothing()\n");
    EXPECT_EQ(evaluations, 3);
    evaluations = 0;
}

TEST_F(QzdebugTest, AnyFlagTraces)
{
    gDebugFlags = DEBUG_CONTAINERS;
    traced_nothing();
    EXPECT_EQ(writtenWithoutLines(), "qzdebug_test:N> ENTER traced_nothing()\n"
                                     "qzdebug_test:N> EXIT traced_nothing()\n");
}

TEST_F(QzdebugTest, TheMacrosPassTheirSourceAndLine)
{
    gDebugFlags = DEBUG_TRACE;
    int line = __LINE__ + 1;
    TRACE("here");
    char expected[100];
    snprintf(expected, sizeof expected, "qzdebug_test:%-7d> here\n", line);
    EXPECT_EQ(written(), expected);
}

TEST_F(QzdebugTest, WhileOffNoArgumentIsEvaluatedAndTheResultIsEvaluatedOnce)
{
    evaluations = 0;
    EXPECT_EQ(traced_sum(2, 3), 5);
    EXPECT_EQ(evaluations, 1);
    EXPECT_EQ(written(), "");
    evaluations = 0;
}

TEST_F(QzdebugTest, AnExitIsTracedOnlyWhereItsEntryWas)
{
    traced_switching_on();
    EXPECT_EQ(writtenWithoutLines(), "qzdebug_test:N> on\n");
    EXPECT_EQ(trace_indentLevel(), 0U);
    EXPECT_EQ(emitted, "");
}

TEST_F(QzdebugTest, AnExitIsTracedWhenItsEntryWasEvenIfDebuggingWasSwitchedOff)
{
    gDebugFlags = DEBUG_TRACE;
    EXPECT_EQ(traced_switching_off(), 1);
    EXPECT_EQ(writtenWithoutLines(), "qzdebug_test:N> ENTER traced_switching_off()\n"
                                     "qzdebug_test:N> EXIT traced_switching_off() -> 1\n");
    EXPECT_EQ(trace_indentLevel(), 0U);
}

TEST_F(QzdebugTest, ANullStringIsShownAsNull)
{
    gDebugFlags = DEBUG_TRACE;
    const char *volatile none = nullptr; // hidden from the compiler, which would warn
    EXPECT_EQ(traced_text(none), nullptr);
    EXPECT_EQ(writtenWithoutLines(), "qzdebug_test:N> ENTER traced_text(text=\"(null)\")\n"
                                     "qzdebug_test:N> EXIT traced_text() -> \"(null)\"\n");
}

TEST_F(QzdebugTest, TheMacrosKeepErrno)
{
    gDebugFlags = DEBUG_TRACE;
    errno = ENOTTY;
    EXPECT_EQ(traced_errno(), -1);
    EXPECT_EQ(errno, ERANGE);
    EXPECT_EQ(writtenWithoutLines(),
              "qzdebug_test:N> ENTER traced_errno(errno=" + std::to_string(ENOTTY) +
                  ")\n"
                  "qzdebug_test:N>     errno=" +
                  std::to_string(ERANGE) +
                  "\n"
                  "qzdebug_test:N> EXIT traced_errno() -> -1\n");
}

} // namespace
