#include "scanner/panel/http.h"

#include <algorithm>
#include <cstdint>

#include "common/text.h"

namespace zvqrn::scanner {

namespace {

constexpr char LINE_END[] = "\r\n";
constexpr char HEAD_END[] = "\r\n\r\n";

bool IsOneOf(char letter, const char* first, const char* last, const char* others) {
  return (letter >= *first && letter <= *last) ||
         std::string(others).find(letter) != std::string::npos;
}

bool IsDigit(char letter) {
  return IsOneOf(letter, "0", "9", "");
}

bool IsLetter(char letter) {
  return IsOneOf(letter, "A", "Z", "") || IsOneOf(letter, "a", "z", "");
}

// A character of a token (RFC 9110, section 5.6.2).
bool IsTokenLetter(char letter) {
  return IsLetter(letter) || IsDigit(letter) ||
         std::string("!#$%&'*+-.^_`|~").find(letter) != std::string::npos;
}

bool IsToken(const std::string& text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), IsTokenLetter);
}

// Printable ASCII, with blanks where they may be.
bool IsPlain(const std::string& text, bool blanks) {
  return std::all_of(text.begin(), text.end(), [blanks](char letter) {
    return (letter > ' ' && letter < '\x7F') || (blanks && (letter == ' ' || letter == '\t'));
  });
}

int HexDigit(char letter) {
  const std::string digits = "0123456789abcdef";
  const std::size_t at = digits.find(static_cast<char>(IsLetter(letter) ? letter | 0x20 : letter));
  return at == std::string::npos ? -1 : static_cast<int>(at);
}

bool Decode(const std::string& text, std::string* decoded) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      decoded->push_back(text[i]);
      continue;
    }
    const int high = i + 2 < text.size() ? HexDigit(text[i + 1]) : -1;
    const int low = i + 2 < text.size() ? HexDigit(text[i + 2]) : -1;
    if (high < 0 || low < 0) {
      return false;
    }
    decoded->push_back(static_cast<char>(high * 16 + low));
    i += 2;
  }
  return true;
}

// name=value&name=value; a name may come once.
bool ReadQuery(const std::string& text, std::map<std::string, std::string>* query) {
  for (std::size_t start = 0; start < text.size();) {
    const std::size_t end = std::min(text.find('&', start), text.size());
    const std::string pair = text.substr(start, end - start);
    const std::size_t equals = pair.find('=');
    std::string name;
    std::string value;
    if (equals == std::string::npos || !Decode(pair.substr(0, equals), &name) ||
        !Decode(pair.substr(equals + 1), &value) || !query->emplace(name, value).second) {
      return false;
    }
    start = end + 1;
  }
  return true;
}

bool ReadRequestLine(const std::string& line, HttpRequest* request) {
  const std::size_t first = line.find(' ');
  const std::size_t last = line.rfind(' ');
  if (first == std::string::npos || first == last) {
    return false;
  }
  request->method = line.substr(0, first);
  const std::string target = line.substr(first + 1, last - first - 1);
  const std::string version = line.substr(last + 1);
  const std::size_t question = std::min(target.find('?'), target.size());
  request->path = target.substr(0, question);
  return IsToken(request->method) && IsPlain(target, false) && target[0] == '/' &&
         (version == "HTTP/1.1" || version == "HTTP/1.0") &&
         (question == target.size() || ReadQuery(target.substr(question + 1), &request->query));
}

bool ReadHeader(const std::string& line, HttpRequest* request) {
  const std::size_t colon = line.find(':');
  std::string name = line.substr(0, colon);
  if (colon == std::string::npos || !IsToken(name)) {
    return false;
  }
  std::transform(name.begin(), name.end(), name.begin(), [](char letter) {
    return static_cast<char>(IsOneOf(letter, "A", "Z", "") ? letter | 0x20 : letter);
  });
  const std::string value = tools::TrimBlanks(line.substr(colon + 1));
  // One that comes twice could mean one thing here and another to whoever passed it on; of those
  // that the panel does not look at, browsers may send several.
  return std::none_of(value.begin(), value.end(),
                      [](char letter) {
                        return (static_cast<unsigned char>(letter) < ' ' && letter != '\t') ||
                               letter == '\x7F';
                      }) &&
         (request->headers.emplace(name, value).second || name.rfind("accept", 0) == 0);
}

bool ReadHead(const std::string& head, HttpRequest* request) {
  std::size_t end = head.find(LINE_END);
  if (!ReadRequestLine(head.substr(0, end), request)) {
    return false;
  }
  while (end != std::string::npos) {
    const std::size_t start = end + 2;
    end = head.find(LINE_END, start);
    if (!ReadHeader(head.substr(start, end - start), request) ||
        request->headers.size() > HTTP_HEADER_COUNT) {
      return false;
    }
  }
  return true;
}

// The length of the body; a negative number is the status of what is wrong with it.
std::int32_t BodyLength(const HttpRequest& request) {
  const auto header = request.headers.find("content-length");
  if (request.headers.count("transfer-encoding") > 0) {
    return -HTTP_NO_LENGTH;
  }
  if (header == request.headers.end()) {
    return request.method == "POST" ? -HTTP_NO_LENGTH : 0;
  }
  std::int32_t length = 0;
  if (!std::all_of(header->second.begin(), header->second.end(), IsDigit)) {
    return -HTTP_BAD_REQUEST;
  }
  return tools::ParseNumber(header->second, &length) &&
                 static_cast<std::size_t>(length) <= HTTP_BODY_LIMIT
             ? length
             : -HTTP_TOO_LARGE;
}

// Takes as long wherever the two differ, so that the time tells nothing of the token.
bool IsSameSecret(const std::string& given, const std::string& secret) {
  unsigned difference = given.size() == secret.size() ? 0 : 1;
  for (std::size_t i = 0; i < secret.size(); ++i) {
    const char letter = i < given.size() ? given[i] : '\0';
    difference |= static_cast<unsigned char>(letter ^ secret[i]);
  }
  return difference == 0;
}

std::string ValueOf(const std::map<std::string, std::string>& values, const std::string& name) {
  const auto found = values.find(name);
  return found == values.end() ? std::string() : found->second;
}

}  // namespace

const char* HttpReason(HttpStatus status) {
  switch (status) {
    case HTTP_OK:
      return "OK";
    case HTTP_BAD_REQUEST:
      return "Bad Request";
    case HTTP_FORBIDDEN:
      return "Forbidden";
    case HTTP_NOT_FOUND:
      return "Not Found";
    case HTTP_NO_SUCH_METHOD:
      return "Method Not Allowed";
    case HTTP_TIME_OUT:
      return "Request Timeout";
    case HTTP_NO_LENGTH:
      return "Length Required";
    case HTTP_TOO_LARGE:
      return "Content Too Large";
    case HTTP_NO_JSON:
      return "Unsupported Media Type";
    case HTTP_HEAD_TOO_LARGE:
      return "Request Header Fields Too Large";
    default:
      return "Service Unavailable";
  }
}

HttpStatus ReadHttpRequest(const std::string& bytes, HttpRequest* request) {
  const std::size_t headSize = bytes.find(HEAD_END);
  if (std::min(headSize, bytes.size()) > HTTP_HEAD_LIMIT) {
    return HTTP_HEAD_TOO_LARGE;
  }
  if (headSize == std::string::npos) {
    return HTTP_MORE;
  }
  *request = {};
  if (!ReadHead(bytes.substr(0, headSize), request)) {
    return HTTP_BAD_REQUEST;
  }
  const std::int32_t length = BodyLength(*request);
  if (length < 0) {
    return static_cast<HttpStatus>(-length);
  }
  const std::size_t bodyStart = headSize + sizeof HEAD_END - 1;
  if (bytes.size() - bodyStart < static_cast<std::size_t>(length)) {
    return HTTP_MORE;
  }
  request->body = bytes.substr(bodyStart, static_cast<std::size_t>(length));
  return HTTP_OK;
}

HttpStatus JudgeHttpRequest(const HttpRequest& request, const HttpGate& gate) {
  const std::string host = HttpHeader(request, "host");
  const bool isHost =
      std::any_of(gate.hosts.begin(), gate.hosts.end(),
                  [&](const std::string& known) { return tools::EqualsIgnoringCase(known, host); });
  const auto origin = request.headers.find("origin");
  const bool isOwn = origin == request.headers.end() ||
                     tools::EqualsIgnoringCase(origin->second, "http://" + host);
  const std::string site = HttpHeader(request, "sec-fetch-site");
  // The address may be opened from anywhere; what the page does comes from the page.
  const bool isNear = site.empty() || site == "same-origin" || site == "none" ||
                      (request.path == "/" && HttpHeader(request, "sec-fetch-mode") == "navigate");
  if (!isHost || !isOwn || !isNear || !IsSameSecret(HttpQuery(request, "token"), gate.token)) {
    return HTTP_FORBIDDEN;
  }
  if (request.method == "GET") {
    return HTTP_OK;
  }
  if (request.method != "POST") {
    return HTTP_NO_SUCH_METHOD;
  }
  const std::string type = HttpHeader(request, "content-type");
  const std::string media = tools::TrimBlanks(type.substr(0, type.find(';')));
  return tools::EqualsIgnoringCase(media, "application/json") ? HTTP_OK : HTTP_NO_JSON;
}

std::string HttpQuery(const HttpRequest& request, const std::string& name) {
  return ValueOf(request.query, name);
}

std::string HttpHeader(const HttpRequest& request, const std::string& name) {
  return ValueOf(request.headers, name);
}

}  // namespace zvqrn::scanner
