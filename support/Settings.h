/* The settings file: key=value lines of at most 255 characters; a line that begins with '#' is a comment. */
#ifndef ZR4410_SUPPORT_SETTINGS_H
#define ZR4410_SUPPORT_SETTINGS_H

#include "support/CDecls.h"

ZR4410_BEGIN_DECLS

/* Copies the value of the first line that begins with key and contains a '='. Spaces before the value and double quotes
   around it are dropped; the value ends before its first unprintable character.
   out: 256 bytes are always enough; unchanged if the key is missing.
   Returns 0, even if the key is missing; -1 if an argument is null or the file cannot be opened: out is then unchanged.
   A signal whose handler was installed without SA_RESTART interrupts a wait for the file: if it interrupts opening, the
   result is -1; if it interrupts reading, the file counts as ended there. */
int sysconf_fget(const char* path, const char* key, char* out);

/* Replaces the value in every line that begins with key and contains a '='. The new file is written to path + ".tmp"
   (at most 127 characters) and renamed to path once it is on the disk. A missing key is not added.
   Returns 0; -1 if an argument is null, the file cannot be opened or read, the temporary file cannot be created or
   written completely, or the rename fails: the settings file is then unchanged. */
int sysconf_fset(const char* path, const char* key, const char* value);

ZR4410_END_DECLS

#endif
