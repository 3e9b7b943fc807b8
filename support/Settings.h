/* The settings file: key=value lines of at most 255 characters; a line that begins with '#' is a comment. */
#ifndef ZR4410_SUPPORT_SETTINGS_H
#define ZR4410_SUPPORT_SETTINGS_H

#include "support/CDecls.h"

ZR4410_BEGIN_DECLS

/* Copies the value of the first line that begins with key and has a '='. Spaces before the value and double quotes
   around it are dropped; the value ends at its first unprintable character.
   out: 256 bytes are always enough; unchanged if the key is missing.
   Returns 0, even if the key is missing; -1 if an argument is null or the file cannot be opened. A signal whose handler
   was installed without SA_RESTART interrupts a wait for the file: in open the file then counts as one that cannot be
   opened, in reading it ends there. */
int sysconf_fget(const char* path, const char* key, char* out);

/* Replaces the value of every line that begins with key and has a '='. The new file is written to path + ".tmp" (at
   most 127 characters) and renamed onto path when it is on the disk. A missing key is not added.
   Returns 0; -1 if an argument is null, the file cannot be opened or read, the temporary file cannot be created or
   written completely, or the rename fails: the settings file is then as it was. */
int sysconf_fset(const char* path, const char* key, const char* value);

ZR4410_END_DECLS

#endif
