// Reads and writes values of the settings file. Opening, reading and writing may wait, so a stop signal must be able to
// interrupt them. Creating or closing a stream may take malloc's lock, for which a handler that logs would wait
// forever, so signals are held back there. Therefore the file is opened before there is a stream, and the stream gets
// its own buffer so that reading and writing do not allocate.
#include "support/Settings.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "support/Log.h"
#include "support/Results.h"
#include "support/SignalGuard.h"

namespace {

using Line = char[256];           // 255 characters: a longer line is read as several
using TemporaryPath = char[128];  // a longer path is refused

// A buffered stream with its own buffer, so that reading and writing allocate nothing.
class Stream {
 public:
  // file: the descriptor, or a negative number if it could not be opened; then there is no stream.
  Stream(int file, const char* mode) {
    if (file < 0) {
      return;
    }
    const SignalGuard guard;
    stream_ = fdopen(file, mode);
    if (stream_ == nullptr) {
      close(file);
      return;
    }
    setvbuf(stream_, buffer_, _IOFBF, sizeof buffer_);
  }
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;

  bool IsOpen() const { return stream_ != nullptr; }
  FILE* Get() const { return stream_; }

  // Call it only when nothing is left to write (after fflush, even a failed one), so that it never waits. Returns false
  // if closing fails.
  bool Close() {
    const SignalGuard guard;
    return fclose(stream_) == 0;
  }

 private:
  FILE* stream_ = nullptr;
  char buffer_[1024];
};

// Reads a line and returns its length, because a line may contain zero bytes. Returns 0 at the end of the file, or if
// reading fails.
size_t ReadLine(FILE* file, Line& line) {
  memset(line, '\n', sizeof line);
  if (fgets(line, sizeof line, file) == nullptr) {
    return 0;
  }
  // If the first line feed was read from the file, the terminating zero byte follows it. If memset put it there, the
  // terminating zero byte is before it.
  const auto* const lineFeed = static_cast<const char*>(memchr(line, '\n', sizeof line));
  if (lineFeed == nullptr) {
    return sizeof line - 1;
  }
  const auto before = static_cast<size_t>(lineFeed - line);
  return before + 1 < sizeof line && line[before + 1] == 0 ? before + 1 : before - 1;
}

// Returns the '=' of a line that begins with key, or null. Only the beginning is compared: the key EXT_DEBUG matches
// EXT_DEBUG_X too.
char* FindAssignment(Line& line, const char* key) {
  if (line[0] == '#' || strncmp(line, key, strlen(key)) != 0) {
    return nullptr;
  }
  return strchr(line, '=');
}

// Whether the character is printable in the default locale. isprint would use the locale that the caller has set.
bool IsPrintable(char c) { return c >= ' ' && c <= '~'; }

// Copies the value that starts after the '='.
void CopyValue(const char* value, char* out) {
  value += strspn(value, " ");
  const bool quoted = *value == '"';
  if (quoted) {
    ++value;
  }
  while (IsPrintable(*value) && !(quoted && *value == '"')) {
    *out++ = *value++;
  }
  *out = 0;
}

void LogOpenFailure(const char* path) { LOG(LOG_ERR, "can not open sysconf file %s.\n", path); }

int OpenTemporary(const char* path, TemporaryPath& temporary) {
  const int length = snprintf(temporary, sizeof temporary, "%s.tmp", path);
  return length < static_cast<int>(sizeof temporary) ? open(temporary, O_WRONLY | O_CREAT | O_TRUNC, 0666) : -1;
}

// Copies `from` to `to` and replaces the value in every matching line. Returns true if all of it is on the disk.
bool CopyWithValue(FILE* from, FILE* to, const char* key, const char* value) {
  Line line;
  while (const size_t length = ReadLine(from, line)) {
    if (const char* const assignment = FindAssignment(line, key)) {
      fwrite(line, 1, static_cast<size_t>(assignment + 1 - line), to);
      fputs(value, to);
      fputc('\n', to);
    } else {
      fwrite(line, 1, length, to);
    }
  }
  const bool flushed = fflush(to) == 0;  // even if reading failed: closing must have nothing left to write
  return flushed && !ferror(from) && !ferror(to) && fsync(fileno(to)) == 0;
}

}  // namespace

int sysconf_fget(const char* path, const char* key, char* out) {
  if (path == nullptr || key == nullptr || out == nullptr) {
    return LogFailure(RESULT_FAILED, "invalid args.\n");
  }
  Stream file(open(path, O_RDONLY), "r");
  if (!file.IsOpen()) {
    LogOpenFailure(path);
    return RESULT_FAILED;
  }
  Line line;
  while (ReadLine(file.Get(), line) > 0) {
    if (const char* const assignment = FindAssignment(line, key)) {
      CopyValue(assignment + 1, out);
      break;
    }
  }
  file.Close();
  return RESULT_OK;
}

int sysconf_fset(const char* path, const char* key, const char* value) {
  if (path == nullptr || key == nullptr || value == nullptr) {
    return LogFailure(RESULT_FAILED, "sysconf_fset invalid args");
  }
  const int file = open(path, O_RDONLY);
  if (file < 0) {
    LogOpenFailure(path);
    return RESULT_FAILED;
  }
  TemporaryPath temporary;
  Stream to(OpenTemporary(path, temporary), "w");
  if (!to.IsOpen()) {
    // Intentional: the settings file stays open, as the header says. The device's other software calls this routine, so
    // its behaviour does not change.
    return LogFailure(RESULT_FAILED, "Can not create a temp file for write.");
  }
  Stream from(file, "r");
  if (!from.IsOpen()) {
    to.Close();
    LogOpenFailure(path);
    return RESULT_FAILED;
  }
  // Only a complete file may replace the old one.
  bool complete = CopyWithValue(from.Get(), to.Get(), key, value);
  complete = to.Close() && complete;
  from.Close();
  if (!complete || rename(temporary, path) != 0) {
    return LogFailure(RESULT_FAILED, "moving file error.");
  }
  return RESULT_OK;
}
