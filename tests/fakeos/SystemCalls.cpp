// The system calls that the product makes, defined here so that the linker prefers them to libc's. They act on the
// current FakeOs, and call libc's if there is none (gtest itself uses clocks and files).
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string>

#include "tests/fakeos/FakeOs.h"

// In a 32-bit build with 64-bit times or offsets the headers rename the calls below.
#if defined(_FILE_OFFSET_BITS) && _FILE_OFFSET_BITS == 64 && __LONG_WIDTH__ == 32
#define OFFSET_NAME(name) name "64"
#else
#define OFFSET_NAME(name) name
#endif
#if defined(_TIME_BITS) && _TIME_BITS == 64 && __LONG_WIDTH__ == 32
#define TIME_NAME(name) "__" name "64"
#else
#define TIME_NAME(name) name
#endif

namespace {

FakeOs*& os = FakeOs::current;

// libc's own call, under its name or another.
#define LIBC_AS(call, name) reinterpret_cast<decltype(&(call))>(dlsym(RTLD_NEXT, name))
#define LIBC(call) LIBC_AS(call, #call)

std::string Format(const char* format, va_list arguments) {
  char text[4096];
  vsnprintf(text, sizeof text, format, arguments);
  return text;
}

// --- Buffered streams: libc's streams on files of the FakeOs ---

int FileOf(void* cookie) { return static_cast<int>(reinterpret_cast<intptr_t>(cookie)); }

// A stream that was given no buffer allocates one at its first use.
void NeedOwnBuffer(void* cookie, const char* use) {
  if (!os->ownBuffers.contains(FileOf(cookie))) {
    os->NeedSignalsHeld(use);
  }
}

ssize_t StreamRead(void* cookie, char* out, size_t size) {
  NeedOwnBuffer(cookie, "a stream's read");
  return os->Read(FileOf(cookie), out, size);
}

ssize_t StreamWrite(void* cookie, const char* data, size_t size) {
  NeedOwnBuffer(cookie, "a stream's write");
  const ssize_t written = os->Write(FileOf(cookie), data, size);
  return written < 0 ? 0 : written;  // fopencookie: 0 means failure
}

int StreamSeek(void* cookie, off64_t* offset, int whence) {
  *offset = os->Seek(FileOf(cookie), *offset, whence);
  return 0;
}

int StreamClose(void* cookie) {
  os->NeedSignalsHeld("fclose");
  const int file = FileOf(cookie);
  std::erase_if(os->streams, [file](const auto& stream) { return stream.second == file; });
  os->ownBuffers.erase(file);
  return os->Close(file);
}

FILE* OpenStream(int file, const char* mode) {
  FILE* const stream = fopencookie(reinterpret_cast<void*>(static_cast<intptr_t>(file)), mode,
                                   {StreamRead, StreamWrite, StreamSeek, StreamClose});
  os->streams[stream] = file;
  return stream;
}

}  // namespace

extern "C" {

// --- Queues ---

key_t ftok(const char* path, int project) noexcept { return os ? os->Ftok(path, project) : LIBC(ftok)(path, project); }

int msgget(key_t key, int flags) noexcept { return os ? os->Msgget(key, flags) : LIBC(msgget)(key, flags); }

int msgsnd(int queue, const void* message, size_t size, int flags) {
  return os ? os->Msgsnd(queue, message, size, flags) : LIBC(msgsnd)(queue, message, size, flags);
}

ssize_t msgrcv(int queue, void* message, size_t size, long type, int flags) {
  return os ? os->Msgrcv(queue, message, size, type, flags) : LIBC(msgrcv)(queue, message, size, type, flags);
}

pid_t getpid() noexcept { return os ? FakeOs::kPid : LIBC(getpid)(); }

// --- Log: without a FakeOs nothing is logged, so that tests never write to this machine's log ---

void openlog(const char* ident, int option, int facility) {
  if (os) {
    os->Openlog(ident, option, facility);
  }
}

void vsyslog(int priority, const char* format, va_list arguments) {
  if (os) {
    os->Syslog(priority, Format(format, arguments));
  }
}

void syslog(int priority, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  vsyslog(priority, format, arguments);
  va_end(arguments);
}

// The names of vsyslog and syslog in a fortified build.
void __vsyslog_chk(int priority, int, const char* format, va_list arguments) { vsyslog(priority, format, arguments); }

void __syslog_chk(int priority, int, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  vsyslog(priority, format, arguments);
  va_end(arguments);
}

void closelog() {
  if (os) {
    os->Closelog();
  }
}

// --- Time ---

int usleep(useconds_t microseconds) {
  if (!os) {
    return LIBC(usleep)(microseconds);
  }
  if (os->Sleep(microseconds, "usleep") != 0) {
    errno = EINTR;
    return -1;
  }
  return 0;
}

unsigned sleep(unsigned seconds) {
  return os ? static_cast<unsigned>((os->Sleep(uint64_t{seconds} * 1000000, "sleep") + 999999) / 1000000)
            : LIBC(sleep)(seconds);
}

int clock_gettime(clockid_t clock, timespec* now) noexcept {
  if (!os) {
    static const auto libc = LIBC_AS(clock_gettime, TIME_NAME("clock_gettime"));
    return libc(clock, now);
  }
  if (!os->Enter("clock_gettime")) {
    return -1;
  }
  if (clock == CLOCK_MONOTONIC) {
    now->tv_sec = static_cast<time_t>(os->Now() / 1000000000);
    now->tv_nsec = static_cast<long>(os->Now() % 1000000000);
  } else {
    *now = {os->wallClock, 0};
  }
  return 0;
}

time_t time(time_t* now) noexcept {
  if (!os) {
    return LIBC_AS(time, TIME_NAME("time"))(now);
  }
  os->Enter("time");
  if (now) {
    *now = os->wallClock;
  }
  return os->wallClock;
}

tm* localtime(const time_t* now) noexcept {
  if (os) {
    os->NeedSignalsHeld("localtime");
  }
  return LIBC_AS(localtime, TIME_NAME("localtime"))(now);
}

// --- Signals: FakeOs calls SignalHandler itself, so no handler is installed ---

int sigaction(int signal, const struct sigaction* action, struct sigaction* old) noexcept {
  if (!os || !action) {
    return LIBC(sigaction)(signal, action, old);
  }
  if (!os->Enter("sigaction")) {
    return -1;
  }
  os->AddHandler({signal, action->sa_handler, action->sa_flags, sigisemptyset(&action->sa_mask) == 1, old != nullptr});
  return 0;
}

// --- Files ---

FILE* fopen(const char* path, const char* mode) {
  if (!os) {
    return LIBC_AS(fopen, OFFSET_NAME("fopen"))(path, mode);
  }
  os->NeedSignalsHeld("fopen");
  const int write = strchr(mode, '+') ? O_RDWR : O_WRONLY;
  const int file = os->Open(path, *mode == 'r'   ? (strchr(mode, '+') ? O_RDWR : O_RDONLY)
                                  : *mode == 'w' ? write | O_CREAT | O_TRUNC
                                                 : write | O_CREAT | O_APPEND);
  return file < 0 ? nullptr : OpenStream(file, mode);
}

FILE* fdopen(int file, const char* mode) noexcept {
  if (!os || !os->IsOpen(file)) {
    return LIBC(fdopen)(file, mode);
  }
  os->NeedSignalsHeld("fdopen");
  return os->Enter("fdopen") ? OpenStream(file, mode) : nullptr;
}

int setvbuf(FILE* stream, char* buffer, int mode, size_t size) noexcept {
  if (os) {
    if (const auto found = os->streams.find(stream); found != os->streams.end()) {
      os->NeedSignalsHeld("setvbuf");
      os->ownBuffers.insert(found->second);
    }
  }
  return LIBC(setvbuf)(stream, buffer, mode, size);
}

int fileno(FILE* stream) noexcept {
  if (os) {
    if (const auto found = os->streams.find(stream); found != os->streams.end()) {
      return found->second;
    }
  }
  return LIBC(fileno)(stream);
}

int open(const char* path, int flags, ...) {
  if (os) {
    return os->Open(path, flags);
  }
  va_list arguments;
  va_start(arguments, flags);
  const auto mode = va_arg(arguments, mode_t);
  va_end(arguments);
  return LIBC_AS(open, OFFSET_NAME("open"))(path, flags, mode);
}

ssize_t read(int file, void* out, size_t size) {
  return os && os->IsOpen(file) ? os->Read(file, static_cast<char*>(out), size) : LIBC(read)(file, out, size);
}

ssize_t write(int file, const void* data, size_t size) {
  return os && os->IsOpen(file) ? os->Write(file, static_cast<const char*>(data), size) : LIBC(write)(file, data, size);
}

int fsync(int file) { return os && os->IsOpen(file) ? os->Fsync(file) : LIBC(fsync)(file); }

int close(int file) { return os && os->IsOpen(file) ? os->Close(file) : LIBC(close)(file); }

int rename(const char* from, const char* to) noexcept { return os ? os->Rename(from, to) : LIBC(rename)(from, to); }

int unlink(const char* path) noexcept { return os ? os->Unlink(path) : LIBC(unlink)(path); }

int remove(const char* path) noexcept { return os ? os->Unlink(path) : LIBC(remove)(path); }

}  // extern "C"
