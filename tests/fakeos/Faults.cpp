#include "tests/fakeos/Faults.h"

#include <cerrno>

#include "tests/fakeos/Fixtures.h"

namespace {

// What happens before a reply is examined.
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

Fault Spoilt(const char* name, std::function<void(Reply&)> spoil, int result, std::vector<LogLine> lines) {
  return {name, [spoil](FakeOs& os, const Bytes& good) { spoil(os.Reply(good)); }, result, std::move(lines)};
}

std::vector<Fault> operator+(std::vector<Fault> first, const std::vector<Fault>& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

const std::vector<Fault> kCameraHeader = {
    Spoilt("FirstHeaderByte", [](Reply& r) { r.Header(0xAB, 0xAA); }, -1, {Err("QM2150_CheckZR4410Packet failed!")}),
    Spoilt("SecondHeaderByte", [](Reply& r) { r.Header(0xAA, 0x55); }, -1, {Err("QM2150_CheckZR4410Packet failed!")}),
    Spoilt("SequenceId", [](Reply& r) { r.Id(0xC7); }, -1,
           {Err("SeqID failed!"), Err("QM2150_CheckZR4410Packet failed!")}),
};

}  // namespace

const std::vector<Fault>& InquiryFaults() {
  static const auto faults = QueueFaults("ZR4410_MsgQ_Receive timeout!") + kCameraHeader +
                             std::vector<Fault>{
                                 Spoilt("LengthTwo", [](Reply& r) { r.Length(2); }, -57,
                                        {Err("Len > VISCA_PACKET_MAX_LEN"), Err("QM2150_FillUart1Resp failed!")}),
                                 Spoilt("LengthTwenty", [](Reply& r) { r.Length(20); }, -57,
                                        {Err("Len > VISCA_PACKET_MAX_LEN"), Err("QM2150_FillUart1Resp failed!")}),
                                 Spoilt("Start", [](Reply& r) { r.Start(0x55); }, -58,
                                        {Err("VISCA_UART1_CMD_START failed!"), Err("QM2150_CheckUart1Resp failed!")}),
                                 Spoilt("CodeWithout0x80", [](Reply& r) { r.Code(0x02); }, -1,
                                        {Err("UART1 RESP CMD Code failed!"), Err("QM2150_CheckUart1Resp failed!")}),
                                 Spoilt("AnothersCode", [](Reply& r) { r.Code(0x90); }, -1,
                                        {Err("UART1 RESP CMD Code failed!"), Err("QM2150_CheckUart1Resp failed!")}),
                                 Spoilt("Checksum", [](Reply& r) { r.Checksum(0x00); }, -58,
                                        {Err("Checksum failed!"), Err("QM2150_CheckUart1Resp failed!")}),
                                 Spoilt("Stop", [](Reply& r) { r.Stop(0xAA); }, -58,
                                        {Err("VISCA_UART1_CMD_STOP failed!"), Err("QM2150_CheckUart1Resp failed!")}),
                             };
  return faults;
}

const std::vector<Fault>& CommandFaults() {
  static const auto faults = QueueFaults("ZR4410_MsgQ_Receive timeout!") + kCameraHeader +
                             std::vector<Fault>{
                                 // Also logged under the inquiry's name.
                                 Spoilt("LengthSeventeen", [](Reply& r) { r.Length(17); }, -1,
                                        {Err("Len > DATA_MAX_LEN"), Err("QM2150_FillUart1Resp failed!")}),
                                 Spoilt("Start", [](Reply& r) { r.Start(0x55); }, -1,
                                        {Err("UART1_CMD_START failed!"), Err("MCU_CheckUart1Resp failed!")}),
                                 Spoilt("CodeWithout0x80", [](Reply& r) { r.Code(0x02); }, -1,
                                        {Err("UART1 RESP CMD Code failed!"), Err("MCU_CheckUart1Resp failed!")}),
                                 Spoilt("AnothersCode", [](Reply& r) { r.Code(0x90); }, -1,
                                        {Err("UART1 RESP CMD Code failed!"), Err("MCU_CheckUart1Resp failed!")}),
                                 Spoilt("Checksum", [](Reply& r) { r.Checksum(0x00); }, -1,
                                        {Err("Checksum failed!"), Err("MCU_CheckUart1Resp failed!")}),
                                 Spoilt("Stop", [](Reply& r) { r.Stop(0xAA); }, -1,
                                        {Err("_UART1_CMD_STOP failed!"), Err("MCU_CheckUart1Resp failed!")}),
                             };
  return faults;
}

const std::vector<Fault>& McuFaults() {
  static const auto faults = QueueFaults("ZR4410_MsgQ_Receive failed!") +
                             std::vector<Fault>{
                                 Spoilt("FirstHeaderByte", [](Reply& r) { r.Header(0xAB, 0xAA); }, -1,
                                        {Err("ZR4410_PACKET_HEADER failed!"), Err("MCU_CheckZR4410Packet failed!")}),
                                 Spoilt("SecondHeaderByte", [](Reply& r) { r.Header(0xAA, 0x55); }, -1,
                                        {Err("ZR4410_PACKET_HEADER failed!"), Err("MCU_CheckZR4410Packet failed!")}),
                                 Spoilt("SequenceId", [](Reply& r) { r.Id(0xC7); }, -1,
                                        {Err("SeqID failed!"), Err("MCU_CheckZR4410Packet failed!")}),
                                 Spoilt("LengthSeventeen", [](Reply& r) { r.Length(17); }, -1,
                                        {Err("Len > DATA_MAX_LEN"), Err("MCU_FillUart1Resp failed!")}),
                                 Spoilt("Start", [](Reply& r) { r.Start(0x55); }, -1,
                                        {Err("UART1_CMD_START failed!"), Err("MCU_CheckUart1Resp failed!")}),
                                 Spoilt("CodeWithout0x80", [](Reply& r) { r.Code(0x10); }, -1,
                                        {Err("UART1 RESP CMD Code failed!"), Err("MCU_CheckUart1Resp failed!")}),
                                 Spoilt("AnothersCode", [](Reply& r) { r.Code(0x82); }, -1,
                                        {Err("UART1 RESP CMD Code failed!"), Err("MCU_CheckUart1Resp failed!")}),
                                 Spoilt("Checksum", [](Reply& r) { r.Checksum(0x00); }, -1,
                                        {Err("Checksum failed!"), Err("MCU_CheckUart1Resp failed!")}),
                                 Spoilt("Stop", [](Reply& r) { r.Stop(0xAA); }, -1,
                                        {Err("_UART1_CMD_STOP failed!"), Err("MCU_CheckUart1Resp failed!")}),
                             };
  return faults;
}

std::vector<LogLine> LinesAbove(const std::vector<LogLine>& log, const Fault& fault, size_t between) {
  const size_t below = fault.lines.size() + (fault.result == -15 ? 0 : between);
  if (log.size() < below) {
    return {Err("too few lines: " + std::to_string(log.size()))};
  }
  return {log.begin() + static_cast<ptrdiff_t>(below), log.end()};
}
