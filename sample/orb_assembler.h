// The assembler of the sample suite, for a device that exists only here.
//
// One statement a line: an optional "label:", then an instruction or a directive; ";" begins a
// comment. Instructions are one or two words of 16 bits, low byte first:
//
//     nop  ret  reti  sleep            one word
//     ldk K, addk K, andk K, orrk K    one word; K is a byte or the low byte of a symbol
//     ld F, st F, clr F, inc F, dec F  one word; F is an address in data memory
//     jmp A, call A, jz A, jnz A       two words; A is a label
//
//     psect NAME[, data]     continues the section
//     global NAME[, NAME]    makes names known to other modules, or takes them from there
//     NAME equ VALUE         names a constant
//     db V[, V]  dw V[, V]   places bytes or words; ds N leaves room
//     end [NAME]             ends the source; the program starts at NAME
//
// A value is a number (10, 0x1F, 'A') or a symbol, which "+N" or "-N" may follow. Lines of the form
// `# 12 "file"`, which a preprocessor leaves, say where the next line comes from.
#ifndef SAMPLE_ORB_ASSEMBLER_H
#define SAMPLE_ORB_ASSEMBLER_H

#include "sample/orb_module.h"
#include "sample/report.h"

// Assembles the text. Errors are reported; the module is null when there was one. `file` is the
// source's name. With a `listing`, appends a listing to it.
OrbModule *orbasm_assemble(const char *text, const char *file, const char *chip, Report *report,
                           Buffer *listing);

#endif
