// Resets the product between tests and runs the whole program.
#include "tests/fakeos/Fixtures.h"

#include <getopt.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

int testZR4410_main(int argc, char** argv);  // the program's main under another name

extern "C" {
extern RelayMessage gtMsgqRxBuf;
}

void ResetProduct() {
  giSigID = giUsr1SigID = giUsr2SigID = 0;
  gfDebugFlag = giDebug = 0;
  giMsgIdTx = giMsgIdRx = -1;
  gtZR4410MsgqCmdBuf = gtZR4410MsgqRespBuf = gtMsgqTxBuf = gtMsgqRxBuf = {};
  gbSeqId = gbUart1Command = 0;
  gtUart1Cmd = gtUart1Resp = {};
  gtUart1ViscaCmdInq = {};
  gtUart1ViscaResp = {};
  gtLensControl = {};
  gtCamControl = {};
  gtOtherControl = {};
  gtEnlargeFun1 = {};
  gtEnlargeFun2 = {};
  gtParams = {};
  giOption = giArgv1 = giArgv2 = giCategoryCode = 0;
  memset(gbArgv, 0, sizeof gbArgv);
}

Ended RunProgram(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), "testZR4410");
  std::vector<char*> argv;
  for (std::string& argument : arguments) {
    argv.push_back(argument.data());
  }
  argv.push_back(nullptr);

  // getopt_long prints to the stream. The descriptor is left alone: a sanitizer writes its report there.
  char* text = nullptr;
  size_t size = 0;
  FILE* const realErrors = stderr;
  stderr = open_memstream(&text, &size);
  optind = 0;  // restarts getopt_long
  sigset_t before;
  pthread_sigmask(SIG_BLOCK, nullptr, &before);
  Ended ended{testZR4410_main(static_cast<int>(arguments.size()), argv.data()), "", false};
  sigset_t after;
  pthread_sigmask(SIG_SETMASK, &before, &after);  // the program holds its signals back at its end
  ended.signalsHeld = sigismember(&after, SIGTERM) == 1;
  fclose(stderr);
  stderr = realErrors;
  ended.errors.assign(text, size);
  free(text);
  return ended;
}

Bytes Completed(Bytes data) {
  data.insert(data.begin(), {0x90, 0x50});
  data.push_back(0xFF);
  return data;
}

Bytes With(Bytes data, const std::map<size_t, uint8_t>& changes) {
  for (const auto& [place, value] : changes) {
    data.at(place) = value;
  }
  return data;
}

void Linked::StartOver() {
  SetSigID(0);
  giMsgIdTx = FakeOs::kRequestQueue;
  giMsgIdRx = FakeOs::kReplyQueue;
  os.RemoveOverlong();
  os.DropAnswers();
  os.Forget();
}

Linked::Linked() {
  if (ZR4410_MsgQ_Open() != 0) {
    ADD_FAILURE() << "the queues cannot be opened";
  }
  os.Forget();
}
