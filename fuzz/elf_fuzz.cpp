// Reads the bytes as an ELF header.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "common/formats/fileutils.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    FILE *stream = fmemopen(const_cast<uint8_t *>(data), size, "rb");
    const uint64_t type = which_elf_fp(stream);
    fclose(stream);
    if (type != 0 && (type & FILEID_ELF) != FILEID_ELF)
        abort();
    return 0;
}
