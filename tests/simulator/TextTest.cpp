// Control characters made visible.
#include "simulator/model/Text.h"

#include <gtest/gtest.h>

namespace {

TEST(Text, ShowsControlCharacters) {
  EXPECT_EQ(sim::Printable("plain, \u00fcml\u00e4ut \u2192"), "plain, \u00fcml\u00e4ut \u2192");
  EXPECT_EQ(sim::Printable("a\nb\x1b[31m\x07\x7f\t"), "a\\nb\\x1b[31m\\x07\\x7f\\x09");
  EXPECT_EQ(sim::Printable("\u009b31m\u00a0"), "\\x9b31m\u00a0") << "CSI in one character";
  EXPECT_EQ(sim::Printable(std::string_view("\0\xc2", 2)), "\\x00\xc2");
}

}  // namespace
