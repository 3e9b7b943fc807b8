// The raw command and the raw inquiry.
#include "tests/unit/SnrQM2150Operations.h"

namespace {

using SnrQM2150RawPackets = SnrQM2150Operations;

TEST_F(SnrQM2150RawPackets, ACommandIsSentUnchanged) {
  const Bytes data{0x00, 0x02};
  Acknowledge();
  EXPECT_EQ(SnrQM2150_Command(2, data.data()), 0);
  EXPECT_EQ(OwnStory(), (Story{"81 01 04 00 02 FF"}));
  NextCase();

  Acknowledge();
  EXPECT_EQ(SnrQM2150_Command(0, data.data()), 0);
  EXPECT_EQ(OwnStory(), (Story{"81 01 04 FF"}));
  NextCase();

  const Bytes twelve{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
  Acknowledge();
  EXPECT_EQ(SnrQM2150_Command(12, twelve.data()), 0);
  EXPECT_EQ(OwnStory(), (Story{"81 01 04 01 02 03 04 05 06 07 08 09 0A 0B 0C FF"}));
}

TEST_F(SnrQM2150RawPackets, TheResultOfACommandIsPassedOnWithoutALine) {
  const Bytes data(17, 0x01);
  Refuse();
  EXPECT_EQ(SnrQM2150_Command(2, data.data()), -1);
  EXPECT_EQ(OwnStory(), (Story{"81 01 04 01 01 FF"}));
  NextCase();
  Stop();
  EXPECT_EQ(SnrQM2150_Command(2, data.data()), -15);
  EXPECT_EQ(OwnStory(), (Story{"81 01 04 01 01 FF (stop)"}));
  NextCase();
  Silence();
  EXPECT_EQ(SnrQM2150_Command(2, data.data()), -56);
  EXPECT_EQ(OwnStory(), (Story{"81 01 04 01 01 FF (silence)"}));
  NextCase();
  EXPECT_EQ(SnrQM2150_Command(13, data.data()), -57);
  EXPECT_THAT(OwnStory(), IsEmpty());
  NextCase();
  EXPECT_EQ(SnrQM2150_Command(17, data.data()), -1);
  EXPECT_EQ(SnrQM2150_Command(UINT32_MAX, data.data()), -1);
  EXPECT_THAT(os.Timeline(), IsEmpty());
}

class SnrQM2150RawPacketsInquiry : public SnrQM2150Operations {
 protected:
  int Inquire(uint32_t size) { return SnrQM2150_Inquiry(0x04, 1, code, size, text); }
  // Returns what follows the first count characters of the text.
  std::string Behind(size_t count) const { return {text + count, sizeof text - count}; }

  const uint8_t code[1] = {0x47};
  char text[80];
  SnrQM2150RawPacketsInquiry() { memset(text, 'x', sizeof text); }
};

TEST_F(SnrQM2150RawPacketsInquiry, ShowsTheReplyInHex) {
  Data({0x01, 0x23});
  EXPECT_EQ(Inquire(64), 0);
  EXPECT_STREQ(text, "90 50 01 23 ff");
  EXPECT_EQ(Behind(14), std::string(50, '\0') + std::string(16, 'x'));
  EXPECT_EQ(OwnStory(), (Story{"81 09 04 47 FF"}));
  EXPECT_EQ(os.Output(), "");
}

TEST_F(SnrQM2150RawPacketsInquiry, PassesCategoryCountAndBytes) {
  const Bytes data{0x7E, 0x00, 0xAB};
  Data({});
  EXPECT_EQ(SnrQM2150_Inquiry(0x7E, 3, data.data(), 64, text), 0);
  EXPECT_EQ(OwnStory(), (Story{"81 09 7E 7E 00 AB FF"}));
  NextCase();
  Data({});
  EXPECT_EQ(SnrQM2150_Inquiry(0x00, 0, data.data(), 64, text), 0);
  EXPECT_EQ(OwnStory(), (Story{"81 09 00 FF"}));
}

TEST_F(SnrQM2150RawPacketsInquiry, RepliesHave0To16DataBytes) {
  Data({});
  EXPECT_EQ(Inquire(64), 0);
  EXPECT_STREQ(text, "90 50 ff");
  Data({0x00, 0x0A, 0xA0, 0xBC, 0xDE, 0xF9, 0x10, 0x80, 0x7F, 0xFF, 0x01, 0x02, 0x03, 0x04, 0x05, 0xFE});
  EXPECT_EQ(Inquire(64), 0);
  EXPECT_STREQ(text, "90 50 00 0a a0 bc de f9 10 80 7f ff 01 02 03 04 05 fe ff");
  os.Reply({0x90, 0x41, 0xFF});  // any type but an error
  EXPECT_EQ(Inquire(64), 0);
  EXPECT_STREQ(text, "90 41 ff");
  os.Reply({0x90, 0x61, 0x41, 0xFF});
  EXPECT_EQ(Inquire(64), 0);
  EXPECT_STREQ(text, "90 61 41 ff");
}

TEST_F(SnrQM2150RawPacketsInquiry, TheSizeLimitsOnlyTheClearing) {
  for (const uint32_t size : {0U, 1U, 13U, 14U, 15U}) {  // the text and its zero are always written
    memset(text, 'x', sizeof text);
    Data({0x01, 0x23});
    EXPECT_EQ(Inquire(size), 0) << size;
    EXPECT_STREQ(text, "90 50 01 23 ff") << size;
    EXPECT_EQ(Behind(15), std::string(65, 'x')) << size;
  }
  memset(text, 'x', sizeof text);
  Data({0x01, 0x23});
  EXPECT_EQ(Inquire(20), 0);
  EXPECT_EQ(Behind(14), std::string(6, '\0') + std::string(60, 'x'));
  memset(text, 'x', sizeof text);
  Data({0x01, 0x23});
  EXPECT_EQ(Inquire(80), 0);
  EXPECT_EQ(Behind(14), std::string(66, '\0'));
}

TEST_F(SnrQM2150RawPacketsInquiry, TheLongestTextAndItsZeroTake57Bytes) {
  char exact[57];
  Data(Bytes(16, 0x55));
  EXPECT_EQ(SnrQM2150_Inquiry(0x04, 1, code, 0, exact), 0);
  EXPECT_STREQ(exact, "90 50 55 55 55 55 55 55 55 55 55 55 55 55 55 55 55 55 ff");
}

TEST_F(SnrQM2150RawPacketsInquiry, AFailedInquiryLeavesTheTextUnchanged) {
  Silence();
  EXPECT_EQ(Inquire(64), -56);
  EXPECT_EQ(OwnStory(), (Story{"81 09 04 47 FF (silence)"}));
  NextCase();
  os.Reply({0x90, 0x50, 0xFF}).Stop(0x56);
  EXPECT_EQ(Inquire(64), -58);
  NextCase();
  EXPECT_EQ(SnrQM2150_Inquiry(0x04, 17, code, 64, text), -1);
  EXPECT_EQ(OwnStory(), (Story{}));
  EXPECT_EQ(Behind(0), std::string(80, 'x'));
}

TEST_F(SnrQM2150RawPacketsInquiry, AnErrorReplyLeavesTheTextUnchanged) {
  os.Reply({0x90, 0x60, 0x02, 0xFF});
  EXPECT_EQ(Inquire(64), -59);
  EXPECT_EQ(OwnStory(), (Story{"81 09 04 47 FF"}));
  NextCase();
  os.Reply({0x91, 0x50, 0x02, 0xFF});
  EXPECT_EQ(Inquire(64), -59);
  EXPECT_EQ(OwnStory(), (Story{"81 09 04 47 FF"}));
  EXPECT_EQ(Behind(0), std::string(80, 'x'));
}

TEST_F(SnrQM2150RawPacketsInquiry, AStopIsSilentAndLeavesTheTextUnchanged) {
  Stop();
  EXPECT_EQ(Inquire(64), -15);
  EXPECT_EQ(OwnStory(), (Story{"81 09 04 47 FF (stop)"}));
  EXPECT_EQ(Behind(0), std::string(80, 'x'));
  NextCase();
  SetSigID(1);
  EXPECT_EQ(Inquire(64), -15);
  EXPECT_THAT(OwnStory(), IsEmpty());
}

}  // namespace
