// The result of each option for either kind of child: the whole translation, row by row and in
// every spelling, with the messages of each.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

#include <gmock/gmock.h>

#include "common/base/exitpath.h"
#include "common/install/qzinstdir.h"
#include "common/os/osdep_temp.h"
#include "driver/families.h"
#include "driver/options_process.h"
#include "driver_fixture.h"
#include "tests/common/trace_lines.h"

namespace {

struct Translation {
    Strings arguments;
    Strings orb; // emitted for either ORB family
    const char *orbMessages;
    Strings elm; // emitted for ELM
    const char *elmMessages;
};

// clang-format off
const std::vector<Translation> translations = {
    {{"-c"},
     {}, "",
     {"-c"}, ""},
    {{"-E"},
     {"--pre"}, "",
     {"-E"}, ""},
    {{"-S"},
     {"-S"}, "",
     {"-S"}, ""},
    {{"--fill=0x55@0:100"},
     {"--fill=0x55@0:100"}, "",
     {"--fill=0x55@0:100"}, ""},
    {{"-C"},
     {}, "(1428) \"-C\" is not supported; this feature will be ignored (warning)\n",
     {"-C"}, ""},
    {{"-v"},
     {"-v"}, "",
     {"-v"}, ""},
    {{"-V"},
     {"-V"}, "",
     {"-V"}, ""},
    {{"-o", "prog.hex"},
     {"-oprog.hex"}, "",
     {"-oprog.hex"}, ""},
    {{"-oprog.hex"},
     {"-oprog.hex"}, "",
     {"-oprog.hex"}, ""},
    {{"-o", "out/prog.hex"},
     {"-oprog.hex", "--objdir=out", "--outdir=out"}, "",
     {"-oout/prog.hex"}, ""},
    {{"-oa/b/prog.hex"},
     {"-oprog.hex", "--objdir=a/b", "--outdir=a/b"}, "",
     {"-oa/b/prog.hex"}, ""},
    {{"-o", "/x.hex"},
     {"-ox.hex", "--objdir=/", "--outdir=/"}, "",
     {"-o/x.hex"}, ""},
    {{"-D", "NAME"},
     {"-DNAME"}, "",
     {"-DNAME"}, ""},
    {{"-DNAME=1"},
     {"-DNAME=1"}, "",
     {"-DNAME=1"}, ""},
    {{"-D", "-odd"},
     {"-D-odd"}, "",
     {"-D-odd"}, ""},
    {{"-U", "NAME"},
     {"-UNAME"}, "",
     {"-UNAME"}, ""},
    {{"-UNAME=1"},
     {"-UNAME=1"}, "",
     {"-UNAME=1"}, ""},
    {{"-U", "-odd"},
     {"-U-odd"}, "",
     {"-U-odd"}, ""},
    {{"-I", "NAME"},
     {"-INAME"}, "",
     {"-INAME"}, ""},
    {{"-INAME=1"},
     {"-INAME=1"}, "",
     {"-INAME=1"}, ""},
    {{"-I", "-odd"},
     {"-I-odd"}, "",
     {"-I-odd"}, ""},
    {{"-l", "foo"},
     {}, "",
     {"-lfoo"}, ""},
    {{"-lfoo"},
     {}, "",
     {"-lfoo"}, ""},
    {{"-L", "dir"},
     {}, "",
     {"-Ldir"}, ""},
    {{"-Ldir"},
     {}, "",
     {"-Ldir"}, ""},
    {{"-H"},
     {"-Z-H"}, "",
     {"-H"}, ""},
    {{"-dM"},
     {"--info=defvals"}, "",
     {"-dM"}, ""},
    {{"-Wl,--foo"},
     {"-L--foo"}, "",
     {"-Wl,--foo"}, ""},
    {{"-Wl,--foo,--bar"},
     {"-L--foo", "-L--bar"}, "",
     {"-Wl,--foo,--bar"}, ""},
    {{"-Wl,--defsym,x=1"},
     {"-L--defsym", "-Lx=1"}, "",
     {"-Wl,--defsym,x=1"}, ""},
    {{"-Wl,-Map=out.map,--data-init"},
     {"-Mout.map", "--runtime=+clear", "--runtime=+init"}, "",
     {"-Wl,-Map=out.map", "-Wl,--data-init"}, ""},
    {{"-Wl,--no-data-init"},
     {"--runtime=-clear", "--runtime=-init"}, "",
     {"-Wl,--no-data-init"}, ""},
    {{"-Wl,-Map,out.map"},
     {"-Mout.map"}, "",
     {"-Wl,-Map=out.map"}, ""},
    {{"-Wl,-Map,--foo"},
     {"-M", "-L--foo"}, "",
     {"-Wl,-Map=", "-Wl,--foo"}, ""},
    {{"-Wl,--gc,-Map=a.map,--bar"},
     {"-L--gc", "-Ma.map", "-L--bar"}, "",
     {"-Wl,--gc", "-Wl,-Map=a.map", "-Wl,--bar"}, ""},
    {{"-Wl,-nostdlib"},
     {"--runtime=-clib", "--runtime=+no_startup"}, "",
     {"-nostdlib"}, ""},
    {{"-Wl,-nodefaultlibs"},
     {"--runtime=-clib"}, "",
     {"-nodefaultlibs"}, ""},
    {{"-Wl,-nostartfiles,--x"},
     {"--runtime=+no_startup", "-L--x"}, "",
     {"-nostartfiles", "-Wl,--x"}, ""},
    {{"-Wl,"},
     {}, "",
     {"-Wl,"}, ""},
    {{"-Wl"},
     {}, "",
     {"-Wl"}, ""},
    {{"-Wl,,"},
     {}, "",
     {"-Wl,,"}, ""},
    {{"-Wl,--foo,,--bar"},
     {"-L--foo", "-L--bar"}, "",
     {"-Wl,--foo,,--bar"}, ""},
    {{"-Wl,-Map=a,,--bar"},
     {"-Ma", "-L--bar"}, "",
     {"-Wl,-Map=a", "-Wl,--bar"}, ""},
    {{"-Wl,--memorysummary,mem.xml"},
     {"--summary=+xml", "--summarydir=mem.xml"}, "",
     {"-Wl,--memorysummary,mem.xml"}, ""},
    {{"-Wl,--memorysummary=mem.xml"},
     {"--summary=+xml", "--summarydir=mem.xml"}, "",
     {"-Wl,--memorysummary,mem.xml"}, ""},
    {{"-Xlinker", "--foo"},
     {"-L--foo"}, "",
     {"-Xlinker", "--foo"}, ""},
    {{"-Xlinker", "-Map=x.map"},
     {"-Mx.map"}, "",
     {"-Xlinker", "-Map=x.map"}, ""},
    {{"-Xlinker", "--memorysummary=m.xml"},
     {"--summary=+xml", "--summarydir=m.xml"}, "",
     {"-Xlinker", "--memorysummary=m.xml"}, ""},
    {{"-Xlinker=--foo"},
     {"-L--foo"}, "",
     {"-Xlinker=--foo"}, ""},
    {{"--memorysummary=f.xml"},
     {"--summary=+xml", "--summarydir=f.xml"}, "",
     {"-Wl,--memorysummary,f.xml"}, ""},
    {{"--memorysummary", "f.xml"},
     {"--summary=+xml", "--summarydir=f.xml"}, "",
     {"-Wl,--memorysummary,f.xml"}, ""},
    {{"--memorysummary", "-H"},
     {"--summary=+xml", "--summarydir=memoryfile.xml", "-Z-H"}, "",
     {"-Wl,--memorysummary,memoryfile.xml", "-H"}, ""},
    {{"-Wa,--x,-y"},
     {"-A--x", "-A-y"}, "",
     {"-Wa,--x,-y"}, ""},
    {{"-Wa,-a"},
     {"--asmlist"}, "",
     {"-Wa,-a"}, ""},
    {{"-Wa,-ahls"},
     {"--asmlist"}, "",
     {"-Wa,-ahls"}, ""},
    {{"-Wa,-a=f.lst,--x"},
     {"--asmlist", "-A--x"}, "",
     {"-Wa,-a=f.lst", "-Wa,--x"}, ""},
    {{"-Wa,--x,-a=f.lst"},
     {"-A--x", "--asmlist"}, "",
     {"-Wa,--x", "-Wa,-a=f.lst"}, ""},
    {{"-Wa,-al,-ah"},
     {"--asmlist", "--asmlist"}, "",
     {"-Wa,-al,-ah"}, ""},
    {{"-Wa,-al,--x,-ah,-y"},
     {"--asmlist", "-A--x", "--asmlist", "-A-y"}, "",
     {"-Wa,-al", "-Wa,--x", "-Wa,-ah", "-Wa,-y"}, ""},
    {{"-Xassembler", "-a"},
     {"--asmlist"}, "",
     {"-Xassembler", "-a"}, ""},
    {{"-Xassembler", "--x"},
     {"-A--x"}, "",
     {"-Xassembler", "--x"}, ""},
    {{"-Wp,-DA,-UB"},
     {"-Z-DA", "-Z-UB"}, "",
     {"-Wp,-DA,-UB"}, ""},
    {{"-Xpreprocessor", "-DA"},
     {"-Z-DA"}, "",
     {"-Xpreprocessor", "-DA"}, ""},
    {{"-Xparser", "-q"},
     {"-R-q"}, "",
     {}, "(1428) \"-Xparser\" is not supported; this feature will be ignored (warning)\n"},
    {{"-Xp1", "-q"},
     {"-R-q"}, "",
     {}, "(1428) \"-Xp1\" is not supported; this feature will be ignored (warning)\n"},
    {{"-Xclang", "-q"},
     {"-R-q"}, "",
     {}, "(1428) \"-Xclang\" is not supported; this feature will be ignored (warning)\n"},
    {{"-Xqzm", "--odd=1"},
     {"--odd=1"}, "",
     {}, "(1428) \"-Xqzm\" is not supported; this feature will be ignored (warning)\n"},
    {{"-x", "assembler-with-cpp"},
     {"-P"}, "",
     {"-x", "assembler-with-cpp"}, ""},
    {{"-x", "assembler"},
     {}, "",
     {"-x", "assembler"}, ""},
    {{"-x", "c"},
     {}, "",
     {"-x", "c"}, ""},
    {{"-xc"},
     {}, "",
     {"-xc"}, ""},
    {{"-x", "c++"},
     {}, "(1428) \"-x\" is not supported; this feature will be ignored (warning)\n",
     {"-x", "c++"}, ""},
    {{"-xc++"},
     {}, "(1428) \"-x\" is not supported; this feature will be ignored (warning)\n",
     {"-xc++"}, ""},
    {{"-xassembler-with-cpp"},
     {"-P"}, "",
     {"-xassembler-with-cpp"}, ""},
    {{"-###"},
     {"--noexec"}, "",
     {"-###"}, ""},
    {{"--version"},
     {"--ver"}, "",
     {"--version"}, ""},
    {{"-mcpu=ORB16Z20A"},
     {"--chip=16z20a"}, "",
     {"-mmcu=orb16z20a"}, ""},
    {{"-mcpu=16z20a"},
     {"--chip=16z20a"}, "",
     {"-mmcu=16z20a"}, ""},
    {{"-mdevice=DEV"},
     {}, "",
     {"-mdevice=DEV"}, ""},
    {{"-mmcu=16z20a"},
     {"-mmcu=16z20a"}, "(2044) unrecognized option \"-mmcu=16z20a\" (warning)\n",
     {"-mmcu=16z20a"}, ""},
    {{"-mprocessor=16z20a"},
     {"-mprocessor=16z20a"}, "(2044) unrecognized option \"-mprocessor=16z20a\" (warning)\n",
     {"-mprocessor=16z20a"}, ""},
    {{"-O0"},
     {}, "",
     {"-O0"}, ""},
    {{"-O1"},
     {"--opt=+1"}, "",
     {"-O1"}, ""},
    {{"-O2"},
     {"--opt=+2"}, "",
     {"-O2"}, ""},
    {{"-O3"},
     {"--opt=+3"}, "",
     {"-O3"}, ""},
    {{"-Os"},
     {"--opt=+s"}, "",
     {"-Os"}, ""},
    {{"-Og"},
     {"--opt=+debug"}, "",
     {"-Og"}, ""},
    {{"-flocal"},
     {"--opt=+local"}, "",
     {"-flocal"}, ""},
    {{"-fasmfile"},
     {"--opt=+asmfile"}, "",
     {"-fasmfile"}, ""},
    {{"-ansi"},
     {"--std=c90"}, "",
     {"-ansi"}, ""},
    {{"-std=c99"},
     {"--std=c99"}, "",
     {"-std=c99"}, ""},
    {{"-std=c9x"},
     {"--std=c99"}, "",
     {"-std=c9x"}, ""},
    {{"-std=iso9899:1999"},
     {"--std=c99"}, "",
     {"-std=iso9899:1999"}, ""},
    {{"-std=iso9899:199x"},
     {"--std=c99"}, "",
     {"-std=iso9899:199x"}, ""},
    {{"-std=c90"},
     {"--std=c90"}, "",
     {"-std=c90"}, ""},
    {{"-std=c89"},
     {"--std=c90"}, "",
     {"-std=c89"}, ""},
    {{"-std=iso9899:1990"},
     {"--std=c90"}, "",
     {"-std=iso9899:1990"}, ""},
    {{"-std=iso9899:199409"},
     {"--std=c90"}, "",
     {"-std=iso9899:199409"}, ""},
    {{"-std=gnu99"},
     {"--std=c99"}, "(2054) the language standard \"gnu99\" is not supported; using C99 (warning)\n",
     {"-std=gnu99"}, ""},
    {{"-std="},
     {"--std=c99"}, "(2054) the language standard \"\" is not supported; using C99 (warning)\n",
     {"-std="}, ""},
    {{"-Wpedantic", "-Wpedantic"},
     {"--strict"}, "",
     {"-Wpedantic", "-Wpedantic"}, ""},
    {{"-w"},
     {"--msgdisable=0"}, "",
     {"-w"}, ""},
    {{"-mwarn=v1"},
     {"--warn=v1"}, "",
     {}, "(1428) \"-mwarn=v1\" is not supported; this feature will be ignored (warning)\n"},
    {{"-fmax-errors=v1"},
     {"--errors=v1"}, "",
     {"-fmax-errors=v1"}, ""},
    {{"-fshort-double"},
     {"--double=24"}, "",
     {}, "(1428) \"-fshort-double\" is not supported; this feature will be ignored (warning)\n"},
    {{"-fno-short-double"},
     {"--double=32"}, "",
     {}, "(1428) \"-fno-short-double\" is not supported; this feature will be ignored (warning)\n"},
    {{"-fshort-float"},
     {"--float=24"}, "",
     {}, "(1428) \"-fshort-float\" is not supported; this feature will be ignored (warning)\n"},
    {{"-fno-short-float"},
     {"--float=32"}, "",
     {}, "(1428) \"-fno-short-float\" is not supported; this feature will be ignored (warning)\n"},
    {{"-funsigned-char"},
     {"--char=unsigned"}, "",
     {"-funsigned-char"}, ""},
    {{"-fno-signed-char"},
     {"--char=unsigned"}, "",
     {"-fno-signed-char"}, ""},
    {{"-fsigned-char"},
     {"--char=signed"}, "",
     {"-fsigned-char"}, ""},
    {{"-fno-unsigned-char"},
     {"--char=signed"}, "",
     {"-fno-unsigned-char"}, ""},
    {{"-mc90lib"},
     {"--runtime=+c90lib"}, "",
     {}, "(1428) \"-mc90lib\" is not supported; this feature will be ignored (warning)\n"},
    {{"-mmaxichip"},
     {"--maxiorb"}, "",
     {}, "(1428) \"-mmaxichip\" is not supported; this feature will be ignored (warning)\n"},
    {{"-mmaxiorb"},
     {"--maxiorb"}, "",
     {}, "(1428) \"-mmaxiorb\" is not supported; this feature will be ignored (warning)\n"},
    {{"-mshroud"},
     {"--shroud"}, "",
     {}, "(1428) \"-mshroud\" is not supported; this feature will be ignored (warning)\n"},
    {{"-ginhx32"},
     {"--output=+inhx32"}, "",
     {}, "(1428) \"-ginhx32\" is not supported; this feature will be ignored (warning)\n"},
    {{"-ginhx032"},
     {"--output=+inhx032"}, "",
     {}, "(1428) \"-ginhx032\" is not supported; this feature will be ignored (warning)\n"},
    {{"-gdwarf-3"},
     {"--output=+elf:multilocs"}, "",
     {"-gdwarf-3"}, ""},
    {{"-gcoff"},
     {"--output=+mcoff"}, "",
     {"-gcoff"}, ""},
    {{"-mkeep-startup"},
     {"--runtime=+keep"}, "",
     {}, "(1428) \"-mkeep-startup\" is not supported; this feature will be ignored (warning)\n"},
    {{"-mno-keep-startup"},
     {"--runtime=-keep"}, "",
     {}, "(1428) \"-mno-keep-startup\" is not supported; this feature will be ignored (warning)\n"},
    {{"-mplib"},
     {"--runtime=+plib"}, "",
     {}, "(1428) \"-mplib\" is not supported; this feature will be ignored (warning)\n"},
    {{"-mno-plib"},
     {"--runtime=-plib"}, "",
     {}, "(1428) \"-mno-plib\" is not supported; this feature will be ignored (warning)\n"},
    {{"-mclink"},
     {"--runtime=+clink"}, "",
     {}, "(1428) \"-mclink\" is not supported; this feature will be ignored (warning)\n"},
    {{"-mno-clink"},
     {"--runtime=-clink"}, "",
     {}, "(1428) \"-mno-clink\" is not supported; this feature will be ignored (warning)\n"},
    {{"-mcmacros"},
     {"--runtime=+cmacros"}, "",
     {}, "(1428) \"-mcmacros\" is not supported; this feature will be ignored (warning)\n"},
    {{"-mno-cmacros"},
     {"--runtime=-cmacros"}, "",
     {}, "(1428) \"-mno-cmacros\" is not supported; this feature will be ignored (warning)\n"},
    {{"-mresetbits"},
     {"--runtime=+resetbits"}, "",
     {}, "(1428) \"-mresetbits\" is not supported; this feature will be ignored (warning)\n"},
    {{"-mno-resetbits"},
     {"--runtime=-resetbits"}, "",
     {}, "(1428) \"-mno-resetbits\" is not supported; this feature will be ignored (warning)\n"},
    {{"-msave-resetbits"},
     {"--runtime=+resetbits"}, "",
     {}, "(1428) \"-msave-resetbits\" is not supported; this feature will be ignored (warning)\n"},
    {{"-mno-save-resetbits"},
     {"--runtime=-resetbits"}, "",
     {}, "(1428) \"-mno-save-resetbits\" is not supported; this feature will be ignored (warning)\n"},
    {{"-mconfig"},
     {"--runtime=+config"}, "",
     {"-mconfig"}, ""},
    {{"-mno-config"},
     {"--runtime=-config"}, "",
     {"-mno-config"}, ""},
    {{"-mdefault-config-bits"},
     {"--runtime=+config"}, "",
     {"-mdefault-config-bits"}, ""},
    {{"-mno-default-config-bits"},
     {"--runtime=-config"}, "",
     {"-mno-default-config-bits"}, ""},
    {{"-mdownload"},
     {"--runtime=+download"}, "",
     {"-mdownload"}, ""},
    {{"-mno-download"},
     {"--runtime=-download"}, "",
     {"-mno-download"}, ""},
    {{"-mdownload-hex"},
     {"--runtime=+download"}, "",
     {"-mdownload-hex"}, ""},
    {{"-mno-download-hex"},
     {"--runtime=-download"}, "",
     {"-mno-download-hex"}, ""},
    {{"-mosccal"},
     {"--runtime=+osccal"}, "",
     {"-mosccal"}, ""},
    {{"-mno-osccal"},
     {"--runtime=-osccal"}, "",
     {"-mno-osccal"}, ""},
    {{"-mstackcall"},
     {"--runtime=+stackcall"}, "",
     {"-mstackcall"}, ""},
    {{"-mno-stackcall"},
     {"--runtime=-stackcall"}, "",
     {"-mno-stackcall"}, ""},
    {{"-finstrument-functions"},
     {"--runtime=+flp"}, "",
     {"-finstrument-functions"}, ""},
    {{"-fno-instrument-functions"},
     {"--runtime=-flp"}, "",
     {"-fno-instrument-functions"}, ""},
    {{"-mivt"},
     {"--runtime=+ivt"}, "",
     {"-mivt"}, ""},
    {{"-mivt=0x200"},
     {"--runtime=+ivt:0x200"}, "",
     {"-mivt=0x200"}, ""},
    {{"-mno-ivt"},
     {"--runtime=-ivt"}, "",
     {"-mno-ivt"}, ""},
    {{"-mno-ivt=0x200"},
     {"--runtime=-ivt:0x200"}, "",
     {"-mno-ivt=0x200"}, ""},
    {{"-muse-ivt"},
     {"--runtime=+ivt"}, "",
     {"-muse-ivt"}, ""},
    {{"-muse-ivt=0x200"},
     {"--runtime=+ivt:0x200"}, "",
     {"-muse-ivt=0x200"}, ""},
    {{"-mno-use-ivt"},
     {"--runtime=-ivt"}, "",
     {"-mno-use-ivt"}, ""},
    {{"-mno-use-ivt=0x200"},
     {"--runtime=-ivt:0x200"}, "",
     {"-mno-use-ivt=0x200"}, ""},
    {{"-moscval"},
     {"--runtime=+oscval"}, "",
     {"-moscval"}, ""},
    {{"-moscval=0x34"},
     {"--runtime=+oscval:0x34"}, "",
     {"-moscval=0x34"}, ""},
    {{"-mno-oscval"},
     {"--runtime=-oscval"}, "",
     {"-mno-oscval"}, ""},
    {{"-mno-oscval=0x34"},
     {"--runtime=-oscval:0x34"}, "",
     {"-mno-oscval=0x34"}, ""},
    {{"-nodefaultlibs"},
     {"--runtime=-clib"}, "",
     {"-nodefaultlibs"}, ""},
    {{"-nostartfiles"},
     {"--runtime=+no_startup"}, "",
     {"-nostartfiles"}, ""},
    {{"-nostdlib"},
     {"--runtime=-clib", "--runtime=+no_startup"}, "",
     {"-nostdlib"}, ""},
    {{"-nostdinc"},
     {"--runtime=-cinc"}, "",
     {"-nostdinc"}, ""},
    {{"-save-temps"},
     {"--nodel"}, "",
     {"-save-temps"}, ""},
    {{"-save-temps=obj"},
     {"--nodel"}, "",
     {"-save-temps=obj"}, ""},
    {{"-mvtx-stack-usage"},
     {"--summary=+stack,+stackfull"}, "",
     {"-mvtx-stack-usage"}, ""},
    {{"-mafrlcsj"},
     {"--mafrlcsj"}, "",
     {"-mafrlcsj"}, ""},
    {{"-M"},
     {"--dep=+gcc,+stop"}, "",
     {"-M"}, ""},
    {{"-MD"},
     {"--dep=+gcc,+sys,-stop"}, "",
     {"-MD"}, ""},
    {{"-MM"},
     {"--dep=+gcc,+stop,-sys"}, "",
     {"-MM"}, ""},
    {{"-MMD"},
     {"--dep=+gcc,-sys,-stop"}, "",
     {"-MMD"}, ""},
    {{"-MF", "x.d"},
     {"--dep=+gcc", "--depfile=x.d"}, "",
     {"-MF", "x.d"}, ""},
    {{"-MFx.d"},
     {"--dep=+gcc", "--depfile=x.d"}, "",
     {"-MFx.d"}, ""},
    {{"-MP"},
     {}, "(1428) \"-MP\" is not supported; this feature will be ignored (warning)\n",
     {"-MP"}, ""},
    {{"-MT", "-x"},
     {}, "(1428) \"-MT\" is not supported; this feature will be ignored (warning)\n",
     {"-MT", "-x"}, ""},
    {{"-MQ", "x.o"},
     {}, "(1428) \"-MQ\" is not supported; this feature will be ignored (warning)\n",
     {"-MQ", "x.o"}, ""},
    {{"-MTx.o"},
     {}, "(1428) \"-MTx.o\" is not supported; this feature will be ignored (warning)\n",
     {"-MTx.o"}, ""},
    {{"-MG"},
     {}, "(1428) \"-MG\" is not supported; this feature will be ignored (warning)\n",
     {"-MG"}, ""},
    {{"-mdebugger=v1"},
     {"--debugger=v1"}, "",
     {}, "(1428) \"-mdebugger=v1\" is not supported; this feature will be ignored (warning)\n"},
    {{"-mstack=v1"},
     {"--stack=v1"}, "",
     {}, "(1428) \"-mstack=v1\" is not supported; this feature will be ignored (warning)\n"},
    {{"-metadata=v1"},
     {"--metadata=v1"}, "",
     {}, "(1428) \"-metadata=v1\" is not supported; this feature will be ignored (warning)\n"},
    {{"-mundefints=v1"},
     {"--undefints=v1"}, "",
     {}, "(1428) \"-mundefints=v1\" is not supported; this feature will be ignored (warning)\n"},
    {{"-mchecksum=v1"},
     {"--checksum=v1"}, "",
     {}, "(1428) \"-mchecksum=v1\" is not supported; this feature will be ignored (warning)\n"},
    {{"-memi=v1"},
     {"--emi=v1"}, "",
     {}, "(1428) \"-memi=v1\" is not supported; this feature will be ignored (warning)\n"},
    {{"-mserial=v1"},
     {"--serial=v1"}, "",
     {}, "(1428) \"-mserial=v1\" is not supported; this feature will be ignored (warning)\n"},
    {{"-fcp=v1"},
     {"--cp=v1"}, "",
     {}, "(1428) \"-fcp=v1\" is not supported; this feature will be ignored (warning)\n"},
    {{"-maddrqual=v1"},
     {"--addrqual=v1"}, "",
     {}, "(1428) \"-maddrqual=v1\" is not supported; this feature will be ignored (warning)\n"},
    {{"-msummary=v1"},
     {"--summary=v1"}, "",
     {}, "(1428) \"-msummary=v1\" is not supported; this feature will be ignored (warning)\n"},
    {{"-mrom=v1"},
     {"--rom=v1"}, "",
     {}, "(1428) \"-mrom=v1\" is not supported; this feature will be ignored (warning)\n"},
    {{"-mram=v1"},
     {"--ram=v1"}, "",
     {}, "(1428) \"-mram=v1\" is not supported; this feature will be ignored (warning)\n"},
    {{"-merrata=v1"},
     {"--errata=v1"}, "",
     {"-mskip-bug"}, ""},
    {{"-mcodeoffset=v1"},
     {"--codeoffset=v1"}, "",
     {"-mcodeoffset=v1"}, ""},
    {{"-mcodecov=v1"},
     {"--codecov=v1"}, "",
     {"-mcodecov=v1"}, ""},
    {{"-mdfp=v1"},
     {"--dfp=v1"}, "",
     {"-mdfp=v1"}, ""},
    {{"-misa=std"},
     {"-misa=std"}, "(2044) unrecognized option \"-misa=std\" (warning)\n",
     {"-misa=std"}, ""},
    {{"-mcallgraph=full"},
     {"-mcallgraph=full"}, "(2044) unrecognized option \"-mcallgraph=full\" (warning)\n",
     {"-mcallgraph=full"}, ""},
    {{"-mreserve=ram@0x100:0x1FF"},
     {"--ram=-0x100-0x1FF"}, "",
     {}, "(1428) \"-mreserve=ram@0x100:0x1FF\" is not supported; this feature will be ignored (warning)\n"},
    {{"-mreserve=rom@0:5:10"},
     {"--rom=-0-10"}, "",
     {}, "(1428) \"-mreserve=rom@0:5:10\" is not supported; this feature will be ignored (warning)\n"},
    {{"-mconst-data-in-progmem"},
     {}, "",
     {"-mconst-data-in-progmem"}, ""},
    {{"-mno-const-data-in-progmem"},
     {}, "(1428) \"-mno-const-data-in-progmem\" is not supported; this feature will be ignored (warning)\n",
     {"-mno-const-data-in-progmem"}, ""},
    {{"-mext=qzm"},
     {}, "",
     {}, ""},
    {{"-mext=iar"},
     {}, "(2048) C language extension \"iar\" is not supported and will be ignored (warning)\n",
     {}, "(2048) C language extension \"iar\" is not supported and will be ignored (warning)\n"},
    {{"-mext=cci"},
     {"--ext=cci"}, "",
     {"-mext=cci"}, ""},
    {{"-mcci"},
     {"--ext=cci"}, "(2050) use of the -mcci option is deprecated; use -mext=cci to avoid this warning (warning)\n",
     {"-mext=cci"}, "(2050) use of the -mcci option is deprecated; use -mext=cci to avoid this warning (warning)\n"},
    {{"-mext=abc"},
     {"--ext=abc"}, "(2044) unrecognized option \"-mext=abc\" (warning)\n",
     {"-mext=abc"}, "(2044) unrecognized option \"-mext=abc\" (warning)\n"},
    {{"-mprint-builtins"},
     {"--info=builtins"}, "",
     {}, ""},
    {{"--nodel"},
     {"--nodel"}, "",
     {}, ""},
    {{"--pragmaconfig=x"},
     {"--pragmaconfig=x"}, "",
     {}, ""},
    {{"--qzdebug=on"},
     {}, "",
     {}, ""},
    {{"main.c"},
     {"main.c"}, "",
     {"main.c"}, ""},
    {{"dir/x y.o"},
     {"dir/x y.o"}, "",
     {"dir/x y.o"}, ""},
    {{"-fwhatever"},
     {"-fwhatever"}, "(2044) unrecognized option \"-fwhatever\" (warning)\n",
     {"-fwhatever"}, ""},
    {{"-Wall"},
     {"-Wall"}, "(2044) unrecognized option \"-Wall\" (warning)\n",
     {"-Wall"}, ""},
};
// clang-format on

class OptionsTranslation : public DriverTest {
  protected:
    void TearDown() override
    {
        osdep_keepTempFiles(0); // "--nodel" keeps them
        DriverTest::TearDown();
    }
    static void expectExit(const Strings &arguments, OptionFamily family, const std::string &text)
    {
        Vector *vector = toVector(arguments);
        alert_setOutputHook(nullptr);
        EXPECT_EXIT(options_handler(vector, family, nullptr, true, nullptr),
                    testing::ExitedWithCode(1), testing::Eq(text));
        vec_destroy(vector);
    }
};

TEST_F(OptionsTranslation, EveryRowDoesWhatTheTableSays)
{
    for (const Translation &row : translations) {
        for (OptionFamily family : {FAMILY_ORB10, FAMILY_ORB18, FAMILY_ELM}) {
            SCOPED_TRACE(row.arguments[0] + " for family " + std::to_string(family));
            resetState();
            gMessages.clear();
            const bool elm = family == FAMILY_ELM;
            EXPECT_EQ(emitted(row.arguments, family), elm ? row.elm : row.orb);
            EXPECT_EQ(gMessages, elm ? row.elmMessages : row.orbMessages);
        }
    }
}

// The whole command of an installed driver, for one option after the device option.
class CompleteCommand : public OptionsTranslation {
  protected:
    void SetUp() override
    {
        OptionsTranslation::SetUp();
        char *directory = osdep_tempDir();
        version_ = std::string(directory) + "/v2.32";
        free(directory);
        for (const char *program : {"/orb/bin/qzm", "/elm/bin/elm-gcc"}) {
            const std::string path = version_ + program;
            std::filesystem::create_directories(std::filesystem::path(path).parent_path());
            std::ofstream file(path);
        }
        ASSERT_EQ(qzinstdir_set(version_.c_str()), 0);
    }
    void TearDown() override
    {
        alert_setFormatMode(0); // processing for an ORB device turns it on
        std::filesystem::remove_all(std::filesystem::path(version_).parent_path());
        OptionsTranslation::TearDown();
    }
    static Strings command(const std::string &device, const Strings &options)
    {
        Strings arguments = {device};
        arguments.insert(arguments.end(), options.begin(), options.end());
        Vector *vector = toVector(arguments);
        Strings result = toStrings(options_process(vector));
        vec_destroy(vector);
        return result;
    }
    static Strings joined(std::initializer_list<Strings> lists)
    {
        Strings all;
        for (const Strings &list : lists)
            all.insert(all.end(), list.begin(), list.end());
        return all;
    }
    static bool begins(const std::string &text, const char *prefix)
    {
        return text.rfind(prefix, 0) == 0;
    }

    Strings expectedOrb(const char *chip, const Translation &row) const
    {
        const std::string &option = row.arguments[0];
        const bool standard = begins(option, "-ansi") || begins(option, "-std");
        const bool library = begins(option, "-l");
        Strings last;
        if (!standard)
            last.emplace_back("--std=c99");
        last.emplace_back("--callgraph=none");
        if (!begins(option, "-mwarn"))
            last.emplace_back("--warn=-3");
        if (option == "-w")
            last.emplace_back("-R-w");
        if (library)
            last.emplace_back("foo");
        const Strings quiet = option == "--version" ? Strings{} : Strings{"-q"};
        return joined(
            {{version_ + "/orb/bin/qzm", "--qzmcc"},
             quiet,
             {"--opt=none", chip},
             row.orb,
             last,
             {"--errformat=%f:%l:%c: error: (%n) %s", "--warnformat=%f:%l:%c: warning: (%n) %s",
              "--msgformat=%f:%l:%c: advisory: (%n) %s"}});
    }
    Strings expectedElm(const Translation &row) const
    {
        const std::string &option = row.arguments[0];
        std::string device = "elmbig1"; // the last "-mcpu" wins
        if (begins(option, "-mcpu="))
            device = cache_lower(option.c_str() + 6);
        Strings last = {"-Wl,--info-linker"};
        if (!begins(option, "-mdevice"))
            last.push_back("-mdevice=" + device);
        if (option.find("const-data") == std::string::npos)
            last.emplace_back("-mconst-data-in-progmem");
        return joined({{version_ + "/elm/bin/elm-gcc", "-mmcu=elmbig1"},
                       row.elm,
                       last,
                       {"-D__QZ", "-D__QZM", "-D__QZ__", "-D__QZM__", "-D__QZM_VERSION=2320"}});
    }

    std::string version_;
};

TEST_F(CompleteCommand, OfEveryRowForTheOrbFamilies)
{
    const struct {
        const char *device;
        const char *chip;
    } devices[] = {{"-mcpu=ORB16z20a", "--chip=16z20a"}, {"-mcpu=18z40", "--chip=18z40"}};
    for (const auto &device : devices) {
        for (const Translation &row : translations) {
            SCOPED_TRACE(std::string(device.device) + " " + row.arguments[0]);
            if (row.arguments[0] == "main.c")
                continue; // a source adds a pass of its own, see below
            resetState();
            EXPECT_EQ(command(device.device, row.arguments), expectedOrb(device.chip, row));
        }
    }
}

TEST_F(CompleteCommand, OfEveryRowForElm)
{
    for (const Translation &row : translations) {
        SCOPED_TRACE(row.arguments[0]);
        if (row.arguments[0] == "--version")
            continue; // goes to the legacy driver with any device
        resetState();
        EXPECT_EQ(command("-mcpu=elmbig1", row.arguments), expectedElm(row));
    }
}

TEST_F(CompleteCommand, SourcesDecideWhichPassesTheLegacyDriverRuns)
{
    const struct {
        Strings arguments;
        Strings passes; // what is appended before the standard
    } cases[] = {
        {{"-c", "a.c"}, {"--pass1"}},
        {{"-c", "a.usb"}, {"--pass1"}},
        {{"a.c"}, {}},
        {{"-c", "a.as"}, {"-c"}},
        {{"-c", "a.asm", "b.s"}, {"-c"}},
        {{"-c", "a.S"}, {"-c", "-P"}},
        {{"-c", "a.sx", "b.c"}, {"-c", "--pass1", "-P"}},
        {{"a.S"}, {"-P"}},
        {{"-c", "a.inc", "b.h", "c.i", "d.pre", "e.o", "f.p1", "g.hex", "none"}, {}},
        {{"-c", "-Wl,a.c", "-Wa,b.s"}, {}},
        {{"-c", "-unknown.c", "-unknown.s"}, {}},
    };
    for (const auto &entry : cases) {
        SCOPED_TRACE(entry.arguments.back());
        resetState();
        const Strings all = command("-mcpu=16z20a", entry.arguments);
        const auto standard = std::find(all.begin(), all.end(), "--std=c99");
        ASSERT_NE(standard, all.end());
        const auto count = static_cast<std::ptrdiff_t>(entry.passes.size());
        ASSERT_GE(standard - all.begin(), count);
        EXPECT_EQ(Strings(standard - count, standard), entry.passes);
        EXPECT_EQ(std::count(all.begin(), all.end(), "--pass1"),
                  std::count(entry.passes.begin(), entry.passes.end(), "--pass1"));
        EXPECT_EQ(std::count(all.begin(), all.end(), "-P"),
                  std::count(entry.passes.begin(), entry.passes.end(), "-P"));
        EXPECT_EQ(std::count(all.begin(), all.end(), "-c"),
                  std::count(entry.passes.begin(), entry.passes.end(), "-c"));
    }
}

TEST_F(CompleteCommand, FormatsThatTheUserGaveAreNotAppendedAgain)
{
    const Strings all = command("-mcpu=16z20a", {"-Xqzm", "--warnformat=mine"});
    EXPECT_EQ(all, (Strings{version_ + "/orb/bin/qzm", "--qzmcc", "-q", "--opt=none",
                            "--chip=16z20a", "--warnformat=mine", "--std=c99", "--callgraph=none",
                            "--warn=-3", "--errformat=%f:%l:%c: error: (%n) %s",
                            "--msgformat=%f:%l:%c: advisory: (%n) %s"}));
}

TEST_F(OptionsTranslation, WithoutAFamilyNothingIsConsumedOrReported)
{
    for (const Translation &row : translations) {
        SCOPED_TRACE(row.arguments[0]);
        resetState();
        gMessages.clear();
        emitted(row.arguments, FAMILY_NONE);
        EXPECT_EQ(gMessages, "");
    }
    resetState();
    emitted({"-o"}, FAMILY_NONE);
    emitted({"-std"}, FAMILY_NONE);
    emitted({"-v", "-v"}, FAMILY_NONE);
    EXPECT_EQ(gMessages, "");
    EXPECT_EQ(gOptionState.verbosity, 2);
}

TEST_F(OptionsTranslation, EveryActiveRowWithAHandlerIsCovered)
{
    for (const OptionRecord *row = options_table(); row->name != nullptr; ++row) {
        if (row->handler == nullptr || (row->flags & optflag::MEMBER) != 0)
            continue;
        bool covered = row->orb == OPTION_ANSWER; // prints and ends; it has tests of its own
        for (const Translation &translation : translations)
            covered = covered || option_lookup(translation.arguments[0].c_str(), nullptr) == row;
        EXPECT_TRUE(covered) << row->name;
    }
}

TEST_F(OptionsTranslation, AValueOptionWithoutAValueIsMalformed)
{
    for (const char *option : {"-mstack",
                               "-mstack=",
                               "-mcpu",
                               "-mcpu=",
                               "-std",
                               "-mext",
                               "-mext=",
                               "-mwarn=",
                               "-fmax-errors",
                               "-mdfp",
                               "-mivt=",
                               "-mreserve",
                               "-mreserve=",
                               "-mreserve=ram",
                               "-mreserve=ram@1",
                               "-mreserve=ram@:",
                               "-mreserve=ram@1:",
                               "-mreserve=ram@:2",
                               "-mreserve=eeprom@1:2",
                               "--memorysummary="})
        expectExit({option}, FAMILY_ORB18,
                   "(1195) invalid syntax for \"" + std::string(option) + "\" option\n");
    for (const char *option : {"-mcpu", "-mcpu=", "-mext", "--memorysummary="})
        expectExit({option}, FAMILY_ELM,
                   "(1195) invalid syntax for \"" + std::string(option) + "\" option\n");
}

TEST_F(OptionsTranslation, ARefusedOptionIsRefusedBeforeItsValueIsLookedAt)
{
    EXPECT_EQ(emitted({"-mstack", "-mreserve=nonsense", "-mwarn="}, FAMILY_ELM), Strings{});
    EXPECT_EQ(gMessages,
              "(1428) \"-mstack\" is not supported; this feature will be ignored (warning)\n"
              "(1428) \"-mreserve=nonsense\" is not supported; this feature will be ignored "
              "(warning)\n"
              "(1428) \"-mwarn=\" is not supported; this feature will be ignored (warning)\n");
}

TEST_F(OptionsTranslation, AMissingSeparateArgumentEndsTheRun)
{
    for (const char *option : {"-o", "-D", "-U", "-I", "-l", "-L", "-Xlinker", "-Xassembler",
                               "-Xpreprocessor", "-x", "-MF", "--memorysummary"}) {
        const std::string text = "(2041) missing argument after \"" + std::string(option) + "\"\n";
        expectExit({option}, FAMILY_ORB10, text);
        expectExit({option}, FAMILY_ELM, text);
    }
    for (const char *option : {"-Xparser", "-Xp1", "-Xclang", "-Xqzm"})
        expectExit({option}, FAMILY_ORB10,
                   "(2041) missing argument after \"" + std::string(option) + "\"\n");
    expectExit({"-Wl,-Map"}, FAMILY_ORB10, "(2041) missing argument after \"-Map\"\n");
    expectExit({"-Wl,-Map"}, FAMILY_ELM, "(2041) missing argument after \"-Map\"\n");
}

TEST_F(OptionsTranslation, ARefusedOptionConsumesItsValueEvenWhenItLooksLikeAnOption)
{
    EXPECT_EQ(emitted({"-Xclang", "-c", "-Xqzm", "--errformat=x", "-O2"}, FAMILY_ELM),
              Strings{"-O2"});
    EXPECT_FALSE(gOptionState.compileOnly);
    EXPECT_FALSE(gOptionState.errorFormatGiven);
}

TEST_F(OptionsTranslation, FormatOptionsForTheLegacyDriverAreRemembered)
{
    emitted({"-Xqzm", "--errformat=a", "-Xqzm", "--msgformat=b"}, FAMILY_ORB10);
    EXPECT_TRUE(gOptionState.errorFormatGiven);
    EXPECT_FALSE(gOptionState.warningFormatGiven);
    EXPECT_TRUE(gOptionState.messageFormatGiven);
}

TEST_F(OptionsTranslation, OrbFinalOptionsStandInOrder)
{
    EXPECT_EQ(emittedWithFinal({}, FAMILY_ORB10),
              (Strings{"--std=c99", "--callgraph=none", "--warn=-3"}));
    gOptionState.cInput = gOptionState.assemblyInput = gOptionState.preprocessAssembly = true;
    EXPECT_EQ(emittedWithFinal({"-c", "-w"}, FAMILY_ORB10),
              (Strings{"--msgdisable=0", "-c", "--pass1", "-P", "--std=c99", "--callgraph=none",
                       "--warn=-3", "-R-w"}));
    resetState();
    gOptionState.assemblyInput = true;
    EXPECT_EQ(emittedWithFinal({"-c"}, FAMILY_ORB10),
              (Strings{"-c", "--std=c99", "--callgraph=none", "--warn=-3"}));
    resetState();
    gOptionState.cInput = true;
    EXPECT_EQ(emittedWithFinal({"-c", "-mwarn=2", "-ansi", "-w"}, FAMILY_ORB10),
              (Strings{"--warn=2", "--std=c90", "--msgdisable=0", "--pass1", "--callgraph=none"}));
}

// The options that a handler emits for a row in no set that the driver indexes.
static Strings emittedByInactive(const char *name, const char *argument, OptionHandler handler,
                                 OptionFamily family)
{
    const OptionRecord *row = options_table();
    while (strcmp(row->name, name) != 0)
        ++row;
    Vector *emitted = vec_new("translation", 1);
    Vector *arguments = vec_new("translation", 2);
    vec_add(arguments, argument);
    handler({row, nullptr, family, argument, emitted, arguments, 0});
    if (row->seen != nullptr)
        gOptionState.*row->seen = true; // as the walk over the arguments does
    Strings texts;
    for (const char *text : vec_each<const char>(emitted))
        texts.emplace_back(text);
    vec_destroy(emitted);
    vec_destroy(arguments);
    return texts;
}

TEST_F(OptionsTranslation, TheInstructionSetIsThatOfOrb18Alone)
{
    const auto emits = [](OptionFamily family) {
        return emittedByInactive("-misa", "-misa=std", option_instructionSet, family);
    };
    EXPECT_EQ(emits(FAMILY_ORB18), Strings{"--isa=std"});
    EXPECT_EQ(gMessages, "");
    const std::string refused =
        "(1428) \"-misa=std\" is not supported; this feature will be ignored (warning)\n";
    EXPECT_EQ(emits(FAMILY_ORB10), Strings{});
    EXPECT_EQ(gMessages, refused);
    EXPECT_EQ(emits(FAMILY_ELM), Strings{});
    EXPECT_EQ(gMessages, refused + refused);
}

TEST_F(OptionsTranslation, ACallGraphThatWasGivenTakesThePlaceOfTheDefault)
{
    EXPECT_EQ(emittedByInactive("-mcallgraph", "-mcallgraph=full", option_value, FAMILY_ORB10),
              Strings{"--callgraph=full"});
    EXPECT_EQ(emittedWithFinal({}, FAMILY_ORB10), (Strings{"--std=c99", "--warn=-3"}));
}

TEST_F(OptionsTranslation, TheLastStandardDecidesWhetherC90IsChosen)
{
    EXPECT_EQ(emittedWithFinal({"-ansi", "-std=c99", "-w", "-mwarn=0"}, FAMILY_ORB18),
              (Strings{"--std=c90", "--std=c99", "--msgdisable=0", "--warn=0", "--callgraph=none",
                       "-R-w"}));
}

TEST_F(OptionsTranslation, AnUnknownStandardIsNotFollowedByTheDefaultOne)
{
    EXPECT_EQ(emittedWithFinal({"-std=gnu99"}, FAMILY_ORB10),
              (Strings{"--std=c99", "--callgraph=none", "--warn=-3"}));
}

TEST_F(OptionsTranslation, ElmFinalOptionsStandInOrder)
{
    EXPECT_EQ(emittedWithFinal({"-mcpu=ELMbig1"}, FAMILY_ELM),
              (Strings{"-mmcu=elmbig1", "-Wl,--info-linker", "-mdevice=elmbig1",
                       "-mconst-data-in-progmem"}));
    resetState();
    EXPECT_EQ(emittedWithFinal({"-mcpu=elmbig1", "-mno-const-data-in-progmem", "-mdevice=X",
                                "-mdfp=/p", "-mcpu=elmbig2"},
                               FAMILY_ELM),
              (Strings{"-mmcu=elmbig1", "-mno-const-data-in-progmem", "-mdevice=X", "-mdfp=/p",
                       "-mmcu=elmbig2", "-Wl,--info-linker"}));
    resetState();
    EXPECT_EQ(emittedWithFinal({"-mcpu=elmbig1", "-mcpu=elmbig2"}, FAMILY_ELM),
              (Strings{"-mmcu=elmbig1", "-mmcu=elmbig2", "-Wl,--info-linker", "-mdevice=elmbig2",
                       "-mconst-data-in-progmem"}));
}

TEST_F(CompleteCommand, BuiltInsThatCannotBeListedAreAnError)
{
    Vector *vector = toVector({"-mcpu=elmbig1", "-mprint-builtins"});
    alert_setOutputHook(nullptr);
    EXPECT_EXIT(
        {
            // A leak checker in the child would report on the tests before, in the text compared.
            exitpath_setRoutine([](int status) {
                osdep_removeTempFiles();
                std::_Exit(status);
            });
            if (freopen("/dev/full", "w", stdout) != nullptr)
                options_process(vector);
        },
        testing::ExitedWithCode(1),
        testing::Eq("(105) could not write file \"standard output\": No space left on device\n"));
    vec_destroy(vector);
}

TEST_F(CompleteCommand, TheTraceTellsWhichFamilyPackIsUsed)
{
    const std::string pack = version_ + "/dfp/qzm";
    const auto lines = [] {
        return trace_lines_while("final_options",
                                 [] { emittedWithFinal({"-mcpu=elmbig1"}, FAMILY_ELM); });
    };
    EXPECT_EQ(lines(), Strings{"Could not find DFP directory \"" + pack + "\""});
    std::filesystem::create_directories(pack);
    EXPECT_EQ(lines(), Strings{"Using DFP directory \"" + pack + "\""});
    std::filesystem::remove_all(version_ + "/dfp");
}

// A scratch directory that is the current one during a test.
class LibrarySearch : public OptionsTranslation {
  protected:
    void SetUp() override
    {
        OptionsTranslation::SetUp();
        before_ = std::filesystem::current_path();
        char *directory = osdep_tempDir();
        scratch_ = directory;
        free(directory);
        std::filesystem::current_path(scratch_);
    }
    void TearDown() override
    {
        std::filesystem::current_path(before_);
        std::filesystem::remove_all(scratch_);
        OptionsTranslation::TearDown();
    }
    static void touch(const std::string &path)
    {
        const std::filesystem::path parent = std::filesystem::path(path).parent_path();
        if (!parent.empty())
            std::filesystem::create_directories(parent);
        std::ofstream file(path);
        ASSERT_TRUE(file.good()) << path;
    }
    // The options from the arguments, after the fixed final options.
    static Strings libraries(const Strings &arguments)
    {
        Strings all = emittedWithFinal(arguments, FAMILY_ORB10);
        return Strings(all.begin() + 3, all.end());
    }
    std::filesystem::path before_;
    std::filesystem::path scratch_;
};

TEST_F(LibrarySearch, EveryCandidateNameIsTriedInOrder)
{
    Strings files = {"lib/foo",        "lib/foo.a",   "lib/libfoo.a",  "lib/foo.lpp",
                     "lib/libfoo.lpp", "lib/foo.lib", "lib/libfoo.lib"};
    for (const std::string &file : files)
        touch(file);
    for (const std::string &file : files) {
        resetState();
        EXPECT_EQ(libraries({"-lfoo", "-Llib"}), Strings{file});
        std::filesystem::remove(file);
    }
    resetState();
    EXPECT_EQ(libraries({"-lfoo", "-Llib"}), Strings{"foo"});
}

TEST_F(LibrarySearch, ANameWithAnExtensionIsTriedAsItIsAndWithLibInFront)
{
    touch("lib/m.lib.a");
    touch("lib/libm.lib");
    EXPECT_EQ(libraries({"-lm.lib", "-Llib"}), Strings{"lib/libm.lib"});
    resetState();
    touch("lib/m.lib");
    EXPECT_EQ(libraries({"-lm.lib", "-Llib"}), Strings{"lib/m.lib"});
}

TEST_F(LibrarySearch, TheCurrentDirectoryComesFirst)
{
    touch("libfoo.lib");
    touch("lib/foo");
    EXPECT_EQ(libraries({"-lfoo", "-Llib"}), Strings{"libfoo.lib"});
}

TEST_F(LibrarySearch, DirectoriesAreSearchedInOrderForEachLibraryInOrder)
{
    touch("one/a.lib");
    touch("two/a");
    touch("two/b.lib");
    EXPECT_EQ(libraries({"-lb", "-la", "-lc", "-L", "one", "-Ltwo"}),
              (Strings{"two/b.lib", "one/a.lib", "c"}));
}

TEST_F(LibrarySearch, WithoutDirectoriesNamesAreEmittedAsGiven)
{
    touch("libfoo.a");
    EXPECT_EQ(libraries({"-lfoo", "-l", "bar"}), (Strings{"foo", "bar"}));
}

TEST_F(LibrarySearch, APathIsEmittedAsGiven)
{
    touch("lib/x/foo.lib");
    EXPECT_EQ(libraries({"-lx/foo", "-l/abs", "-Llib"}), (Strings{"x/foo", "/abs"}));
}

TEST_F(LibrarySearch, ADirectoryIsNoCandidate)
{
    touch("lib/foo/inside");
    touch("lib/foo.lib");
    EXPECT_EQ(libraries({"-lfoo", "-Llib"}), Strings{"lib/foo.lib"});
}

} // namespace
