// The program, its main under another name.
#define main testZR4410_main
#include "frontend/testZR4410.cpp"
