// The formats of the environment, made of any bytes. The result is the format with its placeholders
// expanded, cut where it gets too long; this is stated a second time here.
//
// The first four bytes are the message's kind, the function that raises it, the system error and
// the column. Then follow, each up to a zero byte: the formats of errors, warnings and messages (a
// missing one is not in the environment), the text, the file name.
#include <cerrno>
#include <cstring>

#include "common/diagnostics/alert_internal.h"
#include "fuzz/support.h"

enum : size_t { HEADER = 4, FORMATS = 3, FIELDS = 5 };
enum : uint8_t { FORMAT_MODE = 1, NO_LINE = 2, LINE_KNOWN = 4, COLUMN_KNOWN = 8, WITH_ERROR = 16 };

static const char *const VARIABLES[FORMATS] = {"NVC_ERR_FORMAT", "NVC_WARN_FORMAT",
                                               "NVC_MSG_FORMAT"};
static const char *const CHOSEN[FORMATS] = {
    "%f:%l:%c: error: (%n) %s", "%f:%l:%c: warning: (%n) %s", "%f:%l:%c: advisory: (%n) %s"};

static std::string s_environment[FORMATS]; // what it holds, "NAME=FORMAT"
static std::string s_shown;

struct Input {
    unsigned format; // AlertFormat
    uint8_t flags;
    int systemError;
    uint32_t line;
    uint32_t column;
    std::vector<std::string> fields; // up to FIELDS
};

static bool parse(const uint8_t *data, size_t size, Input *in)
{
    if (size < HEADER)
        return false;
    const std::string rest(reinterpret_cast<const char *>(data) + HEADER, size - HEADER);
    *in = {data[0] % unsigned{FORMATS}, data[1], data[2],
           data[0] * 16777216U,         data[3], splitFields(rest, std::string(1, '\0'), FIELDS)};
    for (std::string &field : in->fields)
        field = field.c_str();
    return true;
}

static std::string fieldOf(const Input &in, size_t index)
{
    return index < in.fields.size() ? in.fields[index] : std::string();
}

static bool isGiven(const Input &in, size_t format)
{
    return format < in.fields.size();
}

static void setEnvironment(const Input &in)
{
    for (size_t i = 0; i < FORMATS; ++i) {
        require(unsetenv(VARIABLES[i]) == 0); // before the text that it points to is freed
        s_environment[i] = std::string(VARIABLES[i]) + "=" + fieldOf(in, i);
        require(!isGiven(in, i) || putenv(s_environment[i].data()) == 0);
    }
}

static bool has(const Input &in, uint8_t flag)
{
    return (in.flags & flag) != 0;
}

// The message's own text, which has a limit of its own.
static std::string ownText(const Input &in)
{
    std::string text;
    if (!has(in, FORMAT_MODE) && in.format != ALERT_FORMAT_MESSAGE)
        text = "(4711) ";
    text += fieldOf(in, FORMATS);
    if (has(in, WITH_ERROR) && in.systemError != 0)
        text += std::strerror(in.systemError);
    return text.substr(0, ALERT_TEXT_LENGTH);
}

static std::string fileName(const Input &in)
{
    return has(in, NO_LINE) ? "Non line specific message" : fieldOf(in, FORMATS + 1);
}

static std::string lineNumber(const Input &in)
{
    return has(in, LINE_KNOWN) && !has(in, NO_LINE) ? std::to_string(in.line) : std::string();
}

static std::string placeholder(const Input &in, char letter)
{
    switch (letter) {
    case 'f':
        return fileName(in);
    case 'l':
        return lineNumber(in);
    case 'c':
        return has(in, COLUMN_KNOWN) ? std::to_string(in.column) : std::string();
    case 'n':
        return "4711";
    case 's':
        return ownText(in);
    case 'a':
        return "qzm-cc";
    case 'm':
        return in.systemError != 0 ? std::strerror(in.systemError) : "";
    default:
        return std::string(1, letter);
    }
}

static std::string userForm(const Input &in)
{
    const std::string format =
        isGiven(in, in.format) ? fieldOf(in, in.format) : std::string(CHOSEN[in.format]);
    std::string text;
    for (size_t i = 0; i < format.size(); ++i) {
        if (format[i] != '%')
            text += format[i];
        else if (++i < format.size())
            text += placeholder(in, format[i]);
    }
    return text;
}

static std::string fixedForm(const Input &in)
{
    std::string text;
    if (!fieldOf(in, FORMATS + 1).empty())
        text = fileName(in) + ": ";
    if (!lineNumber(in).empty())
        text += lineNumber(in) + ": ";
    return text + ownText(in) + (in.format == ALERT_FORMAT_WARNING ? " (warning)" : "");
}

static void raise(const Input &in)
{
    static const char *const kinds[FORMATS] = {"E", "3", "M"};
    static const char line[256] = "";
    const char *const start = line;
    const char *const current = line + in.column;
    const bool column = has(in, COLUMN_KNOWN);
    const std::string text = fieldOf(in, FORMATS);
    const std::string file = fieldOf(in, FORMATS + 1);
    noting([&] {
        alert_setFormats(CHOSEN[0], CHOSEN[1], CHOSEN[2]);
        alert_setPosition(file.c_str(), has(in, LINE_KNOWN) ? &in.line : nullptr,
                          column ? &start : nullptr, column ? &current : nullptr);
    });
    alert_setFormatMode(has(in, FORMAT_MODE));
    auto *raiseIt = has(in, NO_LINE) ? alert_raiseNoLine : alert_raise;
    errno = in.systemError;
    const int shown = has(in, WITH_ERROR) ? raiseIt(4711, kinds[in.format], "%s%m", text.c_str())
                                          : raiseIt(4711, kinds[in.format], "%s", text.c_str());
    require(shown == 1 && errno == in.systemError);
}

// Clears pointers that would otherwise point into freed strings.
static void forget()
{
    for (const char *&format : gAlertSettings.formats)
        format = nullptr;
    alert_setPosition(nullptr, nullptr, nullptr, nullptr);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Input in;
    if (!parse(data, size, &in))
        return 0;
    alert_setErrorLimit(UINT32_MAX);
    alert_setOutputHook([](const char *text) { s_shown = text; });
    setEnvironment(in);
    raise(in);
    forget();
    freeNoted();
    const std::string expected = has(in, FORMAT_MODE) ? userForm(in) : fixedForm(in);
    require(s_shown == expected.substr(0, ALERT_OUTPUT_LENGTH - 1) + "\n");
    return 0;
}
