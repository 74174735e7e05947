#define MODULE "selftests/stDocumentation"
#include "selftests/stDocumentation.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "common/base/memory.h"
#include "common/base/vector.h"
#include "common/install/qzinstdir.h"
#include "common/os/osdep_directory.h"
#include "common/suite/tsuite.h"
#include "common/text/osdep_wide.h"
#include "common/trace/qzdebug.h"

namespace {
// The data of a test case: the documents to look for.
enum DocFlag : uint32_t {
    DOC_README = 1,
    DOC_USER_GUIDE = 2,
};
} // namespace

int findFileLike(const char *pattern, const char *directory)
{
    TRACE_ENTER("pattern=\"%s\", directory=\"%s\"", pattern, directory);
    TRACE("Looking for files like: \"%s\" in directory: \"%s\"", pattern, trace_shown(directory));
    char *wanted = osdep_strlwr(xstrdup_must(pattern));
    Vector *names = osdep_readDirectory(directory);
    int found = 0;
    for (char *name : vec_each<char>(names)) {
        found = strstr(osdep_strlwr(name), wanted) != nullptr;
        if (found)
            break;
    }
    osdep_freeNames(names);
    free(wanted);
    TRACE("%s", found ? "Found" : "Not found");
    return TRACE_RETURN("%d", found);
}

static int DocTest(TestCase *test)
{
    TRACE_ENTER("test=\"%s\"", test->name);
    const uint32_t flags = *static_cast<const uint32_t *>(test->data);
    const char *docs = qzinstdir(QZINSTDIR_DOCS);
    if ((flags & DOC_README) != 0 && !findFileLike("readme", docs))
        TSUITE_FAIL(test, "documentation test", "failed README check",
                    "Could not find and README documentation");
    if ((flags & DOC_USER_GUIDE) != 0 && !findFileLike("user_guide", docs))
        TSUITE_FAIL(test, "documentation test", "failed user guide check",
                    "Could not find and user guide documentation");
    return TRACE_RETURN("%d", 0);
}

static void addDocTest(Vector *tests, const char *name, uint32_t flags)
{
    TRACE_ENTER("name=\"%s\"", name);
    auto *data = static_cast<uint32_t *>(xmalloc_must(sizeof(uint32_t)));
    *data = flags;
    vec_add(tests, tsuite_newtest("docs", name, DocTest, data));
}

Vector *stDocsReadme_tests()
{
    TRACE_ENTER();
    Vector *tests = vec_new(MODULE, __LINE__);
    addDocTest(tests, "check if readme file exists", DOC_README);
    return TRACE_RETURN("%p", tests);
}

Vector *stDocsUG_tests()
{
    TRACE_ENTER();
    Vector *tests = vec_new(MODULE, __LINE__);
    addDocTest(tests, "check if user guide exists", DOC_USER_GUIDE);
    return TRACE_RETURN("%p", tests);
}
