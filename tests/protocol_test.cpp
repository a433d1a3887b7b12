#include "eventproto/protocol.h"

#include <gtest/gtest.h>

#include "base/text.h"
#include "eventserver/host_data.h"

namespace zvqrn {
namespace {

TEST(Versions, AreJudgedAndAnswered) {
  const struct {
    const char* version;
    const char* status;
    const char* answer;  // the version of an answer to a field that holds it
  } cases[] = {
      {"1.00", "0001", "1.00"}, {"2.00", "0001", "2.00"},  {"1.5", "0002", "1.00"},
      {"1.", "0002", "1.00"},   {"1.000", "0002", "1.00"}, {"2.01", "1001", "2.00"},
      {"2.5", "1001", "2.00"},  {"3.00", "1001", "1.00"},  {"10.00", "1001", "1.00"},
      {"1", "1001", "1.00"},    {"2", "1001", "1.00"},     {"", "1001", "1.00"},
      {"20.0", "1001", "1.00"}, {"x", "1001", "1.00"},
  };
  for (const auto& c : cases) {
    char status[STATUS_SIZE] = {};
    const std::int32_t accepted = c.status[0] == '0' ? 1 : -1;
    EXPECT_EQ(CheckVersion(c.version, status), accepted) << c.version;
    EXPECT_STREQ(status, c.status) << c.version;
    char field[VERSION_SIZE];
    CopyBounded(field, c.version, VERSION_SIZE);
    SelectAnswerVersion(field);
    EXPECT_STREQ(field, c.answer) << c.version;
  }
}

TEST(Versions, ShareTheirMajorPart) {
  EXPECT_EQ(SameMajorVersion("1.00", "1."), 1);
  EXPECT_EQ(SameMajorVersion("2", "2.00"), 1);
  EXPECT_EQ(SameMajorVersion("a.0", "A.9"), 1);
  EXPECT_EQ(SameMajorVersion("20.0", "2.00"), 0);
  EXPECT_EQ(SameMajorVersion("2.00", "20.0"), 0);
  EXPECT_EQ(SameMajorVersion("2.00", ""), 0);
  EXPECT_EQ(SameMajorVersion("", "2.00"), 0);
}

TEST(Uid, IsTheTimeWithMilliseconds) {
  for (int i = 0; i < 50; i++) {
    char* uid = MakeUid();
    ASSERT_NE(uid, nullptr);
    const std::string text(uid);
    EXPECT_GE(text.size(), 15U);
    EXPECT_LE(text.size(), 17U);
    EXPECT_EQ(text.find_first_not_of("0123456789"), std::string::npos) << text;
    EXPECT_EQ(text.substr(0, 2), "20") << text;
    EXPECT_TRUE(text.size() == 15 || text[14] != '0') << "no leading zeros: " << text;
    free(uid);
  }
}

}  // namespace
}  // namespace zvqrn
