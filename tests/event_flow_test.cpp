// Requests from a scanner through the loaded library to the host and back, byte for byte.

#include <gtest/gtest.h>

#include <condition_variable>
#include <cstring>
#include <map>
#include <mutex>
#include <string>

#include "support/host.h"
#include "support/messages.h"
#include "support/patience.h"
#include "support/process.h"
#include "support/scanner.h"
#include "support/slp_scanner.h"

namespace zvqrn::test {
namespace {

const char* const PROTOCOL_LINE = "x-protocol-name : Zorva Network Service Protocol\r\n";

std::string AnswerWith(const std::string& lines) {
  return std::string(ANSWER_BEGIN) + PROTOCOL_LINE + lines + "\r\n";
}

std::string AnswerWithDocument(const std::string& lines, const std::string& document) {
  return std::string(ANSWER_BEGIN) + "Content-Length : " + std::to_string(document.size()) +
         "\r\n" + PROTOCOL_LINE + lines + "\r\n" + document;
}

const char* const START = "x-subevent : START\r\n";

std::string EndOf(const std::string& parentUid) {
  return "x-subevent : END\r\nx-parent-uid : " + parentUid + "\r\n";
}

class EventFlow : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(host.Start(), 1);
    threads = Threads();
  }
  void TearDown() override { EXPECT_EQ(host.Stop(), 1); }

  Host host{LibraryPath()};
  std::ptrdiff_t threads = 0;  // of the process when nobody is connected
};

TEST_F(EventFlow, AnswersASingleRequestOfEachVersion) {
  Scanner scanner;
  scanner.Send(Request(Identity("1.00", "1234567890123456789"), DOCUMENT_V1));
  EXPECT_EQ(scanner.Receive(),
            AnswerWithDocument(
                "x-protocol-version : 1.00\r\nx-uid : 1234567890123456789\r\nx-status : 0001\r\n",
                ResponseDocumentV1("OK")));
  scanner.Send(Request(Identity("2.00", "two"), DOCUMENT_V2));
  EXPECT_EQ(scanner.Receive(),
            AnswerWithDocument("x-protocol-version : 2.00\r\nx-uid : two\r\nx-status : 0001\r\n",
                               ResponseDocumentV2("OK")));
  scanner.Send(Request(Identity("1.70", "minor"), DOCUMENT_V1));
  EXPECT_EQ(scanner.Receive(),
            AnswerWithDocument("x-protocol-version : 1.00\r\nx-uid : minor\r\nx-status : 0002\r\n",
                               ResponseDocumentV1("OK")));

  const std::vector<Delivery> deliveries = host.Deliveries();
  ASSERT_EQ(deliveries.size(), 3U);
  std::string header(36, '\0');
  header.replace(0, 1, 1, '\1').replace(8, 19, "1234567890123456789").replace(28, 4, "1.00");
  EXPECT_EQ(std::memcmp(&deliveries[0].header, header.data(), 36), 0);
  EXPECT_EQ(deliveries[0].kind, DOCUMENT_PUSHSCAN_V1);
  // The driver's name over the product name, the settings, and zeros everywhere else.
  std::string data(136, '\0');
  data.replace(0, 13, "Quorin XS-200").replace(66, 12, "192.168.1.30");
  const struct {
    std::size_t offset;
    std::int32_t value;
  } numbers[] = {{100, 1}, {104, 110}, {108, 1}, {112, 3}, {116, 1000}, {120, 1500}};
  for (const auto& number : numbers) {
    std::memcpy(data.data() + number.offset, &number.value, 4);
  }
  EXPECT_EQ(deliveries[0].data, data);
  EXPECT_EQ(deliveries[1].kind, DOCUMENT_PUSHSCAN_V2);
  data.assign(104, '\0');
  data.replace(0, 6, "XS-200")
      .replace(32, 13, "Quorin XS-200")
      .replace(66, 12, "192.168.1.30")
      .replace(100, 1, 1, '\2');
  EXPECT_EQ(deliveries[1].data, data);
}

TEST_F(EventFlow, TellsTheHostsVerdict) {
  Scanner scanner;
  const struct {
    std::int32_t verdict;
    const char* word;
  } cases[] = {{2, "PARAM_ERR"}, {5, "PM_EXECUTE_ERR"}, {8, "ERROR"}, {77, "ERROR"}};
  std::atomic<std::int32_t> verdict{0};
  host.verdict = [&](EventHeader*) { return verdict.load(); };
  for (const auto& c : cases) {
    verdict = c.verdict;
    scanner.Send(Request(Identity("1.00", "5"), DOCUMENT_V1));
    EXPECT_EQ(scanner.Receive(),
              AnswerWithDocument("x-protocol-version : 1.00\r\nx-uid : 5\r\nx-status : 0001\r\n",
                                 ResponseDocumentV1(c.word)));
  }
  verdict = QRN_RESPONSE_BUSY;
  scanner.Send(Request(Identity("2.00", "6"), DOCUMENT_V2));
  EXPECT_EQ(scanner.Receive(),
            AnswerWith("x-protocol-version : 2.00\r\nx-uid : 6\r\nx-status : 2001\r\n"));
}

TEST_F(EventFlow, RefusesWithTheRightCode) {
  const std::string unknownScanner =
      std::string(DOCUMENT_V2).replace(std::string(DOCUMENT_V2).find("XS-200"), 6, "XS-999");
  const struct {
    const char* name;
    std::string request;
    std::string answer;  // after the lines that every answer has
  } cases[] = {
      {"version 3", Request(Identity("3.00", "a"), DOCUMENT_V1),
       "x-protocol-version : 1.00\r\nx-uid : a\r\nx-status : 1001\r\n"},
      {"version 2.01 without body",
       "POST / HTTP/1.0\r\n" + std::string(PROTOCOL_LINE) + Identity("2.01", "b") + "\r\n",
       "x-protocol-version : 1.00\r\nx-uid : b\r\nx-status : 1001\r\n"},
      {"no body", Request(Identity("2.00", "c"), ""),
       "x-protocol-version : 2.00\r\nx-uid : c\r\nx-status : 1003\r\n"},
      {"no version", Request("x-uid : d\r\n", DOCUMENT_V1),
       "x-protocol-version : 1.00\r\nx-uid : d\r\nx-status : 1004\r\n"},
      {"an unknown subevent", Request(Identity("1.00", "e") + "x-subevent : STOP\r\n", DOCUMENT_V1),
       "x-protocol-version : 1.00\r\nx-uid : e\r\nx-status : 1004\r\n"},
      {"END without parent", Request(Identity("1.00", "f") + "x-subevent : END\r\n", DOCUMENT_V1),
       "x-protocol-version : 1.00\r\nx-subevent : END\r\nx-uid : f\r\nx-status : 1004\r\n"},
      {"END of a stranger", Request(Identity("2.00", "g") + EndOf("zz"), DOCUMENT_V2),
       "x-protocol-version : 2.00\r\nx-subevent : END\r\nx-uid : g\r\nx-status : 2002\r\n"},
      {"no document", Request(Identity("2.00", "h"), "hello"),
       "x-protocol-version : 2.00\r\nx-uid : h\r\nx-status : 2003\r\n"},
      {"a response document", Request(Identity("2.00", "i"), ResponseDocumentV2("OK")),
       "x-protocol-version : 2.00\r\nx-uid : i\r\nx-status : 2003\r\n"},
      {"END without body", Request(Identity("1.00", "m") + EndOf("open"), ""),
       "x-protocol-version : 1.00\r\nx-subevent : END\r\nx-uid : m\r\nx-parent-uid : open\r\n"
       "x-status : 1003\r\n"},
      {"END without document", Request(Identity("2.00", "n") + EndOf("open"), "hello"),
       "x-protocol-version : 2.00\r\nx-subevent : END\r\nx-uid : n\r\nx-parent-uid : open\r\n"
       "x-status : 2003\r\n"},
      {"a START with a bad value",
       Request(
           Identity("1.00", "j") + START,
           std::string(DOCUMENT_V1).replace(std::string(DOCUMENT_V1).find(">1000<"), 6, ">-1<")),
       "x-protocol-version : 1.00\r\nx-subevent : START\r\nx-uid : j\r\nx-status : 2003\r\n"},
  };
  Scanner scanner;
  scanner.Send(Request(Identity("2.00", "open") + START, DOCUMENT_V2));
  EXPECT_NE(scanner.Receive(), "");
  for (const auto& c : cases) {
    scanner.Send(c.request);
    EXPECT_EQ(scanner.Receive(), AnswerWith(c.answer)) << c.name;
  }
  scanner.Send(Request(Identity("2.00", "k"), unknownScanner));
  EXPECT_EQ(scanner.Receive(),
            AnswerWithDocument("x-protocol-version : 2.00\r\nx-uid : k\r\nx-status : 0001\r\n",
                               ResponseDocumentV2("TWAIN_NOT_INSTALL")));
  scanner.Send(Request(
      Identity("1.9", "l") + START,
      std::string(DOCUMENT_V1).replace(std::string(DOCUMENT_V1).find("XS-200"), 6, "XS-999")));
  EXPECT_EQ(
      scanner.Receive(),
      AnswerWithDocument(
          "x-protocol-version : 1.00\r\nx-subevent : START\r\nx-uid : l\r\nx-status : 0002\r\n",
          ResponseDocumentV1("TWAIN_NOT_INSTALL")));
  EXPECT_EQ(host.Deliveries().size(), 1U) << "the open START";
}

TEST_F(EventFlow, DropsWhatIsNotARequestOfTheProtocol) {
  const std::string good = Request(Identity("2.00", "good"), DOCUMENT_V2);
  const struct {
    const char* name;
    std::string bytes;
  } cases[] = {
      {"a response", "HTTP/1.0 200 OK\r\n" + std::string(PROTOCOL_LINE) + Identity("2.00", "r") +
                         "x-status : 0001\r\n\r\n"},
      {"another protocol",
       "POST / HTTP/1.0\r\nx-protocol-name : Zorva\r\n" + Identity("2.00", "r") + "\r\n"},
      {"more behind the protocol's name",
       "POST / HTTP/1.0\r\nx-protocol-name : Zorva Network "
       "Service Protocol!\r\n" +
           Identity("2.00", "r") + "\r\n"},
      {"no uid",
       "POST / HTTP/1.0\r\n" + std::string(PROTOCOL_LINE) + "x-protocol-version : 2.00\r\n\r\n"},
      {"a uid of 20 bytes", Request(Identity("2.00", "12345678901234567890"), DOCUMENT_V2)},
      {"a length below 0", "POST / HTTP/1.0\r\n" + std::string(PROTOCOL_LINE) +
                               Identity("2.00", "r") + "Content-Length : -3\r\n\r\n"},
  };
  Scanner scanner;
  for (const auto& c : cases) {
    scanner.Send(c.bytes);
    EXPECT_TRUE(scanner.HearsNothing(350)) << c.name;
    scanner.Send(good);
    EXPECT_NE(scanner.Receive().find("x-uid : good\r\n"), std::string::npos) << c.name;
  }
}

TEST_F(EventFlow, ReadsRequestsHoweverTheyAreCut) {
  const std::string request =
      Request("X-PROTOCOL-VERSION:1.00\r\nx-uid:cut\r\nX-Subevent:\tstart \r\n", DOCUMENT_V1);
  const std::string answer = AnswerWithDocument(
      "x-protocol-version : 1.00\r\nx-subevent : START\r\nx-uid : cut\r\nx-status : 0001\r\n",
      ResponseDocumentV1("OK"));
  Scanner scanner;
  for (const char byte : request) {
    scanner.Send(std::string_view(&byte, 1));
  }
  EXPECT_EQ(scanner.Receive(), answer);
  // A head in pieces, each later than a wait of the library lasts, then two requests and a piece
  // of a third at once.
  const std::size_t headEnd = request.find("\r\n\r\n") + 2;
  scanner.Send(request.substr(0, 30));
  EXPECT_TRUE(scanner.HearsNothing(700));
  scanner.Send(request.substr(30, headEnd - 30));
  EXPECT_TRUE(scanner.HearsNothing(700));
  scanner.Send(request.substr(headEnd) + request + request.substr(0, 100));
  EXPECT_EQ(scanner.Receive(), answer);
  EXPECT_EQ(scanner.Receive(), answer);
  scanner.Send(request.substr(100));
  EXPECT_EQ(scanner.Receive(), answer);
  EXPECT_EQ(host.Deliveries().size(), 4U);
}

TEST_F(EventFlow, RecoversFromHeadsThatCannotBeGood) {
  const std::string good = Request(Identity("2.00", "good"), DOCUMENT_V2);
  const std::string garbage[] = {
      "rubbish\r\n\r\n",
      "rubbish without end\r\n",
      std::string(4096, 'x'),
      "POST / HTTP/1.0\r\nx : " + std::string(5000, 'y') + "\r\n\r\n",
      // The body of a request that announced none.
      "POST / HTTP/1.0\r\nContent-Length : 0\r\n\r\n" + std::string(DOCUMENT_V2),
  };
  Scanner scanner;
  for (const std::string& bytes : garbage) {
    scanner.Send(bytes);
    EXPECT_TRUE(scanner.HearsNothing(500)) << bytes.substr(0, 40);
    scanner.Send(good);
    EXPECT_NE(scanner.Receive().find("x-uid : good\r\n"), std::string::npos) << bytes.substr(0, 40);
  }
}

TEST_F(EventFlow, ServesAPairWithTheHostsData) {
  const std::string data = std::string("any\0bytes\r\n\r\n", 13) + std::string(200000, 'd');
  host.verdict = [&](EventHeader* header) {
    EventHeader copy = *header;
    if (header->subevent == SUBEVENT_END) {
      EXPECT_EQ(host.library.sendData(&copy, "x", 1), 0) << "an END takes no data";
      copy = host.Deliveries()[0].header;
      EXPECT_EQ(host.library.sendData(&copy, "last", 4), 1) << "its START still does";
    } else {
      EXPECT_EQ(host.library.sendData(nullptr, "x", 1), 0);
      EXPECT_EQ(host.library.sendData(&copy, nullptr, 1), 0);
      EXPECT_EQ(host.library.sendData(&copy, "x", 0), 0);
      EXPECT_EQ(host.library.sendData(&copy, data.data(), static_cast<std::int32_t>(data.size())),
                1);
      EXPECT_STRNE(copy.uid, header->uid);
      EventHeader stranger = *header;
      std::memset(stranger.uid, 'u', sizeof stranger.uid);
      EXPECT_EQ(host.library.sendData(&stranger, "x", 1), 0);
    }
    return QRN_RESPONSE_OK;
  };
  Scanner scanner;
  scanner.Send(Request(Identity("2.00", "the_start_of_a_pair") + START, DOCUMENT_V2));
  const std::string sent = scanner.Receive();
  const std::size_t uidAt = sent.find("x-uid : ") + 8;
  const std::string uid = sent.substr(uidAt, sent.find("\r\n", uidAt) - uidAt);
  EXPECT_EQ(sent,
            "POST /PushScan HTTP/1.0\r\nContent-Type : application/octet-stream\r\n"
            "Content-Length : 200013\r\n"
            "x-protocol-name : Zorva Network Service Protocol\r\nx-protocol-version : 2.00\r\n"
            "x-uid : " +
                uid + "\r\nx-parent-uid : the_start_of_a_pair\r\n\r\n" + data);
  EXPECT_GE(uid.size(), 15U);
  EXPECT_EQ(uid.find_first_not_of("0123456789"), std::string::npos);
  EXPECT_EQ(scanner.Receive(),
            AnswerWithDocument("x-protocol-version : 2.00\r\nx-subevent : START\r\nx-uid : "
                               "the_start_of_a_pair\r\nx-status : 0001\r\n",
                               ResponseDocumentV2("OK")));
  scanner.Send("HTTP/1.0 200 OK\r\n" + std::string(PROTOCOL_LINE) + Identity("2.00", uid) +
               "x-status : 0001\r\n\r\n");

  // Later, from a thread of the host's own, with a copy of the header.
  ASSERT_TRUE(host.WaitForDeliveries(1));
  EventHeader copy = host.Deliveries()[0].header;
  EXPECT_EQ(host.library.sendData(&copy, "later", 5), 1);
  EXPECT_NE(scanner.Receive().find("x-parent-uid : the_start_of_a_pair\r\n\r\nlater"),
            std::string::npos);

  scanner.Send(Request(Identity("2.00", "end") + EndOf("the_start_of_a_pair"), DOCUMENT_V2));
  EXPECT_NE(scanner.Receive().find("x-parent-uid : the_start_of_a_pair\r\n\r\nlast"),
            std::string::npos);
  EXPECT_EQ(scanner.Receive(),
            AnswerWithDocument("x-protocol-version : 2.00\r\nx-subevent : END\r\nx-uid : end\r\n"
                               "x-parent-uid : the_start_of_a_pair\r\nx-status : 0001\r\n",
                               ResponseDocumentV2("OK")));
  // Nothing of the pair is left.
  EXPECT_EQ(host.library.sendData(&copy, "x", 1), 0);
  EventHeader again = host.Deliveries()[0].header;
  EXPECT_EQ(host.library.sendData(&again, "x", 1), 0);
  scanner.Send(Request(Identity("2.00", "end2") + EndOf("the_start_of_a_pair"), DOCUMENT_V2));
  EXPECT_NE(scanner.Receive().find("x-status : 2002\r\n"), std::string::npos);
}

TEST_F(EventFlow, SettlesStartsByTheirAnswer) {
  std::mutex gate;
  gate.lock();
  host.verdict = [&](EventHeader* header) -> std::int32_t {
    if (std::string(header->uid) == "slow") {
      const std::lock_guard<std::mutex> wait(gate);
    }
    return header->subevent == SUBEVENT_START ? QRN_RESPONSE_BUSY : QRN_RESPONSE_OK;
  };
  Scanner scanner;
  scanner.Send(Request(Identity("1.00", "slow") + START, DOCUMENT_V1));
  ASSERT_TRUE(host.WaitForDeliveries(1));
  scanner.Send(Request(Identity("1.00", "early") + EndOf("slow"), DOCUMENT_V1));
  EXPECT_NE(scanner.Receive().find("x-status : 2002\r\n"), std::string::npos)
      << "its START is still with the host";
  gate.unlock();
  EXPECT_NE(scanner.Receive().find("x-uid : slow\r\nx-status : 2001\r\n"), std::string::npos);
  scanner.Send(Request(Identity("1.00", "e") + EndOf("SLOW"), DOCUMENT_V1));
  EXPECT_NE(scanner.Receive().find("x-status : 2002\r\n"), std::string::npos) << "case matters";
  scanner.Send(Request(Identity("1.00", "e") + EndOf("slow"), DOCUMENT_V1));
  EXPECT_NE(scanner.Receive().find("x-parent-uid : slow\r\nx-status : 0001\r\n"), std::string::npos)
      << "a START that the host declined may be ended";
}

// A host that hands in the very header it got, not a copy, renames the request.
TEST_F(EventFlow, LetsTheHostRenameItsRequest) {
  Guarded<std::string> renamedTo;
  host.verdict = [&](EventHeader* header) {
    if (header->subevent == SUBEVENT_START) {
      EXPECT_EQ(host.library.sendData(header, "x", 1), 1);
      renamedTo = header->uid;
    }
    return QRN_RESPONSE_OK;
  };
  Scanner scanner;
  scanner.Send(Request(Identity("1.00", "old") + START, DOCUMENT_V1));
  const std::string data = scanner.Receive();
  const std::string answer = scanner.Receive();
  const std::string renamed = renamedTo.Get();
  EXPECT_NE(data.find("x-uid : " + renamed + "\r\nx-parent-uid : " + renamed + "\r\n"),
            std::string::npos)
      << data;
  EXPECT_NE(answer.find("x-uid : " + renamed + "\r\nx-status"), std::string::npos);
  const struct {
    std::string parent;
    const char* status;
  } ends[] = {{"old", "2002"}, {renamed, "0001"}, {renamed, "2002"}};
  for (const auto& end : ends) {
    scanner.Send(Request(Identity("1.00", "e") + EndOf(end.parent), DOCUMENT_V1));
    EXPECT_NE(scanner.Receive().find(std::string("x-status : ") + end.status), std::string::npos)
        << end.parent;
  }
}

TEST_F(EventFlow, AnswersFiveExtraConnectionsAsBusy) {
  Scanner main;
  main.Send(Request(Identity("2.00", "main"), DOCUMENT_V2));
  EXPECT_NE(main.Receive(), "");
  const struct {
    const char* name;
    std::string request;
    std::string answer;  // empty: closed without one
  } cases[] = {
      {"a request",
       "X y HTTP/1.0\r\nx-protocol-name : zorva network service protocol 7\r\n" +
           Identity("2.10", "x1") + "x-subevent : START\r\n\r\n",
       "x-protocol-version : 2.00\r\nx-uid : x1\r\nx-status : 2001\r\n"},
      {"version 1.50", Request(Identity("1.50", "1234567890123456789"), DOCUMENT_V1),
       "x-protocol-version : 1.00\r\nx-uid : 1234567890123456789\r\nx-status : 2001\r\n"},
      {"no version", Request("x-uid : x\r\n", DOCUMENT_V1), ""},
      {"no uid", Request("x-protocol-version : 1.00\r\n", DOCUMENT_V1), ""},
      {"a long uid", Request(Identity("1.00", "12345678901234567890"), DOCUMENT_V1), ""},
      {"a response",
       "HTTP/1.0 200 OK\r\n" + std::string(PROTOCOL_LINE) + Identity("1.00", "x") + "\r\n", ""},
      {"half a head", "POST / HT", ""},
  };
  for (const auto& c : cases) {
    Scanner extra;
    extra.Send(c.request);
    if (!c.answer.empty()) {
      EXPECT_EQ(extra.Receive(), AnswerWith(c.answer)) << c.name;
    }
    EXPECT_TRUE(extra.SeesClose()) << c.name;
  }
  // A slot is given back after the close, when the connection's thread ends.
  EXPECT_TRUE(Eventually([&] { return Threads() <= threads + 1; }));
  {
    Scanner silent[5];
    Scanner sixth;
    EXPECT_TRUE(sixth.SeesClose()) << "every slot is taken";
    silent[0].Send(cases[0].request);
    EXPECT_NE(silent[0].Receive(), "");
  }
  EXPECT_TRUE(main.HearsNothing(10));
}

// A scanner does not find the PC busy with its own last connection, however that ended.
TEST_F(EventFlow, ServesAScannerThatConnectsAgainAtOnce) {
  const std::string reply = "HTTP/1.0 200 OK\r\n" + std::string(PROTOCOL_LINE) + "\r\n";
  const std::ptrdiff_t handles = Handles();
  for (int i = 0; i < 150; i++) {
    Scanner scanner;
    scanner.Send(Request(Identity("2.00", "again"), DOCUMENT_V2));
    const std::string answer = scanner.Receive();
    EXPECT_NE(answer.find("x-status : 0001\r\n"), std::string::npos) << i << answer;
    if (i % 3 == 0) {
      scanner.Reset();
    } else {
      scanner.Send(i % 3 == 1 ? reply : "a piece that is not the next one's");
      // Under Wine a close may come through a moment later, when there was something to send.
      scanner.EndSending();
    }
  }
  EXPECT_LT(Handles(), handles + 50) << "they take theirs along";
}

// The same with a utility library of the other bitness, under Wine.
TEST(WithoutUtilityLibrary, EveryRequestIsAnsweredWithAnError) {
  Host host(LonelyLibraryPath());
  ASSERT_EQ(host.Start(), 1);
  Scanner scanner;
  scanner.Send(Request(Identity("2.00", "1"), DOCUMENT_V2));
  EXPECT_EQ(scanner.Receive(),
            AnswerWithDocument("x-protocol-version : 2.00\r\nx-uid : 1\r\nx-status : 0001\r\n",
                               ResponseDocumentV2("ERROR")));
  EXPECT_EQ(host.Deliveries().size(), 0U);
  // Who searches for any PC finds it; who names itself gets no answer.
  SlpScanner searching;
  searching.Send(Encode({1, "XS-200"}));
  searching.Send(Encode({2, "default"}));
  EXPECT_EQ(searching.CountReplies(PATIENCE_MS, 3), (std::map<int, int>{{2, 3}}));
  EXPECT_EQ(host.Stop(), 1);
}

}  // namespace
}  // namespace zvqrn::test
