// Where the suite is installed, worked out from the location of the running executable.
//
//     const char *driver = qzinstdir(QZINSTDIR_ELM);      // ".../v2.32/elm"
//
// The executable is in the directory "bin" of the version directory, or of its "orb" or "orb-as";
// the version directory always contains "orb". The two directories are determined once; a failure
// stores nothing, so the next call tries again. Nothing here reports to the user: a failure gives
// null (or 1) and a line in the trace.
#ifndef COMMON_INSTALL_QZINSTDIR_H
#define COMMON_INSTALL_QZINSTDIR_H

enum InstallDirKind : int {
    QZINSTDIR_FIRST = 0,
    QZINSTDIR_INSTALL = 0, // the installation directory: the parent of the version directory
    QZINSTDIR_VERSION = 1, // the version directory
    QZINSTDIR_BIN = 2,
    QZINSTDIR_DOCS = 3,
    QZINSTDIR_INCLUDE = 4,
    QZINSTDIR_ETC = 5,
    QZINSTDIR_ORB = 6,
    QZINSTDIR_ELM = 7,
    QZINSTDIR_LEGASM = 8,
    QZINSTDIR_ORB_AS = 9,
    QZINSTDIR_LAST = 10, // one past the last kind
};

// The interned path of a directory, or null when the installation is not known. The directory need
// not exist. A kind outside the table is a broken contract.
const char *qzinstdir(int kind);

// 1 when the version directory is known and contains the directory "orb". Once found, it is not
// looked for again.
int qzinstdir_hasOrb();

// Uses `path` (which must exist, as must its parent) as version directory and its parent as
// installation directory. 0 on success, 1 on failure, which changes nothing.
int qzinstdir_set(const char *path);

#endif
