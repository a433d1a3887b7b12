#include "scanner/wire/message.h"

#include <algorithm>

#include "common/text.h"
#include "common/vocabulary.h"

namespace zvqrn::scanner {

namespace {

constexpr char LINE_END[] = "\r\n";
constexpr char HEAD_END[] = "\r\n\r\n";
constexpr std::size_t ANSWER_HEAD_LIMIT = 65536;

bool ReadContentLength(const Headers& headers, std::int32_t limit, std::size_t* length,
                       std::string* why) {
  const std::string* text = FindHeader(headers, tools::HEADER_CONTENT_LENGTH);
  std::int32_t number = 0;
  if (text != nullptr && (!tools::ParseNumber(*text, &number) || number < 0)) {
    *why = "Content-Length is no length: " + tools::EscapeBytes(*text);
    return false;
  }
  if (number > limit) {
    *why = "Content-Length announces more than " + std::to_string(limit >> 20) +
           " MiB: " + tools::EscapeBytes(*text);
    return false;
  }
  *length = static_cast<std::size_t>(number);
  return true;
}

bool ParseHead(const std::string& head, Message* message, std::string* why) {
  std::size_t lineEnd = head.find(LINE_END);
  message->startLine = head.substr(0, lineEnd);
  message->headers.clear();
  while (lineEnd != std::string::npos) {
    const std::size_t lineStart = lineEnd + 2;
    lineEnd = head.find(LINE_END, lineStart);
    const std::string line = head.substr(lineStart, lineEnd - lineStart);
    const std::size_t colon = line.find(':');
    if (colon == std::string::npos) {
      *why = "a header line without a colon: " + tools::EscapeBytes(line);
      return false;
    }
    message->headers.emplace_back(tools::TrimBlanks(line.substr(0, colon)),
                                  tools::TrimBlanks(line.substr(colon + 1)));
  }
  if (message->headers.empty()) {
    *why = "a message without headers: " + tools::EscapeBytes(message->startLine);
    return false;
  }
  return true;
}

}  // namespace

std::string MessageBytes(const Message& message) {
  std::string bytes = message.startLine + LINE_END;
  for (const auto& [name, value] : message.headers) {
    bytes += name + " : ";
    bytes += value + LINE_END;
  }
  return bytes + LINE_END + message.body;
}

void SetHeader(Headers* headers, const std::string& name, const std::string& value) {
  for (auto& header : *headers) {
    if (tools::EqualsIgnoringCase(header.first, name)) {
      header.second = value;
      return;
    }
  }
  headers->emplace_back(name, value);
}

void RemoveHeader(Headers* headers, const std::string& name) {
  const auto newEnd = std::remove_if(headers->begin(), headers->end(), [&name](const auto& header) {
    return tools::EqualsIgnoringCase(header.first, name);
  });
  headers->erase(newEnd, headers->end());
}

const std::string* FindHeader(const Headers& headers, const std::string& name) {
  for (const auto& header : headers) {
    if (tools::EqualsIgnoringCase(header.first, name)) {
      return &header.second;
    }
  }
  return nullptr;
}

ReadResult TakeMessage(std::string* bytes, std::int32_t bodyLimit, Message* message,
                       std::string* why) {
  const std::size_t headLength = bytes->find(HEAD_END);
  if (headLength == std::string::npos) {
    if (bytes->size() > ANSWER_HEAD_LIMIT) {
      *why = "a message head that does not end";
      return READ_BAD;
    }
    return READ_MORE;
  }
  std::size_t bodyLength = 0;
  if (!ParseHead(bytes->substr(0, headLength), message, why) ||
      !ReadContentLength(message->headers, bodyLimit, &bodyLength, why)) {
    return READ_BAD;
  }
  const std::size_t bodyStart = headLength + 4;
  if (bytes->size() - bodyStart < bodyLength) {
    return READ_MORE;
  }
  message->body = bytes->substr(bodyStart, bodyLength);
  bytes->erase(0, bodyStart + bodyLength);
  return READ_DONE;
}

bool IsAnswer(const Message& message) {
  return message.startLine == "HTTP/1.0 200 OK";
}

bool IsRequest(const Message& message) {
  return message.startLine == "POST /PushScan HTTP/1.0";
}

}  // namespace zvqrn::scanner
