// A fake operating system: unit tests run the product's real code on it, in virtual time.
//
// The test executable defines the system calls that the product makes (message queues, syslog, sleeping, clocks, files,
// getpid, sigaction), and the linker prefers them to libc's; see SystemCalls.cpp. While a FakeOs exists, they act on
// it. Otherwise they call libc's, except that nothing is logged. The product itself is not changed for this. A test
// looks like this:
//
//   TEST_F(QM2150Transaction, ASyntaxErrorIsReported) {  // fixtures with an `os`: tests/fakeos/Fixtures.h
//     os.Reply({0x90, 0x60, 0x02, 0xFF});              // the answer to the next request
//     tVisca reply{};
//     EXPECT_EQ(QM2150_Inquiry(0x04, 1, code, &reply), 0);
//     EXPECT_EQ(QM2150_ChecRespVisca(&reply), -59);
//     EXPECT_THAT(os.Log(), ElementsAre(Err("VISCA RESP: Syntax error.\n")));
//     EXPECT_THAT(os.Packets(), ElementsAre(Bytes{0x81, 0x09, 0x04, 0x00, 0xFF}));
//   }
//
// The device. Each request gets the next scripted answer. If there is none, os.device handles the request; if os.device
// is not set either, the request is never answered.
//   os.Reply({0x10});                        a good reply frame: id echoed, code + 0x80, checksum
//   os.Reply({0x10}).Code(0x02);             ... with a part replaced: Header (two bytes), Id, FrameLength, Start,
//                                            Code, Length, Checksum, Stop; or Raw(bytes), a body of any length
//   os.Reply({0x10}).After(120).Type(5);     ... 120 ms later, of another message type
//   os.NoReply();                            the device is silent
//   os.device = [&](const Request& r) { os.Answer(r, {0x10}); };      a device in code
//   os.Arrive(Bytes(36));                    a message on the reply queue, now or in `after` ms; one of more than 36
//                                            bytes stays there and fails every msgrcv with E2BIG, as in the kernel
//   os.RemoveOverlong();                     removes such messages, as another program could
//
// Events. `call` is one of kCalls; n counts its calls from now on, beginning with 1.
//   os.Fail("msgsnd", EAGAIN);               the next call fails; Fail(call, errno, n, times): several, from the n-th
//   os.On("usleep", 2, [] { ... });          runs the action at the beginning of that call
//   os.StopAt("msgrcv", 3);                  sets the stop flag in that call (no handler, no log line)
//   os.SignalAt(120, SIGTERM);               SignalHandler runs 120 virtual ms from now and interrupts a sleep
//   os.At(120, [] { ... });                  anything else; does not interrupt a sleep
//
// What the product did, in order, since the start or os.Forget():
//   os.Log()        log lines with their levels: Err("..."), Info("..."), Debug("...")
//   os.Requests()   messages sent;  os.Frames() their UART1 frames;  os.Packets() their payloads
//   os.Slept()      sleeps in microseconds, as requested;  os.ElapsedMs() the virtual time that passed
//   os.Output()     standard output;  os.Calls("msgrcv") how often a call was made
//   os.Timeline()   queue calls, log lines, sleeps, installed handlers and file steps in one list of texts:
//                   "sleep 50000", "send 4711 AA AA 01 ...", "receive 36", Logged(Err("...")), "sigaction 15"
//
// Files are in memory: os.files["/sysconf/conf.img"] = "EXT_DEBUG=0\n". Every system call on a file is a step:
//   os.FileSteps()                           "open r /a", "read /a", "write /b", "fsync /b", "close /b", "rename /b /a"
//   os.FailFileStep(n, ENOSPC);              the n-th step fails
//   os.KillAtFileStep(n);                    the process is killed: neither that step nor any later one has an effect
//   os.AfterPowerCut()                       the files after a power cut: data without an fsync is lost
//   os.AskedFor()                            how many bytes the last read asked for
//
// FakeOs fails a test if the product does one of the following:
//   - logs a line without openlog or closelog
//   - logs, asks for the local time, creates or closes a stream, or uses one without a buffer of its own while a
//     handled signal could interrupt it
//   - sleeps, opens, reads or writes while these signals are held back
//   - makes a queue call that blocks or has a wrong size
#ifndef ZR4410_TESTS_FAKEOS_FAKEOS_H
#define ZR4410_TESTS_FAKEOS_FAKEOS_H

#include <sys/types.h>

#include <cstdint>
#include <cstdio>
#include <ctime>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <ostream>
#include <set>
#include <string>
#include <string_view>
#include <vector>

using Bytes = std::vector<uint8_t>;

// Bytes as "AA 01 FF".
std::string Hex(const Bytes& bytes);

struct LogLine {
  int level;
  std::string text;
  bool operator==(const LogLine&) const = default;
};
std::ostream& operator<<(std::ostream& out, const LogLine& line);
LogLine Err(std::string text);
LogLine Info(std::string text);
LogLine Debug(std::string text);

// The message type of a reply, unless a test chooses another. The product ignores it.
inline constexpr long kReplyType = 77;

// A message that the product sent.
struct Request {
  int queue = 0;
  long type = 0;
  Bytes body;  // 36 bytes

  uint8_t Id() const { return body.at(2); }
  uint8_t Code() const { return body.at(5); }
  Bytes Frame() const;    // from body byte 4 on; its length is body byte 3
  Bytes Payload() const;  // between the frame's length byte and its checksum
};

// A reply of the device: correct except for the requested changes.
class Reply {
 public:
  Reply() = default;
  explicit Reply(Bytes payload) : payload_(std::move(payload)) {}

  Reply& Header(uint8_t first, uint8_t second) { return Set(0, first).Set(1, second); }
  Reply& Id(uint8_t value) { return Set(2, value); }
  Reply& FrameLength(uint8_t value) { return Set(3, value); }
  Reply& Start(uint8_t value) { return Set(4, value); }
  Reply& Code(uint8_t value) { return Set(5, value); }    // the checksum includes the wrong code
  Reply& Length(uint8_t value) { return Set(6, value); }  // the checksum includes the wrong length
  Reply& Checksum(uint8_t value) { return checksum_ = value, *this; }
  Reply& Stop(uint8_t value) { return stop_ = value, *this; }
  Reply& Raw(Bytes bytes) { return raw_ = std::move(bytes), *this; }
  Reply& After(int milliseconds) { return after_ = milliseconds, *this; }
  Reply& Type(long type) { return type_ = type, *this; }

  // The 36-byte body, or the raw bytes, that answer the request.
  Bytes Body(const Request& request) const;

 private:
  friend class FakeOs;
  Reply& Set(size_t place, uint8_t value) { return changed_[place] = value, *this; }

  Bytes payload_;
  std::map<size_t, uint8_t> changed_;
  std::optional<uint8_t> checksum_, stop_;
  std::optional<Bytes> raw_;
  int after_ = 0;
  long type_ = kReplyType;
  bool silent_ = false;
};

class FakeOs {
 public:
  FakeOs();
  ~FakeOs();
  FakeOs(const FakeOs&) = delete;
  FakeOs& operator=(const FakeOs&) = delete;

  static constexpr std::string_view kCalls[] = {"ftok",  "msgget",        "msgsnd", "msgrcv", "syslog",    "usleep",
                                                "sleep", "clock_gettime", "time",   "open",   "read",      "write",
                                                "fsync", "close",         "rename", "unlink", "sigaction", "fdopen"};
  static constexpr int kPid = 4711;
  // The ids of the queues with project 'b' and 'a'. 0 is a valid id.
  static constexpr int kRequestQueue = 0, kReplyQueue = 32769;

  // --- The device ---
  ::Reply& Reply(Bytes payload);
  ::Reply& NoReply();
  std::function<void(const Request&)> device;
  void Answer(const Request& request, Bytes payload, int after = 0);
  void Arrive(Bytes message, int after = 0, long type = kReplyType);
  void RemoveOverlong();
  size_t Waiting() const { return arrivals_.size(); }  // messages on the reply queue and on their way to it
  size_t Unused() const { return script_.size(); }     // scripted answers that no request took
  void DropAnswers();                                  // drops those, and the messages on the queue or on their way

  // --- Events ---
  void On(std::string_view call, int n, std::function<void()> action);
  void Fail(std::string_view call, int error, int n = 1, int times = 1);
  void StopAt(std::string_view call, int n = 1);
  void At(int milliseconds, std::function<void()> action);
  void SignalAt(int milliseconds, int signal);
  void AdvanceMs(int milliseconds);
  void SetClock(uint64_t monotonicNanoseconds) { nowNs_ = startNs_ = monotonicNanoseconds; }
  time_t wallClock;        // what time() returns; does not advance
  int nextFile = 1000000;  // the descriptor of the next file that is opened

  // --- What the product did ---
  const std::vector<LogLine>& Log() const { return log_; }
  const std::vector<Request>& Requests() const { return requests_; }
  std::vector<Bytes> Frames() const;
  std::vector<Bytes> Packets() const;
  const std::vector<unsigned>& Slept() const { return slept_; }
  int64_t ElapsedMs() const { return static_cast<int64_t>(nowNs_ - startNs_) / 1000000; }
  std::string Output();
  int Calls(std::string_view call) const;
  const std::vector<std::string>& Timeline() const { return timeline_; }
  struct Queue {
    int key, flags;
    bool operator==(const Queue&) const = default;
  };
  const std::vector<Queue>& Opened() const { return opened_; }  // msgget calls
  struct Handler {
    int signal;
    void (*handler)(int);
    int flags;
    bool emptyMask, asksForOld;
  };
  const std::vector<Handler>& Handlers() const { return handlers_; }
  void Forget();  // clears all of this; calls and time are counted from here

  // --- Files ---
  std::map<std::string, std::string> files;
  const std::vector<std::string>& FileSteps() const { return fileSteps_; }
  void FailFileStep(int n, int error) { failingFileSteps_[FileStepsNow() + n] = error; }
  void KillAtFileStep(int n) { killAt_ = FileStepsNow() + n; }
  bool Killed() const { return killed_; }
  std::map<std::string, std::string> AfterPowerCut() const;
  size_t OpenFiles() const { return open_.size(); }
  size_t AskedFor() const { return askedFor_; }

  // --- For the system calls in SystemCalls.cpp ---
  static FakeOs* current;
  bool Enter(std::string_view call);              // counts the call and runs its events; false: it fails, errno is set
  void NeedSignalsHeld(const std::string& what);  // for calls that take a lock that a handler would wait for
  int Ftok(const char* path, int project);
  int Msgget(int key, int flags);
  int Msgsnd(int queue, const void* message, size_t size, int flags);
  ssize_t Msgrcv(int queue, void* message, size_t size, long type, int flags);
  void Openlog(const char* ident, int option, int facility);
  void Syslog(int priority, const std::string& text);
  void Closelog();
  uint64_t Sleep(uint64_t microseconds, const char* call);  // returns the microseconds not slept
  uint64_t Now() const { return nowNs_; }
  void AddHandler(const Handler& handler);
  int Open(const std::string& path, int flags);
  ssize_t Read(int file, char* out, size_t size);
  ssize_t Write(int file, const char* data, size_t size);
  int64_t Seek(int file, int64_t offset, int whence);
  int Fsync(int file);
  int Close(int file);
  int Rename(const std::string& from, const std::string& to);
  int Unlink(const std::string& path);
  bool IsOpen(int file) const { return open_.contains(file); }
  void NeedSignalsFree(const std::string& what);  // for calls that may wait, and must end when a signal arrives
  std::map<FILE*, int> streams;                   // the buffered streams and their files
  std::set<int> ownBuffers;                       // files whose streams were given a buffer

 private:
  struct Arrival {
    uint64_t dueNs;
    long type;
    Bytes bytes;
  };
  struct Planned {
    int n;
    int error;  // 0: the call is carried out
    std::function<void()> action;
  };
  struct Timed {
    std::function<void()> action;
    bool interruptsSleep;
  };
  struct OpenFile {
    std::string path;
    std::string content;  // for reading: as it was when the file was opened
    size_t position;
    bool append;
  };
  enum class Step { Go, Fail, Dead };

  void Wrong(const std::string& what) { wrong_.push_back(what); }
  void Deliver(const ::Reply& reply, const Request& request);
  bool Advance(uint64_t nanoseconds);  // true: interrupted by a signal
  Step FileStep(std::string_view call, const std::string& text);
  int FileStepsNow() const { return static_cast<int>(fileSteps_.size()); }
  std::string Captured();

  std::map<std::string, std::vector<Planned>, std::less<>> planned_;
  std::map<std::string, int, std::less<>> calls_;
  std::multimap<uint64_t, Timed> timed_;  // by nanosecond
  uint64_t nowNs_, startNs_;

  std::deque<::Reply> script_;
  std::vector<Arrival> arrivals_;

  std::vector<Request> requests_;
  std::vector<LogLine> log_;
  std::vector<unsigned> slept_;
  std::vector<std::string> timeline_, fileSteps_;
  std::vector<Queue> opened_;
  std::vector<Handler> handlers_;
  std::vector<std::string> wrong_;
  bool logOpen_ = false, logWritten_ = false;
  long steps_ = 0;

  std::map<int, OpenFile> open_;
  std::set<std::string> unsynced_;
  size_t askedFor_ = 0;
  std::map<int, int> failingFileSteps_;
  int killAt_ = 0;
  bool killed_ = false;

  int realStdout_ = -1;
  std::string output_, forgottenOutput_;
};

#endif
