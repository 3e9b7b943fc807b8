// Each fault of an exchange: how it is caused, the result and the log lines.
#include "tests/fakeos/Faults.h"

#include <cerrno>

#include "tests/fakeos/Fixtures.h"

namespace {

// What can go wrong before a reply is examined.
std::vector<Fault> QueueFaults(const char* timeoutLine) {
  return {
      {"FullRequestQueue",
       [](FakeOs& os, const Bytes&) { os.Fail("msgsnd", EAGAIN); },
       -1,
       {Err("msgsnd failed!"), Err("ZR4410_MsgQ_Send failed!")}},
      {"RequestQueueNotOpen",
       [](FakeOs&, const Bytes&) { giMsgIdTx = -1; },
       -1,
       {Err("SendMsgQ failed!"), Err("ZR4410_MsgQ_Send failed!")}},
      {"StoppedBeforeSending", [](FakeOs&, const Bytes&) { SetSigID(1); }, -15, {Err("ZR4410_MsgQ_Send failed!")}},
      {"StoppedWhileFlushing",
       [](FakeOs& os, const Bytes&) {
         os.Arrive(Bytes(36));
         os.StopAt("msgrcv", 1);
       },
       -15,
       {Err("ZR4410_MsgQ_Send failed!")}},
      {"StoppedAfterSending", [](FakeOs& os, const Bytes&) { os.StopAt("msgsnd"); }, -15, {}},
      {"StoppedWhileWaiting",
       [](FakeOs& os, const Bytes& good) {
         os.Reply(good).After(6 * kPollMs);
         os.StopAt("usleep", 5);
       },
       -15,
       {}},
      {"ReplyQueueNotOpen",
       [](FakeOs&, const Bytes&) { giMsgIdRx = -1; },
       -1,
       {Debug("Reflush Receive Msqg (22): Invalid argument"), Err("ReceiveMsgQ failed!"),
        Err("ZR4410_MsgQ_Receive failed!")}},
      {"ReplyQueueRemoved",
       [](FakeOs& os, const Bytes& good) {
         os.Reply(good);
         os.Fail("msgrcv", EIDRM, 2);
       },
       -55,
       {Err("msgrcv len failed(-1)!43:Identifier removed"), Err("ZR4410_MsgQ_Receive failed!")}},
      {"OverlongReply",
       [](FakeOs& os, const Bytes&) { os.Reply({}).Raw(Bytes(37)); },
       -55,
       {Err("msgrcv len failed(-1)!7:Argument list too long"), Err("ZR4410_MsgQ_Receive failed!")}},
      {"Silence", [](FakeOs& os, const Bytes&) { os.NoReply(); }, -56, {Err(timeoutLine)}},
      {"ReplyTooLate",
       [](FakeOs& os, const Bytes& good) { os.Reply(good).After(kTimeOutMs + 1); },
       -56,
       {Err(timeoutLine)}},
  };
}

Fault Damaged(const char* name, int result, std::vector<LogLine> lines, std::function<void(Reply&)> damage) {
  return {name, [damage](FakeOs& os, const Bytes& good) { damage(os.Reply(good)); }, result, std::move(lines)};
}

std::vector<Fault> operator+(std::vector<Fault> first, const std::vector<Fault>& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

// What the routines for a plain reply frame reject. otherCode: the code of a reply from the other device, camera or
// MCU; fill: the line of the routine that copies the frame.
std::vector<Fault> PlainFrameFaults(uint8_t code, uint8_t otherCode, const char* fill) {
  const auto rejected = [](const char* name, const char* line, std::function<void(Reply&)> damage) {
    return Damaged(name, -1, {Err(line), Err("MCU_CheckUart1Resp failed!")}, std::move(damage));
  };
  return {
      Damaged("LengthSeventeen", -1, {Err("Len > DATA_MAX_LEN"), Err(fill)}, [](Reply& r) { r.Length(17); }),
      rejected("Start", "UART1_CMD_START failed!", [](Reply& r) { r.Start(0x55); }),
      rejected("CodeWithout0x80", "UART1 RESP CMD Code failed!", [code](Reply& r) { r.Code(code); }),
      rejected("CodeOfTheOtherDevice", "UART1 RESP CMD Code failed!", [otherCode](Reply& r) { r.Code(otherCode); }),
      rejected("Checksum", "Checksum failed!", [](Reply& r) { r.Checksum(0x00); }),
      rejected("Stop", "_UART1_CMD_STOP failed!", [](Reply& r) { r.Stop(0xAA); }),
  };
}

std::vector<Fault> ViscaFrameFaults() {
  const auto rejected = [](const char* name, int result, const char* line, std::function<void(Reply&)> damage) {
    return Damaged(name, result, {Err(line), Err("QM2150_CheckUart1Resp failed!")}, std::move(damage));
  };
  const std::vector<LogLine> length = {Err("Len > VISCA_PACKET_MAX_LEN"), Err("QM2150_FillUart1Resp failed!")};
  return {
      Damaged("LengthTwo", -57, length, [](Reply& r) { r.Length(2); }),
      Damaged("LengthTwenty", -57, length, [](Reply& r) { r.Length(20); }),
      rejected("Start", -58, "VISCA_UART1_CMD_START failed!", [](Reply& r) { r.Start(0x55); }),
      rejected("CodeWithout0x80", -1, "UART1 RESP CMD Code failed!", [](Reply& r) { r.Code(0x02); }),
      rejected("CodeOfTheOtherDevice", -1, "UART1 RESP CMD Code failed!", [](Reply& r) { r.Code(0x90); }),
      rejected("Checksum", -58, "Checksum failed!", [](Reply& r) { r.Checksum(0x00); }),
      rejected("Stop", -58, "VISCA_UART1_CMD_STOP failed!", [](Reply& r) { r.Stop(0xAA); }),
  };
}

// check: the line of the routine that checks the relay message; header: what it logs before that for a wrong header.
std::vector<Fault> RelayFaults(const char* check, const std::vector<LogLine>& header) {
  std::vector<LogLine> lines = header;
  lines.push_back(Err(check));
  return {
      Damaged("FirstHeaderByte", -1, lines, [](Reply& r) { r.Header(0xAB, 0xAA); }),
      Damaged("SecondHeaderByte", -1, lines, [](Reply& r) { r.Header(0xAA, 0x55); }),
      Damaged("SequenceId", -1, {Err("SeqID failed!"), Err(check)}, [](Reply& r) { r.Id(0xC7); }),
  };
}

std::vector<Fault> CameraFaults() {
  return QueueFaults("ZR4410_MsgQ_Receive timeout!") + RelayFaults("QM2150_CheckZR4410Packet failed!", {});
}

}  // namespace

const std::vector<Fault>& InquiryFaults() {
  static const auto faults = CameraFaults() + ViscaFrameFaults();
  return faults;
}

const std::vector<Fault>& CommandFaults() {
  // A wrong length is logged with the text of an inquiry.
  static const auto faults = CameraFaults() + PlainFrameFaults(0x02, 0x90, "QM2150_FillUart1Resp failed!");
  return faults;
}

const std::vector<Fault>& McuFaults() {
  static const auto faults = QueueFaults("ZR4410_MsgQ_Receive failed!") +
                             RelayFaults("MCU_CheckZR4410Packet failed!", {Err("ZR4410_PACKET_HEADER failed!")}) +
                             PlainFrameFaults(0x10, 0x82, "MCU_FillUart1Resp failed!");
  return faults;
}

std::vector<LogLine> LinesAbove(const std::vector<LogLine>& log, const Fault& fault, size_t between) {
  const size_t below = fault.lines.size() + (fault.result == -15 ? 0 : between);
  if (log.size() < below) {
    return {Err("too few lines: " + std::to_string(log.size()))};
  }
  return {log.begin() + static_cast<ptrdiff_t>(below), log.end()};
}
