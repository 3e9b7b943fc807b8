// The lines of a capture, written and read.
#include "simulator/connect/Capture.h"

#include <sstream>

#include "tests/simulator/Support.h"

namespace {

using enum sim::Direction;

TEST(Capture, IsOneObjectPerLine) {
  EXPECT_EQ(sim::CaptureLine({552000, Request, 13, 1, B("AA AA 01"), "late"}, "Get \"it\""),
            R"({"us":552000,"direction":"request","exchange":1,"type":13,"body":"AA AA 01",)"
            R"("meaning":"Get \"it\"","note":"late"})");
}

TEST(Capture, IsRejectedWithTheLine) {
  for (const char* line : {"x", "{", "[]", "3", "{\"direction\":\"request\"}", "{\"direction\":\"up\",\"body\":\"AA\"}",
                           "{\"direction\":\"reply\",\"body\":\"A\"}", "{\"direction\":1,\"body\":2}",
                           "{\"us\":1e400,\"direction\":\"reply\",\"body\":\"00\"}"}) {
    std::istringstream file("\n" + std::string(line) + "\n");
    EXPECT_EQ(ErrorOf([&file] { sim::ReadCapture(file, "x.jsonl"); }), "x.jsonl:2: not a line of a capture") << line;
  }
}

}  // namespace
