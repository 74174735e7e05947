// Shared by the files of the metadata module; not for its callers.
#ifndef COMMON_FORMATS_METADATA_INTERNAL_H
#define COMMON_FORMATS_METADATA_INTERNAL_H

#include <cstddef>
#include <cstdint>

#include "common/formats/metadata.h"

// The eight characters of a magic as the number that is read and written.
consteval uint64_t metadata_magic(const char (&text)[9])
{
    uint64_t magic = 0;
    for (unsigned i = 0; i < 8; ++i)
        magic |= static_cast<uint64_t>(static_cast<unsigned char>(text[i])) << (8 * i);
    return magic;
}

// The magics of the sections, as docs/metadata-format.md lists them; the test
// MetadataFormat.LayoutIsPinned checks both against the bytes.
inline constexpr uint64_t METADATA_MAGIC_HEADER = metadata_magic("!QZMMETA");
inline constexpr uint64_t METADATA_MAGIC_GENERAL = metadata_magic("GENATTRS");
inline constexpr uint64_t METADATA_MAGIC_PRINTF = metadata_magic("PRFATTRS");
inline constexpr uint64_t METADATA_MAGIC_CALLEES = metadata_magic("FCALLEES");
inline constexpr uint64_t METADATA_MAGIC_FUNCTIONS = metadata_magic("FUNCTNS ");
inline constexpr uint64_t METADATA_MAGIC_ROOTS = metadata_magic("INTROOTS");
inline constexpr uint64_t METADATA_MAGIC_LEVELS = metadata_magic("INTLVLS ");

// The entry of an attribute table. The hash table cannot hold the number itself, because there a
// value of 0 means a missing entry.
struct MetadataAttribute {
    const char *name;
    uint64_t value;
};

// Leaves `code` in the object. Returns false, which the caller can return in turn.
bool metadata_fail(Metadata *metadata, uint32_t code);

// Sets an attribute whose name is interned and not empty; false when memory runs out.
bool metadata_keepAttribute(Metadata *metadata, MetadataTable table, const char *name,
                            uint64_t value);

// Appends a copy of the `size` bytes of `record`, whose first field is its id, and sets the list's
// next id to follow that id. Returns the copy, or null when memory runs out.
void *metadata_listAdd(MetadataList *list, const void *record, size_t size);

// Sorts the records by their ids; false when two ids are equal.
bool metadata_listOrder(MetadataList *list);

// The record with this id in a sorted list, or null.
void *metadata_listFind(const MetadataList *list, uint32_t id);

// The number of records.
uint32_t metadata_listCount(const MetadataList *list);

// Adds a copy of `function` to the object's list and to its table by name. Null when the name is
// taken or memory runs out; the callees of the copied record are then still the caller's.
MetadataFunction *metadata_keepFunction(Metadata *metadata, const MetadataFunction *function);

// Puts a copy of `level`, whose mask is not 0, into its slot. Null when the slot is taken or memory
// runs out; the roots of the copied record are then still the caller's.
MetadataLevel *metadata_keepLevel(Metadata *metadata, const MetadataLevel *level);

#endif
