#include "scanner/explain/head.h"

#include <limits>

#include "common/text.h"
#include "common/vocabulary.h"

namespace zvqrn::scanner {

namespace {

constexpr char LINE_END[] = "\r\n";
constexpr char HTTP_MARK[] = "HTTP/";
constexpr char START_LINE[] = "start line";

bool IsBlank(char letter) {
  return letter == ' ' || letter == '\t';
}

// A run of bytes and where it begins in the message.
struct Span {
  std::string_view text;
  std::size_t offset;
};

Span Trim(Span span) {
  while (!span.text.empty() && IsBlank(span.text.front())) {
    span.text.remove_prefix(1);
    ++span.offset;
  }
  while (!span.text.empty() && IsBlank(span.text.back())) {
    span.text.remove_suffix(1);
  }
  return span;
}

// Three tokens with single spaces between; the last may be empty.
bool ReadStartLine(std::string_view line, Head* head) {
  const std::size_t first = line.find(' ');
  const std::size_t second =
      first == std::string_view::npos ? std::string_view::npos : line.find(' ', first + 1);
  if (second == std::string_view::npos || first == 0 || second == first + 1 ||
      line.find(' ', second + 1) != std::string_view::npos) {
    return false;
  }
  const bool isRequest = line.substr(second + 1).find(HTTP_MARK) != std::string_view::npos;
  head->isResponse = !isRequest && line.substr(0, first).find(HTTP_MARK) != std::string_view::npos;
  head->fields.push_back({0, line.size(), START_LINE, std::string(line)});
  return isRequest || head->isResponse;
}

bool ReadHeaderLine(std::string_view line, std::size_t offset, Head* head) {
  const std::size_t colon = line.find(':');
  if (colon == std::string_view::npos || line.find('\0') != std::string_view::npos) {
    return false;
  }
  const Span name = Trim({line.substr(0, colon), offset});
  const Span value = Trim({line.substr(colon + 1), offset + colon + 1});
  head->fields.push_back({offset, line.size(), std::string(name.text), std::string(value.text)});
  return !name.text.empty() && !value.text.empty();
}

Head Malformed(Head head, RuleId problem, std::size_t offset) {
  head.state = HEAD_MALFORMED;
  head.problem = problem;
  head.problemOffset = offset;
  return head;
}

// True when a line of the head ends in LF alone: that is what really is wrong, wherever a CR LF
// of the body makes it show.
bool HasBareLineFeed(std::string_view bytes) {
  const std::size_t feed = bytes.find('\n');
  return feed != std::string_view::npos && (feed == 0 || bytes[feed - 1] != '\r');
}

}  // namespace

Head ReadHead(std::string_view bytes) {
  Head head;
  std::size_t lineEnd = bytes.find(LINE_END);
  if (lineEnd == std::string_view::npos) {
    return head;
  }
  if (!ReadStartLine(bytes.substr(0, lineEnd), &head)) {
    return Malformed(head, HasBareLineFeed(bytes) ? RULE_LF_LINES : RULE_START_LINE, 0);
  }
  while (true) {
    const std::size_t lineStart = lineEnd + 2;
    lineEnd = bytes.find(LINE_END, lineStart);
    if (lineEnd == std::string_view::npos) {
      return head;
    }
    if (lineEnd == lineStart) {
      break;
    }
    const std::string_view line = bytes.substr(lineStart, lineEnd - lineStart);
    if (!ReadHeaderLine(line, lineStart, &head)) {
      return Malformed(head, RULE_HEADER_LINE, lineStart);
    }
  }
  head.state = HEAD_COMPLETE;
  head.length = lineEnd + 2;
  head.contentLength = LeadingNumber(HeaderText(head, tools::HEADER_CONTENT_LENGTH));
  return head;
}

const std::string* HeaderOf(const Head& head, const char* name) {
  for (std::size_t i = 1; i < head.fields.size(); ++i) {
    if (tools::EqualsIgnoringCase(head.fields[i].name, name)) {
      return &head.fields[i].value;
    }
  }
  return nullptr;
}

std::string HeaderText(const Head& head, const char* name) {
  const std::string* value = HeaderOf(head, name);
  return value == nullptr ? std::string() : *value;
}

std::int32_t LeadingNumber(std::string_view text) {
  constexpr std::int64_t MOST = std::numeric_limits<std::int32_t>::max();
  const auto next = [&](std::size_t at) { return at < text.size() ? text[at] : '\0'; };
  std::size_t at = 0;
  while (next(at) == ' ' || (next(at) >= '\t' && next(at) <= '\r')) {
    ++at;
  }
  const bool negative = next(at) == '-';
  at += negative || next(at) == '+' ? std::size_t{1} : std::size_t{0};
  std::int64_t number = 0;
  for (; next(at) >= '0' && next(at) <= '9' && number <= MOST; ++at) {
    number = number * 10 + (next(at) - '0');
  }
  if (number > MOST) {
    return negative ? std::numeric_limits<std::int32_t>::min() : static_cast<std::int32_t>(MOST);
  }
  return static_cast<std::int32_t>(negative ? -number : number);
}

}  // namespace zvqrn::scanner
