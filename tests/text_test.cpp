#include "base/text.h"

#include <gtest/gtest.h>

#include <clocale>
#include <string>

#include "base/driver_name.h"

namespace zvqrn {
namespace {

TEST(CopyBounded, CutsPadsAndEndsText) {
  char field[5];
  CopyBounded(field, "0001", 5);
  EXPECT_STREQ(field, "0001");
  CopyBounded(field, "123456", 5);
  EXPECT_STREQ(field, "1234");
  CopyBounded(field, "x", 5);
  EXPECT_EQ(std::string(field, 5), std::string("x\0\0\0\0", 5));
}

TEST(EqualsIgnoringCase, FoldsOnlyTheLettersAToZ) {
  const struct {
    const char* a;
    const char* b;
    std::int32_t result;
  } cases[] = {
      {"tiff", "TIFF", 0}, {"TIFF ", "TIFF", 1}, {"TIFF", "TIFF ", -1}, {"", "", 0},
      {"a", "B", -1},      {"\xE4", "\xC4", 1},  {"\x7F", "\xC4", -1},  {nullptr, "x", -1},
      {"x", nullptr, -1},  {"[", "{", -1},       {"a_b", "A_B", 0},     {"Z", "[", -1},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(EqualsIgnoringCase(c.a, c.b), c.result)
        << (c.a ? c.a : "null") << " and " << (c.b ? c.b : "null");
  }
  EXPECT_TRUE(BeginsIgnoringCase("Zorva Network Service Protocol/2", "zorva network"));
  EXPECT_FALSE(BeginsIgnoringCase("Zorva", "Zorva Network"));
}

TEST(DecimalNumber, ReadsAsAtoiAndStopsAtTheLimits) {
  const struct {
    const char* text;
    std::int32_t number;
  } cases[] = {
      {"0", 0},
      {" \t\r\n\v\f42", 42},
      {"-42", -42},
      {"+7", 7},
      {"12abc", 12},
      {"abc", 0},
      {"", 0},
      {"-", 0},
      {"- 5", 0},
      {"2147483647", INT32_MAX},
      {"2147483648", INT32_MAX},
      {"-2147483648", INT32_MIN},
      {"-99999999999999999999999999", INT32_MIN},
      {"99999999999999999999999999", INT32_MAX},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(DecimalNumber(c.text), c.number) << c.text;
  }
  char text[DECIMAL_TEXT_SIZE];
  FormatDecimal(0, text);
  EXPECT_STREQ(text, "0");
  FormatDecimal(4294967295U, text);
  EXPECT_STREQ(text, "4294967295");
}

#if !defined(_WIN32)  // a Windows process cannot choose its code page

TEST(EndsInsideCharacter, FollowsTheUtf8Sequences) {
  ASSERT_NE(setlocale(LC_CTYPE, "C.UTF-8"), nullptr);
  const struct {
    std::string text;
    bool inside;
  } cases[] = {
      {"AB", false},
      {"A\xC3", true},
      {"A\xC3\xA4", false},
      {"\xE2\x82", true},
      {"\xE2\x82\xAC", false},
      {"\xF0\x9F\x96", true},
      {"\xF0\x9F\x96\xA8", false},
      {"\xA4", false},  // the end of a character, not its beginning
      {"\xC3\xA4\xA4\xA4\xA4\xA4", false},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(EndsInsideCharacter(c.text.data(), static_cast<std::int32_t>(c.text.size())),
              c.inside)
        << testing::PrintToString(c.text);
  }
  setlocale(LC_CTYPE, "C");
  EXPECT_FALSE(EndsInsideCharacter("A\xC3", 2)) << "Windows-1252";
}

#endif

std::int32_t utilityAnswer = 0;
std::int32_t utilityCalls = 0;

std::int32_t QRN_EXPORT AnswerAsTold(const char* /*product*/, char* buffer) {
  utilityCalls++;
  buffer[0] = 'D';
  return utilityAnswer;
}

TEST(CallGetTwainName, TellsMissingFromUnknown) {
  char buffer[DRIVER_NAME_SIZE] = {};
  EXPECT_EQ(CallGetTwainName(nullptr, "XS", buffer), DRIVER_NAME_NO_LIBRARY);
  EXPECT_EQ(CallGetTwainName(&AnswerAsTold, nullptr, buffer), DRIVER_NAME_BAD_ARGUMENT);
  EXPECT_EQ(CallGetTwainName(&AnswerAsTold, "XS", nullptr), DRIVER_NAME_BAD_ARGUMENT);
  EXPECT_EQ(utilityCalls, 0);
  for (const std::int32_t refusal : {0, 2, -1}) {
    utilityAnswer = refusal;
    EXPECT_EQ(CallGetTwainName(&AnswerAsTold, "XS", buffer), DRIVER_NAME_UNKNOWN);
  }
  utilityAnswer = 1;
  EXPECT_EQ(CallGetTwainName(&AnswerAsTold, "XS", buffer), DRIVER_NAME_FOUND);
  EXPECT_STREQ(buffer, "D");
}

}  // namespace
}  // namespace zvqrn
