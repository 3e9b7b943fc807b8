/* The settings file: key=value lines. A line that begins with '#' is a comment. A line of more than 255 characters is
   read as several lines. */
#ifndef ZR4410_SUPPORT_SETTINGS_H
#define ZR4410_SUPPORT_SETTINGS_H

#include "support/CDecls.h"

ZR4410_BEGIN_DECLS

/* Copies the value of the first line that begins with key and contains a '='. Spaces before the value and double quotes
   around it are dropped; the value ends before its first unprintable character.
   out: 256 bytes are always enough; unchanged if the key is missing.
   Returns 0, even if the key is missing; -1 if an argument is null or the file cannot be opened: this is logged, and
   out is unchanged.
   A signal whose handler was installed without SA_RESTART interrupts a wait for the file: if it interrupts opening, the
   result is -1; if it interrupts reading, the reader treats that as the end of the file. */
int sysconf_fget(const char* path, const char* key, char* out);

/* Replaces the value in every line that begins with key and contains a '='. The new file is written to path + ".tmp"
   (at most 127 characters) and renamed to path once it is on the disk. A missing key is not added.
   Returns 0; -1 if an argument is null, the file cannot be opened or read, the temporary file cannot be created or
   written completely, or the rename fails. A failure is logged and leaves the settings file unchanged; the temporary
   file may remain. If the temporary file cannot be created, the descriptor of the settings file stays open. */
int sysconf_fset(const char* path, const char* key, const char* value);

ZR4410_END_DECLS

#endif
