// The state behind the fake system calls, and the checks that they make.
#include "tests/fakeos/FakeOs.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ipc.h>
#include <sys/mman.h>
#include <sys/msg.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <numeric>

#include "support/Signal.h"
#include "support/SignalGuard.h"

namespace {

constexpr size_t kBodySize = 36;
constexpr uint8_t kJunk = 0xEE;      // after the stop byte of a reply, where nothing may be read
constexpr long kMaxSteps = 1000000;  // more system calls than any test makes

uint64_t Nanoseconds(int milliseconds) { return uint64_t{1000000} * static_cast<unsigned>(milliseconds); }

std::string Number(long value) { return std::to_string(value); }

bool HandledSignalsHeld(bool all) {
  sigset_t mask;
  pthread_sigmask(SIG_BLOCK, nullptr, &mask);
  const auto held = [&mask](int signal) { return sigismember(&mask, signal) == 1; };
  const auto handled = {SIGINT, SIGTERM, SIGUSR1, SIGUSR2};
  return all ? std::all_of(begin(handled), end(handled), held) : std::any_of(begin(handled), end(handled), held);
}

}  // namespace

std::string Hex(const Bytes& bytes) {
  std::string text;
  for (const uint8_t byte : bytes) {
    static constexpr char kDigits[] = "0123456789ABCDEF";
    text += {kDigits[byte / 16], kDigits[byte % 16], ' '};
  }
  return text.substr(0, text.empty() ? 0 : text.size() - 1);
}

LogLine Err(std::string text) { return {LOG_ERR, std::move(text)}; }
LogLine Info(std::string text) { return {LOG_INFO, std::move(text)}; }
LogLine Debug(std::string text) { return {LOG_DEBUG, std::move(text)}; }

std::ostream& operator<<(std::ostream& out, const LogLine& line) {
  return out << "level " << line.level << ' ' << testing::PrintToString(line.text);
}

// --- The device ---

Bytes Request::Frame() const {
  const size_t length = std::min<size_t>(body.at(3), kBodySize - 4);
  return {body.begin() + 4, body.begin() + 4 + static_cast<ptrdiff_t>(length)};
}

Bytes Request::Payload() const {
  const size_t length = std::min<size_t>(body.at(6), kBodySize - 7);
  return {body.begin() + 7, body.begin() + 7 + static_cast<ptrdiff_t>(length)};
}

Bytes Reply::Body(const Request& request) const {
  if (raw_) {
    return *raw_;
  }
  const auto length = static_cast<uint8_t>(payload_.size());
  Bytes body = {
      0xAA,  0xAA, request.Id(), static_cast<uint8_t>(length + 5), 0xAA, static_cast<uint8_t>(request.Code() + 0x80),
      length};
  for (const auto& [place, value] : changed_) {
    body[place] = value;
  }
  body.insert(body.end(), payload_.begin(), payload_.end());
  const unsigned sum = 0xAAU + std::accumulate(body.begin() + 5, body.end(), 0U);
  body.push_back(checksum_.value_or(static_cast<uint8_t>(256 - sum % 256)));
  body.push_back(stop_.value_or(0x55));
  body.resize(kBodySize, kJunk);
  return body;
}

Reply& FakeOs::Reply(Bytes payload) { return script_.emplace_back(std::move(payload)); }

Reply& FakeOs::NoReply() {
  ::Reply& reply = script_.emplace_back();
  reply.silent_ = true;
  return reply;
}

void FakeOs::Deliver(const ::Reply& reply, const Request& request) {
  if (!reply.silent_) {
    Arrive(reply.Body(request), reply.after_, reply.type_);
  }
}

void FakeOs::Answer(const Request& request, Bytes payload, int after) {
  Deliver(::Reply(std::move(payload)).After(after), request);
}

void FakeOs::Arrive(Bytes message, int after, long type) {
  const uint64_t due = nowNs_ + Nanoseconds(after);
  const auto later = [due](const Arrival& other) { return other.dueNs > due; };
  arrivals_.insert(std::find_if(arrivals_.begin(), arrivals_.end(), later), {due, type, std::move(message)});
}

void FakeOs::RemoveOverlong() {
  std::erase_if(arrivals_, [](const Arrival& arrival) { return arrival.bytes.size() > kBodySize; });
}

void FakeOs::DropAnswers() {
  script_.clear();
  arrivals_.clear();
}

// --- Events ---

FakeOs* FakeOs::current;

FakeOs::FakeOs() : wallClock(1000000000), nowNs_(100'000'000'000), startNs_(nowNs_) {
  files = {{"/defconf/conf.ptz", ""}, {"/sysconf/conf.img", "EXT_DEBUG=0\n"}};
  // Standard output goes to a memory file, including gtest's failure messages; the destructor prints those.
  static const int memory = memfd_create("standard output", MFD_CLOEXEC);
  fflush(stdout);
  realStdout_ = dup(STDOUT_FILENO);
  dup2(memory, STDOUT_FILENO);
  Captured();
  if (current) {
    abort();  // only one may exist at a time
  }
  current = this;
}

FakeOs::~FakeOs() {
  if (logOpen_) {
    Wrong("a log line without closelog");
  }
  killed_ = true;
  while (!streams.empty()) {
    const SignalGuard guard;
    fclose(streams.begin()->first);
  }
  current = nullptr;
  forgottenOutput_ += Captured();
  dup2(realStdout_, STDOUT_FILENO);
  close(realStdout_);
  for (const std::string& what : wrong_) {
    ADD_FAILURE() << "FakeOs found a mistake of the product: " << what;
  }
  if (testing::Test::HasFailure()) {
    fwrite(forgottenOutput_.data(), 1, forgottenOutput_.size(), stdout);
    fflush(stdout);
  }
}

bool FakeOs::Enter(std::string_view call) {
  if (++steps_ > kMaxSteps) {
    fprintf(stderr, "FakeOs: %ld system calls in one test, the last is %s: an endless loop\n", steps_, call.data());
    abort();
  }
  const auto found = calls_.try_emplace(std::string(call), 0).first;
  const int n = ++found->second;
  int error = 0;
  if (const auto planned = planned_.find(call); planned != planned_.end()) {
    for (size_t i = 0; i < planned->second.size(); ++i) {
      const Planned event = planned->second[i];  // a copy: an action may plan more
      if (event.n == n) {
        error = event.error ? event.error : error;
        if (event.action) {
          event.action();
        }
      }
    }
  }
  if (error) {
    errno = error;
    return false;
  }
  return true;
}

void FakeOs::On(std::string_view call, int n, std::function<void()> action) {
  if (std::find(std::begin(kCalls), std::end(kCalls), call) == std::end(kCalls)) {
    ADD_FAILURE() << "no such call: " << call;
  }
  planned_[std::string(call)].push_back({Calls(call) + n, 0, std::move(action)});
}

void FakeOs::Fail(std::string_view call, int error, int n, int times) {
  for (int i = 0; i < times; ++i) {
    On(call, n + i, nullptr);
    planned_[std::string(call)].back().error = error;
  }
}

void FakeOs::StopAt(std::string_view call, int n) {
  On(call, n, [] { SetSigID(1); });
}

void FakeOs::At(int milliseconds, std::function<void()> action) {
  timed_.emplace(nowNs_ + Nanoseconds(milliseconds), Timed{std::move(action), false});
}

void FakeOs::SignalAt(int milliseconds, int signal) {
  timed_.emplace(nowNs_ + Nanoseconds(milliseconds), Timed{[signal] { SignalHandler(signal); }, true});
}

void FakeOs::AdvanceMs(int milliseconds) { Advance(Nanoseconds(milliseconds)); }

bool FakeOs::Advance(uint64_t nanoseconds) {
  const uint64_t end = nowNs_ + nanoseconds;
  while (!timed_.empty() && timed_.begin()->first <= end) {
    const auto event = timed_.extract(timed_.begin());
    nowNs_ = std::max(nowNs_, event.key());
    event.mapped().action();
    if (event.mapped().interruptsSleep) {
      return true;
    }
  }
  nowNs_ = end;
  return false;
}

// --- What the product did ---

std::vector<Bytes> FakeOs::Frames() const {
  std::vector<Bytes> frames;
  for (const Request& request : requests_) {
    frames.push_back(request.Frame());
  }
  return frames;
}

std::vector<Bytes> FakeOs::Packets() const {
  std::vector<Bytes> packets;
  for (const Request& request : requests_) {
    packets.push_back(request.Payload());
  }
  return packets;
}

int FakeOs::Calls(std::string_view call) const {
  const auto found = calls_.find(call);
  return found == calls_.end() ? 0 : found->second;
}

// Moves what was written to standard output out of the memory file.
std::string FakeOs::Captured() {
  fflush(stdout);
  std::string text(static_cast<size_t>(std::max<off_t>(0, lseek(STDOUT_FILENO, 0, SEEK_CUR))), '\0');
  if (pread(STDOUT_FILENO, text.data(), text.size(), 0) != static_cast<ssize_t>(text.size()) ||
      ftruncate(STDOUT_FILENO, 0) != 0 || lseek(STDOUT_FILENO, 0, SEEK_SET) != 0) {
    abort();
  }
  return text;
}

std::string FakeOs::Output() {
  output_ += Captured();
  return output_;
}

void FakeOs::Forget() {
  forgottenOutput_ += Output();
  output_.clear();
  requests_.clear();
  log_.clear();
  slept_.clear();
  timeline_.clear();
  fileSteps_.clear();
  opened_.clear();
  handlers_.clear();
  for (auto& [call, count] : calls_) {
    std::erase_if(planned_[call], [past = count](const Planned& event) { return event.n <= past; });
    for (Planned& event : planned_[call]) {
      event.n -= count;
    }
    count = 0;
  }
  startNs_ = nowNs_;
}

// --- Queues, log, sleep, signals ---

void FakeOs::NeedSignalsHeld(const std::string& what) {
  if (!HandledSignalsHeld(true)) {
    Wrong("a handler that logs can interrupt " + what);
  }
}

void FakeOs::NeedSignalsFree(const std::string& what) {
  if (HandledSignalsHeld(false)) {
    Wrong(what + " while the handled signals are held back");
  }
}

void FakeOs::AddHandler(const Handler& handler) {
  handlers_.push_back(handler);
  timeline_.push_back("sigaction " + Number(handler.signal));
}

int FakeOs::Ftok(const char* path, int project) {
  if (!Enter("ftok")) {
    return -1;
  }
  if (!files.contains(path)) {
    errno = ENOENT;
    return -1;
  }
  timeline_.push_back(std::string("ftok ") + path + ' ' + static_cast<char>(project));
  return (project & 0xFF) << 24 | 0x010042;  // device 1, inode 0x42
}

int FakeOs::Msgget(int key, int flags) {
  if (!Enter("msgget")) {
    return -1;
  }
  opened_.push_back({key, flags});
  timeline_.push_back("msgget " + Number(key >> 24));
  return key >> 24 == 'b' ? kRequestQueue : kReplyQueue;
}

int FakeOs::Msgsnd(int queue, const void* message, size_t size, int flags) {
  if (flags != IPC_NOWAIT || size != kBodySize) {
    Wrong("msgsnd of " + Number(static_cast<long>(size)) + " bytes with flags " + Number(flags));
  }
  if (!Enter("msgsnd")) {
    return -1;
  }
  Request request;
  request.queue = queue;
  memcpy(&request.type, message, sizeof request.type);
  const auto* body = static_cast<const uint8_t*>(message) + sizeof request.type;
  request.body = Bytes(body, body + kBodySize);
  if (queue != kRequestQueue || request.type < 1) {
    errno = EINVAL;
    return -1;
  }
  requests_.push_back(request);
  timeline_.push_back("send " + Number(request.type) + ' ' + Hex(request.body));
  if (!script_.empty()) {
    const ::Reply reply = script_.front();
    script_.pop_front();
    Deliver(reply, request);
  } else if (device) {
    device(request);
  }
  return 0;
}

ssize_t FakeOs::Msgrcv(int queue, void* message, size_t size, long type, int flags) {
  if (flags != IPC_NOWAIT || size != kBodySize || type != 0) {
    Wrong("msgrcv of " + Number(static_cast<long>(size)) + " bytes, type " + Number(type) + ", flags " + Number(flags));
  }
  const auto failed = [this](int error) {
    errno = error;
    timeline_.push_back(error == ENOMSG ? "receive nothing" : "receive error " + Number(error));
    return ssize_t{-1};
  };
  if (!Enter("msgrcv")) {
    return failed(errno);
  }
  if (queue != kReplyQueue) {
    return failed(EINVAL);
  }
  if (arrivals_.empty() || arrivals_.front().dueNs > nowNs_) {
    return failed(ENOMSG);
  }
  if (arrivals_.front().bytes.size() > size) {
    return failed(E2BIG);
  }
  const Arrival arrival = arrivals_.front();
  arrivals_.erase(arrivals_.begin());
  memcpy(message, &arrival.type, sizeof arrival.type);
  std::copy(arrival.bytes.begin(), arrival.bytes.end(), static_cast<uint8_t*>(message) + sizeof arrival.type);
  timeline_.push_back("receive " + Number(static_cast<long>(arrival.bytes.size())));
  return static_cast<ssize_t>(arrival.bytes.size());
}

void FakeOs::Openlog(const char* ident, int option, int facility) {
  NeedSignalsHeld("openlog");
  if (logOpen_ || strcmp(ident, "testZR4410") != 0 || option != (LOG_CONS | LOG_PID) || facility != LOG_USER) {
    Wrong(std::string("openlog ") + ident + ' ' + Number(option) + ' ' + Number(facility));
  }
  logOpen_ = true;
  logWritten_ = false;
}

void FakeOs::Syslog(int priority, const std::string& text) {
  Enter("syslog");
  if (!logOpen_ || logWritten_ || ((priority & LOG_FACMASK) != 0 && (priority & LOG_FACMASK) != LOG_USER)) {
    Wrong("syslog " + Number(priority) + " not between openlog and closelog, or a second time: " + text);
  }
  NeedSignalsHeld("syslog " + text);
  logWritten_ = true;
  log_.push_back({LOG_PRI(priority), text});
  timeline_.push_back("log " + Number(LOG_PRI(priority)) + ' ' + text);
  errno = ENOTTY;  // libc's syslog changes errno too
}

void FakeOs::Closelog() {
  NeedSignalsHeld("closelog");
  if (!logWritten_) {
    Wrong("closelog without a line");
  }
  logOpen_ = logWritten_ = false;
}

uint64_t FakeOs::Sleep(uint64_t microseconds, const char* call) {
  NeedSignalsFree("sleeping");
  timeline_.push_back("sleep " + Number(static_cast<long>(microseconds)));
  slept_.push_back(static_cast<unsigned>(microseconds));
  if (!Enter(call)) {
    return microseconds;
  }
  const uint64_t start = nowNs_;
  Advance(microseconds * 1000);
  return microseconds - (nowNs_ - start) / 1000;
}

// --- Files ---

// Every system call on a file goes through here.
FakeOs::Step FakeOs::FileStep(std::string_view call, const std::string& text) {
  if (killed_) {
    return Step::Dead;
  }
  fileSteps_.push_back(text);
  timeline_.push_back(text);
  if (FileStepsNow() == killAt_) {
    killed_ = true;
    return Step::Dead;
  }
  if (!Enter(call)) {
    return Step::Fail;
  }
  if (const auto failing = failingFileSteps_.find(FileStepsNow()); failing != failingFileSteps_.end()) {
    errno = failing->second;
    return Step::Fail;
  }
  return Step::Go;
}

int FakeOs::Open(const std::string& path, int flags) {
  NeedSignalsFree("opening " + path);
  const bool writes = (flags & O_ACCMODE) != O_RDONLY;
  const Step step = FileStep("open", std::string("open ") + (writes ? "w " : "r ") + path);
  if (step == Step::Fail) {
    return -1;
  }
  if (step == Step::Go) {
    if (!files.contains(path) && !(flags & O_CREAT)) {
      errno = ENOENT;
      return -1;
    }
    if (files.contains(path) && (flags & O_CREAT) && (flags & O_EXCL)) {
      errno = EEXIST;
      return -1;
    }
    if (!files.contains(path) || (flags & O_TRUNC)) {
      files[path].clear();
      unsynced_.insert(path);
    }
  }
  const auto found = files.find(path);
  open_[nextFile] = {path, found == files.end() ? "" : found->second, 0, (flags & O_APPEND) != 0};
  return nextFile++;
}

ssize_t FakeOs::Read(int file, char* out, size_t size) {
  OpenFile& open = open_.at(file);
  NeedSignalsFree("reading " + open.path);
  if (FileStep("read", "read " + open.path) == Step::Fail) {
    return -1;
  }
  askedFor_ = size;
  const size_t count = open.content.copy(out, size, std::min(open.position, open.content.size()));
  open.position += count;
  return static_cast<ssize_t>(count);
}

ssize_t FakeOs::Write(int file, const char* data, size_t size) {
  OpenFile& open = open_.at(file);
  NeedSignalsFree("writing " + open.path);
  const Step step = FileStep("write", "write " + open.path);
  if (step == Step::Fail) {
    return -1;
  }
  if (step == Step::Go) {
    std::string& content = files[open.path];
    open.position = open.append ? content.size() : open.position;
    content.resize(std::max(content.size(), open.position + size));
    content.replace(open.position, size, data, size);
    open.position += size;
    unsynced_.insert(open.path);
  }
  return static_cast<ssize_t>(size);
}

int64_t FakeOs::Seek(int file, int64_t offset, int whence) {
  OpenFile& open = open_.at(file);
  const size_t from = whence == SEEK_SET ? 0 : whence == SEEK_CUR ? open.position : open.content.size();
  open.position = static_cast<size_t>(static_cast<int64_t>(from) + offset);
  return static_cast<int64_t>(open.position);
}

int FakeOs::Fsync(int file) {
  const std::string& path = open_.at(file).path;
  const Step step = FileStep("fsync", "fsync " + path);
  if (step == Step::Go) {
    unsynced_.erase(path);
  }
  return step == Step::Fail ? -1 : 0;
}

int FakeOs::Close(int file) {
  const Step step = FileStep("close", "close " + open_.at(file).path);
  open_.erase(file);
  return step == Step::Fail ? -1 : 0;
}

int FakeOs::Rename(const std::string& from, const std::string& to) {
  const Step step = FileStep("rename", "rename " + from + ' ' + to);
  if (step == Step::Go) {
    if (!files.contains(from)) {
      errno = ENOENT;
      return -1;
    }
    auto node = files.extract(from);
    files[to] = std::move(node.mapped());
    unsynced_.erase(to);
    if (unsynced_.erase(from)) {
      unsynced_.insert(to);
    }
    for (auto& [file, open] : open_) {
      open.path = open.path == from ? to : open.path;
    }
  }
  return step == Step::Fail ? -1 : 0;
}

int FakeOs::Unlink(const std::string& path) {
  const Step step = FileStep("unlink", "unlink " + path);
  if (step == Step::Go && files.erase(path) == 0) {
    errno = ENOENT;
    return -1;
  }
  return step == Step::Fail ? -1 : 0;
}

std::map<std::string, std::string> FakeOs::AfterPowerCut() const {
  auto found = files;
  for (const std::string& path : unsynced_) {
    if (found.contains(path)) {
      found[path].clear();
    }
  }
  return found;
}
