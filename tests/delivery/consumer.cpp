/* The same PAL in C++. */
#include "consumer.c"
