#include "eventproto/message_head.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/suspicious_block.h"

namespace zvqrn {
namespace {

using test::BlockOf;

HeadState Measure(const std::string& bytes) {
  const test::SuspiciousBlock block = BlockOf(bytes);
  HeadMeasure measure{};
  return MeasureHead(block.Data(), block.length, &measure);
}

TEST(ParseHead, JudgesStartLinesAndHeaders) {
  const std::string good = "POST /PushScan HTTP/1.0\r\n";
  const struct {
    const char* name;
    std::string head;
    std::int32_t kind;
  } cases[] = {
      {"a request", good + "a : b\r\n\r\n", KIND_REQUEST},
      {"a request without headers", good + "\r\n", KIND_REQUEST},
      {"another method and path", "X y HTTP/9\r\n\r\n", KIND_REQUEST},
      {"a mark inside the token", "X y zHTTP/\r\n\r\n", KIND_REQUEST},
      {"a response", "HTTP/1.0 200 OK\r\n\r\n", KIND_RESPONSE},
      {"a response without reason", "HTTP/1.0 200 \r\n\r\n", KIND_RESPONSE},
      {"a mark at both ends", "HTTP/1.0 x HTTP/1.0\r\n\r\n", KIND_REQUEST},
      {"two tokens", "POST HTTP/1.0\r\n\r\n", -1},
      {"four tokens", "POST / HTTP/1.0 x\r\n\r\n", -1},
      {"two spaces", "POST  /PushScan HTTP/1.0\r\n\r\n", -1},
      {"two spaces for a token", "POST  HTTP/1.0\r\n\r\n", -1},
      {"a leading space", " /PushScan HTTP/1.0\r\n\r\n", -1},
      {"a reason of two words", "HTTP/1.0 404 Not Found\r\n\r\n", -1},
      {"no mark", "POST /PushScan HTTQ/1.0\r\n\r\n", -1},
      {"the mark in small letters", "POST /PushScan http/1.0\r\n\r\n", -1},
      {"an empty start line", "\r\n\r\n", -1},
      {"no end", good + "a : b\r\n", -1},
      {"bare line feeds", "POST / HTTP/1.0\na : b\n\n", -1},
      {"no colon", good + "a b\r\n\r\n", -1},
      {"no value", good + "a :\r\n\r\n", -1},
      {"a blank value", good + "a : \t \r\n\r\n", -1},
      {"no name", good + " : b\r\n\r\n", -1},
      {"a NUL in a value", good + std::string("a : b\0c\r\n\r\n", 11), -1},
      {"a NUL in a name", good + std::string("a\0 : b\r\n\r\n", 10), -1},
      {"nothing", "", -1},
  };
  for (const auto& c : cases) {
    const test::SuspiciousBlock block = BlockOf(c.head);
    ParsedMessage* parsed = nullptr;
    EXPECT_EQ(ParseHead(block.Data(), block.length, &parsed), c.kind) << c.name;
    EXPECT_EQ(parsed != nullptr, c.kind > 0) << c.name;
    FreeParsedMessage(parsed);
    EXPECT_EQ(Measure(c.head) == HEAD_COMPLETE, c.kind > 0) << c.name;
    // A head that is not complete may grow exactly as long as no line that has ended is bad: a
    // prefix of a good head always may.
    for (std::int32_t length = 0; length < block.length; length++) {
      const HeadState state = Measure(c.head.substr(0, static_cast<std::size_t>(length)));
      EXPECT_TRUE(state == HEAD_UNFINISHED || c.kind < 0) << c.name << " cut at " << length;
    }
  }
  ParsedMessage* parsed = nullptr;
  EXPECT_EQ(ParseHead(nullptr, 4, &parsed), 0);
  EXPECT_EQ(ParseHead("", 0, nullptr), 0);
}

TEST(MeasureHead, StopsAtTheFirstBadLineAndReadsTheFirstLength) {
  const struct {
    std::string begin;
    HeadState state;
    std::int32_t contentLength = 0;
  } cases[] = {
      {"", HEAD_UNFINISHED},
      {"PO", HEAD_UNFINISHED},
      {"<?xml version=\"1.0\" ?>\r", HEAD_UNFINISHED},
      {"<?xml version=\"1.0\" ?>\r\n", HEAD_MALFORMED},
      {"POST / HTTP/1.0\r\n", HEAD_UNFINISHED},
      {"POST / HTTP/1.0\r\nno colon", HEAD_UNFINISHED},
      {"POST / HTTP/1.0\r\nno colon\r\n", HEAD_MALFORMED},
      {"POST / HTTP/1.0\r\na : b\r\n\r", HEAD_UNFINISHED},
      {"POST / HTTP/1.0\r\na : b\r\n\r\nbody", HEAD_COMPLETE},
      {"POST / HTTP/1.0\r\ncontent-LENGTH: 12\r\nContent-Length: 3\r\n\r\n", HEAD_COMPLETE, 12},
      {"POST / HTTP/1.0\r\nContent-Lengths: 9\r\nContent-Length: 3\r\n\r\n", HEAD_COMPLETE, 3},
      {"POST / HTTP/1.0\r\nContent-Length:\v\r\n7 : 7\r\n\r\n", HEAD_COMPLETE, 0},
  };
  for (const auto& c : cases) {
    const test::SuspiciousBlock block = BlockOf(c.begin);
    HeadMeasure measure{};
    EXPECT_EQ(MeasureHead(block.Data(), block.length, &measure), c.state) << c.begin;
    EXPECT_EQ(measure.contentLength, c.contentLength) << c.begin;
  }
}

TEST(FindHeader, FindsTheFirstOfAName) {
  const std::string text =
      "POST /PushScan HTTP/1.0\r\n"
      "content-length \t:\t 12  \r\n"
      "X-Uid:  Mixed Case: and colon \r\n"
      "x-uid : second\r\n"
      "odd-\xE4 : high byte\r\n"
      "\r\n"
      "x-status : in the body\r\n";
  const test::SuspiciousBlock block = BlockOf(text);
  ParsedMessage* made = nullptr;
  ASSERT_EQ(ParseHead(block.Data(), block.length, &made), KIND_REQUEST);
  const OwnedParsedMessage parsed(made);
  const struct {
    const char* name;
    const char* value;  // null: not found
  } cases[] = {
      {"Content-Length", "12"},  {"x-uid", "Mixed Case: and colon"},
      {"ODD-\xE4", "high byte"}, {"x-status", nullptr},
      {"POST", nullptr},         {"", nullptr},
      {"12", nullptr},           {"x-ui", nullptr},
      {"x-uidx", nullptr},
  };
  for (const auto& c : cases) {
    const char* value = nullptr;
    EXPECT_EQ(FindHeader(made, c.name, &value), c.value != nullptr ? 1 : -1) << c.name;
    EXPECT_STREQ(value, c.value) << c.name;
  }
  EXPECT_EQ(ContentLength(made), 12);
  const char* start = nullptr;
  EXPECT_EQ(GetBodyStart(made, &start), 1);
  EXPECT_EQ(start, block.Data() + text.find("x-status"));
  std::int32_t length = 0;
  EXPECT_EQ(GetHeadLength(made, &length), 1);
  EXPECT_EQ(length, static_cast<std::int32_t>(text.find("x-status")));
  EXPECT_EQ(made->bufferSize, length / 8 * 8 + 8);

  const ParsedMessage empty{};
  const char* value = nullptr;
  EXPECT_EQ(FindHeader(&empty, "x", &value), -1);
  EXPECT_EQ(FindHeader(nullptr, "x", &value), 0);
  EXPECT_EQ(GetBodyStart(&empty, &start), -1);
  EXPECT_EQ(GetHeadLength(&empty, &length), -1);
}

TEST(ParseHead, SurvivesEverySingleByteChange) {
  const std::string text = "POST /PushScan HTTP/1.0\r\nx-uid : 5\r\nb: 2\r\n\r\nbody";
  for (std::size_t at = 0; at < text.size(); at++) {
    for (int byte = 0; byte < 256; byte++) {
      std::string changed = text;
      changed[at] = static_cast<char>(byte);
      const test::SuspiciousBlock block = BlockOf(changed);
      ParsedMessage* made = nullptr;
      const std::int32_t kind = ParseHead(block.Data(), block.length, &made);
      const OwnedParsedMessage parsed(made);
      EXPECT_TRUE((kind > 0) == (made != nullptr));
      if (made != nullptr) {
        const char* value = nullptr;
        FindHeader(made, "b", &value);
        EXPECT_LE(made->headLength, block.length);
      }
    }
  }
}

}  // namespace
}  // namespace zvqrn
