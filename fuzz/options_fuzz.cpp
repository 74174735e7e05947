// The option table over any list of arguments, for every family. An argument finds the row that a
// plain search of the table finds. The result for an argument depends only on it and the next one.
// Nothing is lost or made up. A run that ends early ends through the one way out.
//
// The first byte chooses the family; the rest is the arguments, one a line.
#include "driver/options.h"

#include <csetjmp>
#include <cstring>
#include <map>

#include "common/base/exitpath.h"
#include "common/base/stringcache.h"
#include "common/base/vector.h"
#include "common/diagnostics/alert.h"
#include "driver/option_handlers.h"
#include "fuzz/support.h"

using Texts = std::vector<std::string>;

enum : size_t { ARGUMENTS_MAX = 200, GROWTH_MAX = 64 };

// ---- Early ends -------------------------------------------------------------------------------
//
// A malformed option ends the run. Here it leaves the walk, and the vectors that exist then are
// destroyed. (The linker replaces the functions of these names by these.)

static jmp_buf s_end;
static bool s_mayEnd;
static std::vector<Vector *> s_alive;

extern "C" {
[[noreturn]] void __wrap__Z14exitpath_leavei(int)
{
    require(s_mayEnd);
    std::longjmp(s_end, 1);
}
Vector *__real__Z7vec_newPKcj(const char *file, uint32_t line);
Vector *__wrap__Z7vec_newPKcj(const char *file, uint32_t line)
{
    s_alive.push_back(__real__Z7vec_newPKcj(file, line));
    return s_alive.back();
}
void __real__Z11vec_destroyP6Vector(Vector *vector);
void __wrap__Z11vec_destroyP6Vector(Vector *vector)
{
    std::erase(s_alive, vector);
    __real__Z11vec_destroyP6Vector(vector);
}
// A library exists if its name contains a "+".
int __wrap__Z16osdep_fileExistsPKc(const char *path)
{
    return path != nullptr && std::strchr(path, '+') != nullptr;
}
}

static void resetState()
{
    vec_destroy(gOptionState.libraries);
    vec_destroy(gOptionState.libraryDirectories);
    gOptionState = {};
}

struct Outcome {
    bool ended; // early
    Texts emitted;
    std::string messages;
    bool operator==(const Outcome &) const = default;
};

static std::string s_messages;
static Texts s_unmatched; // the arguments that the fallback was given

static void noteMessage(const char *text)
{
    const Noting off(false);
    s_messages += text;
}

static void noteUnmatched(const char *argument, OptionFamily)
{
    const Noting off(false);
    s_unmatched.emplace_back(argument);
}

static Vector *walk(const Texts &arguments, OptionFamily family, bool topLevel)
{
    Vector *vector = vec_new("options_fuzz", 1);
    for (const std::string &argument : arguments)
        vec_add(vector, cache_string(argument.c_str()));
    Vector *emitted = options_handler(vector, family, nullptr, topLevel, noteUnmatched);
    vec_destroy(vector);
    return emitted;
}

// Null if the run ended early.
static Vector *walkToTheEnd(const Texts &arguments, OptionFamily family, bool topLevel)
{
    const Noting guard;
    s_mayEnd = true;
    Vector *emitted = setjmp(s_end) == 0 ? walk(arguments, family, topLevel) : nullptr;
    s_mayEnd = false;
    return emitted;
}

// Adds to the state that the runs before it have left.
static Outcome run(const Texts &arguments, OptionFamily family, bool topLevel)
{
    s_messages.clear();
    s_unmatched.clear();
    Vector *vector = walkToTheEnd(arguments, family, topLevel);
    Outcome outcome = {vector == nullptr, {}, s_messages};
    for (const char *text : vec_each<const char>(vector))
        outcome.emitted.emplace_back(text);
    vec_destroy(vector);
    if (outcome.ended) {
        gOptionState = {};
        while (!s_alive.empty())
            vec_destroy(s_alive.back());
    }
    return outcome;
}

static Outcome runAfresh(const Texts &arguments, OptionFamily family, bool topLevel)
{
    const Outcome outcome = run(arguments, family, topLevel);
    resetState();
    require(s_alive.empty()); // no vector is lost
    freeNoted();
    return outcome;
}

// ---- Looking up -------------------------------------------------------------------------------

static std::map<std::string, const OptionRecord *> s_index;

static void indexTable()
{
    for (const OptionRecord *row = options_table(); row->name != nullptr; ++row) {
        std::string key = row->name;
        if ((row->flags & optflag::MEMBER) != 0)
            key = "<" + std::string(row->group) + ">" + key;
        if ((row->flags & optflag::ACTIVE) != 0)
            s_index[key] = row;
        if ((row->flags & optflag::EITHER_CASE) != 0)
            s_index[cache_upper(row->name)] = row;
    }
}

static const OptionRecord *found(const std::string &key)
{
    const auto place = s_index.find(key);
    return place != s_index.end() ? place->second : nullptr;
}

static const OptionRecord *expectedRow(const std::string &argument, const std::string &front)
{
    const OptionRecord *row = found(front + argument);
    const size_t cut = argument.find_first_of("=,");
    if (row == nullptr && argument.size() > 2 && cut != 0 && cut != std::string::npos)
        row = found(front + argument.substr(0, cut));
    if (row == nullptr && argument.size() > 2)
        row = found(front + argument.substr(0, 2));
    return row;
}

static void checkLookup(const std::string &argument)
{
    require(option_lookup(argument.c_str(), nullptr) == expectedRow(argument, ""));
    require(option_lookup(argument.c_str(), "LKR") == expectedRow(argument, "<LKR>"));
    require(option_lookup(argument.c_str(), "ASM") == expectedRow(argument, "<ASM>"));
}

// ---- Walking ----------------------------------------------------------------------------------

static void append(Texts *texts, const Texts &more)
{
    texts->insert(texts->end(), more.begin(), more.end());
}

static size_t lengthOf(const Texts &texts)
{
    size_t length = 0;
    for (const std::string &text : texts)
        length += text.size() + 1;
    return length;
}

// Whether each of the texts is in the other list, in the same order.
static bool isPartOf(const Texts &texts, const Texts &others)
{
    size_t at = 0;
    for (const std::string &text : texts) {
        while (at < others.size() && others[at] != text)
            ++at;
        if (at++ == others.size())
            return false;
    }
    return true;
}

static void checkEmitted(const Texts &arguments, OptionFamily family, const Outcome &outcome)
{
    require(isPartOf(s_unmatched, arguments));
    require(outcome.ended || isPartOf(s_unmatched, outcome.emitted));
    for (const std::string &argument : s_unmatched)
        require(expectedRow(argument, "") == nullptr);
    require(lengthOf(outcome.emitted) <= (lengthOf(arguments) + arguments.size()) * GROWTH_MAX);
    if (family == FAMILY_NONE)
        require(isPartOf(outcome.emitted, arguments) && outcome.messages.empty());
}

// Two input files split the list: the first may be taken for the value of the option before it.
static void checkLocality(const Texts &arguments, OptionFamily family)
{
    const auto middle = arguments.begin() + static_cast<ptrdiff_t>(arguments.size() / 2);
    Texts front(arguments.begin(), middle);
    append(&front, {"one.c", "two.c"});
    const Texts back(middle, arguments.end());
    Texts both = front;
    append(&both, back);

    Outcome parts = run(front, family, false);
    if (!parts.ended) {
        const Outcome second = run(back, family, false);
        append(&parts.emitted, second.emitted);
        parts.messages += second.messages;
        parts.ended = second.ended;
    }
    resetState();
    freeNoted();
    const Outcome whole = runAfresh(both, family, false);
    require(whole.ended == parts.ended && whole.messages == parts.messages);
    require(whole.ended || whole.emitted == parts.emitted);
}

// ---- The target -------------------------------------------------------------------------------

static uint32_t answered(const OptionCall &)
{
    exitpath_leave(0);
}

// Options that ask the installation or print are not tested here.
static void prepare()
{
    alert_setErrorLimit(UINT32_MAX);
    alert_setOutputHook(noteMessage);
    options_initialize(optflag::ACTIVE, 1, nullptr);
    indexTable();
    for (OptionRecord *row = options_table(); row->name != nullptr; ++row) {
        if (row->orb == OPTION_ANSWER && row->elm == OPTION_ANSWER)
            row->handler = answered;
        else if (row->orb == OPTION_ANSWER)
            row->handler = [](const OptionCall &call) -> uint32_t {
                return (call.family & FAMILY_ELM) != 0 ? option_fixed(call) : answered(call);
            };
    }
    // Makes everything that is looked up once and kept.
    alert_raiseNumber(MESSAGE_DEPRECATED_CCI);
    for (const OptionFamily family : {FAMILY_NONE, FAMILY_ORB10, FAMILY_ORB18, FAMILY_ELM})
        vec_destroy(walk({"-Wl,-a", "-Map=x", "-lx"}, family, true));
    resetState();
    s_alive.clear();
}

static Texts argumentsOf(const uint8_t *data, size_t size)
{
    const std::string all(reinterpret_cast<const char *>(data), size);
    Texts arguments = splitFields(all, "\n", ARGUMENTS_MAX);
    for (std::string &argument : arguments)
        argument = argument.c_str();
    return arguments;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const bool prepared = (prepare(), true);
    static const OptionFamily families[] = {FAMILY_NONE, FAMILY_ORB10, FAMILY_ORB18, FAMILY_ELM};
    require(prepared);
    if (size == 0)
        return 0;
    const OptionFamily family = families[data[0] % 4];
    const Texts arguments = argumentsOf(data + 1, size - 1);
    for (const std::string &argument : arguments)
        checkLookup(argument);
    const Outcome outcome = runAfresh(arguments, family, false);
    checkEmitted(arguments, family, outcome);
    require(runAfresh(arguments, family, false) == outcome);
    const Outcome top = runAfresh(arguments, family, true);
    require(top.ended == outcome.ended && isPartOf(outcome.emitted, top.emitted));
    checkLocality(arguments, family);
    return 0;
}
