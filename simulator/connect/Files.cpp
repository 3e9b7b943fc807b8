// Opens, writes and removes the files of a run.
#include "simulator/connect/Files.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <set>
#include <string_view>
#include <system_error>

#include "simulator/connect/Signals.h"
#include "simulator/model/Error.h"

namespace sim {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kReadSize = 65536;
constexpr mode_t kForAll = 0666;  // less the umask

Error Failure(const std::string& path) { return Error(path + ": " + std::strerror(errno)); }

int Open(const std::string& path, int flags) {
  const int descriptor = open(path.c_str(), flags | O_CLOEXEC | O_NOCTTY, kForAll);
  if (descriptor < 0) {
    throw Failure(path);
  }
  return descriptor;
}

void Close(int& descriptor) {
  if (descriptor >= 0) {
    close(descriptor);
    descriptor = -1;
  }
}

// Writes the text, and waits for a reader if necessary. Returns false if a stop signal ends the wait.
bool Write(int descriptor, std::string_view text, const std::string& path) {
  const sigset_t set = StopSignals();
  int stopped = signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
  while (!text.empty()) {
    pollfd fds[] = {{descriptor, POLLOUT, 0}, {stopped, POLLIN, 0}};
    poll(fds, std::size(fds), -1);
    if (fds[0].revents == 0 && fds[1].revents != 0) {
      break;
    }
    if (fds[0].revents == 0) {
      continue;
    }
    // A FIFO that can be written takes PIPE_BUF bytes at once; with more, write would wait.
    const ssize_t count = write(descriptor, text.data(), std::min<std::size_t>(text.size(), PIPE_BUF));
    if (count < 0 && errno != EINTR && errno != EAGAIN) {
      const Error failure = Failure(path);
      Close(stopped);
      throw failure;
    }
    text.remove_prefix(count > 0 ? static_cast<std::size_t>(count) : 0);
  }
  Close(stopped);
  return text.empty();
}

enum class Kind : std::uint8_t { None, Regular, Other };
Kind KindOf(const std::string& path) {
  struct stat state {};
  if (stat(path.c_str(), &state) != 0) {
    return Kind::None;
  }
  return S_ISREG(state.st_mode) ? Kind::Regular : Kind::Other;
}

fs::path InstalledScenarios() {
  std::error_code none;
  return fs::read_symlink("/proc/self/exe", none).parent_path() / SIM_SCENARIOS;
}

}  // namespace

void OpenStandardDescriptors() {
  int descriptor = -1;
  do {
    descriptor = open("/dev/null", O_RDWR);
  } while (descriptor >= 0 && descriptor <= STDERR_FILENO);
  Close(descriptor);
}

std::string ReadFile(const std::string& path) {
  int descriptor = Open(path, O_RDONLY);
  std::string text;
  ssize_t count = 0;
  do {
    const std::size_t size = text.size();
    text.resize(size + kReadSize);
    count = read(descriptor, text.data() + size, kReadSize);
    text.resize(size + (count > 0 ? static_cast<std::size_t>(count) : 0));
  } while (count > 0 || (count < 0 && errno == EINTR));
  const int error = errno;
  Close(descriptor);
  if (count < 0) {
    errno = error;
    throw Failure(path);
  }
  return text;
}

std::string ScenarioFile(const std::string& name) {
  std::error_code none;
  if (name.find('/') != std::string::npos || (fs::exists(name, none) && !fs::is_directory(name, none))) {
    return name;
  }
  std::set<std::string> installed;
  for (const auto& file : fs::directory_iterator(InstalledScenarios(), none)) {
    if (file.path().extension() == ".toml") {
      if (file.path().filename() == name || file.path().stem() == name) {
        return file.path().lexically_normal();
      }
      installed.insert(file.path().stem());
    }
  }
  std::string names;
  for (const std::string& one : installed) {
    names += (names.empty() ? "" : ", ") + one;
  }
  throw Error(name + ": no such file" + (names.empty() ? "" : ", and no installed scenario (" + names + ")"));
}

CaptureFile::CaptureFile(std::string path, bool force) : path_(std::move(path)) {
  const Kind kind = KindOf(path_);
  if (kind == Kind::Regular && !force) {
    throw Error(path_ + ": the file exists (--force overwrites it)");
  }
  if (kind != Kind::None) {
    descriptor_ = Open(path_, O_WRONLY);
  }
}

CaptureFile::~CaptureFile() {
  Close(descriptor_);
  if (created_) {
    unlink(path_.c_str());
  }
}

bool CaptureFile::Begin(const std::string& header) {
  if (descriptor_ < 0) {
    descriptor_ = Open(path_, O_WRONLY | O_CREAT | O_EXCL);
    created_ = true;
  } else if (ftruncate(descriptor_, 0) != 0 && errno != EINVAL) {  // EINVAL: not a regular file
    throw Failure(path_);
  }
  return Write(descriptor_, header + '\n', path_);
}

ReadyFile::ReadyFile(std::string path) : path_(std::move(path)) {
  if (!path_.empty() && KindOf(path_) == Kind::Other) {
    descriptor_ = Open(path_, O_WRONLY);
  }
}

ReadyFile::~ReadyFile() { Remove(); }

void ReadyFile::Prepare() {
  if (path_.empty() || descriptor_ >= 0) {
    return;
  }
  draft_ = path_ + '.' + std::to_string(getpid());
  try {
    descriptor_ = Open(draft_, O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW);
    Write(descriptor_, std::to_string(getpid()) + '\n', draft_);
  } catch (const Error&) {
    throw Failure(path_);
  }
  unlink(path_.c_str());
}

void ReadyFile::Announce() {
  if (draft_.empty()) {
    if (descriptor_ >= 0) {
      Write(descriptor_, std::to_string(getpid()) + '\n', path_);
    }
  } else if (std::rename(draft_.c_str(), path_.c_str()) != 0) {
    throw Failure(path_);
  } else {
    announced_ = true;
  }
}

void ReadyFile::Remove() {
  if (!draft_.empty()) {
    struct stat mine {};
    struct stat there {};
    if (!announced_) {
      unlink(draft_.c_str());
    } else if (fstat(descriptor_, &mine) == 0 && lstat(path_.c_str(), &there) == 0 && mine.st_dev == there.st_dev &&
               mine.st_ino == there.st_ino) {  // unless another run has taken the name
      unlink(path_.c_str());
    }
    draft_.clear();
  }
  Close(descriptor_);
}

}  // namespace sim
