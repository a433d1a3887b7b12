// What the panel's web server takes and whom it serves, which PCs it shows, and that what it
// remembers stays bounded.
#include <gtest/gtest.h>

#include "scanner/panel/history.h"
#include "scanner/panel/http.h"
#include "scanner/panel/pcs.h"

namespace zvqrn::scanner {

namespace {

const HttpGate GATE = {"0123456789abcdef", {"127.0.0.1:8968", "localhost:8968"}};

std::string Get(const std::string& target, const std::string& headers = {}) {
  return "GET " + target + " HTTP/1.1\r\nHost: 127.0.0.1:8968\r\n" + headers + "\r\n";
}

HttpStatus Serve(const std::string& bytes) {
  HttpRequest request;
  const HttpStatus status = ReadHttpRequest(bytes, &request);
  return status == HTTP_OK ? JudgeHttpRequest(request, GATE) : status;
}

TEST(PanelServer, ServesOnlyItsOwnPage) {
  const std::string good = "/?token=0123456789abcdef";
  const std::string json = "Content-Type: application/json\r\n";
  const struct {
    std::string bytes;
    HttpStatus status;
  } cases[] = {
      {Get(good), HTTP_OK},
      {Get("/?token=%30123456789abcdef"), HTTP_OK},
      {Get("/"), HTTP_FORBIDDEN},
      {Get("/?token="), HTTP_FORBIDDEN},
      {Get("/?token=0123456789abcde"), HTTP_FORBIDDEN},
      {Get("/?token=0123456789abcdef0"), HTTP_FORBIDDEN},
      {Get("/?token=0123456789abcdee"), HTTP_FORBIDDEN},
      {Get(good + "&token=0123456789abcdef"), HTTP_BAD_REQUEST},
      {Get(good + "%2"), HTTP_BAD_REQUEST},
      {Get(good, "Origin: http://127.0.0.1:8968\r\n"), HTTP_OK},
      {Get(good, "Origin: http://localhost:8968\r\n"), HTTP_FORBIDDEN},
      {Get(good, "Origin: null\r\n"), HTTP_FORBIDDEN},
      {Get(good, "Host: 127.0.0.1:8968\r\n"), HTTP_BAD_REQUEST},
      {Get(good, "Sec-Fetch-Site: same-site\r\n"), HTTP_FORBIDDEN},
      {Get(good, "Sec-Fetch-Site: cross-site\r\nSec-Fetch-Mode: navigate\r\n"), HTTP_OK},
      {Get(good, "Sec-Fetch-Site: cross-site\r\nSec-Fetch-Mode: no-cors\r\n"), HTTP_FORBIDDEN},
      {Get(good, "no colon\r\n"), HTTP_BAD_REQUEST},
      {Get(good, "a b: c\r\n"), HTTP_BAD_REQUEST},
      {Get(good, "a: \x01\r\n"), HTTP_BAD_REQUEST},
      {Get(good, "Transfer-Encoding: chunked\r\n"), HTTP_NO_LENGTH},
      {Get(good, "Content-Length: -1\r\n"), HTTP_BAD_REQUEST},
      {Get(good, "Content-Length: 65537\r\n"), HTTP_TOO_LARGE},
      {Get(good, "Content-Length: 99999999999999999999\r\n"), HTTP_TOO_LARGE},
      {Get(good, "a: " + std::string(HTTP_HEAD_LIMIT, 'a') + "\r\n"), HTTP_HEAD_TOO_LARGE},
      {"GET " + good + " HTTP/1.1\r\n\r\n", HTTP_FORBIDDEN},
      {"GET " + good + " HTTP/2.0\r\n\r\n", HTTP_BAD_REQUEST},
      {"GET  HTTP/1.1\r\n\r\n", HTTP_BAD_REQUEST},
      {"GET\r\n\r\n", HTTP_BAD_REQUEST},
      {"PO" + Get(good, json), HTTP_NO_SUCH_METHOD},
      {"POST" + Get(good, json).substr(3), HTTP_NO_LENGTH},
      {"POST" + Get(good, json + "Content-Length: 2\r\n").substr(3) + "{", HTTP_MORE},
      {"POST" + Get(good, json + "Content-Length: 2\r\n").substr(3) + "{}", HTTP_OK},
      {"POST" + Get(good, "Content-Length: 2\r\n").substr(3) + "{}", HTTP_NO_JSON},
      {"POST" + Get(good, "Content-Type: application/jsonx\r\nContent-Length: 0\r\n").substr(3),
       HTTP_NO_JSON},
  };
  for (const auto& [bytes, status] : cases) {
    EXPECT_EQ(status, Serve(bytes)) << bytes.substr(0, 300);
  }
  const std::string whole = Get(good, json);
  for (std::size_t size = 0; size < whole.size(); ++size) {
    EXPECT_EQ(HTTP_MORE, Serve(whole.substr(0, size))) << size;
  }
}

FoundPc Reply(const char* address, const char* name, std::uint16_t port = 2968) {
  FoundPc reply;
  platform::TextToAddress(address, &reply.sender);
  reply.description.name = name;
  reply.description.address = address;
  reply.description.eventPort = port;
  return reply;
}

std::string Listed(const PcTable& table) {
  std::string text;
  for (const KnownPc& pc : table.pcs) {
    text += (text.empty() ? "" : "; ") + pc.description.name +
            (pc.formerName.empty() ? "" : " was " + pc.formerName) +
            (pc.description.eventPort == 2968 ? "" : " elsewhere") +
            (pc.notes.empty() ? "" : " noted") +
            (pc.missed == 0 ? "" : " missed " + std::to_string(pc.missed)) +
            (pc.gone ? " gone" : "");
  }
  return text;
}

TEST(PanelPcs, FindsMissesAndRenamesThem) {
  const char* const one = "192.0.2.7";
  const char* const other = "192.0.2.8";
  FoundPc odd = Reply(other, "C");
  odd.differs = true;
  const struct {
    std::vector<FoundPc> found;
    bool isNews;     // while the replies come
    bool isEndNews;  // when the search is over
    std::string listed;
  } searches[] = {
      {{}, false, false, ""},
      {{Reply(one, "A")}, true, false, "A"},
      {{Reply(one, "A")}, false, false, "A"},
      {{Reply(one, "B")}, true, false, "B was A"},
      {{Reply(other, "C")}, true, false, "B was A missed 1; C"},
      {{Reply(other, "C")}, false, false, "B was A missed 2; C"},
      {{odd}, true, true, "B was A missed 3 gone; C noted"},
      {{odd}, false, false, "B was A missed 4 gone; C noted"},
      {{Reply(other, "C"), Reply(one, "B")}, true, false, "B was A; C"},
      {{Reply(one, "B", 3000)}, true, false, "B was A elsewhere; C missed 1"},
      {{Reply(one, "A"), Reply(other, "C")}, true, false, "A was B; C"},
  };
  PcTable table;
  std::int64_t nowMs = 0;
  for (const auto& search : searches) {
    ++nowMs;
    EXPECT_EQ(search.isNews, NoteReplies(&table, search.found, nowMs)) << search.listed;
    EXPECT_EQ(search.isEndNews, NoteEndOfRound(&table, search.found)) << search.listed;
    EXPECT_EQ(search.listed, Listed(table));
    for (const FoundPc& reply : search.found) {
      EXPECT_EQ(nowMs, FindPc(&table, reply.sender)->lastReplyMs);
    }
  }
  // Only who is being examined is kept for ever.
  table.pcs.back().examining = true;
  for (int i = 1; i < ROUNDS_UNTIL_FORGOTTEN; ++i) {
    EXPECT_EQ(i == ROUNDS_UNTIL_GONE, NoteEndOfRound(&table, {})) << i;
  }
  EXPECT_TRUE(NoteEndOfRound(&table, {}));
  EXPECT_EQ("C missed 60 gone", Listed(table));
}

TEST(PanelPcs, ListsOnlySoManyAndNamesOnlySoLong) {
  std::vector<FoundPc> crowd(PCS_LIMIT + 3);
  for (std::size_t i = 0; i < crowd.size(); ++i) {
    crowd[i].sender = static_cast<std::uint32_t>(i + 1);
  }
  PcTable table;
  NoteReplies(&table, crowd, 1);
  EXPECT_EQ(PCS_LIMIT, table.pcs.size());
  EXPECT_EQ(3U, table.moreSenders);
  EXPECT_FALSE(NoteReplies(&table, crowd, 2));
  EXPECT_EQ(nullptr, FindPc(&table, crowd.back().sender));

  const std::string longest(SHOWN_OF_A_NAME, 'n');
  const std::pair<std::string, std::string> names[] = {
      {"OFFICE", "OFFICE"},
      {longest, longest},
      {longest + "n", longest + "..."},
      {longest.substr(1) + "\u00e9", longest.substr(1) + "..."},
      {"a\u202eb", "a\\u{202E}b"},
  };
  for (const auto& [name, shown] : names) {
    EXPECT_EQ(shown, ShownName(name));
  }
}

TEST(PanelHistory, ForgetsWhatIsOldest) {
  HistoryLimits limits;
  limits.messages = 4;
  limits.bytes = 10;
  limits.frameBytes = 5;
  limits.changes = 3;
  History history(limits);
  for (int i = 0; i < 6; ++i) {
    Remembered message;
    message.bytes = "four";
    EXPECT_EQ(static_cast<std::uint64_t>(i + 1), history.Add(message));
    history.AddFrame(std::string(2, static_cast<char>('a' + i)));
    history.Tell("kind", std::to_string(i));
  }
  EXPECT_EQ(nullptr, history.Find(2));
  EXPECT_EQ(nullptr, history.Find(7));
  EXPECT_TRUE(history.Find(4)->forgotten);
  EXPECT_EQ("", history.Find(4)->bytes);
  EXPECT_EQ("four", history.Find(5)->bytes);
  EXPECT_EQ("eeff", history.Frames());
  std::uint64_t last = 4;
  EXPECT_EQ("id: 5\nevent: kind\ndata: 4\n\nid: 6\nevent: kind\ndata: 5\n\n",
            history.ChangesAfter(&last));
  EXPECT_EQ(6U, last);
  EXPECT_EQ("", history.ChangesAfter(&last));
  // Who has missed some, or comes from another run, starts anew.
  for (const std::uint64_t other : {std::uint64_t{2}, std::uint64_t{99}}) {
    last = other;
    EXPECT_EQ("id: 6\nevent: anew\ndata: {}\n\n", history.ChangesAfter(&last));
    EXPECT_EQ(6U, last);
  }
  history.Clear();
  EXPECT_EQ(nullptr, history.Find(6));
  EXPECT_EQ(7U, history.Add({}));
  // A head of tiny headers costs far more than its bytes.
  Remembered message;
  message.bytes = "a:b";
  message.fields = {{0, 3, "a", "b"}};
  EXPECT_TRUE(history.Find(history.Add(message))->forgotten);
}

}  // namespace

}  // namespace zvqrn::scanner
