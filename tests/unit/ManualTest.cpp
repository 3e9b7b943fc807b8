// Checks that the manual page names every number that -s, -m and -y accept, and the poll interval.
#include <algorithm>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>

#include "tests/fakeos/Fixtures.h"

namespace {

using testing::HasSubstr;

// The manual page with its lines joined. Read before any test starts, because a FakeOs has its own files.
const std::string kManual = [] {
  std::ostringstream text;
  text << std::ifstream(ZR4410_MANUAL).rdbuf();
  std::string joined = text.str();
  std::replace(joined.begin(), joined.end(), '\n', ' ');
  return joined;
}();

class Manual : public Linked {
 protected:
  // The device answers every request.
  Manual() {
    os.device = [this](const Request& request) { os.Answer(request, {0x10}); };
  }

  // Expects that the option's entry names each number from 0 to 255 that its action supports.
  void ExpectEach(const std::string& option, const std::function<bool()>& supports) {
    const size_t at = kManual.find("\\fB\\-" + option + "\\fR, ");
    ASSERT_NE(at, std::string::npos);
    const std::string entry = kManual.substr(at, kManual.find(" .TP ", at) - at);
    int supported = 0;
    for (int number = 0; number <= 255; ++number) {
      giArgv1 = number;
      if (supports()) {
        ++supported;
        EXPECT_THAT(entry, HasSubstr(" " + std::to_string(number) + " "));
      }
      StartOver();
    }
    EXPECT_GT(supported, 2);
  }

  bool IsSupported() const { return std::ranges::count(os.Log(), Err("Command ID is not supported.\n")) == 0; }
};

TEST_F(Manual, NamesEveryCameraAction) {
  ExpectEach("s", [this] {
    QM2150Process();
    return IsSupported();
  });
}

TEST_F(Manual, NamesEveryMcuCommand) {
  ExpectEach("m", [this] {
    McuComm();
    return IsSupported();
  });
}

TEST_F(Manual, NamesEveryReport) {
  ExpectEach("y", [this] {
    SystemInquiry();
    return !os.Requests().empty();
  });
}

TEST_F(Manual, NamesThePollInterval) {
  EXPECT_THAT(kManual, HasSubstr("within " + std::to_string(ZR4410_POLL_MS) + " ms"));
}

}  // namespace
