// Reads the bytes as object-file records.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "common/formats/fileutils.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    FILE *stream = fmemopen(const_cast<uint8_t *>(data), size, "rb");
    const int found = fileid_is_obj_fp(stream);
    fclose(stream);
    if (found < 0 || found > 1)
        abort();
    return 0;
}
