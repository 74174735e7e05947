// Message files: their format, where they are searched for, and the effects of hostile ones.
#include "common/diagnostics/alert.h"

#include <csignal>
#include <cstring>
#include <set>
#include <sstream>
#include <vector>

#include <sys/resource.h>

#include "common/base/exitpath.h"
#include "common/diagnostics/alert_internal.h"
#include "common/install/qzinstdir.h"
#include "common/os/osdep_temp.h"
#include "common/trace/qzdebug.h"
#include "tests/common/diagnostics/alert_fixture.h"

namespace {

class AlertFile : public AlertTest {
  protected:
    // Loads a file with these bytes and describes the messages with these numbers.
    Outcome load(const std::string &bytes, const std::vector<uint32_t> &numbers) const
    {
        writeFile(scratch / "m", bytes);
        return run([&] {
            std::fprintf(stderr, "loaded %d\n", alert_loadFile("m"));
            for (uint32_t number : numbers) {
                AlertRecord *record = alert_lookup(number);
                std::fprintf(stderr, "%u %u %d [%s]\n", record->number, record->kind, record->level,
                             record->text);
                std::free(record);
            }
        });
    }
};
class AlertFileFormat : public AlertFile {};
class AlertFileSearch : public AlertFile {};

const char *const NO_DESCRIPTION =
    "[An error, warning or message was generated, but no description is available]\n";

std::string malformed(unsigned line)
{
    return "Malformed error information on line " + std::to_string(line) + ", in file m\n\n";
}

void sayText(uint32_t number)
{
    AlertRecord *record = alert_lookup(number);
    std::fprintf(stderr, "%s\n", record->text);
    std::free(record);
}

// ---- The format: docs/message-file.md, the constants of common/diagnostics/alert_internal.h
// ----------------

TEST_F(AlertFileFormat, TheBytesOfAFileMeanWhatItsPageSays)
{
    EXPECT_EQ(load("# comment\n"
                   "9990\tF\tfatal\n"
                   "9991 e  error\n"
                   "9992 \t M \t message \n"
                   "9993 -9 low\n"
                   "9994 0 0\r\n"
                   "9995 8 high\n"
                   "10000 f last",
                   {9990, 9991, 9992, 9993, 9994, 9995, 10000}),
              (Outcome{0, "loaded 1\n"
                          "9990 1 0 [fatal]\n9991 3 0 [error]\n9992 2 0 [message ]\n"
                          "9993 4 -9 [low]\n9994 4 0 [0]\n9995 4 8 [high]\n10000 1 0 [last]\n"}));
}

TEST_F(AlertFileFormat, TheConstantsAreThoseOfItsPage)
{
    EXPECT_EQ(ALERT_MAX_NUMBER, 10000U);
    EXPECT_EQ(ALERT_LINE_LENGTH, 255U);
    EXPECT_EQ(ALERT_MIN_LEVEL, -9);
    EXPECT_EQ(ALERT_MAX_LEVEL, 8);
    EXPECT_EQ(ALERT_MAX_MALFORMED, 10000U);
    EXPECT_STREQ(ALERT_FILE_NAME, "en_msgs.txt");
}

TEST_F(AlertFileFormat, ALaterLineReplacesAnEarlierOneOfTheSameNumber)
{
    EXPECT_EQ(load("9999 E first\n9999 2 second\n", {9999}),
              (Outcome{0, "loaded 1\n9999 4 2 [second]\n"}));
}

TEST_F(AlertFileFormat, NumbersNeedNoOrder)
{
    EXPECT_EQ(load("9999 E b\n9998 M a\n", {9998, 9999}),
              (Outcome{0, "loaded 1\n9998 2 0 [a]\n9999 3 0 [b]\n"}));
}

TEST_F(AlertFileFormat, ANumberAboveTheHighestIsReportedWithItsLine)
{
    EXPECT_EQ(
        load("# one\n9999 M hello\n10001 E x\n", {9999, 10001}),
        (Outcome{0, malformed(3) + "loaded 1\n9999 2 0 [hello]\n10001 3 0 " + NO_DESCRIPTION}));
}

TEST_F(AlertFileFormat, LinesWithoutAProperNumberAreMalformed)
{
    const std::vector<std::string> lines = {"",
                                            "   ",
                                            "\t",
                                            "x E text",
                                            "0 E text",
                                            "00 E text",
                                            "-5 E text",
                                            "+5 E text",
                                            "5x E text",
                                            "99999999999999999999 E text",
                                            "0x5 E text",
                                            "\r",
                                            "4294967297 E text",
                                            "5.0 E text"};
    std::string file;
    std::string expected;
    for (unsigned i = 0; i < lines.size(); ++i) {
        file += lines[i] + "\n";
        expected += malformed(i + 1);
    }
    EXPECT_EQ(load(file, {5}),
              (Outcome{0, expected + "loaded 1\n5 2 0 [run ended after %u errors and %u "
                                     "warnings]\n"}));
}

TEST_F(AlertFileFormat, LinesWithoutKindOrTextAreMalformedAndSkipped)
{
    EXPECT_EQ(load("9999\n9999 \n9999 E\n9999 E \t\r\n", {9999}),
              (Outcome{0, malformed(1) + malformed(2) + malformed(3) + malformed(4) +
                              "loaded 1\n9999 3 0 " + NO_DESCRIPTION}));
}

TEST_F(AlertFileFormat, AMalformedLineIsMessage3)
{
    writeFile(scratch / "m", "nonsense\n");
    EXPECT_EQ(run([] {
                  alert_setFormats(nullptr, nullptr, "<%n> %s");
                  alert_setFormatMode(1);
                  alert_loadFile("m");
              }),
              (Outcome{0, "<3> Malformed error information on line 1, in file m\n\n"}));
}

TEST_F(AlertFileFormat, AnUnknownKindIsReportedAndTheMessageKept)
{
    EXPECT_EQ(load("9991 X a\n9992 - b\n9993 9 c\n9994 -10 d\n9995 99999999999 e\n",
                   {9991, 9992, 9993, 9994, 9995}),
              (Outcome{0, malformed(1) + malformed(2) + malformed(3) + malformed(4) + malformed(5) +
                              "loaded 1\n9991 0 0 [a]\n9992 0 0 [b]\n9993 0 0 [c]\n"
                              "9994 0 0 [d]\n9995 0 0 [e]\n"}));
}

TEST_F(AlertFileFormat, TheFirstCharacterOfAKindDecides)
{
    EXPECT_EQ(load("9991 Fatal a\n9992 error b\n9993 3rd c\n", {9991, 9992, 9993}),
              (Outcome{0, "loaded 1\n9991 1 0 [a]\n9992 3 0 [b]\n9993 4 3 [c]\n"}));
}

TEST_F(AlertFileFormat, ANumberSignCountsOnlyAtTheStartOfALine)
{
    EXPECT_EQ(load("#9999 E a\n #\n9999 E # b\n", {9999}),
              (Outcome{0, malformed(2) + "loaded 1\n9999 3 0 [# b]\n"}));
}

TEST_F(AlertFileFormat, ALineIsCutAt255CharactersAndTheNextKeepsItsNumber)
{
    const std::string text(249, 'x'); // with "9999 M" and a blank: 256 characters
    EXPECT_EQ(load("9999 M " + text + "\n\n", {9999}),
              (Outcome{0, malformed(2) + "loaded 1\n9999 2 0 [" + text.substr(1) + "]\n"}));
    EXPECT_EQ(load("9999 M " + text + std::string(100000, 'y') + "9998 E z\n\n", {9999, 9998}),
              (Outcome{0, malformed(2) + "loaded 1\n9999 2 0 [" + text.substr(1) + "]\n9998 3 0 " +
                              NO_DESCRIPTION}));
    EXPECT_EQ(load("9999 M " + text.substr(1) + "\r\n", {9999}),
              (Outcome{0, "loaded 1\n9999 2 0 [" + text.substr(1) + "]\n"}));
}

TEST_F(AlertFileFormat, AZeroEndsItsLine)
{
    using namespace std::string_literals;
    EXPECT_EQ(load("9991 E a\0b\n99\0 E x\n9993 E\0 c\n9994 \0E c\n\0\n9995 E d"s,
                   {9991, 9993, 9994, 9995}),
              (Outcome{0, malformed(2) + malformed(3) + malformed(4) + malformed(5) +
                              "loaded 1\n9991 3 0 [a]\n9993 3 0 " + NO_DESCRIPTION + "9994 3 0 " +
                              NO_DESCRIPTION + "9995 3 0 [d]\n"}));
}

// ---- The catalogue under it -------------------------------------------------------------------

TEST_F(AlertFile, NumbersThatTheFileLacksAreTheBuiltInOnes)
{
    EXPECT_EQ(load("917 1 own text\n", {917, 2042}),
              (Outcome{0, "loaded 1\n917 4 1 [own text]\n2042 1 0 [no target device specified; "
                          "use the -mcpu option to specify a target device]\n"}));
}

TEST_F(AlertFile, TheBuiltInCatalogueIsEmbeddedByteForByteAndWellFormed)
{
    std::istringstream lines(std::string(alertBuiltinText, alertBuiltinTextSize));
    std::set<uint32_t> numbers;
    for (std::string line; std::getline(lines, line);) {
        EXPECT_LE(line.size(), ALERT_LINE_LENGTH) << line;
        if (line.empty() || line[0] != '#') {
            EXPECT_TRUE(numbers.insert(static_cast<uint32_t>(std::stoul(line))).second) << line;
        }
    }
    EXPECT_EQ(alertBuiltinText[alertBuiltinTextSize], '\0');
    EXPECT_TRUE(numbers.contains(1));
    EXPECT_TRUE(numbers.contains(2044));
    const Outcome outcome = run([&] {
        AlertTable *table = alert_tableLoad(nullptr);
        for (uint32_t number = 0; number <= ALERT_MAX_NUMBER; ++number) {
            AlertRecord record = {ALERT_UNSET, number, "", 0};
            const bool found = alert_tableFind(table, &record);
            if (found != numbers.contains(number) || (found && record.kind == ALERT_UNSET))
                std::fprintf(stderr, "%u\n", number);
            if (found && !alert_sameConversions(record.text, record.text))
                std::fprintf(stderr, "%u: %s\n", number, record.text);
        }
        alert_tableDestroy(table);
    });
    EXPECT_EQ(outcome, (Outcome{0, ""}));
}

TEST_F(AlertFile, ATranslatedFileChangesTextsButNotKinds)
{
    writeFile(scratch / "en", "9999 M hello\n9998 3 warning\n");
    writeFile(scratch / "de", "9999 F hallo\n9998 E Warnung\n917 F Argument zu lang\n9997 2 neu\n");
    EXPECT_EQ(run([] {
                  alert_loadFile("en");
                  alert_loadFile("de");
                  for (uint32_t number : {9999U, 9998U, 9997U, 917U, 2042U}) {
                      AlertRecord *record = alert_lookup(number);
                      std::fprintf(stderr, "%u %d [%s]\n", record->kind, record->level,
                                   record->text);
                      std::free(record);
                  }
                  alert_loadFile("en");
                  sayText(9999);
                  sayText(917);
                  sayText(9997);
              }),
              (Outcome{0, "2 0 [hallo]\n4 3 [Warnung]\n3 0 [neu]\n3 0 [Argument zu lang]\n"
                          "1 0 [no target device specified; use the -mcpu option to specify a "
                          "target device]\nhello\nargument too long\n"
                          "An error, warning or message was generated, but no description is "
                          "available\n"}));
}

TEST_F(AlertFile, LoadingTheSameNameAgainDoesNothing)
{
    writeFile(scratch / "m", "9999 M one\n");
    EXPECT_EQ(run([&] {
                  std::fprintf(stderr, "%d\n", alert_loadFile("m"));
                  std::ofstream("m") << "9999 M two\n";
                  std::fprintf(stderr, "%d\n", alert_loadFile("m"));
                  sayText(9999);
              }),
              (Outcome{0, "1\n1\none\n"}));
}

TEST_F(AlertFile, AFileThatCannotBeReadLeavesTheTablesAsTheyWere)
{
    writeFile(scratch / "m", "9999 M one\n");
    std::filesystem::create_directory(scratch / "directory");
    EXPECT_EQ(run([&] {
                  alert_loadFile("m");
                  std::fprintf(stderr, "%d\n", alert_loadFile("missing"));
                  std::fprintf(stderr, "%d\n", alert_loadFile("directory"));
                  std::fprintf(stderr, "%d\n", alert_loadFile(""));
                  std::fprintf(stderr, "%d\n", alert_loadFile(nullptr));
                  sayText(9999);
              }),
              (Outcome{0, "0\n0\n0\n0\none\n"}));
}

// ---- Conversions ------------------------------------------------------------------------------

TEST_F(AlertFile, ATextWithOtherConversionsThanTheBuiltInOneIsNotUsed)
{
    // 1502 is built in with "%s", "%s" and "%u"; 141 with two "%s" and "%m".
    const std::string builtin = "1502 3 0 [assertion \"%s\" failed in %s, line %u]\n";
    for (const char *text :
         {"none", "%s %s", "%s %s %u %u", "%s %u %s", "%s %s %d", "%s %s %lu", "%s %s %5u",
          "%s %s %n", "%*s %s %u", "%.*s %s %u", "%1$s %2$s %3$u", "%s %s %u %n", "%s %s %u %",
          "%s %s %u %l", "%hhn%s %s %u", "%s %s %U", "%99999999s %s %u", "%s %s %5m"}) {
        EXPECT_EQ(load("1502 E " + std::string(text) + "\n", {1502}),
                  (Outcome{0, "loaded 1\n" + builtin}))
            << text;
    }
    for (const char *text : {"%s%s%u", "100%% %s, %m %s %u%%n", "%s %s %u %m"}) {
        EXPECT_EQ(load("1502 E " + std::string(text) + "\n", {1502}),
                  (Outcome{0, "loaded 1\n1502 3 0 [" + std::string(text) + "]\n"}))
            << text;
    }
    EXPECT_EQ(load("141 E %m: %s, %s\n917 E %s\n", {141, 917}),
              (Outcome{0, "loaded 1\n141 3 0 [%m: %s, %s]\n917 3 0 [argument too long]\n"}));
}

TEST_F(AlertFile, ATextThatIsOnlyTheFilesMayTakeNoValue)
{
    EXPECT_EQ(
        load("9991 M %s\n9992 M %n\n9993 M 100%\n9994 M 100%% %m\n", {9991, 9992, 9993, 9994}),
        (Outcome{0, "loaded 1\n9991 2 0 " + std::string(NO_DESCRIPTION) + "9992 2 0 " +
                        NO_DESCRIPTION + "9993 2 0 " + NO_DESCRIPTION + "9994 2 0 [100%% %m]\n"}));
}

TEST_F(AlertFile, ARefusedTextInATranslationGivesTheBuiltInOne)
{
    writeFile(scratch / "en", "2044 0 known: %s\n");
    writeFile(scratch / "xx", "2044 0 %s%s%s%n\n");
    EXPECT_EQ(run([] {
                  alert_loadFile("en");
                  alert_loadFile("xx");
                  alert_raiseNumber(2044, "-x");
              }),
              (Outcome{0, "(2044) unrecognized option \"-x\" (warning)\n"}));
}

// ---- Hostile files ----------------------------------------------------------------------------

TEST_F(AlertFile, AnEmptyFileGivesTheBuiltInTexts)
{
    EXPECT_EQ(load("", {917}), (Outcome{0, "loaded 1\n917 3 0 [argument too long]\n"}));
}

TEST_F(AlertFile, ABinaryFileIsReportedLineByLineAndGivesTheBuiltInTexts)
{
    std::string bytes;
    for (unsigned i = 0; i < 70000; ++i)
        bytes += static_cast<char>((i * 2654435761U) >> 24);
    const Outcome outcome = load("\x7f"
                                 "ELF" +
                                     bytes,
                                 {917});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.text.substr(0, malformed(1).size()), malformed(1));
    EXPECT_NE(outcome.text.find("loaded 1\n917 3 0 [argument too long]\n"), std::string::npos);
}

TEST_F(AlertFile, AFileOfTooManyMalformedLinesIsNotReadOn)
{
    const Outcome outcome = load(std::string(300000, '\n') + "9999 E x\n", {9999});
    std::string expected;
    for (unsigned line = 1; line <= ALERT_MAX_MALFORMED; ++line)
        expected += malformed(line);
    EXPECT_EQ(outcome, (Outcome{0, expected + "loaded 1\n9999 3 0 " + NO_DESCRIPTION}));
}

#ifdef __has_feature // clang
#if __has_feature(address_sanitizer)
#define __SANITIZE_ADDRESS__
#endif
#endif
#ifdef __SANITIZE_ADDRESS__
const long MEMORY_LIMIT = 400 * 1024; // KiB; the sanitizer keeps freed memory for a while
#else
const long MEMORY_LIMIT = 32 * 1024;
#endif

TEST_F(AlertFile, AHugeFileIsReadToItsEndInLittleMemory)
{
    {
        std::ofstream file(scratch / "m", std::ios::binary);
        const std::string line = "9999 E " + std::string(240, 'x') + "\n";
        std::string block;
        for (int i = 0; i < 4000; ++i)
            block += line;
        for (int i = 0; i < 100; ++i)
            file << block;
        file << std::string(2000000, 'y') << "\n9998 M end";
    }
    EXPECT_EQ(run([] {
                  alert_loadFile("m");
                  AlertRecord *record = alert_lookup(9998);
                  std::fprintf(stderr, "[%s]\n", record->text);
                  std::free(record);
                  struct rusage usage;
                  getrusage(RUSAGE_SELF, &usage);
                  if (usage.ru_maxrss > MEMORY_LIMIT)
                      std::fprintf(stderr, "%ld KiB\n", usage.ru_maxrss);
              }),
              (Outcome{0, malformed(400001) + "[end]\n"}));
}

TEST_F(AlertFile, AFileReadInPartsIsTheSameAsOneReadInOneGo)
{
    std::string bytes;
    for (unsigned number = 9000; number <= 9999; ++number) {
        bytes += std::to_string(number) + (number % 2 ? " M " : " -3 ") +
                 std::string(number % 251, 'a') + "\r\n# " + std::string(number % 700, 'c') + "\n";
    }
    writeFile(scratch / "m", bytes);
    EXPECT_EQ(run([&] {
                  FILE *stream = std::fopen("m", "rb");
                  AlertTable *parts = alert_tableRead(stream, "m", ALERT_MIN_READ_SIZE);
                  std::fclose(stream);
                  AlertTable *whole = alert_tableLoad("m");
                  for (uint32_t number = 1; number <= ALERT_MAX_NUMBER; ++number) {
                      AlertRecord a = {ALERT_UNSET, number, "", 0};
                      AlertRecord b = a;
                      if (alert_tableFind(parts, &a) != alert_tableFind(whole, &b) ||
                          std::strcmp(a.text, b.text) != 0 || a.kind != b.kind ||
                          a.level != b.level)
                          std::fprintf(stderr, "%u: %s, %s\n", number, a.text, b.text);
                  }
                  alert_tableDestroy(parts);
                  alert_tableDestroy(whole);
              }).status,
              0);
}

// ---- Where it is searched ---------------------------------------------------------------------

TEST_F(AlertFileSearch, TheInstallationsDataDirectoryComesFirst)
{
    writeFile(scratch / "s/v1/orb/dat/en_msgs.txt", "9999 M installation\n");
    writeFile(scratch / "en_msgs.txt", "9999 M current directory\n");
    EXPECT_EQ(run([&] {
                  qzinstdir_set(pathOf("s/v1").c_str());
                  sayText(9999);
              }),
              (Outcome{0, "installation\n"}));
}

// Set for the copy of this program that has a message file beside it.
const char *const BESIDE = "ALERT_TEST_BESIDE";

TEST_F(AlertFileSearch, ThenTheDirectoryBesideTheProgram)
{
    // An executable outside a "bin" directory has no installation.
    writeFile(scratch / "x/dat/en_msgs.txt", "9999 M beside the program\n");
    std::filesystem::create_directory(scratch / "x/prog");
    std::filesystem::copy_file("/proc/self/exe", scratch / "x/prog/alert");
    EXPECT_EQ(run([&] {
                  setenv(BESIDE, "1", 1);
                  if (std::freopen("stdout", "w", stdout) != nullptr)
                      execl(pathOf("x/prog/alert").c_str(), "alert",
                            "--gtest_filter=AlertFileSearch.ThenTheCurrentDirectory",
                            static_cast<char *>(nullptr));
                  _exit(98);
              }),
              (Outcome{0, ""}))
        << readFile(scratch / "stdout");
}

TEST_F(AlertFileSearch, ThenTheCurrentDirectory)
{
    writeFile(scratch / "en_msgs.txt", "9999 M current directory\n");
    const char *expected =
        std::getenv(BESIDE) != nullptr ? "beside the program\n" : "current directory\n";
    EXPECT_EQ(run([] { sayText(9999); }), (Outcome{0, expected}));
}

TEST_F(AlertFileSearch, ThenTheBuiltInCatalogue)
{
    EXPECT_EQ(run([] {
                  alert_reload();
                  sayText(917);
              }),
              (Outcome{0, "argument too long\n"}));
}

TEST_F(AlertFileSearch, AFileThatCannotBeReadGivesNoDescriptionsUntilTheReload)
{
    std::filesystem::create_directory(scratch / "en_msgs.txt");
    EXPECT_EQ(run([] {
                  sayText(917);
                  alert_reload();
              }),
              (Outcome{1, "An error, warning or message was generated, but no description is "
                          "available\nCould not open message file en_msgs.txt\n\n"}));
}

TEST_F(AlertFileSearch, AFileWithoutReadPermissionEndsTheReload)
{
    writeFile(scratch / "en_msgs.txt", "9999 M secret\n");
    std::filesystem::permissions(scratch, std::filesystem::perms(0755));
    std::filesystem::permissions(scratch / "en_msgs.txt", std::filesystem::perms::none);
    EXPECT_EQ(run([] {
                  // A process that has changed its user cannot be checked for leaks, so it leaves
                  // at once.
                  exitpath_setRoutine([](int status) { _exit(status); });
                  if (geteuid() == 0 && seteuid(65534) != 0)
                      _exit(97);
                  alert_reload();
              }),
              (Outcome{1, "Could not open message file en_msgs.txt\n\n"}));
}

TEST_F(AlertFileSearch, AReloadLoadsTheFileThatIsThereNow)
{
    EXPECT_EQ(run([] {
                  sayText(917);
                  std::ofstream("en_msgs.txt") << "917 M changed\n";
                  alert_reload();
                  sayText(917);
                  std::filesystem::remove("en_msgs.txt");
                  alert_reload();
                  sayText(917);
              }),
              (Outcome{0, "argument too long\nchanged\nargument too long\n"}));
}

TEST_F(AlertFileSearch, AReloadThatCannotReadTheFileEndsTheRun)
{
    EXPECT_EQ(run([] {
                  sayText(917);
                  std::filesystem::create_directory("en_msgs.txt");
                  alert_reload();
                  sayText(917);
              }),
              (Outcome{1, "argument too long\nCould not open message file en_msgs.txt\n\n"}));
}

TEST_F(AlertFileSearch, AMalformedLineOfTheFirstLoadIsShownWhileItRuns)
{
    writeFile(scratch / "en_msgs.txt", "bad line\n2044 0 unknown \"%s\"\n");
    EXPECT_EQ(run([] { alert_raiseNumber(2044, "-x"); }),
              (Outcome{0, "Malformed error information on line 1, in file en_msgs.txt\n\n"
                          "(2044) unknown \"-x\" (warning)\n"}));
}

TEST_F(AlertFileSearch, NothingIsLoadedForAMessageWithItsOwnText)
{
    writeFile(scratch / "en_msgs.txt", "bad line\n");
    EXPECT_EQ(run([] {
                  alert_setThreshold(0);
                  alert_setFormats(nullptr, nullptr, nullptr);
                  alert_disableList("5");
                  alert_raise(5, "M", "text");
                  alert_print("plain");
              }),
              (Outcome{0, "text\nplain\n"}));
}

// ---- The built-in catalogue's temporary file ---------------------------------------------------

std::set<std::string> temporaryFiles()
{
    std::set<std::string> names;
    for (const auto &entry : std::filesystem::directory_iterator("/tmp")) {
        if (entry.path().filename().string().rfind("qz", 0) == 0)
            names.insert(entry.path());
    }
    return names;
}

TEST_F(AlertFile, TheBuiltInCatalogueIsWrittenToOneTemporaryFileThatIsRemoved)
{
    writeFile(scratch / "m", "9999 M one\n");
    const std::string names = pathOf("names");
    EXPECT_EQ(run([&] {
                  const std::set<std::string> before = temporaryFiles();
                  sayText(917);
                  alert_loadFile("m");
                  alert_reload();
                  std::ofstream out(names);
                  for (const std::string &name : temporaryFiles()) {
                      if (!before.contains(name) && readFile(name) == alertBuiltinText)
                          out << name << "\n";
                  }
              }),
              (Outcome{0, "argument too long\n"}));
    std::istringstream written(readFile(names));
    std::string name;
    EXPECT_TRUE(std::getline(written, name));
    EXPECT_FALSE(std::filesystem::exists(name)) << name;
}

TEST_F(AlertFile, AnInstalledCopyOfTheCatalogueNeedsNoTemporaryFile)
{
    writeFile(scratch / "en_msgs.txt", std::string(alertBuiltinText, alertBuiltinTextSize));
    EXPECT_EQ(run([] {
                  const std::set<std::string> before = temporaryFiles();
                  alert_reload();
                  sayText(917);
                  sayText(9999);
                  alert_raiseNumber(2044, "-x");
                  for (const std::string &name : temporaryFiles()) {
                      if (!before.contains(name) && readFile(name) == alertBuiltinText)
                          std::fprintf(stderr, "%s\n", name.c_str());
                  }
              }),
              (Outcome{0, "argument too long\n"
                          "An error, warning or message was generated, but no description is "
                          "available\n(2044) unrecognized option \"-x\" (warning)\n"}));
}

TEST_F(AlertFile, NothingIsWrittenBeforeANumberIsAskedFor)
{
    EXPECT_EQ(run([] {
                  struct rlimit limit;
                  getrlimit(RLIMIT_FSIZE, &limit);
                  const struct rlimit none = {0, limit.rlim_max};
                  setrlimit(RLIMIT_FSIZE, &none); // a write would cause a signal
                  alert_reload();
                  setrlimit(RLIMIT_FSIZE, &limit);
                  sayText(917);
              }),
              (Outcome{0, "argument too long\n"}));
}

TEST_F(AlertFile, ATemporaryFileThatWasChangedIsNotBelieved)
{
    writeFile(scratch / "m", "9999 M one\n");
    EXPECT_EQ(run([] {
                  const std::set<std::string> before = temporaryFiles();
                  sayText(917);
                  for (const std::string &name : temporaryFiles()) {
                      if (!before.contains(name) && readFile(name) == alertBuiltinText) {
                          std::string changed = alertBuiltinText;
                          changed.replace(changed.find("too long"), 8, "%n%n%n%n");
                          writeFile(name, changed);
                      }
                  }
                  alert_loadFile("m");
                  sayText(917);
              }),
              (Outcome{0, "argument too long\nargument too long\n"}));
}

TEST_F(AlertFile, WithoutASpareDescriptorForItTheCatalogueIsTakenFromTheProgram)
{
    EXPECT_EQ(run([] {
                  struct rlimit limit;
                  getrlimit(RLIMIT_NOFILE, &limit);
                  const struct rlimit none = {3, limit.rlim_max};
                  setrlimit(RLIMIT_NOFILE, &none);
                  alert_raiseNumber(917);
                  setrlimit(RLIMIT_NOFILE, &limit);
              }),
              (Outcome{0, "(917) argument too long\n"}));
}

TEST_F(AlertFile, OnAFullDiskTheCatalogueIsTakenFromTheProgramAndNothingIsLeft)
{
    const std::string names = pathOf("names");
    EXPECT_EQ(run([&] {
                  const std::set<std::string> before = temporaryFiles();
                  signal(SIGXFSZ, SIG_IGN);
                  const struct rlimit small = {4096, 4096};
                  setrlimit(RLIMIT_FSIZE, &small);
                  alert_raiseNumber(917);
                  std::ofstream out(names);
                  for (const std::string &name : temporaryFiles()) {
                      std::error_code gone; // perhaps of another program
                      if (!before.contains(name) && std::filesystem::file_size(name, gone) == 4096)
                          out << name << "\n";
                  }
              }),
              (Outcome{0, "(917) argument too long\n"}));
    EXPECT_EQ(readFile(names), "");
}

// The path of the file that could not be written is not used again: neither the file nor the text
// of the path exists any more. The trace shows what remains of it.
TEST_F(AlertFile, OnAFullDiskTheTemporaryFileIsForgotten)
{
    EXPECT_EQ(run([] {
                  std::signal(SIGXFSZ, SIG_IGN);
                  struct rlimit limit;
                  getrlimit(RLIMIT_FSIZE, &limit);
                  const struct rlimit small = {100, limit.rlim_max};
                  setrlimit(RLIMIT_FSIZE, &small);
                  char *text = nullptr;
                  size_t size = 0;
                  gDebugOut = open_memstream(&text, &size);
                  gDebugFlags = DEBUG_TRACE;
                  std::free(alert_lookup(917));
                  gDebugFlags = 0;
                  std::fclose(gDebugOut);
                  gDebugOut = nullptr;
                  setrlimit(RLIMIT_FSIZE, &limit);
                  std::string answers;
                  std::istringstream lines(text);
                  for (std::string line; std::getline(lines, line);) {
                      const size_t exit = line.find("EXIT builtinPath()");
                      if (exit != std::string::npos)
                          answers += line.substr(exit) + "\n";
                  }
                  std::free(text);
                  std::fputs(answers.c_str(), stderr);
              }),
              (Outcome{0, "EXIT builtinPath() -> \"(null)\"\n"}));
}

TEST_F(AlertFile, ATemporaryFileThatDisappearsIsNotMissed)
{
    writeFile(scratch / "m", "9999 M one\n");
    EXPECT_EQ(run([] {
                  sayText(917);
                  osdep_removeTempFiles();
                  alert_loadFile("m");
                  sayText(917);
                  sayText(9999);
              }),
              (Outcome{0, "argument too long\nargument too long\none\n"}));
}

} // namespace
