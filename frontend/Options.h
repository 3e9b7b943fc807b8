// The command line of testZR4410.
#ifndef ZR4410_FRONTEND_OPTIONS_H
#define ZR4410_FRONTEND_OPTIONS_H

#include <cstdint>

// Run mode: what the last mode option chose.
enum : int32_t {
  MODE_NONE = 0,
  MODE_CAMERA = 1,          // -s
  MODE_MCU = 2,             // -m
  MODE_READ = 3,            // -r
  MODE_COMMAND = 4,         // -c
  MODE_INQUIRY = 5,         // -i
  MODE_SYSTEM_INQUIRY = 6,  // -y
};

extern "C" {
extern int32_t giOption;        // run mode
extern int32_t giArgv1;         // first number (-s, -m, -y), or byte count of the hex data (-c, -i)
extern int32_t giArgv2;         // second number (-s, -m)
extern int32_t giCategoryCode;  // VISCA category byte (-i)
extern uint8_t gbArgv[16];      // hex data (-c, -i) as bytes

// Prints the usage text to standard output.
void usage(void);
}

enum class CommandLine {
  Run,    // go on with the chosen mode
  Usage,  // the usage was printed: end with exit status 0
  BadHex  // a hex argument was refused and logged: end with exit status 255
};

// Parses the options into the globals above and gfDebugFlag.
CommandLine ParseCommandLine(int argc, char** argv);

// Returns text as strtol reads it in base 10, stored in 32 bits: a larger number saturates where a long has 32 bits, as
// on the device, and loses its upper bits where it has 64.
int32_t ParseDecimal(const char* text);

#endif
