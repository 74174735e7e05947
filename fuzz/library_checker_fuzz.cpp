// The checker of the librarian, whatever the librarian does. It records and counts by its rules,
// which are stated a second time here, and leaves the files in their places.
//
// The first byte decides what the librarian does, the next two are its statuses. The rest is the
// library and the object that is taken out of it, separated by "%%\n"; the object that was compiled
// is OBJECT.
#include <cstring>
#include <filesystem>

#include "common/base/vector.h"
#include "common/formats/fileutils.h"
#include "common/install/qzinstdir.h"
#include "common/suite/tsuite.h"
#include "fuzz/support.h"
#include "selftests/stBuild.h"
#include "selftests/stBuild_internal.h"

namespace fs = std::filesystem;

enum : size_t { HEADER = 3, LIBRARY = 0, EXTRACTED = 1, PARTS = 2 };
enum : uint8_t { ADD_NOT_RUN = 1, EXTRACT_NOT_RUN = 2, LIBRARY_MADE = 4, KEPT_IN_THE_WAY = 8 };

static const std::string OBJECT = "Version 1.0\nNORVELL Software Intermediate Code and more\n";

struct Librarian {
    uint8_t actions;
    int addStatus;
    int extractStatus;
    std::vector<std::string> parts;
    int runs;
};
static Librarian s_librarian;

static bool does(uint8_t action)
{
    return (s_librarian.actions & action) != 0;
}

static std::string output()
{
    return scratchDirectory() + "/out/qzfile";
}

static BuildRun add(Vector *command)
{
    require(vec_size(command) == 4);
    const auto *library = static_cast<const char *>(vec_elementAt(command, 2));
    const auto *object = static_cast<const char *>(vec_elementAt(command, 3));
    require(fs::path(library).parent_path() == scratchDirectory() + "/out");
    require(object == output() + ".p1" && fs::exists(object));
    if (does(LIBRARY_MADE))
        writeFile(library, s_librarian.parts[LIBRARY]);
    return {s_librarian.addStatus, does(ADD_NOT_RUN) ? nullptr : strdup("added")};
}

static BuildRun extract(Vector *command)
{
    require(vec_size(command) == 3 && !fs::exists(output() + ".p1"));
    if (s_librarian.parts.size() > EXTRACTED)
        writeFile(output() + ".p1", s_librarian.parts[EXTRACTED]);
    return {s_librarian.extractStatus, does(EXTRACT_NOT_RUN) ? nullptr : strdup("extracted")};
}

// The librarian, and the installation that holds it. (The linker replaces the functions of these
// names by these.)
extern "C" {
int __real__Z16osdep_fileExistsPKc(const char *path);
int __wrap__Z16osdep_fileExistsPKc(const char *path)
{
    return (path != nullptr && std::strcmp(path, "/bin/qzm-ar") == 0) ||
           __real__Z16osdep_fileExistsPKc(path);
}
const char *__wrap__Z9qzinstdiri(int)
{
    return "/bin";
}
BuildRun __wrap__Z11stBuild_runP6Vector(Vector *command)
{
    require(std::strcmp(static_cast<const char *>(vec_elementAt(command, 0)), "/bin/qzm-ar") == 0);
    const auto *operation = static_cast<const char *>(vec_elementAt(command, 1));
    const bool adds = std::strcmp(operation, "-r") == 0;
    require(adds ? s_librarian.runs == 0
                 : s_librarian.runs == 1 && std::strcmp(operation, "-x") == 0);
    ++s_librarian.runs;
    const BuildRun run = adds ? add(command) : extract(command);
    vec_destroy(command);
    return run;
}
}

static bool isLibrary()
{
    if (!does(LIBRARY_MADE))
        return false;
    FILE *stream = memoryFile(s_librarian.parts[LIBRARY]);
    const int kinds = fileid_is_library_fp(stream);
    std::fclose(stream);
    return kinds != 0;
}

static bool comesBack()
{
    return s_librarian.extractStatus == 0 && s_librarian.parts.size() > EXTRACTED &&
           s_librarian.parts[EXTRACTED] == OBJECT;
}

// The faults that are recorded, "MESSAGE: OUTPUT", and the number of checks that passed.
struct Outcome {
    std::string recorded;
    int passed;
};

static Outcome expectedOutcome()
{
    if (does(ADD_NOT_RUN))
        return {"failed to create library for 16z30: could not execute librarian", 0};
    if (s_librarian.addStatus != 0 || !isLibrary())
        return {"failed library creation for 16z30: added", 0};
    if (does(KEPT_IN_THE_WAY))
        return {"failed to extract from library for 16z30: could not rename object: " + output() +
                    ".p1",
                1};
    if (does(EXTRACT_NOT_RUN))
        return {"failed to extract from library for 16z30: could not execute librarian", 1};
    if (!comesBack())
        return {"failed library extraction for 16z30: extracted", 1};
    return {"", 2};
}

static void prepare()
{
    fs::remove_all(scratchDirectory() + "/out");
    fs::create_directory(scratchDirectory() + "/out");
    writeFile(output() + ".p1", OBJECT);
    if (does(KEPT_IN_THE_WAY)) // there is a directory in the place of the kept object
        fs::create_directories(output() + "_orig.p1/full");
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < HEADER)
        return 0;
    const std::string rest(reinterpret_cast<const char *>(data) + HEADER, size - HEADER);
    s_librarian = {data[0], data[1], data[2], splitFields(rest, "%%\n", PARTS), 0};
    prepare();
    BuildTest record = {};
    record.device = "16z30";
    TestCase test = {};
    test.name = "checked";
    test.data = &record;
    const std::string path = output();
    const int passed = noting([&] { return check_lib(&test, path.c_str(), "compiled"); });

    const Outcome expected = expectedOutcome();
    require(passed == expected.passed);
    std::string recorded;
    if (test.failureType != nullptr)
        recorded = std::string(test.failureMessage) + ": " + test.output;
    require(recorded == expected.recorded);
    require(passed != 2 || fs::is_empty(scratchDirectory() + "/out"));
    freeNoted();
    return 0;
}
