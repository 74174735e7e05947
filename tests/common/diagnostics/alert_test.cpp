// Raising, rules, settings and the two forms in which a message is shown.
#include "common/diagnostics/alert.h"

#include <cerrno>
#include <cstring>

#include "common/base/exitpath.h"
#include "common/base/stringcache.h"
#include "common/diagnostics/alert_internal.h"
#include "common/trace/qzdebug.h"
#include "tests/common/diagnostics/alert_fixture.h"

namespace {

class AlertRaise : public AlertTest {};
class AlertForm : public AlertTest {};
class AlertRule : public AlertTest {};
class AlertPrint : public AlertTest {};

void switchOnFormats()
{
    alert_setFormats("%f:%l:%c: error: (%n) %s", "%f:%l:%c: warning: (%n) %s",
                     "%f:%l:%c: advisory: (%n) %s");
    alert_setFormatMode(1);
}

void say(const std::string &text)
{
    std::fputs((text + "\n").c_str(), stderr);
}

// The kind and level that a number is found with.
void sayKind(uint32_t number)
{
    AlertRecord *record = alert_lookup(number);
    say(std::to_string(record->number) + ": kind " + std::to_string(record->kind) + ", level " +
        std::to_string(record->level));
    std::free(record);
}

// ---- Raising ----------------------------------------------------------------------------------

TEST_F(AlertRaise, AWarningByNumberHasTheFixedFormAtFirst)
{
    EXPECT_EQ(run([] { alert_raiseNumber(2044, "-x"); }),
              (Outcome{0, "(2044) unrecognized option \"-x\" (warning)\n"}));
}

TEST_F(AlertRaise, AnErrorByNumberHasNoKindInTheFixedForm)
{
    EXPECT_EQ(run([] { alert_raiseNumber(917); }), (Outcome{0, "(917) argument too long\n"}));
}

TEST_F(AlertRaise, AFatalMessageEndsTheRunWithStatus1)
{
    EXPECT_EQ(run([] {
                  alert_raiseNumber(2041, "-o");
                  say("not reached");
              }),
              (Outcome{1, "(2041) missing argument after \"-o\"\n"}));
}

TEST_F(AlertRaise, AFatalMessageLeavesThroughTheExitRoutine)
{
    EXPECT_EQ(run([] {
                  exitpath_setRoutine([](int status) {
                      say("cleaning up after " + std::to_string(status));
                      std::exit(status + 6);
                  });
                  alert_raise(4, "F", "over");
              }),
              (Outcome{7, "(4) over\ncleaning up after 1\n"}));
}

TEST_F(AlertRaise, AFatalMessageEndsTheRunBelowAnyThreshold)
{
    EXPECT_EQ(run([] {
                  alert_setThreshold(11);
                  alert_raise(4, "f", "over");
              }),
              (Outcome{1, "(4) over\n"}));
}

TEST_F(AlertRaise, ANumberThatNobodyDescribesIsAnError)
{
    EXPECT_EQ(run([] {
                  say(std::to_string(alert_raiseNumber(9998, "unused")));
                  say(std::to_string(alert_raiseNumber(4000000000U, "unused")));
                  say(std::to_string(alert_anyErrors()));
              }),
              (Outcome{0, "(9998) An error, warning or message was generated, but no description "
                          "is available\n1\n"
                          "(4000000000) An error, warning or message was generated, but no "
                          "description is available\n1\n1\n"}));
}

TEST_F(AlertRaise, KindsAreReadInEitherCase)
{
    EXPECT_EQ(run([] {
                  alert_raise(7, "e", "a");
                  alert_raise(7, "E", "b");
                  alert_raise(7, "m", "c");
                  alert_raise(7, "M", "d");
                  alert_raise(7, "3", "e");
                  say(std::to_string(alert_anyErrors()));
              }),
              (Outcome{0, "(7) a\n(7) b\nc\nd\n(7) e (warning)\n1\n"}));
}

TEST_F(AlertRaise, AKindThatSaysNothingIsShownLikeAWarningOfAnyLevel)
{
    EXPECT_EQ(run([] {
                  alert_setThreshold(9);
                  alert_raise(7, "x", "a");
                  alert_raise(7, "", "b");
                  alert_raise(7, "-", "c");
                  alert_raise(7, "99999999999", "d");
              }),
              (Outcome{0, "(7) a (warning)\n(7) b (warning)\n(7) c (warning)\n(7) d (warning)\n"}));
}

TEST_F(AlertRaise, AWarningBelowTheThresholdIsNotShown)
{
    EXPECT_EQ(run([] {
                  say(std::to_string(alert_raise(7, "-1", "hidden")));
                  say(std::to_string(alert_setThreshold(-1)));
                  say(std::to_string(alert_raise(7, "-1", "shown")));
                  say(std::to_string(alert_setThreshold(0)));
              }),
              (Outcome{0, "0\n0\n(7) shown (warning)\n1\n-1\n"}));
}

TEST_F(AlertRaise, ALevelAboveThoseOfMessageFilesIsALevel)
{
    EXPECT_EQ(run([] {
                  alert_setThreshold(10);
                  alert_raise(7, "9", "hidden");
                  alert_raise(7, "10", "shown");
              }),
              (Outcome{0, "(7) shown (warning)\n"}));
}

TEST_F(AlertRaise, AThresholdHidesNoErrorOrMessageUpToTen)
{
    EXPECT_EQ(run([] {
                  alert_setThreshold(10);
                  alert_raise(7, "E", "error");
                  alert_raise(7, "M", "message");
                  alert_raise(7, "8", "warning");
              }),
              (Outcome{0, "(7) error\nmessage\n"}));
}

TEST_F(AlertRaise, AnErrorBelowTheThresholdCountsUnseen)
{
    EXPECT_EQ(run([] {
                  alert_setThreshold(11);
                  alert_setErrorLimit(2);
                  say(std::to_string(alert_anyErrors()));
                  say(std::to_string(alert_raise(7, "E", "hidden")));
                  say(std::to_string(alert_anyErrors()));
                  alert_raiseNumber(917);
                  alert_setThreshold(0);
                  alert_raise(7, "E", "one too many");
              }),
              (Outcome{1, "0\n0\n1\ntoo many errors (3)\n"}));
}

TEST_F(AlertRaise, AnErrorThatARuleSuppressesDoesNotCount)
{
    EXPECT_EQ(run([] {
                  alert_control(917, ALERT_RULE_HIDE_ALL);
                  say(std::to_string(alert_raiseNumber(917)));
                  say(std::to_string(alert_anyErrors()));
              }),
              (Outcome{0, "0\n0\n"}));
}

TEST_F(AlertRaise, AKindThatSaysNothingIsNotCountedAsAWarning)
{
    EXPECT_EQ(run([] {
                  alert_setCountWarnings(1);
                  alert_raise(7, "x", "a");
                  say(std::to_string(alert_anyErrors()));
                  alert_setThreshold(11);
                  say(std::to_string(alert_raise(7, "x", "b")));
              }),
              (Outcome{0, "(7) a (warning)\n0\n0\n"}));
}

TEST_F(AlertRaise, AKindAndAFormatAreNeeded)
{
    EXPECT_EQ(run([] { alert_raise(7, nullptr, "a"); }).status, 1);
    EXPECT_EQ(run([] { alert_raiseNoLine(7, nullptr, "a"); }).status, 1);
}

TEST_F(AlertRaise, TheErrorBehindTheLimitEndsTheRunUnseen)
{
    std::string expected;
    for (int i = 0; i < 20; ++i)
        expected += "(917) argument too long\n";
    EXPECT_EQ(run([] {
                  for (;;)
                      alert_raiseNumber(917);
              }),
              (Outcome{1, expected + "too many errors (21)\n"}));
}

TEST_F(AlertRaise, TheErrorLimitCanBeSetAndTellsThePreviousOne)
{
    EXPECT_EQ(run([] {
                  say(std::to_string(alert_setErrorLimit(1)));
                  say(std::to_string(alert_setErrorLimit(1)));
                  alert_raise(5, "E", "first");
                  alert_raise(5, "E", "second");
              }),
              (Outcome{1, "20\n1\n(5) first\ntoo many errors (2)\n"}));
}

TEST_F(AlertRaise, AnErrorLimitOf0AllowsNone)
{
    EXPECT_EQ(run([] {
                  alert_setErrorLimit(0);
                  alert_raise(5, "E", "first");
              }),
              (Outcome{1, "too many errors (1)\n"}));
}

TEST_F(AlertRaise, TheErrorLimitIsReportedInTheWordsOfTheLoadedFile)
{
    writeFile(pathOf("de_msgs.txt"), "1 E zu viele Fehler: %u\n");
    EXPECT_EQ(run([] {
                  alert_loadFile("de_msgs.txt");
                  alert_setErrorLimit(0);
                  alert_raise(5, "E", "first");
              }),
              (Outcome{1, "zu viele Fehler: 1\n"}));
    EXPECT_EQ(run([] {
                  alert_raiseNumber(917); // from the built-in catalogue
                  alert_loadFile("de_msgs.txt");
                  switchOnFormats();
                  alert_setErrorLimit(1);
                  alert_raiseNumber(917);
              }),
              (Outcome{1, "(917) argument too long\n::: advisory: (1) zu viele Fehler: 2\n"}));
}

TEST_F(AlertRaise, TheErrorLimitIsReportedAsAMessageUnderAnyRule)
{
    EXPECT_EQ(run([] {
                  alert_control(0, ALERT_HIDE_EVERY);
                  alert_control(1, ALERT_RULE_HIDE_ALL);
                  alert_setErrorLimit(0);
                  alert_raise(5, "E", "first");
              }),
              (Outcome{1, "too many errors (1)\n"}));
}

TEST_F(AlertRaise, WarningsCountAsErrorsOnlyWhenAskedTo)
{
    EXPECT_EQ(run([] {
                  alert_setCountWarnings(1);
                  alert_raise(5, "M", "a message");
                  alert_raise(5, "-3", "not shown");
                  say(std::to_string(alert_anyErrors()));
                  alert_raise(5, "0", "shown");
                  say(std::to_string(alert_anyErrors()));
                  alert_setCountWarnings(0);
                  say(std::to_string(alert_anyErrors()));
              }),
              (Outcome{0, "a message\n0\n(5) shown (warning)\n1\n0\n"}));
}

TEST_F(AlertRaise, ItAnswersWhetherTheMessageWasShown)
{
    EXPECT_EQ(run([] {
                  alert_control(2044, ALERT_RULE_HIDE);
                  say(std::to_string(alert_raiseNumber(2044, "-x")));
                  say(std::to_string(alert_raiseNumber(1428, "-x")));
              }),
              (Outcome{0, "0\n(1428) \"-x\" is not supported; this feature will be ignored "
                          "(warning)\n1\n"}));
}

TEST_F(AlertRaise, TheEmitAlwaysFlagIsRemembered)
{
    EXPECT_EQ(run([] {
                  say(std::to_string(alert_emitAlways()));
                  alert_setEmitAlways(1);
                  say(std::to_string(alert_emitAlways()));
              }),
              (Outcome{0, "0\n1\n"}));
}

// ---- System errors ----------------------------------------------------------------------------

TEST_F(AlertRaise, TheSystemErrorIsTheOneOfTheMomentAndSurvives)
{
    writeFile(scratch / "en_msgs.txt", "9999 M [%%m %m]\n");
    EXPECT_EQ(run([] {
                  errno = ENOENT;
                  alert_raiseNumber(141, "output", "a.o");
                  say(errno == ENOENT ? "kept" : "lost");
                  errno = 0;
                  alert_raiseNumber(9999);
              }),
              (Outcome{0, "(141) could not open output file \"a.o\": No such file or directory\n"
                          "kept\n[%m ]\n"}));
}

TEST_F(AlertRaise, TheSystemErrorIsKnownToMessagesWithoutAPosition)
{
    EXPECT_EQ(run([] {
                  alert_setFormats(nullptr, nullptr, "%s: %m");
                  alert_setFormatMode(1);
                  errno = EACCES;
                  alert_raiseNoLine(9, "M", "entry");
                  say(errno == EACCES ? "kept" : "lost");
              }),
              (Outcome{0, "entry: Permission denied\nkept\n"}));
}

TEST_F(AlertRaise, PercentSignsOfValuesAreNotInterpreted)
{
    EXPECT_EQ(run([] {
                  alert_raiseNumber(2044, "%n%s%m");
                  switchOnFormats();
                  alert_raiseNumber(2044, "%n%s%m");
              }),
              (Outcome{0, "(2044) unrecognized option \"%n%s%m\" (warning)\n"
                          "::: warning: (2044) unrecognized option \"%n%s%m\"\n"}));
}

// ---- The fixed form ---------------------------------------------------------------------------

TEST_F(AlertForm, TheFixedFormBeginsWithFileAndLine)
{
    EXPECT_EQ(run([] {
                  uint32_t line = 12;
                  alert_setPosition("a.c", &line, nullptr, nullptr);
                  alert_raise(5, "E", "%s %d", "one", 1);
                  line = 13;
                  alert_raise(5, "2", "two");
                  alert_raise(5, "M", "three");
                  alert_raiseNoLine(5, "M", "four");
                  alert_raiseNoLine(5, "-1", "five");
                  alert_setPosition("", &line, nullptr, nullptr);
                  alert_raise(5, "E", "six");
                  alert_raiseNoLine(5, "E", "seven");
                  alert_setPosition("b.c", nullptr, nullptr, nullptr);
                  alert_raise(5, "E", "eight");
              }),
              (Outcome{0, "a.c: 12: (5) one 1\na.c: 13: (5) two (warning)\na.c: 13: three\n"
                          "Non line specific message: four\n13: (5) six\n(5) seven\n"
                          "b.c: (5) eight\n"}));
}

// ---- The formats ------------------------------------------------------------------------------

TEST_F(AlertForm, TheDefaultFormatsNameTheKind)
{
    EXPECT_EQ(run([] {
                  const uint32_t line = 3;
                  alert_setFormatMode(1);
                  alert_setPosition("a.c", &line, nullptr, nullptr);
                  alert_raise(5, "E", "one");
                  alert_raise(5, "0", "two");
                  alert_raise(5, "M", "three");
                  alert_raise(5, "F", "four");
              }),
              (Outcome{1, "a.c: 3: (5) one (error)\na.c: 3: (5) two (warning)\na.c: 3: three\n"
                          "a.c: 3: (5) four (error)\n"}));
}

TEST_F(AlertForm, WithoutAPositionTheDriversFormatsBeginWithThreeColons)
{
    EXPECT_EQ(run([] {
                  switchOnFormats();
                  alert_raiseNumber(2044, "-x");
                  alert_raise(5, "M", "advice");
                  alert_raiseNumber(2042);
              }),
              (Outcome{1, "::: warning: (2044) unrecognized option \"-x\"\n"
                          "::: advisory: (5) advice\n"
                          "::: error: (2042) no target device specified; use the -mcpu option to "
                          "specify a target device\n"}));
}

TEST_F(AlertForm, TheProgramsNameIsTheOneItWasGiven)
{
    EXPECT_EQ(run([] {
                  alert_setFormatMode(1);
                  alert_setFormats(nullptr, nullptr, "%a: %s");
                  alert_raise(7, "M", "one");
                  alert_setProgramName("/opt/v2.32/bin/qzm-cc");
                  alert_raise(7, "M", "two");
              }),
              (Outcome{0, "qzm-cc: one\n/opt/v2.32/bin/qzm-cc: two\n"}));
}

TEST_F(AlertForm, EveryPlaceholderIsExpanded)
{
    EXPECT_EQ(run([] {
                  const char *const text = "int x;";
                  const char *const current = text + 4;
                  const uint32_t line = 4294967295U;
                  alert_setPosition("a.c", &line, &text, &current);
                  alert_setFormats(nullptr, nullptr, "%f|%l|%c|%n|%s|%a|%m|%%|%q|%");
                  alert_setFormatMode(1);
                  errno = EACCES;
                  alert_raise(77, "M", "%s", "hello");
                  errno = 0;
                  alert_raiseNoLine(78, "M", "bye");
              }),
              (Outcome{0, "a.c|4294967295|4|77|hello|qzm-cc|Permission denied|%|q|\n"
                          "Non line specific message||4|78|bye|qzm-cc||%|q|\n"}));
}

TEST_F(AlertForm, TheColumnNeedsBothReferences)
{
    EXPECT_EQ(run([] {
                  const char *const text = "int x;";
                  alert_setFormats(nullptr, nullptr, "<%c> %s");
                  alert_setFormatMode(1);
                  alert_setPosition(nullptr, nullptr, &text, nullptr);
                  alert_raise(5, "M", "a");
                  alert_setPosition(nullptr, nullptr, nullptr, &text);
                  alert_raise(5, "M", "b");
                  alert_setPosition(nullptr, nullptr, &text, &text);
                  alert_raise(5, "M", "c");
              }),
              (Outcome{0, "<> a\n<> b\n<0> c\n"}));
}

TEST_F(AlertForm, TheEnvironmentWinsOverTheGivenFormat)
{
    setenv("NVC_ERR_FORMAT", "E %s", 1);
    setenv("NVC_WARN_FORMAT", "W %s", 1);
    setenv("NVC_MSG_FORMAT", "", 1);
    EXPECT_EQ(run([] {
                  switchOnFormats();
                  alert_raise(5, "E", "one");
                  alert_raise(5, "1", "two");
                  alert_raise(5, "M", "nothing of this");
              }),
              (Outcome{0, "E one\nW two\n\n"}));
}

TEST_F(AlertForm, TheEnvironmentAlsoWinsOverTheDefault)
{
    setenv("NVC_MSG_FORMAT", "[%s]", 1);
    EXPECT_EQ(run([] {
                  alert_setFormatMode(1);
                  alert_raise(5, "M", "one");
              }),
              (Outcome{0, "[one]\n"}));
}

TEST_F(AlertForm, AFormatOfTheEnvironmentIsKeptWhenTheVariableChanges)
{
    setenv("NVC_MSG_FORMAT", "[%s]", 1);
    EXPECT_EQ(run([] {
                  switchOnFormats();
                  setenv("NVC_MSG_FORMAT", "<%s>", 1);
                  alert_raise(5, "M", "one");
              }),
              (Outcome{0, "[one]\n"}));
}

TEST_F(AlertForm, FormatsAndTheFilesNameAreCopiedAndThePositionIsNot)
{
    EXPECT_EQ(run([] {
                  char format[] = "%f %l %c %s";
                  char file[] = "a.c";
                  const char text[] = "abc";
                  uint32_t line = 1;
                  const char *start = text;
                  const char *current = text + 1;
                  alert_setFormatMode(1);
                  alert_setFormats(format, format, format);
                  alert_setPosition(file, &line, &start, &current);
                  format[1] = 'n';
                  file[0] = 'b';
                  line = 9;
                  current = text + 2;
                  alert_raise(5, "E", "one");
              }),
              (Outcome{0, "a.c 9 2 one\n"}));
}

TEST_F(AlertForm, ANullFormatIsTheDefault)
{
    EXPECT_EQ(run([] {
                  switchOnFormats();
                  alert_setFormats(nullptr, nullptr, nullptr);
                  alert_raise(5, "E", "one");
              }),
              (Outcome{0, ": : (5) one (error)\n"}));
}

// ---- Lengths ----------------------------------------------------------------------------------

TEST_F(AlertForm, TheMessageTextIsCutAt511CharactersWithItsNumber)
{
    const std::string shown = "(5) " + std::string(507, 'x');
    EXPECT_EQ(run([] { alert_raise(5, "E", "%s", std::string(600, 'x').c_str()); }),
              (Outcome{0, shown + "\n"}));
}

[[gnu::format(printf, 1, 2)]] void render(const char *format, ...)
{
    const AlertMessage message = {5, ALERT_MESSAGE, 0, 0};
    va_list values;
    va_start(values, format);
    alert_render(&message, format, values);
    va_end(values);
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral" // formats that no compiler would accept
TEST_F(AlertForm, ALongFormatNeverLeavesHalfAConversion)
{
    EXPECT_EQ(run([] {
                  const std::string format =
                      std::string(2040, 'y') + "%000000000000000000000000000000d";
                  const std::string half = "half %";
                  render(format.c_str(), 1);
                  render(half.c_str(), 1);
              }),
              (Outcome{0, std::string(511, 'y') + "\nhalf \n"}));
}
#pragma GCC diagnostic pop

TEST_F(AlertForm, AShownMessageIsCutAt8191CharactersAndKeepsItsLineEnd)
{
    EXPECT_EQ(run([] {
                  alert_setFormats(nullptr, nullptr, (std::string(9000, 'z') + "%s").c_str());
                  alert_setFormatMode(1);
                  alert_raise(5, "M", "unseen");
              }),
              (Outcome{0, std::string(8190, 'z') + "\n"}));
}

// ---- Plain output -----------------------------------------------------------------------------

TEST_F(AlertPrint, PlainTextGetsALineEnd)
{
    EXPECT_EQ(run([] { alert_print("%s: %d", "here", 5); }), (Outcome{0, "here: 5\n"}));
}

TEST_F(AlertPrint, AFullBufferGetsNoLineEnd)
{
    EXPECT_EQ(run([] { alert_print("%s", std::string(8190, 'x').c_str()); }),
              (Outcome{0, std::string(8190, 'x') + "\n"}));
    EXPECT_EQ(run([] { alert_print("%s", std::string(8191, 'x').c_str()); }),
              (Outcome{0, std::string(8191, 'x')}));
    EXPECT_EQ(run([] { alert_print("%s", std::string(20000, 'x').c_str()); }),
              (Outcome{0, std::string(8191, 'x')}));
}

TEST_F(AlertPrint, AHookGetsEveryFinishedTextInstead)
{
    EXPECT_EQ(run([] {
                  alert_setOutputHook([](const char *text) { say(std::string("<") + text + ">"); });
                  alert_print("plain");
                  alert_raiseNumber(917);
                  alert_setOutputHook(nullptr);
                  alert_print("back");
              }),
              (Outcome{0, "<plain\n>\n<(917) argument too long\n>\nback\n"}));
}

TEST_F(AlertPrint, TheDebugLogGetsACopyWhileMessagesAreLogged)
{
    const std::string log = pathOf("log");
    EXPECT_EQ(run([&] {
                  gDebugOut = std::fopen(log.c_str(), "w");
                  gDebugFlags = DEBUG_ALERTS;
                  alert_print("plain");
                  gDebugFlags = DEBUG_TRACE;
                  alert_print("not logged");
                  gDebugFlags = 0;
                  std::fclose(gDebugOut);
                  gDebugOut = nullptr;
              }),
              (Outcome{0, "plain\nnot logged\n"}));
    EXPECT_EQ(readFile(log), "ALERT> plain\n");
}

TEST_F(AlertPrint, ARaisedMessageIsLoggedToo)
{
    const std::string log = pathOf("log");
    EXPECT_EQ(run([&] {
                  gDebugOut = std::fopen(log.c_str(), "w");
                  gDebugFlags = DEBUG_ALERTS;
                  alert_raiseNumber(917);
                  gDebugFlags = 0;
                  std::fclose(gDebugOut);
                  gDebugOut = nullptr;
              }),
              (Outcome{0, "(917) argument too long\n"}));
    const std::string text = readFile(log);
    EXPECT_NE(text.find("\nALERT> (917) argument too long\n"), std::string::npos) << text;
}

// ---- Rules ------------------------------------------------------------------------------------

TEST_F(AlertRule, Rule1HidesAMessageOrWarningOnly)
{
    EXPECT_EQ(run([] {
                  for (uint32_t number : {1U, 2044U, 917U, 2041U}) {
                      alert_control(number, ALERT_RULE_HIDE);
                      sayKind(number);
                  }
              }),
              (Outcome{0, "1: kind 5, level 0\n2044: kind 5, level 0\n917: kind 3, level 0\n"
                          "2041: kind 1, level 0\n"}));
}

TEST_F(AlertRule, Rule2MakesAnErrorAWarningOfTheThresholdsLevel)
{
    EXPECT_EQ(run([] {
                  alert_setThreshold(-4);
                  for (uint32_t number : {1U, 2044U, 917U, 2041U}) {
                      alert_control(number, ALERT_RULE_ERROR_TO_WARNING);
                      sayKind(number);
                  }
                  alert_raiseNumber(917);
                  say(std::to_string(alert_anyErrors()));
              }),
              (Outcome{0, "1: kind 2, level 0\n2044: kind 4, level 0\n917: kind 4, level -4\n"
                          "2041: kind 1, level 0\n(917) argument too long (warning)\n0\n"}));
}

TEST_F(AlertRule, Rule3MakesAWarningAnError)
{
    EXPECT_EQ(run([] {
                  for (uint32_t number : {1U, 2044U, 917U, 2041U}) {
                      alert_control(number, ALERT_RULE_WARNING_TO_ERROR);
                      sayKind(number);
                  }
                  alert_raiseNumber(2044, "-x");
                  say(std::to_string(alert_anyErrors()));
              }),
              (Outcome{0, "1: kind 2, level 0\n2044: kind 3, level 0\n917: kind 3, level 0\n"
                          "2041: kind 1, level 0\n(2044) unrecognized option \"-x\"\n1\n"}));
}

TEST_F(AlertRule, Rule4HidesAnythingButAFatalError)
{
    EXPECT_EQ(run([] {
                  for (uint32_t number : {1U, 2044U, 917U, 2041U, 9998U}) {
                      alert_control(number, ALERT_RULE_HIDE_ALL);
                      sayKind(number);
                  }
                  alert_raiseNumber(2041, "-o");
              }),
              (Outcome{1, "1: kind 5, level 0\n2044: kind 5, level 0\n917: kind 5, level 0\n"
                          "2041: kind 1, level 0\n9998: kind 5, level 0\n"
                          "(2041) missing argument after \"-o\"\n"}));
}

TEST_F(AlertRule, Rule0TakesARuleBack)
{
    EXPECT_EQ(run([] {
                  alert_control(2044, ALERT_RULE_HIDE);
                  alert_control(2044, ALERT_RULE_NONE);
                  sayKind(2044);
              }),
              (Outcome{0, "2044: kind 4, level 0\n"}));
}

TEST_F(AlertRule, PushCopiesTheRulesAndPopBringsTheOldOnesBack)
{
    EXPECT_EQ(run([] {
                  alert_control(2044, ALERT_RULE_HIDE);
                  alert_control(0, ALERT_PUSH_RULES);
                  sayKind(2044);
                  alert_control(1428, ALERT_RULE_HIDE);
                  alert_control(2044, ALERT_RULE_NONE);
                  sayKind(2044);
                  sayKind(1428);
                  alert_control(0, ALERT_POP_RULES);
                  sayKind(2044);
                  sayKind(1428);
              }),
              (Outcome{0, "2044: kind 5, level 0\n2044: kind 4, level 0\n1428: kind 5, level 0\n"
                          "2044: kind 5, level 0\n1428: kind 4, level 0\n"}));
}

TEST_F(AlertRule, TheLastMapIsNeverPopped)
{
    EXPECT_EQ(run([] {
                  alert_control(0, ALERT_POP_RULES);
                  alert_control(2044, ALERT_RULE_HIDE);
                  alert_control(0, ALERT_POP_RULES);
                  sayKind(2044);
              }),
              (Outcome{0, "2044: kind 5, level 0\n"}));
}

TEST_F(AlertRule, ClearForgetsTheRulesOfTheTopMapOnly)
{
    EXPECT_EQ(
        run([] {
            alert_control(2044, ALERT_RULE_HIDE);
            alert_control(0, ALERT_PUSH_RULES);
            alert_control(0, ALERT_CLEAR_RULES);
            sayKind(2044);
            alert_control(3000, ALERT_RULE_HIDE); // a slot after those that were cleared
            sayKind(2044);
            alert_control(0, ALERT_POP_RULES);
            sayKind(2044);
        }),
        (Outcome{0, "2044: kind 4, level 0\n2044: kind 4, level 0\n2044: kind 5, level 0\n"}));
}

TEST_F(AlertRule, HideEveryLeavesErrorsAndFatalErrors)
{
    EXPECT_EQ(run([] {
                  alert_control(0, ALERT_HIDE_EVERY);
                  for (uint32_t number : {1U, 2044U, 917U, 2041U})
                      sayKind(number);
              }),
              (Outcome{0, "1: kind 5, level 0\n2044: kind 5, level 0\n917: kind 3, level 0\n"
                          "2041: kind 1, level 0\n"}));
}

TEST_F(AlertRule, NumbersAndOperationsOutOfRangeChangeNothing)
{
    EXPECT_EQ(run([] {
                  alert_control(0, ALERT_RULE_HIDE_ALL);
                  alert_control(10001, ALERT_RULE_HIDE_ALL);
                  alert_control(4294967295U, ALERT_RULE_HIDE_ALL);
                  alert_control(917, static_cast<AlertOperation>(9));
                  sayKind(917);
                  sayKind(10001);
              }),
              (Outcome{0, "917: kind 3, level 0\n10001: kind 3, level 0\n"}));
}

TEST_F(AlertRule, ADisableListHidesMessagesAndWithOffErrorsToo)
{
    EXPECT_EQ(
        run([] {
            alert_disableList("2044,917,1195:off,2041:off,1");
            for (uint32_t number : {1U, 2044U, 917U, 1195U, 2041U, 1428U})
                sayKind(number);
        }),
        (Outcome{0, "1: kind 5, level 0\n2044: kind 5, level 0\n917: kind 3, level 0\n"
                    "1195: kind 5, level 0\n2041: kind 1, level 0\n1428: kind 4, level 0\n"}));
}

TEST_F(AlertRule, ADisableListThatBeginsWith0HidesEveryMessageAndWarning)
{
    EXPECT_EQ(run([] {
                  alert_disableList("0");
                  for (uint32_t number : {1U, 2044U, 917U, 2041U})
                      sayKind(number);
              }),
              (Outcome{0, "1: kind 5, level 0\n2044: kind 5, level 0\n917: kind 3, level 0\n"
                          "2041: kind 1, level 0\n"}));
}

TEST_F(AlertRule, ItemsOfADisableListThatAreNoNumbersAreSkipped)
{
    EXPECT_EQ(run([] {
                  alert_disableList(
                      ",,x,917:of,917:offf,917:,-917,917 ,99999999999999999999:off,:off,");
                  alert_disableList("");
                  alert_disableList(nullptr);
                  sayKind(917);
                  alert_disableList("x,917:off");
                  sayKind(917);
              }),
              (Outcome{0, "917: kind 3, level 0\n917: kind 5, level 0\n"}));
}

// ---- With the trace on ------------------------------------------------------------------------

TEST_F(AlertRaise, TheTraceChangesNothingAndEveryEntryMeetsItsExit)
{
    const std::string log = pathOf("log");
    EXPECT_EQ(run([&] {
                  gDebugOut = std::fopen(log.c_str(), "w");
                  gDebugFlags = DEBUG_TRACE;
                  alert_reload();
                  switchOnFormats();
                  alert_disableList("1428,917:off");
                  errno = ENOENT;
                  alert_raiseNumber(141, "output", "a.o");
                  alert_raiseNumber(917);
                  alert_control(0, ALERT_HIDE_EVERY);
                  alert_raise(5, "0", "a warning");
                  gDebugFlags = 0;
                  std::fclose(gDebugOut);
                  gDebugOut = nullptr;
              }),
              (Outcome{0, "::: error: (141) could not open output file \"a.o\": No such file or "
                          "directory\n::: warning: (5) a warning\n"}));
    int entered = 0;
    int left = 0;
    std::ifstream lines(log);
    for (std::string line; std::getline(lines, line);) {
        entered +=
            line.find("> ENTER ") != std::string::npos || line.find(" ENTER ") != std::string::npos;
        left += line.find(" EXIT ") != std::string::npos;
    }
    EXPECT_GT(entered, 20);
    EXPECT_EQ(entered, left);
}

} // namespace
