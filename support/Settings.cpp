// The settings file. Signals are held back while a stream is open: streams allocate, and the handler's
// logging may too.
#include <unistd.h>

#include <cctype>
#include <cstdio>
#include <cstring>

#include "support/Log.h"
#include "support/Results.h"
#include "support/SignalGuard.h"
#include "support/Utils.h"

namespace {

using Line = char[256];  // 255 characters: a longer line is read as several

// Reads like fgets, and tells the length, so that a zero byte does not end a line. 0 at the end of the file, or
// when it cannot be read on.
size_t ReadLine(FILE* file, Line& line) {
  memset(line, 0, sizeof line);
  size_t length = 0;
  while (length < sizeof line - 1) {
    const int c = getc(file);
    if (c == EOF) {
      break;
    }
    line[length++] = static_cast<char>(c);
    if (c == '\n') {
      break;
    }
  }
  return ferror(file) ? 0 : length;
}

// The '=' of a line that begins with key, or null. Only the beginning counts: the key EXT_DEBUG matches
// EXT_DEBUG_X too.
char* FindAssignment(Line& line, const char* key) {
  if (line[0] == '#' || strncmp(line, key, strlen(key)) != 0) {
    return nullptr;
  }
  return strchr(line, '=');
}

// Copies the value that starts after the '='.
void CopyValue(const char* value, char* out) {
  value += strspn(value, " ");
  const bool quoted = *value == '"';
  if (quoted) {
    ++value;
  }
  while (isprint(static_cast<unsigned char>(*value)) && !(quoted && *value == '"')) {
    *out++ = *value++;
  }
  *out = 0;
}

FILE* OpenSettings(const char* path) {
  FILE* const file = fopen(path, "r");
  if (file == nullptr) {
    Log(LOG_ERR, "can not open sysconf file %s.\n", path);
  }
  return file;
}

FILE* OpenTemporary(const char* path, char (&temporary)[128]) {
  const int length = snprintf(temporary, sizeof temporary, "%s%s", path, ".tmp");
  return length < static_cast<int>(sizeof temporary) ? fopen(temporary, "w") : nullptr;
}

}  // namespace

int sysconf_fget(const char* path, const char* key, char* out) {
  if (path == nullptr || key == nullptr || out == nullptr) {
    return LogFailure(RESULT_FAILED, "invalid args.\n");
  }
  const SignalGuard guard;
  FILE* const file = OpenSettings(path);
  if (file == nullptr) {
    return RESULT_FAILED;
  }
  Line line;
  while (ReadLine(file, line) > 0) {
    if (const char* const assignment = FindAssignment(line, key)) {
      CopyValue(assignment + 1, out);
      break;
    }
  }
  fclose(file);
  return RESULT_OK;
}

int sysconf_fset(const char* path, const char* key, const char* value) {
  if (path == nullptr || key == nullptr || value == nullptr) {
    return LogFailure(RESULT_FAILED, "sysconf_fset invalid args");
  }
  const SignalGuard guard;
  FILE* const from = OpenSettings(path);
  if (from == nullptr) {
    return RESULT_FAILED;
  }
  char temporary[128];
  FILE* const to = OpenTemporary(path, temporary);
  if (to == nullptr) {
    return LogFailure(RESULT_FAILED,
                      "Can not create a temp file for write.");  // the settings file stays open, on purpose
  }
  Line line;
  while (const size_t length = ReadLine(from, line)) {
    if (const char* const assignment = FindAssignment(line, key)) {
      fwrite(line, 1, static_cast<size_t>(assignment - line), to);
      fprintf(to, "=%s\n", value);
    } else {
      fwrite(line, 1, length, to);
    }
  }
  // Only a whole file may take the old one's place.
  bool whole = !ferror(from) && fflush(to) == 0 && !ferror(to) && fsync(fileno(to)) == 0;
  whole = fclose(to) == 0 && whole;
  fclose(from);
  if (!whole || rename(temporary, path) != 0) {
    return LogFailure(RESULT_FAILED, "moving file error.");
  }
  return RESULT_OK;
}
