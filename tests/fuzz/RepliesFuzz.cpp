// Gives any messages on the reply queue to every routine that reads it. Input: path (index in Paths), switches,
// argument, number of the msgrcv call at which a stop is requested (0: none), then one answer for each request:
//
//   kind and delay   number of bytes   bytes
//
// Kind, the low 3 bits: see Kind below. Delay, the high 5 bits: in units of 100 ms. Requests after the last answer are
// not answered.
#include <csignal>
#include <functional>
#include <map>
#include <optional>

#include "tests/fakeos/Fixtures.h"
#include "tests/fuzz/Fuzz.h"

namespace {

enum Kind : uint8_t {
  kSilence,
  kRaw,           // the bytes, unchanged, as a message of that length
  kFrame,         // a good frame with the bytes as its payload
  kDamagedFrame,  // a good frame in which one byte is replaced: first byte its new value, second its position
  kCompletion,    // a good camera reply with the bytes as its data: 90 50 bytes FF
  kAcknowledged,  // a good frame with 10 and then the bytes
  kTwice,         // a good camera reply, then the bytes as a second message
  kForeign,       // first a camera reply with another sequence id, then a good one
};

constexpr int kStopMs = 9000;  // when a signal ends the read loop

int64_t gArgument;  // the input's argument, which each path uses in its own way

// --- Paths ---

// How a reply is checked, for paths whose result depends on one reply.
struct ReplyCheck {
  enum { None, Visca, Unchecked, Plain } by = None;
  int length = -1;  // data bytes, -1: any
  uint8_t zeroFirst = 0, zeroCount = 0;
  int wrongLength = -59;
};

struct Path {
  std::function<int()> run;
  int requests;  // the maximum number of requests that it sends
  int pauseMs;   // the maximum total of its pauses, without waiting for replies
  ReplyCheck check = {};
};

// Calls a routine that writes to `out` on success only.
template <typename T, typename Call>
int Untouched(Call call) {
  auto out = std::make_unique<T>(Filled<T>(0xA5));
  const T before = *out;
  const int result = call(out.get());
  Require(result <= 0, "a result is 0 or a failure");
  Require(result == 0 || memcmp(&before, out.get(), sizeof before) == 0, "a failure does not change the output");
  return result;
}

template <typename T>
Path Getter(int (*get)(T*), ReplyCheck check) {
  return {[get] { return Untouched<T>(get); }, 1, 0, check};
}

template <typename T>
Path Setter(int (*set)(T)) {
  return {[set] { return set(static_cast<T>(gArgument)); }, 3, 100};
}

Path Operation(int (*operation)(int32_t), int requests) {
  return {[operation] { return operation(static_cast<int32_t>(gArgument % 4)); }, requests, 100 * requests};
}

Path Operation(int (*operation)(), int requests) { return {operation, requests, 100 * requests}; }

// The whole program in one of its run modes.
Path Program(std::vector<std::string> arguments, int requests, int pauseMs) {
  return {[arguments] {
            FakeOs::current->At(kStopMs, [] { SignalHandler(SIGTERM); });
            return RunProgram(arguments).status;
          },
          requests, pauseMs};
}

int RawInquiry() {
  const uint8_t data[16] = {0x24, 0x72};
  // Exactly as long as the longest text.
  struct Text {
    char c[57];
  };
  return Untouched<Text>([&data](Text* text) {
    const int result = SnrQM2150_Inquiry(0x04, static_cast<uint32_t>(gArgument % 18), data, sizeof text->c, text->c);
    Require(result != 0 || memchr(text->c, 0, sizeof text->c) != nullptr, "the text is terminated");
    return result;
  });
}

int Version() {
  struct Words {
    uint16_t model, rom;
  };
  return Untouched<Words>([](Words* words) { return QM2150_GetVersion(&words->model, &words->rom); });
}

int Ptz() {
  struct Words {
    uint32_t pan;
    uint16_t tilt, zoom;
  };
  return Untouched<Words>([](Words* words) {
    return MCU_GetPTZ(static_cast<int32_t>(gArgument), &words->pan, &words->tilt, &words->zoom);
  });
}

int Report() {
  giArgv1 = static_cast<int32_t>(gArgument % 5);
  return SystemInquiry();
}

int McuAction() {
  static constexpr int32_t kCommands[] = {16, 17, 12, 3};
  giArgv1 = kCommands[gArgument % 4];
  giArgv2 = static_cast<int32_t>(gArgument / 4);
  return McuComm();
}

int CameraAction() {
  giArgv1 = static_cast<int32_t>(gArgument % 4);
  giArgv2 = static_cast<int32_t>(gArgument / 4);
  return QM2150Process();
}

const std::vector<Path>& Paths() {
  using C = ReplyCheck;
  constexpr C kOneByte{C::Visca, 1}, kLead2{C::Visca, 4, 0, 2}, kLead3{C::Visca, 4, 0, 3}, kBlock{C::Visca, 13};
  static const std::vector<Path> paths = {
      // The stored inputs contain the numbers of paths, so new ones are added at the end.
      /* 00 */ Getter(QM2150_GetNR, kOneByte),
      /* 01 */ Getter(QM2150_GetWdrParams, {C::Visca, 8, 6, 2}),
      /* 02 */ Getter(QM2150_GetWdrMode, kOneByte),
      /* 03 */ Getter(QM2150_GetBgain, kLead2),
      /* 04 */ Getter(QM2150_GetRgain, kLead2),
      /* 05 */ Getter(QM2150_GetIrisPos, kLead2),
      /* 06 */ Getter(QM2150_GetGainPos, kLead2),
      /* 07 */ Getter(QM2150_GetGainLimit, kOneByte),
      /* 08 */ Getter(QM2150_GetHighSensitivity, kOneByte),
      /* 09 */ Getter(QM2150_GetExpCompStep, kLead3),
      /* 0A */ Getter(QM2150_GetExpComp, kOneByte),
      /* 0B */ Getter(QM2150_GetPictureFlip, kOneByte),
      /* 0C */ Getter(QM2150_GetLrReverse, kOneByte),
      /* 0D */ Getter(QM2150_GetIcr, kOneByte),
      /* 0E */ Getter(QM2150_GetAutoIcr, kOneByte),
      /* 0F */ Getter(QM2150_GetColorGain, kLead3),
      /* 10 */ Getter(QM2150_GetShutter, kLead2),
      /* 11 */ Getter(QM2150_GetAfMode, kOneByte),
      /* 12 */ Getter(QM2150_GetFocusMode, kOneByte),
      /* 13 */ Getter(QM2150_GetAeMode, kOneByte),
      /* 14 */ Getter(QM2150_GetWbMode, {C::Visca, 1, 0, 0, -60}),
      /* 15 */ Getter(QM2150_GetSnrMode, {C::Unchecked}),
      /* 16 */ {Version, 1, 0, {C::Unchecked}},
      /* 17 */ Getter(MCU_GetVersion, {C::Plain}),
      /* 18 */ {Ptz, 1, 0, {C::Plain, 8, 0, 0, -1}},
      /* 19 */ Getter(QM2150_GetLensControl, kBlock),
      /* 1A */ Getter(QM2150_GetCameraControl, kBlock),
      /* 1B */ Getter(QM2150_GetOtherControl, kBlock),
      /* 1C */ Getter(QM2150_GetEnlargeFunction1, kBlock),
      /* 1D */ Getter(QM2150_GetEnlargeFunction2, kBlock),
      /* 1E */ {RawInquiry, 1, 0},
      /* 1F */ Setter(QM2150_SetNR),
      /* 20 */ Setter(QM2150_SetShutter),
      /* 21 */ Setter(QM2150_SetLrReverse),
      /* 22 */ Setter(QM2150_SetSnrMode),
      /* 23 */
      {[] {
         const auto byte = static_cast<uint8_t>(gArgument);
         const tWdrParam params = {byte, 1, 2, 3, byte};
         return QM2150_SetWdrParams(&params);
       },
       3, 100},
      /* 24 */ Operation(QM2150_WbOnePushTrigger, 1),
      /* 25 */ Operation(MCU_LensPowerControl, 1),
      /* 26 */ Operation(SnrQM2150_SetFocusMode, 3),
      /* 27 */ Operation(SnrQM2150_SetBlcIndex, 7),
      /* 28 */
      {[] {
         return SnrQM2150_SetMirrorFlip(static_cast<int32_t>(gArgument & 1), static_cast<int32_t>(gArgument >> 1 & 1));
       },
       6, 200},
      /* 29 */ Operation(SnrQM2150_SetDnIsMode, 3),
      /* 2A */ Operation(SnrQM2150_SetDnNightMode, 6),
      /* 2B */ Operation(SnrQM2150_SetDnDayMode, 6),
      /* 2C */ Operation(SnrQM2150_SetSaturation, 3),
      /* 2D */ {[] { return SnrQM2150_SetSnrMode(gArgument & 1 ? 50 : 60); }, 17, 18100},
      /* 2E */ {[] { return SnrQM2150_init(gArgument & 1 ? 50 : 60); }, 27, 18100},
      /* 2F */ {Report, 3, 0},
      /* 30 */ {CameraAction, 3, 100},
      /* 31 */ {McuAction, 1, 0},
      /* 32 */ Program({"-i", "04", "2472"}, 1, 0),
      /* 33 */ Program({"-c", "0002", "-g"}, 1, 0),
      /* 34 */ Program({"-r"}, 0, kStopMs + 100),
      /* 35 */ Program({"-y", "1", "-g"}, 3, 0),
  };
  return paths;
}

// --- The result for one answer, for paths whose result depends on one ---

struct Answer {
  Kind kind = kSilence;
  int delayMs = 0;
  Bytes bytes;
};

// The result of the checks of a reply's frame; its payload if the result is 0.
int FrameResult(const Bytes& body, const Request& request, bool plain, Bytes* payload) {
  if (body[0] != 0xAA || body[1] != 0xAA || body[2] != request.Id()) {
    return -1;
  }
  const int length = body[6];
  if (plain ? length > 16 : length < 3 || length > 19) {
    return plain ? -1 : -57;
  }
  if (body[4] != 0xAA) {
    return plain ? -1 : -58;
  }
  if (body[5] != request.Code() + 0x80) {
    return -1;
  }
  unsigned sum = 0;
  for (int k = 4; k <= 7 + length; ++k) {
    sum += body[static_cast<size_t>(k)];
  }
  if (sum % 256 != 0 || body[8 + static_cast<size_t>(length)] != 0x55) {
    return plain ? -1 : -58;
  }
  *payload = Bytes(body.begin() + 7, body.begin() + 7 + length);
  return 0;
}

int ReplyResult(const Bytes& body, const Request& request, const ReplyCheck& check) {
  if (body.size() != 36) {
    return -55;
  }
  const bool plain = check.by == ReplyCheck::Plain;
  Bytes payload;
  if (const int result = FrameResult(body, request, plain, &payload); result < 0) {
    return result;
  }
  if (plain) {
    return check.length < 0 || payload.size() == static_cast<size_t>(check.length) ? 0 : check.wrongLength;
  }
  if (check.by == ReplyCheck::Unchecked) {
    return 0;
  }
  if (payload[0] != 0x90 || payload.back() != 0xFF || payload[1] == 0x60) {
    return -59;
  }
  const Bytes data(payload.begin() + 2, payload.end() - 1);
  if (data.size() != static_cast<size_t>(check.length)) {
    return check.wrongLength;
  }
  const auto zeros = data.begin() + check.zeroFirst;
  return std::count(zeros, zeros + check.zeroCount, 0) == check.zeroCount ? 0 : -59;
}

// --- The device ---

// The messages that answer a request.
std::vector<Bytes> Messages(const Answer& answer, const Request& request) {
  constexpr size_t kMostPayload = 27;  // more would not fit the body
  Bytes fits = answer.bytes;
  fits.resize(std::min(fits.size(), kMostPayload - 3));
  const Bytes good = Reply(Completed(fits)).Body(request);
  switch (answer.kind) {
    case kSilence:
      return {};
    case kRaw:
      return {answer.bytes};
    case kFrame:
      return {Reply(fits).Body(request)};
    case kDamagedFrame: {
      Bytes body = good;
      if (answer.bytes.size() >= 2) {
        body[answer.bytes[1] % body.size()] = answer.bytes[0];
      }
      return {body};
    }
    case kCompletion:
      return {good};
    case kAcknowledged:
      fits.insert(fits.begin(), 0x10);
      return {Reply(fits).Body(request)};
    case kTwice:
      return {good, answer.bytes};
    case kForeign:
      return {Reply(Completed(fits)).Id(static_cast<uint8_t>(request.Id() + 1)).Body(request), good};
  }
  return {};
}

bool IsDocumented(int result) {
  static constexpr int kResults[] = {0, -1, -15, -55, -56, -57, -58, -59, -60, -99};
  return std::find(std::begin(kResults), std::end(kResults), result) != std::end(kResults);
}

}  // namespace

void TestOneInput(const uint8_t* data, size_t size) {
  Input input(Input::FromHex(data, size));
  const Path& path = Paths()[input.Byte() % Paths().size()];
  const uint8_t switches = input.Byte();
  gArgument = input.Byte();
  const int stopAt = input.Byte();

  ResetProduct();
  FakeOs os;
  Require(ZR4410_MsgQ_Open() == 0, "the queues open");
  os.Forget();
  gfDebugFlag = switches & 1;
  giDebug = switches & 2 ? 0x8000 : 0;
  bool over = false;
  if (stopAt > 0) {
    os.On("msgrcv", stopAt, [&over] { SetSigID(over ? 0 : 1); });
  }

  std::optional<int> expected;  // if it depends on one answer
  os.device = [&](const Request& request) {
    Answer answer;
    if (!input.AtEnd()) {
      const uint8_t head = input.Byte();
      answer = {static_cast<Kind>(head & 7), 100 * (head >> 3), {}};
      answer.bytes = input.Bytes(input.Byte());
    }
    const std::vector<Bytes> messages = Messages(answer, request);
    for (const Bytes& message : messages) {
      os.Arrive(message, answer.delayMs);
    }
    if (path.check.by != ReplyCheck::None && stopAt == 0) {
      expected = messages.empty() || answer.delayMs > kTimeOutMs ? -56 : ReplyResult(messages[0], request, path.check);
    }
  };
  if (path.requests == 0) {  // a path that only receives
    while (!input.AtEnd()) {
      const int delayMs = 100 * (input.Byte() >> 3);
      os.Arrive(input.Bytes(input.Byte()), delayMs);
    }
  }

  const int result = path.run();
  Require(IsDocumented(result), "the result is documented: " + std::to_string(result));
  Require(!expected || result == *expected,
          "the reply's outcome: " + std::to_string(result) + ", not " + std::to_string(expected.value_or(0)));
  const auto requests = static_cast<int>(os.Requests().size());
  Require(requests <= path.requests, "the path sends no more requests");
  Require(os.ElapsedMs() <= requests * kTimeOutMs + path.pauseMs, "the path takes no longer");

  // The next exchange works, as soon as no overlong message blocks the queue.
  over = true;
  os.RemoveOverlong();
  os.AdvanceMs(10000);
  SetSigID(0);
  giMsgIdTx = FakeOs::kRequestQueue;
  giMsgIdRx = FakeOs::kReplyQueue;
  os.device = [&os](const Request& request) { os.Answer(request, {0x90, 0x50, 0x07, 0xFF}); };
  uint8_t value = 0;
  Require(QM2150_GetNR(&value) == 0 && value == 7, "the next exchange works");
}
