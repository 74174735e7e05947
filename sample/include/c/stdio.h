#ifndef STDIO_H
#define STDIO_H

#include <stddef.h>

int printf(const char *format, ...);
int sprintf(char *to, const char *format, ...);
int snprintf(char *to, size_t size, const char *format, ...);
int puts(const char *text);
int putchar(int character);

#endif
