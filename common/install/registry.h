// The tool's own data directories (bin, lib, include, dat, sources ...) within the installation
// directories, with overrides by kind and the selected standard C library.
//
//     const char *messages = reg_mkpath(REG_DAT, "en_msgs.txt");
//
// All results are interned paths, or null when the installation is not known.
#ifndef COMMON_INSTALL_REGISTRY_H
#define COMMON_INSTALL_REGISTRY_H

enum RegistryKind : int {
    REG_BASE = 0, // the base directory itself: VER/orb when it exists, else VER
    REG_BIN = 1,
    REG_LIB = 2,
    REG_HELP = 3,
    REG_INCLUDE = 4,
    REG_DAT = 5,
    REG_SOURCES = 6,
    REG_RESOURCES = 7,
    REG_DOCS = 8,
    REG_QZM = 9,
    REG_C_INCLUDE = 10, // the include directory of the standard C library, when one is selected
};

// The directory of a kind. It need not exist.
const char *reg_instdir(int kind);

// `name` when it is absolute, else the kind's directory joined with it. Null for a null name.
const char *reg_mkpath(int kind, const char *name);

// Overrides the root of the kinds bin, lib, include, dat or sources with an existing directory, or
// (null) clears the override. 1 on success; 0 when the path is not a directory or the kind has no
// override.
int reg_set_path(int kind, const char *path);

// Set and return the standard C library's name, under which lib, sources and the C include
// directory lie; null for none.
void reg_set_c_stdlib(const char *name);
const char *reg_get_c_stdlib();

#endif
