// metadata: the suite's binary program-metadata file. It holds what the compiler knows about a
// built program: functions and their call graph, interrupt roots and interrupt levels, and two sets
// of named numbers. The layout of the file is described in docs/metadata-format.md.
//
//     Metadata *metadata = metadata_create(NULL);
//     MetadataFunction *entry = metadata_addFunction(metadata, "main");
//     MetadataFunction *helper = metadata_addFunction(metadata, "helper");
//     metadata_addCallee(metadata, entry, helper);
//     metadata_setKey(metadata, METADATA_STKOPT, 2);
//     if (!metadata_verify(metadata) || !metadata_write(metadata, stream))
//         puts(metadata_errorText(metadata_error(metadata)));
//     metadata_destroy(metadata);
//
// An object owns all its records; a record is valid until its object is destroyed. Texts in records
// are interned strings or null (absent), and texts handed in are interned by the functions that
// take them. Fields of a record may be set directly, except for its id and its vectors. Every
// operation reports failure by its result and leaves one of the codes below in the object; success
// leaves the code unchanged. Only metadata_dump() prints.
//
// Nothing read is trusted: no byte sequence makes a read crash or run for long, and the memory that
// a read allocates is bounded by the actual size of the input, whatever its count and id fields
// say.
#ifndef COMMON_FORMATS_METADATA_H
#define COMMON_FORMATS_METADATA_H

#include <cstdint>
#include <cstdio>

struct HashTable;
struct Metadata;
struct MetadataFunction;
struct Vector;

// The code that a failed operation leaves in its object. Codes about reading and writing mean that
// the section they name could not be read (its bytes are missing or break a rule of the format) or
// written.
enum MetadataError : uint32_t {
    METADATA_OK = 0,
    METADATA_NULL_ARGUMENT = 1,
    METADATA_EMPTY_STRING = 2,
    METADATA_NO_MEMORY = 3,
    METADATA_HEADER_MAGIC = 4,
    METADATA_HEADER_TITLE = 5,
    METADATA_HEADER_VERSION = 6,
    METADATA_HEADER_RESERVED = 7,
    METADATA_GENERAL_MAGIC = 8,
    METADATA_GENERAL_LIST = 9,
    METADATA_PRINTF_MAGIC = 10,
    METADATA_PRINTF_LIST = 11,
    METADATA_BAD_LINE = 12,       // a source file with line 0
    METADATA_STACK_CONFLICT = 13, // a function both reentrant and on the compiled stack
    METADATA_CIRCULAR = 14,       // a function that duplicates itself, directly or indirectly
    METADATA_FUNCTION_MAGIC = 15, // also: a callee section with another magic
    METADATA_FUNCTION_LIST = 16,
    METADATA_CALLEE_WITHOUT_FUNCTION = 17,
    METADATA_NO_SUCH_CALLEE = 18, // a function lists a callee record that its object does not hold
    METADATA_CALLEE_MAGIC = 19,
    METADATA_CALLEE_LIST = 20,
    METADATA_BAD_MASK = 21, // an interrupt level whose mask is 0
    METADATA_LEVEL_MAGIC = 22,
    METADATA_LEVEL_LIST = 23,
    METADATA_ROOT_WITHOUT_FUNCTION = 24,
    METADATA_ROOT_MAGIC = 25,
    METADATA_ROOT_LIST = 26,
    METADATA_FOREIGN = 27, // a record of another object
    METADATA_ERROR_COUNT
};

enum : uint32_t {
    METADATA_VERSION_MAJOR = 1, // of the format
    METADATA_VERSION_MINOR = 0,
    METADATA_TITLE_SIZE = 128,
    METADATA_RESERVED_SIZE = 128,
    METADATA_LEVEL_SLOTS = 32, // one for each bit of a mask
};

// The version of the compiler that an object's title names when its creator gives none.
inline constexpr char METADATA_COMPILER_VERSION[] = "2.32";

// The two sets of named numbers.
enum MetadataTable : uint32_t { METADATA_GENERAL, METADATA_PRINTF, METADATA_TABLE_COUNT };

// The general attributes that the suite itself knows, a row each: its enumerator, its key in the
// file, and its value while it is missing.
#define METADATA_KEYS(ROW)                                                                         \
    ROW(STBISYPW, "stbisypw", 9)                                                                   \
    ROW(STKOPT, "stkopt", 0)                                                                       \
    ROW(STKGUIDEOPT, "stkguideopt", 0)                                                             \
    ROW(OPTIMLEVEL, "optimlevel", 0)                                                               \
    ROW(DEBUGGER_HWSTK, "debugger_hwstk", 0)                                                       \
    ROW(HWSTK_SIZE, "hwstk_size", 0)

#define METADATA_KEY_ENUMERATOR(name, key, missing) METADATA_##name,
enum MetadataKey : uint32_t { METADATA_KEYS(METADATA_KEY_ENUMERATOR) METADATA_KEY_COUNT };
#undef METADATA_KEY_ENUMERATOR

struct MetadataHeader {
    uint64_t magic;                  // "!QZMMETA", its first character in the lowest byte
    char title[METADATA_TITLE_SIZE]; // zero-padded; a text of full length has no terminator
    uint16_t version_major;
    uint16_t version_minor;
    uint8_t reserved[METADATA_RESERVED_SIZE]; // zero when created; kept as read
};

// Records with an id of their own, in the order of their ids. Slot 0 is unused; there are no slots
// at all before the first record. Where the ids run from 1 without a gap, as they do unless a file
// says otherwise, the slot's index is the id.
struct MetadataList {
    Vector *records;  // of records whose first field is their id
    uint32_t next_id; // of the next record to be added; 0 when no id is left
};

// One call from one function to another.
struct MetadataCallee {
    uint32_t id;                // not 0; unique among the callees
    uint32_t function_id;       // id of the called function, as read
    MetadataFunction *function; // the called function; null after a read that failed early
    MetadataFunction *caller;   // the function that lists this record, or null
    bool arg_call;              // called while arguments are evaluated
    bool indirect_call;         // called through a pointer
};

struct MetadataFunction {
    uint32_t id;               // not 0; unique among the functions
    uint32_t interrupt_levels; // mask of the levels it may run on
    const char *source_file;   // or null when it is unknown
    uint32_t source_line;
    const char *text;        // a second text, kept unchanged; or null
    const char *name;        // never null; unique among the functions
    uint32_t hardware_stack; // used, in levels
    uint32_t software_stack; // used, in bytes
    bool is_extern;
    bool uses_cstack; // keeps its data on the compiled stack
    bool is_recursive;
    bool is_reentrant;
    bool has_extern_call;
    uint32_t duplicate_id;       // id of the function below, as read; 0 for none
    Vector *callees;             // of MetadataCallee, not owned; null while there are none
    MetadataFunction *duplicate; // the function this one duplicates, or null
    Metadata *owner;             // the object it belongs to
    uint32_t walk;               // scratch of metadata_verify()
};

// A function that an interrupt enters.
struct MetadataRoot {
    uint32_t id; // not 0; unique among the roots
    MetadataFunction *function;
    uint32_t hardware_stack; // used, in levels
    uint32_t software_stack; // used, in bytes
};

// An interrupt level. Its slot is the position of the lowest bit of its mask.
struct MetadataLevel {
    uint32_t id;              // not 0
    uint32_t mask;            // not 0
    const char *name;         // or null
    uint32_t hardware_stack;  // used, in levels
    uint32_t software_stack;  // used, in bytes
    uint32_t stack_allocated; // software stack set aside, in bytes
    Vector *roots;            // of MetadataRoot, not owned; null while there are none
};

struct Metadata {
    MetadataHeader header;
    HashTable *attributes[METADATA_TABLE_COUNT]; // name to attribute record
    MetadataList callees;
    MetadataList functions;
    MetadataList roots;
    HashTable *functions_by_name;                // name to MetadataFunction
    MetadataLevel *levels[METADATA_LEVEL_SLOTS]; // null where a slot is empty
    uint32_t level_count;                        // slots in use, including empty ones between them
    char *buffer;                                // holds a string while it is read
    size_t buffer_size;
    uint32_t error; // the last failure's code
};

// Creates an object without attributes and records, owned by the caller. Its title names
// `compiler_version` (null: METADATA_COMPILER_VERSION). Null when memory runs out or the title
// would be longer than 128 characters.
Metadata *metadata_create(const char *compiler_version);

// Frees the object with all its records. Null is allowed.
void metadata_destroy(Metadata *metadata);

// Fills the object from a binary stream, which must be at the start of the file. A failure leaves
// what was read so far in the object. A null stream is code 1; a null object only fails.
//
// The object keeps its content: the file's records are added to its own, attributes replace those
// of the same name, and the file's header replaces the old one. The rules of the format apply to
// all of it together: an id, a function's name or a level's slot that is already in use makes the
// read fail as if the file contained it twice. Read into a new object to get the file's content
// alone.
bool metadata_read(Metadata *metadata, FILE *in);

// Writes the object to a binary stream and flushes it, so that a full disk is noticed here.
bool metadata_write(Metadata *metadata, FILE *out);

// Prints the object in readable form and flushes the stream. Fails for a null argument or when the
// stream has an error, such as a full disk.
bool metadata_dump(Metadata *metadata, FILE *out);

// The code that the last failure left in the object (1 for null), and the text of a code ("Unknown
// error" for any other number). The text is static.
uint32_t metadata_error(const Metadata *metadata);
const char *metadata_errorText(uint32_t code);

// Sets an attribute, replacing its value when it is present. Fails with code 1 for a null object or
// name, 2 for an empty name, 3 when memory runs out.
bool metadata_setAttribute(Metadata *metadata, MetadataTable table, const char *name,
                           uint64_t value);

// The value of an attribute, or `missing` when it is absent; and whether it is present.
uint64_t metadata_getAttribute(const Metadata *metadata, MetadataTable table, const char *name,
                               uint64_t missing);
bool metadata_hasAttribute(const Metadata *metadata, MetadataTable table, const char *name);

// The same for the known general attributes; a missing one has the value in its row.
bool metadata_setKey(Metadata *metadata, MetadataKey key, uint32_t value);
uint64_t metadata_getKey(const Metadata *metadata, MetadataKey key);
bool metadata_hasKey(const Metadata *metadata, MetadataKey key);

// Adds a function with the next id and everything else empty. Null with code 1 (null argument), 2
// (empty name), 3 (no memory) or 16 (the name is taken, or no id is left).
MetadataFunction *metadata_addFunction(Metadata *metadata, const char *name);

// Adds a call of `function` to `caller`. Null with code 1, 3, 20 (no id is left) or 27.
MetadataCallee *metadata_addCallee(Metadata *metadata, MetadataFunction *caller,
                                   MetadataFunction *function);

// Adds an interrupt root. Null with code 1, 3, 26 (no id is left) or 27.
MetadataRoot *metadata_addRoot(Metadata *metadata, MetadataFunction *function);

// Adds an interrupt level in the slot of the lowest bit of `mask`; `name` may be null. Its id is
// the slot's number plus 1. Null with code 1, 3, 21 (the mask is 0) or 23 (the slot is taken).
MetadataLevel *metadata_addLevel(Metadata *metadata, uint32_t mask, const char *name);

// Adds a root to a level of the same object. Fails with code 1 or 27.
bool metadata_addLevelRoot(Metadata *metadata, MetadataLevel *level, MetadataRoot *root);

// The function with this id or name, or null.
MetadataFunction *metadata_functionById(const Metadata *metadata, uint32_t id);
MetadataFunction *metadata_functionByName(const Metadata *metadata, const char *name);

// Checks an object that was built by hand for content that the format allows but that makes no
// sense: codes 12, 13, 14, 17, 18, 21, 24 and 27. Reading and writing do not call it: a file is
// data, and anything that could be read can be written again.
bool metadata_verify(Metadata *metadata);

#endif
