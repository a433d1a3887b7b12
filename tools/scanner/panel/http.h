// What the panel understands of HTTP/1.1 (RFC 9112): a request of a browser, read strictly and
// within limits, and whether it may be served.  Knows no sockets.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

namespace zvqrn::scanner {

// The status codes that the panel answers with; HTTP_MORE is none.
enum HttpStatus : int {
  HTTP_MORE = 0,  // the request is not whole yet
  HTTP_OK = 200,
  HTTP_BAD_REQUEST = 400,
  HTTP_FORBIDDEN = 403,
  HTTP_NOT_FOUND = 404,
  HTTP_NO_SUCH_METHOD = 405,
  HTTP_TIME_OUT = 408,
  HTTP_NO_LENGTH = 411,
  HTTP_TOO_LARGE = 413,
  HTTP_NO_JSON = 415,
  HTTP_HEAD_TOO_LARGE = 431,
  HTTP_NO_ROOM = 503
};

// The words of a status line.
const char* HttpReason(HttpStatus status);

constexpr std::size_t HTTP_HEAD_LIMIT = 8192;
constexpr std::size_t HTTP_BODY_LIMIT = 65536;
constexpr std::size_t HTTP_HEADER_COUNT = 64;

struct HttpRequest {
  std::string method;
  std::string path;
  std::map<std::string, std::string> query;
  std::map<std::string, std::string> headers;  // names in small letters
  std::string body;
};

// Reads the request that `bytes` begin with: HTTP_OK when it is whole, HTTP_MORE, or what is wrong.
HttpStatus ReadHttpRequest(const std::string& bytes, HttpRequest* request);

// Whom the panel serves.
struct HttpGate {
  std::string token;               // what the address must hold
  std::vector<std::string> hosts;  // what the header Host may say, such as "127.0.0.1:8080"
};

// Says whether a request may be served: HTTP_OK, or why not.  It must name the panel as its host
// (a page elsewhere whose name was made to lead here does not), come from the panel's own page when
// the browser says where it comes from, hold the token, and be a GET or a POST of JSON.
HttpStatus JudgeHttpRequest(const HttpRequest& request, const HttpGate& gate);

// The value of a query, or of a header (name in small letters); empty when there is none.
std::string HttpQuery(const HttpRequest& request, const std::string& name);
std::string HttpHeader(const HttpRequest& request, const std::string& name);

}  // namespace zvqrn::scanner
