// The protocol tables: what every row must obey. What the rows mean is in the tests of the models.
#include "simulator/model/Protocol.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

namespace {

// A letter stands for one field: a template that used one letter for two would mix their bits.
TEST(Protocol, UsesEachLetterOnceInARow) {
  for (const auto& table : {sim::CameraTable(), sim::McuTable()}) {
    for (const sim::Row& row : table) {
      std::set<char> letters;
      for (const sim::Field& field : row.fields) {
        EXPECT_TRUE(letters.insert(field.letter).second) << row.name << " " << field.letter;
        const bool used =
            (std::string(row.command) + std::string(row.inquiry) + std::string(row.reply)).find(field.letter) !=
            std::string::npos;
        EXPECT_TRUE(used || field.letter == sim::kStepped) << row.name << " " << field.letter;
      }
      for (const std::string_view text : {row.command, row.inquiry, row.reply}) {
        for (const char c : text) {
          EXPECT_TRUE(c < 'a' || c > 'z' || letters.contains(c)) << row.name << " " << c;
        }
      }
    }
  }
}

TEST(Protocol, HasEveryMcuCommand) {
  for (std::uint8_t id = 1; id <= 0x15; ++id) {
    EXPECT_NE(sim::FindMcu(id), nullptr) << int{id};
  }
  EXPECT_EQ(sim::FindMcu(0x00), nullptr);
  EXPECT_EQ(sim::FindMcu(0x16), nullptr);
}

}  // namespace
