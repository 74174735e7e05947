#ifndef STRING_H
#define STRING_H

#include <stddef.h>

void *memcpy(void *to, const void *from, size_t size);
void *memmove(void *to, const void *from, size_t size);
void *memset(void *to, int byte, size_t size);
int memcmp(const void *one, const void *other, size_t size);
size_t strlen(const char *text);
char *strcpy(char *to, const char *from);
char *strncpy(char *to, const char *from, size_t size);
char *strcat(char *to, const char *from);
int strcmp(const char *one, const char *other);
int strncmp(const char *one, const char *other, size_t size);
char *strchr(const char *text, int character);

#endif
