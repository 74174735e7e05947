// Reads the bytes as metadata. If they can be read, they can be written, and read back as the same.
#include "common/formats/metadata.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

struct Text {
    char *data;
    size_t size;
};

static Text textOf(Metadata *metadata, bool (*print)(Metadata *metadata, FILE *out))
{
    Text text = {nullptr, 0};
    FILE *out = open_memstream(&text.data, &text.size);
    if (!print(metadata, out))
        abort();
    fclose(out);
    return text;
}

static bool readBytes(Metadata *metadata, const void *data, size_t size)
{
    FILE *in = fmemopen(const_cast<void *>(data), size, "rb");
    const bool ok = metadata_read(metadata, in);
    fclose(in);
    return ok;
}

static void checkRoundTrip(Metadata *metadata, const Text *dump)
{
    const Text file = textOf(metadata, metadata_write);
    Metadata *copy = metadata_create(nullptr);
    if (!readBytes(copy, file.data, file.size))
        abort();
    const Text again = textOf(copy, metadata_dump);
    if (again.size != dump->size || memcmp(again.data, dump->data, dump->size) != 0)
        abort();
    metadata_destroy(copy);
    free(again.data);
    free(file.data);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    Metadata *metadata = metadata_create(nullptr);
    const bool ok = readBytes(metadata, data, size);
    if (ok == (metadata_error(metadata) != METADATA_OK))
        abort();
    const Text dump = textOf(metadata, metadata_dump);
    if (ok)
        checkRoundTrip(metadata, &dump);
    metadata_verify(metadata);
    free(dump.data);
    metadata_destroy(metadata);
    return 0;
}
