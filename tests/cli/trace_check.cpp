#include "tests/cli/trace_check.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <vector>

#include <gtest/gtest.h>

namespace fs = std::filesystem;

using Lines = std::vector<std::string>;

// ---- The sources ------------------------------------------------------------------------------

static Lines linesOf(std::istream &stream)
{
    Lines lines;
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

static bool has(const Lines &source, size_t first, size_t last, const std::string &text)
{
    for (size_t i = first; i <= last && i < source.size(); i++)
        if (source[i].find(text) != std::string::npos)
            return true;
    return false;
}

struct Source {
    Lines lines;
    bool changed; // since its program was built, so its lines cannot be checked
};

// By the names in their locations. No two sources that trace have the same name.
static std::map<std::string, Source> readSources()
{
    std::map<std::string, Source> sources;
    for (const std::string folder : {"common", "driver", "sample", "selftests"}) {
        const auto built = fs::last_write_time(folder == "sample" ? QZM_SAMPLE_QZM : QZM_CC);
        for (const auto &entry : fs::recursive_directory_iterator(fs::path(QZM_SOURCES) / folder)) {
            if (entry.path().extension() != ".cpp")
                continue;
            std::ifstream file(entry.path());
            Lines lines = linesOf(file);
            if (!has(lines, 0, lines.size(), "TRACE"))
                continue;
            const Source source = {std::move(lines), entry.last_write_time() > built};
            const bool added = sources.emplace(entry.path().stem(), source).second;
            EXPECT_TRUE(added) << entry.path();
        }
    }
    return sources;
}

// ---- A line of a trace ------------------------------------------------------------------------

enum class Kind { Enter, Exit, Other };

struct TraceLine {
    std::string source;
    size_t number = 0; // of the line in the source
    size_t indent = 0;
    Kind kind = Kind::Other;
    std::string function; // of an entry and an exit
};

// False for lines that do not begin with a location: headers, reports, further lines of a value.
static bool parse(const std::string &text, TraceLine &line)
{
    const size_t end = text.find("> ");
    const size_t colon = text.find(':');
    if (end == std::string::npos || end < 20 || colon >= end)
        return false;
    const size_t digits = text.find_first_not_of("0123456789", colon + 1);
    if (digits == colon + 1 || text.find_first_not_of(' ', digits) != end)
        return false;
    line.source = text.substr(0, colon);
    line.number = std::stoul(text.substr(colon + 1));
    const size_t begin = std::min(text.find_first_not_of(' ', end + 2), text.size());
    line.indent = begin - end - 2;
    for (const auto &[kind, word] : {std::pair{Kind::Enter, "ENTER "}, {Kind::Exit, "EXIT "}}) {
        const size_t name = begin + std::string(word).size();
        if (text.compare(begin, name - begin, word) != 0)
            continue;
        line.kind = kind;
        line.function = text.substr(name, text.find('(', name) - name);
    }
    return true;
}

// A macro over several lines counts as one of them.
static bool isWritten(const Lines &source, const TraceLine &line)
{
    if (line.number == 0 || line.number > source.size())
        return false;
    const size_t first = line.number < 4 ? 0 : line.number - 4;
    const size_t last = line.number + 2;
    if (line.kind == Kind::Enter)
        return has(source, first, last, "TRACE_ENTER(") &&
               has(source, line.number < 14 ? 0 : line.number - 14, line.number, line.function);
    if (line.kind == Kind::Exit)
        return has(source, first, last, "TRACE_RETURN(") ||
               has(source, first, last, "TRACE_ENTER(");
    return true;
}

static bool isLocated(const TraceLine &line)
{
    static const auto sources = readSources();
    const auto found = sources.find(line.source);
    return found != sources.end() &&
           (found->second.changed || isWritten(found->second.lines, line));
}

// ---- The whole --------------------------------------------------------------------------------

// The functions entered and not left, outermost first. An empty name is the header of a program,
// whose own trace begins at the left margin again.
struct Checker {
    std::vector<std::string> open;
    std::ostringstream faults;

    size_t indent() const
    {
        size_t depth = 0;
        for (const std::string &name : open)
            depth = name.empty() ? 0 : depth + 1;
        return depth * 4;
    }
};

static void leave(Checker &checker, const TraceLine &line, const std::string &text)
{
    while (!checker.open.empty() && checker.open.back().empty())
        checker.open.pop_back();
    if (checker.open.empty() || checker.open.back() != line.function)
        checker.faults << "not what was entered last: " << text << "\n";
    else
        checker.open.pop_back();
}

static void take(Checker &checker, const TraceLine &line, const std::string &text)
{
    if (line.kind == Kind::Exit)
        leave(checker, line, text);
    // Free text may begin with blanks of its own.
    const size_t indent = checker.indent();
    if (line.kind == Kind::Other ? line.indent < indent : line.indent != indent)
        checker.faults << "not indented by " << indent << ": " << text << "\n";
    if (!isLocated(line))
        checker.faults << "not at such a place: " << text << "\n";
    if (line.kind == Kind::Enter)
        checker.open.push_back(line.function);
}

std::string trace_faults(const std::string &trace, bool endsEarly)
{
    Checker checker;
    std::istringstream stream(trace);
    for (const std::string &text : linesOf(stream)) {
        TraceLine line;
        if (text.rfind("APP: ", 0) == 0)
            checker.open.emplace_back();
        else if (parse(text, line))
            take(checker, line, text);
    }
    for (const std::string &name : checker.open)
        if (!name.empty() && !endsEarly)
            checker.faults << "never left: " << name << "\n";
    return checker.faults.str();
}
