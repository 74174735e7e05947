// The names that are built into the ELM compiler.
#ifndef DRIVER_MACHDEP_H
#define DRIVER_MACHDEP_H

// Prints the ELM built-in functions on standard output, one name per line, sorted byte by byte.
void machdep_printBuiltins();

#endif
