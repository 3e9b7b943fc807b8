// The program with main under another name, so that a target can run it.
#define main testZR4410_main
#include "frontend/testZR4410.cpp"
