// What happens if routines fail that cannot fail today. The linker makes the callers call the replacements below
// instead of the real routines (see wrapped.cmake).
#include "tests/fakeos/Fixtures.h"

namespace {

const char* gFailing = "";  // name of the routine that fails
int gCallsBefore;           // number of its calls that succeed first

bool Fails(std::string_view name) { return name == gFailing && gCallsBefore-- == 0; }

}  // namespace

extern "C" {
int __real_SnrQM2150_SnrMode2Str(uint32_t code, char* text);
int __wrap_SnrQM2150_SnrMode2Str(uint32_t code, char* text) {
  return Fails("SnrMode2Str") ? -59 : __real_SnrQM2150_SnrMode2Str(code, text);
}
int __real_SnrQM2150_FocusPos(uint16_t position, double* out);
int __wrap_SnrQM2150_FocusPos(uint16_t position, double* out) {
  return Fails("FocusPos") ? -59 : __real_SnrQM2150_FocusPos(position, out);
}
int __real_MCU_Cmd2Str(uint32_t id, char* text);
int __wrap_MCU_Cmd2Str(uint32_t id, char* text) { return Fails("Cmd2Str") ? -1 : __real_MCU_Cmd2Str(id, text); }
int __real_ZR4410_MsgQ_Close();
int __wrap_ZR4410_MsgQ_Close() { return Fails("Close") ? -1 : __real_ZR4410_MsgQ_Close(); }
}

namespace {

class CannotFail : public Linked {
 protected:
  void LetFail(const char* name, int callsBefore = 0) {
    gFailing = name;
    gCallsBefore = callsBefore;
  }
  ~CannotFail() override { gFailing = ""; }
};

TEST_F(CannotFail, TheListOfSensorModesStopsAtAModeWithoutAName) {
  LetFail("SnrMode2Str", 2);
  giArgv1 = giArgv2 = 1;
  EXPECT_EQ(QM2150Process(), 0);
  EXPECT_EQ(os.Output(), "0x00 = unknown\n0x01 = 1080i 60fps (Default)\n");
  EXPECT_THAT(os.Log(), ElementsAre(Err("SnrQM2150_SnrMode2Str fail!\n")));
}

TEST_F(CannotFail, TheListOfMcuCommandsStopsAtACommandWithoutADescription) {
  LetFail("Cmd2Str", 1);
  giArgv1 = 16;
  giArgv2 = 1;
  EXPECT_EQ(McuComm(), -1);
  EXPECT_EQ(os.Output(),
            "MCU Command:\n"
            "Start(0xaa)+Command(1 Byte)+Data Len(1 Byte)+Data+Checksum+Stop(0x55)\n"
            "0x00 = [unknown]\n");
  EXPECT_THAT(os.Log(), ElementsAre(Err("MCU_Cmd2Str fail!\n"), Err("MCU_GetVersion fail!\n")));
}

TEST_F(CannotFail, TheLensReportEndsIfTheNearLimitHasNoDistance) {
  LetFail("FocusPos");
  os.Reply(Completed(Bytes(13)));
  giArgv1 = 0;
  EXPECT_EQ(SystemInquiry(), -59);
  const std::vector<LogLine> log = os.Log();
  ASSERT_GE(log.size(), 2U);
  EXPECT_EQ(log[log.size() - 2], Err("SnrQM2150_FocusPos failed!\n"));
  EXPECT_EQ(log[log.size() - 1], Err("GetLensControlInquiry failed!\n"));
  EXPECT_EQ(std::count(log.begin(), log.end(), Err("SnrQM2150_FocusPos failed!\n")), 1);
}

TEST_F(CannotFail, AFailedCloseIsLoggedBeforeTheFinishBanner) {
  LetFail("Close");
  const auto run = RunProgram({"-g"});
  EXPECT_EQ(run.status, 0);
  const std::vector<LogLine> log = os.Log();
  ASSERT_GE(log.size(), 5U);
  EXPECT_EQ(log[log.size() - 5].text.substr(0, 18), "Delta Time (ms) : ");
  EXPECT_EQ(log[log.size() - 4], Err("ZR4410_MsgQ_Close fail!\n"));
  EXPECT_EQ(log[log.size() - 2], Info("Finish testZR4410 (v" ZR4410_VERSION ")."));
}

TEST_F(CannotFail, AnInquiryThatBecomesACommandDuringTheExchangeFails) {
  os.Reply({0x90, 0x50, 0x02, 0xFF});
  os.On("msgrcv", 2, [] { gtUart1ViscaCmdInq.selector = 0x01; });
  const uint8_t code = 0x00;
  tVisca reply = Filled<tVisca>(0xA5);
  EXPECT_EQ(QM2150_Inquiry(0x04, 1, &code, &reply), -58);
  EXPECT_THAT(os.Log(), ElementsAre(Err("QM2150_ProcessVisca failed!")));
  EXPECT_EQ(BytesOf(reply), Bytes(20, 0xA5));
}

}  // namespace
