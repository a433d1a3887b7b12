#include "eventproto/protocol.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <string>

#include "base/text.h"
#include "eventserver/host_data.h"
#include "platform/clock.h"
#include "platform/thread.h"

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

#if !defined(_WIN32)  // its clocks are others, and TZ is nothing to it

// The local date and time, to the millisecond.
std::string LocalTime() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  char text[32];
  strftime(text, sizeof text, "%Y%m%d%H%M%S", localtime(&now.tv_sec));
  const std::string milliseconds = std::to_string(1000 + now.tv_nsec / 1000000);
  return text + milliseconds.substr(1);
}

TEST(Uid, IsTheLocalTime) {
  setenv("TZ", "XXX-13:45", 1);
  tzset();
  for (int i = 0; i < 50; i++) {
    const std::string before = LocalTime();
    char* uid = MakeUid();
    const std::string after = LocalTime();
    std::string text(uid);
    text.insert(14, 17 - text.size(), '0');
    EXPECT_LE(before, text);
    EXPECT_LE(text, after);
    free(uid);
    platform::SleepMilliseconds(1);
  }
  unsetenv("TZ");
  tzset();
}

// A host's clock may be set while the service runs.
TEST(Clock, IsNotTheHostsToSet) {
  const auto now = [] {
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return std::int64_t{time.tv_sec} * 1000 + time.tv_nsec / 1000000;
  };
  const std::int64_t before = now();
  const std::int64_t shown = platform::MonotonicMilliseconds();
  EXPECT_LE(before, shown);
  EXPECT_LE(shown, now());
}

#endif

}  // namespace
}  // namespace zvqrn
