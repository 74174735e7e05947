#ifndef STDLIB_H
#define STDLIB_H

#include <stddef.h>

#define RAND_MAX 32767

int abs(int number);
long labs(long number);
int atoi(const char *text);
int rand(void);
void srand(unsigned int seed);

#endif
