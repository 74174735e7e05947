#define MODULE "driver/final_options"
#include "common/base/stringcache.h"
#include "common/base/vector.h"
#include "common/install/qzinstdir.h"
#include "common/os/osdep_file.h"
#include "common/text/osdep_path.h"
#include "common/trace/qzdebug.h"
#include "driver/families.h"
#include "driver/option_handlers.h"

// The options at the end of every new command.

static void append(Vector *command, const char *option)
{
    vec_add(command, cache_string(option));
}

// The names under which a library is looked for in a directory, in order. Only the first two are
// tried for a name that already has an extension.
static const struct LibraryCandidate {
    const char *prefix;
    const char *suffix;
} namedCandidates[] = {{"", ""}, {"lib", ""}, {nullptr, nullptr}},
  plainCandidates[] = {{"", ""},        {"", ".a"},   {"lib", ".a"},   {"", ".lpp"},
                       {"lib", ".lpp"}, {"", ".lib"}, {"lib", ".lib"}, {nullptr, nullptr}};

// The path of the first candidate that is a file, or null. An empty directory means the current
// one.
static const char *findInDirectory(const char *directory, const char *library)
{
    TRACE_ENTER("directory=\"%s\", library=\"%s\"", directory, library);
    const bool named = *osdep_extension(library) != '\0';
    const LibraryCandidate *candidate = named ? namedCandidates : plainCandidates;
    const char *found = nullptr;
    for (; found == nullptr && candidate->prefix != nullptr; ++candidate) {
        const char *name = cache_sprintf("%s%s%s", candidate->prefix, library, candidate->suffix);
        if (*directory != '\0')
            name = cache_adopt(osdep_pathJoin(directory, name));
        if (osdep_fileExists(name) && !osdep_isDirectory(name))
            found = name;
    }
    return TRACE_RETURN("\"%s\"", found);
}

// The path of a library: the one found in the library directories, or the name itself.
static const char *resolveLibrary(const char *library)
{
    TRACE_ENTER("\"%s\"", library);
    Vector *directories = gOptionState.libraryDirectories;
    const bool isPath = osdep_isAbsolute(library) || osdep_baseName(library) != library;
    if (isPath || directories == nullptr)
        return TRACE_RETURN("\"%s\"", library);
    const char *found = findInDirectory("", library);
    for (const char *directory : vec_each<const char>(directories)) {
        if (found != nullptr)
            break;
        found = findInDirectory(directory, library);
    }
    return TRACE_RETURN("\"%s\"", found != nullptr ? found : library);
}

static void appendOrbFinal(Vector *command)
{
    TRACE_ENTER();
    const OptionState *state = &gOptionState;
    if (state->assemblyInput && state->compileOnly)
        append(command, "-c");
    if (state->cInput && state->compileOnly)
        append(command, "--pass1");
    if (state->preprocessAssembly)
        append(command, "-P");
    if (!state->standardGiven)
        append(command, "--std=c99");
    if (!state->callGraphGiven)
        append(command, "--callgraph=none");
    if (!state->warningLevelGiven)
        append(command, "--warn=-3");
    if (state->warningsSuppressed && !state->c90)
        append(command, "-R-w");
    for (const char *library : vec_each<const char>(state->libraries))
        append(command, resolveLibrary(library));
}

// The device family pack of the installation, unless the user chose one.
static void appendFamilyPack(Vector *command)
{
    TRACE_ENTER();
    const char *packs = cache_adopt(osdep_pathJoin(qzinstdir(QZINSTDIR_VERSION), "dfp"));
    const char *directory = cache_adopt(osdep_pathJoin(packs, "qzm"));
    if (directory != nullptr && osdep_fileExists(directory)) {
        TRACE("Using DFP directory \"%s\"", directory);
        vec_add(command, cache_sprintf("-mdfp=%s", directory));
    } else {
        TRACE("Could not find DFP directory \"%s\"", directory);
    }
}

static void appendElmFinal(Vector *command)
{
    TRACE_ENTER();
    append(command, "-Wl,--info-linker");
    if (gOptionState.deviceOption != nullptr && !gOptionState.deviceGiven)
        append(command, gOptionState.deviceOption);
    if (!gOptionState.constDataGiven)
        append(command, "-mconst-data-in-progmem");
    if (!gOptionState.familyPackGiven)
        appendFamilyPack(command);
}

void options_appendFinal(Vector *command, OptionFamily family)
{
    TRACE_ENTER("family=%u", static_cast<unsigned>(family));
    if ((family & FAMILY_ORB) != 0)
        appendOrbFinal(command);
    else if ((family & FAMILY_ELM) != 0)
        appendElmFinal(command);
}
