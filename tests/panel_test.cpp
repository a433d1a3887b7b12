// What the panel's web server takes and whom it serves, and that what it remembers stays bounded.
#include <gtest/gtest.h>

#include "scanner/panel/history.h"
#include "scanner/panel/http.h"

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
}

}  // namespace

}  // namespace zvqrn::scanner
