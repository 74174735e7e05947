#define MODULE "common/cmdline"
#include "common/cmdline/cmdline.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "common/base/exitpath.h"
#include "common/base/memory.h"
#include "common/base/vector.h"
#include "common/cmdline/cmdline_internal.h"
#include "common/diagnostics/alert.h"
#include "common/os/osdep_process.h"
#include "common/trace/qzdebug.h"

// The format of response files: docs/command-file.md.
static constexpr uint32_t MESSAGE_TOO_LONG = 917;
static constexpr size_t TOKEN_SIZE = 2048; // the longest token and its terminator
static constexpr size_t ARRAY_STEP = 1024;

// The most that a token costs in addition to its characters: 31 bytes of its block on the heap, 16
// for its places in the array and in the vector of its file, 24 in the vector of all arguments
// while that grows, 32 for its entry in the string cache and 96 in the cache's index while that
// grows. The rest is for gaps between the blocks.
static constexpr uint64_t TOKEN_COST = 256;

// The arguments of the last reading: the program's name, the tokens, a null entry.
static char **s_entries;
static size_t s_count;
static size_t s_capacity;

namespace {
// One pass over the input.
struct TokenReader {
    CmdlineReading *reading;
    size_t length; // characters in `token`
    char quote;    // the open quote's character, or 0
    bool escaped;  // a backslash was read and has not been applied yet
    bool tooLong;  // a character did not fit into `token`
    char token[TOKEN_SIZE];
};
} // namespace

int cmdline_readCount()
{
    return static_cast<int>(s_count);
}

// ---- The array --------------------------------------------------------------------------------

static void appendEntry(const char *text, size_t length)
{
    if (s_count + 1 >= s_capacity) {
        const size_t capacity = s_capacity + ARRAY_STEP;
        s_entries = static_cast<char **>(
            xrealloc_must(s_entries, s_capacity * sizeof *s_entries, capacity * sizeof *s_entries));
        s_capacity = capacity;
    }
    s_entries[s_count++] = xstrndup_must(text, length);
}

static void resetEntries(const char *promptName)
{
    TRACE_ENTER("promptName=\"%s\"", promptName);
    for (size_t i = 0; i < s_count; ++i)
        std::free(s_entries[i]);
    s_count = 0;
    appendEntry(promptName, std::strlen(promptName));
}

Vector *cmdline_takeRead()
{
    TRACE_ENTER();
    Vector *strings = vec_new_size(static_cast<uint32_t>(s_count), MODULE, __LINE__);
    for (size_t i = 1; i < s_count; ++i) {
        vec_add(strings, s_entries[i]);
        s_entries[i] = nullptr;
    }
    return TRACE_RETURN("%p", strings);
}

// ---- The characters ---------------------------------------------------------------------------

static void store(TokenReader *r, char c)
{
    if (r->length < TOKEN_SIZE - 1)
        r->token[r->length++] = c;
    else
        r->tooLong = true;
}

static void appendToken(TokenReader *r)
{
    if (r->length != 0 || r->reading->keepEmpty) {
        appendEntry(r->token, r->length);
        r->reading->cost += TOKEN_COST;
    }
    r->length = 0;
}

static void takeBackslash(TokenReader *r)
{
    if (r->escaped)
        store(r, '\\');
    r->escaped = !r->escaped;
}

static void takeSpace(TokenReader *r)
{
    if (r->quote == 0 && !r->escaped) {
        appendToken(r);
        return;
    }
    r->escaped = false;
    store(r, ' ');
}

static void takeQuote(TokenReader *r, char c)
{
    if (r->escaped || (r->quote != 0 && r->quote != c)) {
        r->escaped = false;
        store(r, c);
    } else {
        r->quote = r->quote == 0 ? c : '\0';
    }
}

// A backslash before an ordinary character is itself an ordinary one.
static void takeOrdinary(TokenReader *r, char c)
{
    if (r->escaped)
        store(r, '\\');
    r->escaped = false;
    store(r, c);
}

static void takeCharacter(TokenReader *r, char c)
{
    switch (c) {
    case '\n':
        appendToken(r);
        r->quote = 0;
        r->escaped = false;
        break;
    case '\t':
    case '\0': // an argument cannot contain a NUL
        appendToken(r);
        break;
    case ' ':
        takeSpace(r);
        break;
    case '\\':
        takeBackslash(r);
        break;
    case '\'':
    case '"':
        takeQuote(r, c);
        break;
    default:
        takeOrdinary(r, c);
        break;
    }
}

// ---- The input --------------------------------------------------------------------------------

// Nothing else reads the stream, so it need not be locked for every character.
static inline int nextCharacter()
{
#ifdef _WIN32
    return _getc_nolock(stdin);
#else
    return getc_unlocked(stdin);
#endif
}

static void prompt(const char *name)
{
    std::printf("%s> ", name);
    std::fflush(stdout);
}

// Reads one line. Returns whether another one may follow.
static bool readLine(TokenReader *r)
{
    CmdlineReading *reading = r->reading;
    for (int c = nextCharacter(); c != EOF; c = nextCharacter()) {
        if (++reading->cost > reading->limit)
            return false;
        takeCharacter(r, static_cast<char>(c));
        if (r->tooLong)
            return false;
        if (c == '\n')
            return reading->singleLine == 0;
    }
    reading->failed = std::ferror(stdin) != 0;
    return false;
}

// Finishes the token that was open when the input ended or the reading stopped.
static void finishToken(TokenReader *r)
{
    if (r->length != 0)
        appendToken(r);
    if (r->tooLong)
        alert_raiseNumber(MESSAGE_TOO_LONG);
}

char **cmdline_readWithin(CmdlineReading *reading, const char *promptName)
{
    TRACE_ENTER("promptName=\"%s\"", promptName);
    resetEntries(promptName);
    reading->cost = 0;
    reading->failed = 0;

    TokenReader reader;
    reader.reading = reading;
    reader.length = 0;
    reader.quote = 0;
    reader.escaped = false;
    reader.tooLong = false;
    const bool prompting = reading->singleLine == 0 && osdep_inputIsTerminal();
    do {
        if (prompting)
            prompt(promptName);
    } while (readLine(&reader));
    const int savedErrno = errno;
    finishToken(&reader);
    errno = savedErrno;

    s_entries[s_count] = nullptr;
    return TRACE_RETURN("%p", s_entries);
}

char **cmdline_readArgs(int singleLine, const char *promptName)
{
    TRACE_ENTER("singleLine=%d, promptName=\"%s\"", singleLine, promptName);
    ASSERT_AT(50, promptName != NULL);
    CmdlineReading reading = {};
    reading.singleLine = singleLine;
    reading.keepEmpty = 1;
    reading.limit = UINT64_MAX;
    char **entries = cmdline_readWithin(&reading, promptName);
    return TRACE_RETURN("%p", entries);
}
