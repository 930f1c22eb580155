/* The same program in C++. */
#include "../model/interface_test.c"
