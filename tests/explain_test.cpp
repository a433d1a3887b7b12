// The judges of quorin-scanner explain, against the library's own code on changed messages;
// captures of every form; and the reading of a firewall's rules.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "base/text.h"
#include "discovery/slp_lists.h"
#include "discovery/slp_message.h"
#include "eventproto/message_head.h"
#include "eventserver/request_check.h"
#include "pushscan/documents.h"
#include "scanner/doctor/firewall.h"
#include "scanner/explain/account.h"
#include "scanner/explain/request_judge.h"
#include "scanner/explain/search_judge.h"
#include "support/messages.h"

namespace zvqrn {
namespace {

using scanner::RuleOf;

// Changes a few bytes, and now and then takes some away or doubles them.
std::string Changed(const std::string& bytes, std::mt19937* random) {
  constexpr char TELLING[] = {'\0', '\r', '\n', ' ', ':', '-', '<', ',', '\\', '\xC3', '1', '9'};
  std::string changed = bytes;
  for (auto times = 1 + (*random)() % 3; times > 0 && !changed.empty(); --times) {
    const std::size_t at = (*random)() % changed.size();
    switch ((*random)() % 6) {
      case 5:
        changed.resize((*random)() % 8 == 0 ? at : changed.size());
        break;
      case 0:
        changed[at] = static_cast<char>((*random)());
        break;
      case 1:
        changed.erase(at, (*random)() % 8);
        break;
      case 2:
        changed.insert(at, changed.substr(at, (*random)() % 40));
        break;
      default:
        changed[at] = TELLING[(*random)() % sizeof TELLING];
    }
  }
  return changed;
}

// What the library does with a message: the x-status of its answer, "" when the host is asked, "-"
// when there is no answer, "more" when it is not whole.
std::string LibraryVerdict(const std::string& bytes) {
  const auto size = static_cast<std::int32_t>(bytes.size());
  HeadMeasure measure{};
  const HeadState state = MeasureHead(bytes.data(), size, &measure);
  if (state != HEAD_COMPLETE || measure.contentLength < 0) {
    return state == HEAD_UNFINISHED ? "more" : "-";
  }
  ParsedMessage* made = nullptr;
  ParseHead(bytes.data(), size, &made);
  const OwnedParsedMessage parsed(made);
  const char* name = nullptr;
  const char* uid = nullptr;
  if (parsed->kind != KIND_REQUEST || FindHeader(made, "x-protocol-name", &name) != 1 ||
      EqualsIgnoringCase(name, PROTOCOL_NAME) != 0 || FindHeader(made, "x-uid", &uid) != 1 ||
      std::string(uid).size() > 19) {
    return "-";
  }
  EventHeader header{};
  CheckedRequest checked{};
  if (CheckRequestHeaders(made, &header, &checked) != CHECK_ACCEPTED) {
    return checked.status;
  }
  SelectAnswerVersion(header.protocolVersion);
  const auto present = static_cast<std::int32_t>(bytes.data() + size - checked.bodyStart);
  PushScanDocument* document = nullptr;
  const DocumentResult result =
      ParsePushScanDocument(checked.bodyStart, std::min(checked.contentLength, present),
                            header.protocolVersion, &document);
  const OwnedParsedDocument owner(document);
  return result == DOC_OK && document->kind != 2 ? "" : "2003";
}

std::string ExplainedVerdict(const std::string& bytes) {
  const scanner::Head head = scanner::ReadHead(bytes);
  if (head.state != scanner::HEAD_COMPLETE || head.contentLength < 0) {
    return head.state == scanner::HEAD_UNFINISHED ? "more" : "-";
  }
  const std::string body = bytes.substr(head.length, static_cast<std::size_t>(head.contentLength));
  const scanner::Rule& rule = RuleOf(scanner::JudgeMessage(head, body, {}).rule);
  return rule.outcome == scanner::OUTCOME_DROPPED ? "-" : rule.status;
}

TEST(Explain, JudgesChangedMessagesAsTheLibraryDoes) {
  std::mt19937 random(2968);
  const std::string good[] = {
      test::Request(test::Identity("1.00", "17"), test::DOCUMENT_V1),
      test::Request(test::Identity("2.00", "18"), test::DOCUMENT_V2),
      test::Request(test::Identity("1.5", "19") + "x-subevent : START\r\n", test::DOCUMENT_V1)};
  std::map<std::string, int> seen;
  for (int i = 0; i < 30000; ++i) {
    const std::string message = Changed(good[i % 3], &random);
    const std::string verdict = LibraryVerdict(message);
    ASSERT_EQ(ExplainedVerdict(message), verdict) << message;
    ++seen[verdict];
  }
  // Too few of a kind would prove nothing.
  for (const char* verdict : {"", "-", "more", "1001", "1003", "1004", "2003"}) {
    EXPECT_GT(seen[verdict], 20) << verdict;
  }
}

// True when the library would answer the search, as far as the datagram decides.
bool LibraryAnswers(const std::string& bytes) {
  SlpMessage* made = nullptr;
  if (bytes.size() > 1400 ||
      DecodeSlpMessage(bytes.data(), static_cast<std::int32_t>(bytes.size()), &made) != SLP_OK) {
    return false;
  }
  const OwnedSlpMessage message(made);
  const auto text = [&](std::int32_t (*accessor)(const SlpMessage*, const char**)) {
    const char* found = nullptr;
    return std::string(accessor(made, &found) > 0 ? found : "");
  };
  const std::string scopes = text(GetScopeList);
  std::int32_t count = 0;
  char* element = nullptr;
  const bool isOne = CountListElements(scopes.c_str(), ",", &count) == 1 && count == 1 &&
                     GetListElement(scopes.c_str(), ",", 1, &element) == 1;
  const OwnedBlock<char> owner(element);
  return GetUrl(made, nullptr) >= 0 &&
         EqualsIgnoringCase(text(GetUrl).c_str(), "service:Quorin-agent") == 0 &&
         (EqualsIgnoringCase(scopes.c_str(), "default") == 0 || isOne) &&
         GetLanguageTag(made, nullptr) > 0;
}

TEST(Explain, JudgesChangedSearchesAsTheLibraryDoes) {
  std::mt19937 random(2968);
  const auto search = [](const std::string& scope) {
    const std::string body = std::string("\0\2en\0\0\0\24service:Quorin-agent\0", 29) +
                             static_cast<char>(scope.size()) + scope + std::string(4, '\0');
    return std::string("\2\6\0\0", 4) + static_cast<char>(12 + body.size()) +
           std::string("\x20\0\0\0\0\x12\x34", 7) + body;
  };
  const std::string good[] = {search("default"), search("XS-200"), search("a\\,b"),
                              search("B\xC3\xBCro,"), search("\xF8\x80\x80\x80\x80")};
  int answered = 0;
  for (int i = 0; i < 30000; ++i) {
    std::string bytes = i < 5 ? good[i] : Changed(good[i % 5], &random);
    // Most changes of the size would be seen for nothing else.
    if (bytes.size() > 4 && i % 8 != 7) {
      bytes[4] = static_cast<char>(bytes.size());
    }
    const bool answers = LibraryAnswers(bytes);
    const scanner::SlpDatagram datagram = scanner::ReadSlpDatagram(bytes);
    const bool explained =
        !datagram.isReply && RuleOf(datagram.judgement.rule).outcome == scanner::OUTCOME_ACCEPTED;
    ASSERT_EQ(explained, answers) << testing::PrintToString(bytes);
    answered += answers ? 1 : 0;
  }
  EXPECT_GT(answered, 1000);
}

// ---- Packets -------------------------------------------------------------------------------------

constexpr std::uint32_t SCANNER = 0x0300440AU;
constexpr std::uint32_t PC = 0x0200440AU;

// A scene: segments of one or more connections, each with its time in milliseconds.
struct Scene {
  scanner::Capture capture;

  scanner::Packet& Add(std::int64_t ms, bool fromScanner, std::uint16_t port,
                       std::uint32_t sequence, const std::string& bytes) {
    scanner::Packet packet;
    packet.frame = capture.packets.size() + 1;
    packet.timeUs = 1'000'000 + ms * 1000;
    packet.isTcp = true;
    packet.from = fromScanner ? platform::Endpoint{SCANNER, port} : platform::Endpoint{PC, 2968};
    packet.to = fromScanner ? platform::Endpoint{PC, 2968} : platform::Endpoint{SCANNER, port};
    packet.sequence = sequence;
    packet.bytes = bytes;
    capture.packets.push_back(packet);
    return capture.packets.back();
  }
  void Connect(std::int64_t ms, std::uint16_t port) {
    Add(ms, true, port, 999, {}).begins = true;
    Add(ms, false, port, 4999, {}).begins = true;
  }
  std::string Rules() const {
    std::string names;
    for (const scanner::Item& item : scanner::ExplainCapture(capture, {})) {
      names += item.hasRule ? std::string(names.empty() ? "" : " ") + RuleOf(item.rule).name : "";
    }
    return names;
  }
};

std::string AnswerTo(const std::string& uid, const std::string& status, const std::string& rest) {
  return std::string("HTTP/1.0 200 OK\r\nServer : x\r\nx-uid : ") + uid +
         "\r\nx-status : " + status + "\r\n" + rest;
}
std::string Ok(const std::string& uid) {
  const std::string body = "<StatusOut>OK</StatusOut>";
  return AnswerTo(uid, "0001",
                  "Content-Length : " + std::to_string(body.size()) + "\r\n\r\n" + body);
}

TEST(Explain, FollowsAConnection) {
  const std::string request = test::Request(test::Identity("1.00", "17"), test::DOCUMENT_V1);
  const std::string start =
      test::Request(test::Identity("1.00", "18") + "x-subevent : START\r\n", test::DOCUMENT_V1);
  const std::string end =
      test::Request(test::Identity("1.00", "19") + "x-subevent : END\r\nx-parent-uid : 18\r\n",
                    test::DOCUMENT_V1);
  const auto size = static_cast<std::uint32_t>(request.size());
  const struct {
    const char* name;
    std::string rules;
    void (*act)(Scene* scene, const std::string& request, std::uint32_t size);
  } cases[] = {
      {"out of order, doubled, and over each other", "accepted",
       [](Scene* scene, const std::string& r, std::uint32_t s) {
         scene->Add(1, true, 1, 1100, r.substr(100, 200));
         scene->Add(2, true, 1, 1000, r.substr(0, 100));
         scene->Add(3, true, 1, 1000, r.substr(0, 150));
         scene->Add(4, true, 1, 1250, r.substr(250));
         scene->Add(5, false, 1, 5000, Ok("17"));
         scene->Add(6, true, 1, 1000 + s, {}).ends = true;
       }},
      {"two in one segment", "no-answer no-answer",
       [](Scene* scene, const std::string& r, std::uint32_t) {
         scene->Add(1, true, 1, 1000, r + r);
       }},
      {"a pause in the body, and what comes behind it", "field lf-lines",
       [](Scene* scene, const std::string& r, std::uint32_t s) {
         scene->Add(1, true, 1, 1000, r.substr(0, s - 300));
         scene->Add(305, true, 1, 1000 + s - 300, "rest\n");
         scene->Add(306, false, 1, 5000, AnswerTo("17", "2003", "\r\n"));
       }},
      {"a malformed head behind a long body, dropped with 4096 bytes",
       "accepted start-line accepted",
       [](Scene* scene, const std::string& r, std::uint32_t) {
         const std::string padded = test::Request(test::Identity("1.00", "16"),
                                                  test::DOCUMENT_V1 + std::string(5000, ' '));
         const std::string wrong = "wrong\r\n\r\n";
         scene->Add(1, true, 1, 1000, padded + wrong + std::string(4096 - wrong.size(), 'x') + r);
         scene->Add(2, false, 1, 5000, Ok("16") + Ok("17"));
       }},
      {"no pause yet", "accepted",
       [](Scene* scene, const std::string& r, std::uint32_t s) {
         scene->Add(1, true, 1, 1000, r.substr(0, s - 300));
         scene->Add(295, true, 1, 1000 + s - 300, r.substr(s - 300));
         scene->Add(296, false, 1, 5000, Ok("17"));
       }},
      {"a silence in the head", "head-cut accepted",
       [](Scene* scene, const std::string& r, std::uint32_t) {
         scene->Add(1, true, 1, 1000, r.substr(0, 30));
         scene->Add(10'100, true, 1, 1030, r);
         scene->Add(10'101, false, 1, 5000, Ok("17"));
       }},
      {"the scanner leaves in the body", "body-cut",
       [](Scene* scene, const std::string& r, std::uint32_t s) {
         scene->Add(1, true, 1, 1000, r.substr(0, s - 1));
         scene->Add(100, true, 1, 1000 + s - 1, {}).ends = true;
       }},
      {"an answer to what must have none", "unexpected",
       [](Scene* scene, const std::string&, std::uint32_t) {
         scene->Add(1, true, 1, 1000, "X y HTTP/1\r\nx-uid : 17\r\n\r\n");
         scene->Add(2, false, 1, 5000, Ok("17"));
       }},
      {"another refusal than is due", "unexpected",
       [](Scene* scene, const std::string& r, std::uint32_t) {
         scene->Add(1, true, 1, 1000, r);
         scene->Add(2, false, 1, 5000, AnswerTo("17", "1004", "\r\n"));
       }},
      {"a second connection, and a third when the first has gone", "busy accepted",
       [](Scene* scene, const std::string& r, std::uint32_t) {
         scene->Connect(1, 2);
         scene->Add(2, true, 2, 1000, r);
         scene->Add(3, false, 2, 5000, AnswerTo("17", "2001", "\r\n"));
         scene->Add(4, true, 1, 1000, {}).ends = true;
         scene->Connect(5, 3);
         scene->Add(6, true, 3, 1000, r);
         scene->Add(7, false, 3, 5000, Ok("17"));
       }},
      {"all places taken", "places-taken",
       [](Scene* scene, const std::string&, std::uint32_t) {
         for (std::uint16_t port = 2; port < 8; ++port) {
           scene->Connect(port, port);
         }
         scene->Add(9, false, 7, 5000, {}).ends = true;
       }},
  };
  for (const auto& c : cases) {
    Scene scene;
    scene.Connect(0, 1);
    c.act(&scene, request, size);
    EXPECT_EQ(scene.Rules(), c.rules) << c.name;
  }

  // An END before and after the answer to its START, and once more.
  Scene pair;
  const auto next = [&](std::uint32_t count) {
    return 1000 + static_cast<std::uint32_t>(start.size() + count * end.size());
  };
  pair.Connect(0, 1);
  pair.Add(1, true, 1, 1000, start);
  pair.Add(2, true, 1, next(0), end);
  pair.Add(3, false, 1, 5000, AnswerTo("19", "2002", "\r\n") + Ok("18"));
  pair.Add(4, true, 1, next(1), end);
  const auto used =
      5000 + static_cast<std::uint32_t>((AnswerTo("19", "2002", "\r\n") + Ok("18")).size());
  pair.Add(5, false, 1, used, Ok("19"));
  pair.Add(6, true, 1, next(2), end);
  EXPECT_EQ(pair.Rules(), "accepted parent accepted parent");

  // An END whose START came before the capture: the answer tells, and without one it is no fault.
  for (const auto& [answer, rule] :
       {std::pair{Ok("19"), "accepted"}, std::pair{AnswerTo("19", "2002", "\r\n"), "parent"}}) {
    Scene late;
    late.Add(1, true, 1, 1000, end);
    late.Add(2, false, 1, 5000, answer);
    EXPECT_EQ(late.Rules(), rule);
  }
  const auto alone = scanner::ExplainBytes(end, {});
  EXPECT_EQ(alone[0].rule, scanner::RULE_ACCEPTED);
}

// A search, or a reply to it.
std::string Slp(char function, const std::string& body) {
  const std::string rest = std::string("\x20\0\0\0\0\x12\x34\0\2en", 11) + body;
  return std::string("\2", 1) + function + std::string("\0\0", 2) +
         static_cast<char>(5 + rest.size()) + rest;
}
std::string Search(const std::string& responders) {
  return Slp(6, std::string(1, '\0') + static_cast<char>(responders.size()) + responders +
                    std::string("\0\24service:Quorin-agent\0\7default\0\0\0\0", 35));
}

TEST(Explain, FollowsSearches) {
  const std::string reply = Slp(7, std::string("\0\0\0\26(IPAddress=10.68.0.2)\0", 27));
  constexpr std::uint32_t GROUP = 0xFDFFFFEFU;
  const struct {
    const char* name;
    std::vector<std::pair<std::int64_t, bool>> datagrams;  // when; a search or a reply
    std::string rules;
  } cases[] = {
      {"a repeat while the reply is in progress, and one after it",
       {{0, true}, {10, false}, {1400, true}, {1600, true}, {1610, false}},
       "answered repeated answered"},
      {"a repeat of what nobody replies to", {{0, true}, {500, true}}, "no-reply no-reply"},
      {"a reply to the repeat of what met none",
       {{0, true}, {2000, true}, {2010, false}},
       "no-reply answered"},
  };
  for (const auto& c : cases) {
    Scene scene;
    for (const auto& [ms, isSearch] : c.datagrams) {
      scanner::Packet& packet = scene.Add(ms, isSearch, 2968, 0, isSearch ? Search("") : reply);
      packet.isTcp = false;
      packet.to.address = isSearch ? GROUP : SCANNER;
    }
    EXPECT_EQ(scene.Rules(), c.rules) << c.name;
  }
  // A datagram alone, and a PC's address from the command line.
  scanner::Surroundings surroundings;
  EXPECT_EQ(scanner::ExplainBytes(Search("0.0.0.0"), surroundings)[0].rule,
            scanner::RULE_ANSWERABLE);
  surroundings.pcAddress = PC;
  EXPECT_EQ(scanner::ExplainBytes(Search("10.68.0.2"), surroundings)[0].rule,
            scanner::RULE_PREVIOUS_RESPONDER);
}

// ---- Files ---------------------------------------------------------------------------------------

std::string Number(std::uint64_t number, unsigned size, bool bigFirst) {
  std::string bytes;
  for (unsigned i = 0; i < size; ++i) {
    bytes.push_back(static_cast<char>(number >> 8 * (bigFirst ? size - 1 - i : i)));
  }
  return bytes;
}

// A datagram from 10.68.0.3 to 10.68.0.2, both at port 2968.
std::string IpPacket() {
  const std::string bytes("\2\6", 2);
  return std::string("\x45\0\0\x1E\0\0\x40\0\x40\x11\0\0\x0A\x44\0\3\x0A\x44\0\2", 20) +
         Number(2968, 2, true) + Number(2968, 2, true) + std::string("\0\x0A\0\0", 4) + bytes;
}

std::string Pcap(std::uint32_t magic, bool bigFirst, std::uint32_t link, const std::string& frame,
                 std::uint32_t fraction) {
  const auto number = [&](std::uint64_t value, unsigned size) {
    return Number(value, size, bigFirst);
  };
  return number(magic, 4) + number(2, 2) + number(4, 2) + number(0, 8) + number(65535, 4) +
         number(link, 4) + number(7, 4) + number(fraction, 4) + number(frame.size(), 4) +
         number(frame.size(), 4) + frame;
}

std::string Pcapng(bool bigFirst, const std::string& resolution, std::uint64_t ticks,
                   const std::string& frame) {
  const auto number = [&](std::uint64_t value, unsigned size) {
    return Number(value, size, bigFirst);
  };
  const auto block = [&](std::uint32_t type, const std::string& content) {
    const std::uint64_t size = 12 + content.size();
    return number(type, 4) + number(size, 4) + content + number(size, 4);
  };
  const std::string padding((4 - frame.size() % 4) % 4, '\0');
  const std::string option = number(9, 2) + number(1, 2) + resolution + std::string(3, '\0');
  return block(0x0A0D0D0A, number(0x1A2B3C4D, 4) + number(1, 2) + number(0, 2) + number(~0ULL, 8)) +
         block(1, number(101, 2) + number(0, 2) + number(65535, 4) + option + number(0, 4)) +
         block(6, number(0, 4) + number(ticks >> 32, 4) + number(ticks & 0xFFFFFFFFU, 4) +
                      number(frame.size(), 4) + number(frame.size(), 4) + frame + padding);
}

TEST(Explain, ReadsEveryFormOfCapture) {
  const std::string packet = IpPacket();
  const std::string zeros(64, '\0');
  const auto ethernet = [&](const std::string& tags) {
    return zeros.substr(0, 12) + tags + std::string("\x08\0", 2) + packet;
  };
  const std::string tag("\x81\0\0\1", 4);
  const struct {
    const char* name;
    std::string file;
    std::int64_t timeUs;
  } cases[] = {
      {"plain packets", Pcap(0xA1B2C3D4, false, 101, packet, 5), 7'000'005},
      {"the other byte order", Pcap(0xA1B2C3D4, true, 101, packet, 5), 7'000'005},
      {"nanoseconds", Pcap(0xA1B23C4D, false, 101, packet, 5000), 7'000'005},
      {"bytes behind the datagram",
       Pcap(0xA1B2C3D4, false, 101, Number(0x45000021, 4, true) + packet.substr(4) + "xyz", 5),
       7'000'005},
      {"loopback", Pcap(0xA1B2C3D4, false, 0, zeros.substr(0, 4) + packet, 5), 7'000'005},
      {"Ethernet", Pcap(0xA1B2C3D4, false, 1, ethernet(""), 5), 7'000'005},
      {"Ethernet with two tags", Pcap(0xA1B2C3D4, false, 1, ethernet(tag + tag), 5), 7'000'005},
      {"Ethernet with a filled frame", Pcap(0xA1B2C3D4, false, 1, ethernet("") + zeros, 5),
       7'000'005},
      {"all adapters",
       Pcap(0xA1B2C3D4, false, 113, zeros.substr(0, 14) + std::string("\x08\0", 2) + packet, 5),
       7'000'005},
      {"all adapters, the newer form",
       Pcap(0xA1B2C3D4, false, 276, std::string("\x08\0", 2) + zeros.substr(0, 18) + packet, 5),
       7'000'005},
      {"pcapng", Pcapng(false, "\6", 7'000'005, packet), 7'000'005},
      {"pcapng in nanoseconds, the other byte order", Pcapng(true, "\11", 7'000'005'000, packet),
       7'000'005},
      {"pcapng in parts of two", Pcapng(false, "\x8A", 7 * 1024 + 512, packet), 7'500'000},
  };
  for (const auto& c : cases) {
    scanner::Capture capture;
    std::string why;
    ASSERT_TRUE(scanner::LooksLikeCapture(c.file)) << c.name;
    ASSERT_TRUE(scanner::ReadCapture(c.file, &capture, &why)) << c.name;
    ASSERT_EQ(capture.packets.size(), 1U) << c.name;
    EXPECT_EQ(capture.packets[0].timeUs, c.timeUs) << c.name;
    EXPECT_EQ(capture.packets[0].bytes, std::string("\2\6", 2)) << c.name;
    EXPECT_EQ(capture.packets[0].from.address, SCANNER) << c.name;
    EXPECT_FALSE(capture.cutShort) << c.name;
    EXPECT_EQ(capture.partial, 0U) << c.name;
    // A file that ends early, or is none any more, is read as far as it goes.
    std::mt19937 random(1);
    for (std::size_t size = 4; size < c.file.size(); ++size) {
      scanner::Capture rest;
      scanner::ReadCapture(c.file.substr(0, size), &rest, &why);
      scanner::Capture changed;
      scanner::ReadCapture(Changed(c.file, &random), &changed, &why);
      EXPECT_EQ(rest.packets.empty(), true) << c.name << ", " << size << " bytes";
      EXPECT_TRUE(rest.cutShort || size >= 24) << c.name << ", " << size << " bytes";
    }
  }
  std::string partial = Pcap(0xA1B2C3D4, false, 101, packet, 5);
  ++partial[36];
  scanner::Capture capture;
  std::string why;
  ASSERT_TRUE(scanner::ReadCapture(partial, &capture, &why));
  EXPECT_EQ(capture.partial, 1U);
}

TEST(Firewall, FindsTheRuleThatDecides) {
  const auto ruleset = [](const std::string& policy, const std::string& rules) {
    return "table inet filter {\n\tchain arriving {\n\t\ttype filter hook input priority 0; policy " +
           policy + ";\n" + rules + "\t}\n}\n";
  };
  const struct {
    const char* name;
    std::string rules;
    scanner::FirewallVerdict verdict;
  } cases[] = {
      {"nothing", "", scanner::FIREWALL_NONE},
      {"an open chain", ruleset("accept", ""), scanner::FIREWALL_NONE},
      {"the port is shut", ruleset("accept", "\t\tudp dport 2968 drop\n"), scanner::FIREWALL_DROPS},
      {"counted", ruleset("accept", "\t\tudp dport 2968 counter packets 1 bytes 2 reject\n"),
       scanner::FIREWALL_DROPS},
      {"a set", ruleset("accept", "\t\tudp dport { 53, 2000-3000 } drop\n"),
       scanner::FIREWALL_DROPS},
      {"another port", ruleset("accept", "\t\tudp dport { 53, 296 } drop\n"),
       scanner::FIREWALL_NONE},
      {"another protocol", ruleset("accept", "\t\ttcp dport 2968 drop\n"), scanner::FIREWALL_NONE},
      {"other conditions", ruleset("accept", "\t\tip saddr 10.0.0.1 udp dport 2968 drop\n"),
       scanner::FIREWALL_UNREADABLE},
      {"a named set", ruleset("drop", "\t\tudp dport @open accept\n"),
       scanner::FIREWALL_UNREADABLE},
      {"a chain that is led to",
       ruleset("drop", "\t\tiif \"lo\" accept\n\t\tjump open\n") +
           "table inet filter {\n\tchain open {\n\t\tudp dport 2968 accept\n\t}\n}\n",
       scanner::FIREWALL_ALLOWS},
      {"a chain that leads to itself", ruleset("drop", "\t\tjump arriving\n"),
       scanner::FIREWALL_DROPS},
      {"IPv6 only",
       "table ip6 a {\n\tchain b {\n\t\ttype filter hook input priority 0; policy drop;\n\t}\n}\n",
       scanner::FIREWALL_NONE},
      {"a shut chain",
       ruleset("drop", "\t\tct state established accept\n\t\ttcp dport 22 accept\n"),
       scanner::FIREWALL_DROPS},
      {"a shut chain with a gap", ruleset("drop", "\t\tudp dport 2968 accept\n"),
       scanner::FIREWALL_ALLOWS},
      {"the first rule counts", ruleset("accept", "\t\tudp dport 2968 accept\n\t\tdrop\n"),
       scanner::FIREWALL_ALLOWS},
      {"one chain of two",
       ruleset("accept", "\t\tudp dport 2968 accept\n") +
           "table ip a {\n\tchain b {\n\t\ttype filter hook input priority 0; policy drop;\n\t}\n}\n",
       scanner::FIREWALL_DROPS},
      {"shut before the input",
       ruleset("accept", "\t\tudp dport 2968 accept\n") +
           "table inet a {\n\tchain b {\n\t\ttype filter hook prerouting priority raw; policy accept;\n"
           "\t\tmeta nfproto ipv6 fib saddr . mark . iif oif missing drop\n"
           "\t\tudp dport 2968 drop\n\t}\n}\n",
       scanner::FIREWALL_DROPS},
      {"a chain for what leaves",
       "table ip a {\n\tchain b {\n\t\ttype filter hook output priority 0; policy drop;\n\t}\n}\n",
       scanner::FIREWALL_NONE},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(scanner::JudgeNftables(c.rules, "udp").verdict, c.verdict) << c.name;
  }
}

}  // namespace
}  // namespace zvqrn
