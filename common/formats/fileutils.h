// fileutils: determines the type of a file, by its extension and, if necessary, its content; and
// copies files.
//
//     uint64_t type = fileid("main.p1");
//     if (type & FILE_INTERMEDIATE) ...
//     if (fileid_is_asm_fid(type)) ...
//
// Every predicate returns a plain answer and explains itself in the trace only; nothing here
// reports to the user. A null name, stream or record is answered with 0 (or null). Files are
// examined, never changed, and not trusted: wrong counts and sizes, endless names and truncated
// data give the answer "no", in time and memory bounded by the bytes actually present. Named pipes,
// devices and directories exist, but are never opened: they get the answer of a file that cannot be
// read. The formats are described in docs/object-files.md.
#ifndef COMMON_FORMATS_FILEUTILS_H
#define COMMON_FORMATS_FILEUTILS_H

#include <cstdint>
#include <cstdio>

// The low bits of a file-type word are properties; the high ones here name the processor of an ELF
// file. The bits in between distinguish the extensions.
enum FileProperty : uint64_t {
    FILE_SOURCE = 0x1,       // goes to a compiler or assembler
    FILE_C = 0x2,            // C, or listed with it
    FILE_PREPROCESSOR = 0x4, // the preprocessor's input or output
    FILE_ASSEMBLY = 0x8,     // assembly language
    FILE_LIBRARY = 0x10,
    FILE_OBJECT = 0x20,
    FILE_INTERMEDIATE = 0x40, // the compiler's intermediate code
    FILE_PROGRAM = 0x80,      // a linked program
    FILE_BINARY = 0x100,
    FILE_TEXT = 0x200,
    FILE_DATA = 0x400,              // a listing or data that the suite writes
    FILE_HEADER = 0x800,            // a C header
    FILE_MISSING = 0x1000,          // does not exist
    FILE_HAS_INTERMEDIATE = 0x2000, // library: with intermediate modules
    FILE_HAS_OBJECT = 0x4000,       // library: with object modules
    FILE_BAD_LIBRARY = 0x8000,      // named like a library, but is not one
    FILE_ELF_ORB = 0x400000000000,
    FILE_ELF_ELM = 0x800000000000,
    FILE_ELF_KORB = 0x1000000000000,
    FILE_ELF_MIPS = 0x2000000000000,
    FILE_ELF_ARM = 0x4000000000000,
};

// The words that fileid() returns, without FILE_MISSING (except for the C sources, which always
// have it because they are never looked for).
enum FileType : uint64_t {
    FILEID_UNKNOWN = 0,
    FILEID_LIBRARY_OBJECT = 0x4010,
    FILEID_LIBRARY_INTERMEDIATE = 0x2010,
    FILEID_LIBRARY_BOTH = 0x6010,
    FILEID_LIBRARY_BAD = 0x8010,
    FILEID_AS = 0x200209,
    FILEID_ASM = 0x400209,
    FILEID_C = 0x1203,
    FILEID_CFGDATA = 0x40000600,
    FILEID_CFGMAP = 0x20000600,
    FILEID_CMF = 0x80000600,
    FILEID_COFF = 0x4000180,
    FILEID_CRF = 0x8000000500,
    FILEID_METADATA = 0x10000000000500,
    FILEID_DEP = 0x400000600,
    FILEID_DMP = 0x40000000600,
    FILEID_ELF = 0x2000180,
    FILEID_ELF_ORB = FILEID_ELF | FILE_ELF_ORB,
    FILEID_ELF_ELM = FILEID_ELF | FILE_ELF_ELM,
    FILEID_ELF_KORB = FILEID_ELF | FILE_ELF_KORB,
    FILEID_ELF_MIPS = FILEID_ELF | FILE_ELF_MIPS,
    FILEID_ELF_ARM = FILEID_ELF | FILE_ELF_ARM,
    FILEID_H = 0x8000000000A00,
    FILEID_HEX = 0x1000280,
    FILEID_HXL = 0x2000000600,
    FILEID_I = 0x100205,
    FILEID_INC = 0x800000209,
    FILEID_INI = 0x10000600,
    FILEID_LKR = 0x8000600,
    FILEID_LST = 0x10000000600,
    FILEID_MAP = 0x1000000600,
    FILEID_O_INTERMEDIATE = 0x20060, // ".o" with intermediate code
    FILEID_O_UNKNOWN = 0x20020,      // ".o" or ".obj" with anything else
    FILEID_OBJECT = 0x10020,
    FILEID_P1 = 0x40240,
    FILEID_PRE = 0x80205,
    FILEID_QZMAPP = 0x200000000180,
    FILEID_RLF = 0x20000000500,
    FILEID_S = 0x800209,
    FILEID_S_PREPROCESS = 0x400000020D, // ".S" and ".sx"
    FILEID_SDB = 0x200000600,
    FILEID_SYM = 0x100000600,
    FILEID_USB = 0x80000001203,
    FILEID_XML = 0x100000000200,
};

// The records of object files, by type.
enum RecordType : uint8_t {
    RECORD_TEXT = 1,
    RECORD_END = 6,
    RECORD_LAST = 23,  // the last type that a file may hold
    RECORD_RANGE = 24, // the end marker of the types
};

enum : uint32_t { RECORD_MAX_LENGTH = 512 };

struct ObjectRecord {
    uint16_t length; // bytes of data
    uint8_t type;    // RECORD_TEXT to RECORD_LAST
    uint8_t data[RECORD_MAX_LENGTH];
};

// The type word of a file: by its extension, by content where the extension is shared or unknown,
// with FILE_MISSING added when it does not exist. ".c" and ".usb" are answered without access to
// the disk.
uint64_t fileid(const char *name);

// 1 if the name has an extension and it is in the list, whose entries are separated by ",", ";" or
// ":" ("p1:o"). Case matters. A null list counts as empty.
int valid_ext(const char *name, const char *list);

// The type word of a 32-bit ELF file (FILEID_ELF_ORB ...), or 0. The number of the machine is read
// with its low byte first, whatever byte order the file's header names. The stream form reads from
// the current position, as do all stream forms here, and leaves the position undefined.
uint64_t which_elf(const char *name);
uint64_t which_elf_fp(FILE *stream);

// 1 for an intermediate file; its extension must be "p1" or "o".
int fileid_is_p1(const char *name);
int fileid_is_p1_fp(FILE *stream);

// 1 for an object file: records up to an END record. Its extension must be "obj" or "o".
int fileid_is_obj(const char *name);
int fileid_is_obj_fp(FILE *stream);

// The modules in a library: 1 for object modules, 2 for intermediate modules, 3 for both; 0 for
// neither or when it is not a library. Its extension must be "lib", "lpp" or "a". The stream must
// be at its start.
int fileid_is_library(const char *name);
int fileid_is_library_fp(FILE *stream);

// 1 when the file reads as program metadata (common/formats/metadata.h).
int fileid_is_metadata(const char *name);

// 1 when a type word is that of an assembly source (".as", ".asm", ".s", ".S", ".sx").
int fileid_is_asm_fid(uint64_t flags);

// Reads one object-file record. 1 when it is whole and of a known type, else 0.
int getrec(FILE *stream, ObjectRecord *record);

// Copies (mode "copied") or appends (mode "appended") one file to another. 1 when every byte is
// written and both files are closed without an error, else 0. For any other mode (or null), when
// both names lead to the same file, or when the source is not a regular file, it returns 0 and does
// not touch the destination. A copy that fails halfway leaves the part it has written. The
// destination may be anything that can be written to; opening a named pipe waits for its reader.
int copyfile_helper(const char *source, const char *destination, const char *mode);

// Reads a NUL-terminated string of at most 65535 characters. The result is the caller's to free();
// null when the stream ends first, the string is longer, or memory runs out.
char *getString(FILE *stream);

#endif
