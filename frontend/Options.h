// The command line of testZR4410.
#ifndef ZR4410_FRONTEND_OPTIONS_H
#define ZR4410_FRONTEND_OPTIONS_H

#include <cstdint>

// The run mode, set by the last mode option of the command line.
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
  Run,    // continue with the run mode
  Usage,  // the usage was printed (-h, no or wrong arguments): exit with status 0
  BadHex  // a hex argument was refused, which was logged: exit with status 255
};

// Parses the options into the globals above and gfDebugFlag. argv may be reordered. If there are several mode options,
// the last one decides.
CommandLine ParseCommandLine(int argc, char** argv);

// Returns the number that strtol reads from text in base 10, converted to 32 bits. If it needs more than 32 bits, it
// saturates where long has 32 bits, as on the device, and loses its upper bits where long has 64.
int32_t ParseDecimal(const char* text);

#endif
