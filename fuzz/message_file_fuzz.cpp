// Message files. Any bytes give a table whose every text is safe to format, and reading in parts
// gives the same table and the same reports as reading at once.
#include <cstring>
#include <set>

#include "common/diagnostics/alert_internal.h"
#include "fuzz/support.h"

// Replaces the built-in catalogue, which would take ten times as long to parse as the input. It has
// every kind, and the conversions that texts have.
const char alertBuiltinText[] = "# A small catalogue\n"
                                "1\tM\ttoo many errors (%u)\n"
                                "2 M error/warning (%u) generated but no description available\n"
                                "3 M malformed error information on line * in file *\n"
                                "10 E plain\n"
                                "11 E one \"%s\"\n"
                                "12 -3 \"%s\", %d, %lu and %%: %m\n"
                                "13 F %5.2f %-8s 0x%08lX %c\n"
                                "10000 8 the last\n";
const size_t alertBuiltinTextSize = sizeof alertBuiltinText - 1;

static std::string s_reports;

static AlertTable *readAll(const uint8_t *data, size_t size, uint32_t readSize)
{
    s_reports.clear();
    const std::string bytes(reinterpret_cast<const char *>(data), size);
    FILE *stream = memoryFile(bytes);
    AlertTable *table = alert_tableRead(stream, "fuzzed", readSize);
    std::fclose(stream);
    require(table != nullptr);
    return table;
}

static AlertRecord find(AlertTable *table, uint32_t number)
{
    AlertRecord record = {ALERT_UNSET, number, ALERT_NO_DESCRIPTION, 0};
    alert_tableFind(table, &record);
    return record;
}

static void checkNumber(AlertTable *whole, AlertTable *parts, AlertTable *builtin, uint32_t number)
{
    const AlertRecord a = find(whole, number);
    const AlertRecord b = find(parts, number);
    require(a.kind == b.kind && a.level == b.level && std::strcmp(a.text, b.text) == 0);
    require(a.kind <= ALERT_WARNING && a.level >= ALERT_MIN_LEVEL && a.level <= ALERT_MAX_LEVEL);
    require(a.text[0] != '\0' && std::strlen(a.text) <= ALERT_LINE_LENGTH);
    const char *own = find(builtin, number).text;
    const char *reference = own == ALERT_NO_DESCRIPTION ? "" : own;
    require(std::strcmp(a.text, own) == 0 || alert_sameConversions(a.text, reference));
}

// The numbers that begin lines of a file, and the numbers next to them.
static void addNumbers(const std::string &text, std::set<uint32_t> *numbers)
{
    for (const std::string &line : splitFields(text, "\n", text.size() + 1)) {
        const unsigned long number = std::strtoul(line.c_str(), nullptr, 10);
        for (const unsigned long near : {number - 1, number, number + 1})
            if (near <= ALERT_MAX_NUMBER + 1)
                numbers->insert(static_cast<uint32_t>(near));
    }
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static AlertTable *builtin = alert_tableLoad(nullptr);
    alert_setOutputHook([](const char *text) { s_reports += text; });
    // More than the input: it is read at once.
    AlertTable *whole = readAll(data, size, static_cast<uint32_t>(size) + ALERT_MIN_READ_SIZE);
    const std::string reports = s_reports;
    AlertTable *parts = readAll(data, size, ALERT_MIN_READ_SIZE);
    require(reports == s_reports);
    std::set<uint32_t> numbers;
    addNumbers(alertBuiltinText, &numbers);
    addNumbers(std::string(reinterpret_cast<const char *>(data), size), &numbers);
    for (const uint32_t number : numbers)
        checkNumber(whole, parts, builtin, number);
    alert_tableDestroy(whole);
    alert_tableDestroy(parts);
    return 0;
}
