// The same program, read as C++.
#include "consumer.c"
