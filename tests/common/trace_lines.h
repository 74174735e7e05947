// The free-form trace lines that a piece of code writes, for tests of the texts.
#ifndef TESTS_COMMON_TRACE_LINES_H
#define TESTS_COMMON_TRACE_LINES_H

#include <cstdio>
#include <string>
#include <vector>

#include "common/trace/qzdebug.h"

// The lines in the trace from the module `name` (a source file NAME or NAME_...), without location,
// indentation, entries and exits.
inline std::vector<std::string> trace_lines_of(const std::string &text, const std::string &name)
{
    std::vector<std::string> lines;
    for (size_t at = 0; at < text.size();) {
        size_t end = text.find('\n', at);
        std::string line = text.substr(at, end - at);
        at = end == std::string::npos ? text.size() : end + 1;
        size_t begin = line.find("> ");
        if (line.compare(0, name.size(), name) != 0 || begin == std::string::npos ||
            (line[name.size()] != ':' && line[name.size()] != '_'))
            continue;
        begin = line.find_first_not_of(' ', begin + 1);
        line = begin == std::string::npos ? "" : line.substr(begin);
        if (line.compare(0, 6, "ENTER ") != 0 && line.compare(0, 5, "EXIT ") != 0)
            lines.push_back(line);
    }
    return lines;
}

// Traces while `action` runs.
template <class Action>
std::vector<std::string> trace_lines_while(const std::string &name, Action action)
{
    gDebugOut = tmpfile();
    gDebugFlags = DEBUG_TRACE;
    action();
    gDebugFlags = 0;
    std::string text;
    rewind(gDebugOut);
    for (int c = getc(gDebugOut); c != EOF; c = getc(gDebugOut))
        text += static_cast<char>(c);
    fclose(gDebugOut);
    gDebugOut = nullptr;
    return trace_lines_of(text, name);
}

#endif
