// Message files: any bytes give a table whose every text is safe to format, and reading in parts
// gives the same table and the same reports as reading in one go.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "common/alert_internal.h"

static std::string s_reports;

static void require(bool condition)
{
    if (!condition)
        std::abort();
}

static AlertTable *readAll(const uint8_t *data, size_t size, uint32_t readSize)
{
    s_reports.clear();
    FILE *stream = size != 0 ? fmemopen(const_cast<uint8_t *>(data), size, "rb") : std::tmpfile();
    require(stream != nullptr);
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

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static AlertTable *builtin = alert_tableLoad(nullptr);
    alert_setOutputHook([](const char *text) { s_reports += text; });
    AlertTable *whole = readAll(data, size, ALERT_READ_SIZE);
    const std::string reports = s_reports;
    AlertTable *parts = readAll(data, size, ALERT_MIN_READ_SIZE);
    require(reports == s_reports);
    for (uint32_t number = 0; number <= ALERT_MAX_NUMBER; ++number)
        checkNumber(whole, parts, builtin, number);
    alert_tableDestroy(whole);
    alert_tableDestroy(parts);
    return 0;
}
