#define MODULE "driver/hidden_errors"
#include "driver/hidden_errors.h"

#include <cstdlib>

#include "common/os/osdep_process.h"
#include "common/os/osdep_temp.h"
#include "common/trace/qzdebug.h"

static FILE *openTempFile()
{
    TRACE_ENTER();
    char *name = osdep_tempFile();
    FILE *file = nullptr;
    if (name == nullptr) {
        TRACE("could not get temp file name");
    } else {
        file = fopen(name, "we");
        if (file == nullptr)
            TRACE("could not open temp file \"%s\"", name);
    }
    free(name);
    return TRACE_RETURN("%p", file);
}

bool hiddenErrors_begin(HiddenErrors *hidden)
{
    TRACE_ENTER();
    hidden->file = openTempFile();
    if (hidden->file == nullptr)
        return TRACE_RETURN("%d", false);
    hidden->saved = osdep_redirectError(hidden->file);
    if (hidden->saved < 0) {
        TRACE("could not redirect standard error");
        fclose(hidden->file);
    }
    return TRACE_RETURN("%d", hidden->saved >= 0);
}

void hiddenErrors_end(HiddenErrors *hidden)
{
    TRACE_ENTER();
    osdep_restoreError(hidden->saved);
    fclose(hidden->file); // its content is not wanted, so an error does not matter
}
