#include <gtest/gtest.h>

#include <string>

#include "base/allocation.h"
#include "base/service_state.h"
#include "discovery/attribute_list.h"
#include "discovery/slp_lists.h"
#include "discovery/slp_message.h"
#include "support/suspicious_block.h"

namespace zvqrn {
namespace {

using namespace std::string_literals;

// A request and a reply, written out byte by byte.
const std::string REQUEST =
    "\x02\x06\x00\x00\x35\x20\x00\x00\x00\x00\x12\x34\x00\x02"
    "en\x00\x00\x00\x14service:Quorin-agent\x00\x07"
    "default\x00\x00\x00\x00"s;
const std::string REPLY =
    "\x02\x07\x00\x00\x55\x00\x00\x00\x00\x00\x12\x34\x00\x02"
    "en\x00\x00\x00\x40(ClientName=OFFICE-PC),(IPAddress=192.168.1.20),(EventPort=2968)\x00"s;

// Replaces bytes from `at` on.
std::string With(std::string bytes, std::size_t at, const std::string& changed) {
  return bytes.replace(at, changed.size(), changed);
}

// The request with all four texts and a tag of its own, its length field set.
std::string RequestOf(const std::string& tag, const std::string& body) {
  const std::size_t length = 14 + tag.size() + body.size();
  return "\x02\x06\x00"s + static_cast<char>(length >> 8) + static_cast<char>(length) +
         "\x00\x00\x00\x00\x00\x00\x01\x00"s + static_cast<char>(tag.size()) + tag + body;
}

SlpResult Decode(const std::string& bytes, OwnedSlpMessage* message) {
  const test::SuspiciousBlock block = test::BlockOf(bytes);
  SlpMessage* made = nullptr;
  const SlpResult result = DecodeSlpMessage(block.Data(), block.length, &made);
  EXPECT_EQ(made != nullptr, result == SLP_OK);
  message->reset(made);
  return result;
}

std::string Text(const SlpMessage* message,
                 std::int32_t (*accessor)(const SlpMessage*, const char**)) {
  const char* text = "?";
  const std::int32_t length = accessor(message, &text);
  if (length < 0) {
    return "result " + std::to_string(length);
  }
  EXPECT_TRUE(text != nullptr || length == 0);
  return length == 0 ? "" : std::string(text, static_cast<std::size_t>(length));
}

TEST(SlpCodec, JudgesDatagrams) {
  const struct {
    const char* name;
    std::string bytes;
    SlpResult result;
  } cases[] = {
      {"the request", REQUEST, SLP_OK},
      {"the reply", REPLY, SLP_OK},
      {"another version", With(REQUEST, 0, "\x09"), SLP_OK},
      {"all flags", With(REQUEST, 5, "\xFF\xFF"), SLP_OK},
      {"an extension within bounds", With(REQUEST, 7, "\x00\x00\x2E"s), SLP_OK},
      {"an extension out of bounds", With(REQUEST, 7, "\x00\x00\x2F"s), SLP_ERR_MALFORMED},
      {"a length one too large", With(REQUEST, 4, "\x36"), SLP_ERR_MALFORMED},
      {"a length one too small", With(REQUEST, 4, "\x34"), SLP_ERR_MALFORMED},
      {"function 0", With(REQUEST, 1, "\x00"s), SLP_ERR_MALFORMED},
      {"function 1", With(REQUEST, 1, "\x01"), SLP_ERR_UNSUPPORTED},
      {"function 11", With(REQUEST, 1, "\x0B"), SLP_ERR_UNSUPPORTED},
      {"function 12", With(REQUEST, 1, "\x0C"), SLP_ERR_MALFORMED},
      {"function 255", With(REQUEST, 1, "\xFF"), SLP_ERR_MALFORMED},
      {"a tag past the end", With(REQUEST, 12, "\x00\x28"s), SLP_ERR_MALFORMED},
      {"a tag up to the end", With(REQUEST, 12, "\x00\x27"s), SLP_ERR_ARGUMENT},
      {"a text past the end", With(REQUEST, 18, "\x00\x22"s), SLP_ERR_MALFORMED},
      {"a huge text", With(REQUEST, 16, "\xFF\xFF"), SLP_ERR_MALFORMED},
      {"no tag", RequestOf("", std::string(10, '\0')), SLP_OK},
      {"a body of 9 bytes", RequestOf("en", std::string(9, '\0')), SLP_ERR_ARGUMENT},
      {"17 bytes", With(RequestOf("", "").append(3, '\0'), 4, "\x11"), SLP_ERR_MALFORMED},
      {"a reply's body of 9 bytes", With(RequestOf("en", std::string(9, '\0')), 1, "\x07"),
       SLP_ERR_MALFORMED},
      {"a reply with an error code", With(REPLY, 16, "\x00\x05\xFF\xFF"s), SLP_OK},
      {"nothing", "", SLP_ERR_ARGUMENT},
  };
  for (const auto& c : cases) {
    OwnedSlpMessage message;
    EXPECT_EQ(Decode(c.bytes, &message), c.result) << c.name;
  }
  EXPECT_EQ(DecodeSlpMessage("x", 1, nullptr), SLP_ERR_ARGUMENT);
}

TEST(SlpCodec, GivesAndWritesTheFields) {
  OwnedSlpMessage message;
  ASSERT_EQ(Decode(RequestOf("de-AT", "\x00\x01p\x00\x02uu\x00\x00\x00\x03ttt\x00\x00"s), &message),
            SLP_OK);
  const SlpMessage* m = message.get();
  EXPECT_EQ(Text(m, GetLanguageTag), "de-AT");
  EXPECT_EQ(Text(m, GetPreviousResponders), "p");
  EXPECT_EQ(Text(m, GetUrl), "uu");
  EXPECT_EQ(Text(m, GetScopeList), "");
  EXPECT_EQ(Text(m, GetTagList), "ttt");
  EXPECT_EQ(GetUrl(nullptr, nullptr), SLP_ERR_ARGUMENT);

  // What was read is written again, byte for byte.
  char out[128];
  ASSERT_EQ(Decode(REQUEST, &message), SLP_OK);
  EXPECT_EQ(GetXid(message.get()), 0x1234);
  EXPECT_EQ(message->header->requestMulticast, 1);
  EXPECT_EQ(EncodeSlpMessage(message.get(), out), 53);
  EXPECT_EQ(std::string(out, 53), REQUEST);
  ASSERT_EQ(Decode(REPLY, &message), SLP_OK);
  EXPECT_EQ(Text(message.get(), GetUrl), "result -4");
  EXPECT_EQ(EncodeSlpMessage(message.get(), out), 85);
  EXPECT_EQ(std::string(out, 85), REPLY);
  message->header->functionId = 1;
  EXPECT_EQ(EncodeSlpMessage(message.get(), out), SLP_ERR_UNSUPPORTED);
  message->header->functionId = SLP_ATTR_RPLY;
}

TEST(SlpCodec, BuildsRepliesAndMarksOverflow) {
  SlpMessage* made = nullptr;
  ASSERT_EQ(
      BuildAttrRply(0x51234, 0, "(ClientName=OFFICE-PC),(IPAddress=192.168.1.20),(EventPort=2968)",
                    "en", &made),
      SLP_OK);
  char out[2000];
  EXPECT_EQ(EncodeSlpMessage(made, out), 85);
  EXPECT_EQ(std::string(out, 85), REPLY) << "16 bits of the XID";
  FreeSlpMessage(made);
  for (const std::size_t length : {1379U, 1380U}) {
    ASSERT_EQ(BuildAttrRply(1, 0, std::string(length, 'a').c_str(), "en", &made), SLP_OK);
    EXPECT_EQ(EncodeSlpMessage(made, out), static_cast<std::int32_t>(length) + 21);
    EXPECT_EQ(out[5], length == 1380U ? '\x80' : '\0') << length;
    FreeSlpMessage(made);
  }
  EXPECT_EQ(BuildAttrRply(1, 0, nullptr, "en", &made), SLP_ERR_ARGUMENT);
  EXPECT_EQ(BuildAttrRply(1, 0, "", nullptr, &made), SLP_ERR_ARGUMENT);
}

// Every prefix of a message, with its length field as it was and set right, and every change of a
// single byte.
TEST(SlpCodec, SurvivesDamage) {
  for (const std::string& whole : {REQUEST, REPLY}) {
    for (std::size_t length = 0; length < whole.size(); length++) {
      const std::string prefix = whole.substr(0, length);
      OwnedSlpMessage message;
      EXPECT_NE(Decode(prefix, &message), SLP_OK);
      if (length > 4) {
        Decode(With(prefix, 4, std::string(1, static_cast<char>(length))), &message);
      }
    }
    for (std::size_t at = 0; at < whole.size(); at++) {
      for (int byte = 0; byte < 256; byte++) {
        OwnedSlpMessage message;
        if (Decode(With(whole, at, std::string(1, static_cast<char>(byte))), &message) == SLP_OK) {
          Text(message.get(), GetTagList);
          Text(message.get(), GetLanguageTag);
        }
      }
    }
  }
}

TEST(SlpLists, CountAndCut) {
  const struct {
    std::string list;
    std::int32_t count;
    const char* elements[3];  // null: no such element
  } cases[] = {
      {"", 1, {}},
      {"a", 1, {"a"}},
      {"a,b", 2, {"a", "b"}},
      {"abc,", 1, {"abc"}},
      {",a", 2, {nullptr, "a"}},
      {",", 1, {}},
      {"a,,b", 3, {"a", nullptr, "b"}},
      {"a\\,b", 1, {"a,b"}},
      {"a\\\\,b", 2, {"a\\", "b"}},
      {"a\\\\\\,b", 1, {"a\\,b"}},
      {"a\\,", 1, {"a,"}},
      {"x\\(y\\)\\a\\2c", 1, {"x(y)a2c"}},
      {"a\\", 1, {}},
      {"a\\\xC3\xA9", 1, {}},
      {"\xC3\xA9\xE3\x82\xBD\xF0\x9F\x96\xA8", 1, {"\xC3\xA9\xE3\x82\xBD\xF0\x9F\x96\xA8"}},
      {"\xC3\x41", 1, {}},
      {"\xC3", 1, {}},
      {"\xE3\x82", 1, {}},
      {"\xF0\x9F\x96", 1, {}},
      {"\x82", 1, {}},
      {"\xF8\x80\x80\x80", 1, {}},
  };
  for (const auto& c : cases) {
    const test::SuspiciousBlock block = test::BlockOf(c.list + '\0');
    std::int32_t count = -1;
    EXPECT_EQ(CountListElements(block.Data(), ",", &count), 1);
    EXPECT_EQ(count, c.count) << c.list;
    for (std::int32_t i = 0; i < 3; i++) {
      char* element = nullptr;
      EXPECT_EQ(GetListElement(block.Data(), ",", i + 1, &element), c.elements[i] ? 1 : 0)
          << c.list << " " << i;
      EXPECT_STREQ(element, c.elements[i]) << c.list;
      free(element);
    }
  }
  char* element = nullptr;
  EXPECT_EQ(GetListElement("a", ",", 0, &element), 0);
  EXPECT_EQ(GetListElement(nullptr, ",", 1, &element), 0);
  EXPECT_EQ(CountListElements(nullptr, ",", nullptr), 0);
}

TEST(SlpLists, FindAnAddress) {
  const struct {
    const char* list;
    const char* address;
    std::int32_t found;
  } cases[] = {
      {"10.0.0.1,,192.168.1.20", "192.168.1.20", 1},
      {"10.0.0.1,,192.168.1.20", "192.168.1.2", 0},
      {"10.0.0.1, 192.168.1.20", "192.168.1.20", 0},
      {"192.168.1.20,", "192.168.1.20", 1},
      {"192.168.1.200", "192.168.1.20", 0},
      {"", "192.168.1.20", 0},
      {"AB,cd", "ab", 1},
      {nullptr, "x", 0},
      {"x", nullptr, 0},
      {",", "", 0},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(IsInResponderList(c.list, c.address, ','), c.found) << (c.list ? c.list : "null");
  }
}

#if !defined(_WIN32)  // the system converts there
TEST(AttributeList, ConvertsTheWesternCharactersOfTheirOwn) {
  char* utf8 = nullptr;
  std::int32_t length = 0;
  AnsiToUtf8(
      "\x80\x82\x83\x84\x85\x86\x87\x88\x89\x8A\x8B\x8C\x8E\x91\x92\x93\x94\x95\x96\x97\x98\x99\x9A"
      "\x9B\x9C\x9E\x9F\xA0\x81",
      &utf8, &length);
  EXPECT_STREQ(utf8, "€‚ƒ„…†‡ˆ‰Š‹ŒŽ‘’“”•–—˜™š›œžŸ\u00A0\u0081");
  std::free(utf8);
}
#endif

TEST(AttributeList, TellsNameAddressAndPort) {
  const struct {
    const char* name;
    std::uint32_t address;
    const char* list;
  } cases[] = {
      {"OFFICE-PC", 0x1401A8C0, "(ClientName=OFFICE-PC),(IPAddress=192.168.1.20),(EventPort=2968)"},
      {"LAB(2),A\\B", 0xFF006D64,
       "(ClientName=LAB\\(2\\)\\,A\\\\B),(IPAddress=100.109.0.255),(EventPort=2968)"},
      {",,,,,,,,,,,,,,,", 0x0100000A,
       "(ClientName=\\,\\,\\,\\,\\,\\,\\,\\,\\,\\,\\,\\,\\,\\,\\,),(IPAddress=10.0.0.1),"
       "(EventPort=2968)"},
      {"B\xFCro \x80", 0x0100000A,
       "(ClientName=B\xC3\xBCro \xE2\x82\xAC),(IPAddress=10.0.0.1),(EventPort=2968)"},
      {"=!<>~ \x01", 0x0100000A, "(ClientName==!<>~ \x01),(IPAddress=10.0.0.1),(EventPort=2968)"},
      {"OFFICE-PC", 0, nullptr},
      {"", 0x0100000A, nullptr},
      {nullptr, 0x0100000A, nullptr},
  };
  ASSERT_TRUE(CreateServiceLock(&service.identityLock, 1, 1));
  service.eventPort = 2968;
  for (const auto& c : cases) {
    service.pcName = const_cast<char*>(c.name);
    service.localAddress = c.address;
    char* text = nullptr;
    std::int32_t length = -1;
    BuildAttributeList(&text, &length);
    const OwnedBlock<char> owner(text);
    EXPECT_STREQ(text, c.list);
    EXPECT_EQ(length, c.list != nullptr ? static_cast<std::int32_t>(strlen(c.list)) : 0);
  }
  service.pcName = nullptr;
  service.localAddress = 0;
  DestroyServiceLock(&service.identityLock);
}

}  // namespace
}  // namespace zvqrn
