#include "scanner/wire/attribute_message.h"

#include <cstdio>

#include "common/text.h"

namespace zvqrn::scanner {

namespace {

constexpr std::uint32_t VERSION = 2;
constexpr std::uint32_t FUNCTION_REQUEST = 6;
constexpr std::uint32_t FUNCTION_REPLY = 7;
constexpr std::uint32_t FLAG_OVERFLOW = 0x8000;
constexpr std::uint32_t FLAG_REQUEST_MULTICAST = 0x2000;
// Longer messages do not fit what a receiver must be able to take, and say so in a flag.
constexpr std::size_t MESSAGE_LIMIT = 1400;
constexpr std::size_t LENGTH_OFFSET = 2;
constexpr std::size_t XID_OFFSET = 10;
constexpr std::size_t HEAD_SIZE = 14;  // up to and with the length of the language tag

void AppendNumber(std::string* bytes, std::size_t number, unsigned size) {
  for (unsigned shift = 8 * size; shift > 0; shift -= 8) {
    bytes->push_back(static_cast<char>((number >> (shift - 8)) & 0xFFU));
  }
}

void AppendText(std::string* bytes, const std::string& text) {
  AppendNumber(bytes, text.size(), 2);
  *bytes += text;
}

// Reads big-endian numbers and counted texts one after the other; what is missing reads as nothing
// and is remembered.
struct Reader {
  const std::string& bytes;
  std::size_t position = 0;
  bool ranOut = false;

  std::string Take(std::size_t size) {
    if (bytes.size() - position < size) {
      ranOut = true;
      size = bytes.size() - position;
    }
    position += size;
    return bytes.substr(position - size, size);
  }
  std::uint32_t Number(std::size_t size) {
    std::uint32_t number = 0;
    for (const char byte : Take(size)) {
      number = (number << 8U) | static_cast<unsigned char>(byte);
    }
    return number;
  }
  std::string Text() { return Take(Number(2)); }
};

std::string Hex(std::uint32_t number) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%04X", static_cast<unsigned>(number));
  return text;
}

std::string Differs(const std::string& what, std::uint32_t is, std::size_t wanted) {
  return what + " is " + std::to_string(is) + ", not " + std::to_string(wanted);
}

// The header's fields up to the language tag; empty when nothing is wrong with them.
std::string CheckHead(Reader* reader, const AttributeRequest& request) {
  const std::size_t size = reader->bytes.size();
  const std::uint32_t version = reader->Number(1);
  const std::uint32_t function = reader->Number(1);
  const std::uint32_t length = reader->Number(3);
  const std::uint32_t flags = reader->Number(2);
  const std::uint32_t extension = reader->Number(3);
  const std::uint32_t xid = reader->Number(2);
  if (size < HEAD_SIZE) {
    return "its size is " + std::to_string(size) + ", less than a header's";
  }
  if (version != VERSION) {
    return Differs("the version", version, VERSION);
  }
  if (function != FUNCTION_REPLY) {
    return Differs("the function", function, FUNCTION_REPLY);
  }
  if (length != size) {
    return Differs("the length field", length, size);
  }
  const std::uint32_t rightFlags = size > MESSAGE_LIMIT ? FLAG_OVERFLOW : 0;
  if (flags != rightFlags) {
    return "the flags are " + Hex(flags) + ", not " + Hex(rightFlags);
  }
  if (extension != 0) {
    return Differs("the next extension offset", extension, 0);
  }
  if (xid != request.xid) {
    return "the XID is " + Hex(xid) + ", not " + Hex(request.xid);
  }
  return {};
}

std::string CheckBody(Reader* reader, const AttributeRequest& request, std::string* attributes) {
  const std::string language = reader->Text();
  if (!reader->ranOut && language != request.language) {
    return "the language tag is '" + tools::EscapeBytes(language) + "', not '" +
           tools::EscapeBytes(request.language) + "'";
  }
  const std::uint32_t errorCode = reader->Number(2);
  if (!reader->ranOut && errorCode != 0) {
    return Differs("the error code", errorCode, 0);
  }
  *attributes = reader->Text();
  const std::uint32_t blocks = reader->Number(1);
  if (reader->ranOut) {
    return "it ends inside its body";
  }
  if (blocks != 0) {
    return Differs("the number of authentication blocks", blocks, 0);
  }
  if (reader->position != reader->bytes.size()) {
    return std::to_string(reader->bytes.size() - reader->position) +
           " bytes follow where it should end";
  }
  return {};
}

}  // namespace

std::string RequestBytes(const AttributeRequest& request) {
  std::string bytes;
  AppendNumber(&bytes, VERSION, 1);
  AppendNumber(&bytes, FUNCTION_REQUEST, 1);
  AppendNumber(&bytes, 0, 3);
  AppendNumber(&bytes, request.multicast ? FLAG_REQUEST_MULTICAST : 0, 2);
  AppendNumber(&bytes, 0, 3);  // no extension
  AppendNumber(&bytes, request.xid, 2);
  AppendText(&bytes, request.language);
  AppendText(&bytes, request.previousResponders);
  AppendText(&bytes, request.serviceType);
  AppendText(&bytes, request.scopes);
  AppendText(&bytes, request.tags);
  AppendText(&bytes, {});  // no security parameter index
  std::string length;
  AppendNumber(&length, bytes.size(), 3);
  return bytes.replace(LENGTH_OFFSET, length.size(), length);
}

std::string EscapeScope(const std::string& name) {
  std::string scope;
  for (const char letter : name) {
    if (letter == '\\' || letter == ',' || letter == '(' || letter == ')') {
      scope.push_back('\\');
    }
    scope.push_back(letter);
  }
  return scope;
}

std::string ReadReply(const std::string& bytes, const AttributeRequest& request,
                      PcDescription* pc) {
  Reader reader{bytes};
  std::string problem = CheckHead(&reader, request);
  if (!problem.empty()) {
    return problem;
  }
  std::string attributes;
  problem = CheckBody(&reader, request, &attributes);
  if (!problem.empty()) {
    return problem;
  }
  return ReadAttributes(attributes, pc);
}

bool AnswersAnotherRequest(const std::string& bytes, const AttributeRequest& request) {
  if (bytes.size() < HEAD_SIZE) {
    return false;
  }
  // Read once more as the answer to a request that had its XID and its language tag.
  Reader reader{bytes, XID_OFFSET};
  AttributeRequest other = request;
  other.xid = static_cast<std::uint16_t>(reader.Number(2));
  other.language = reader.Text();
  PcDescription pc;
  return other.xid != request.xid && ReadReply(bytes, other, &pc).empty();
}

bool IsAttributeRequest(const std::string& bytes) {
  return bytes.size() >= HEAD_SIZE && static_cast<unsigned char>(bytes[1]) == FUNCTION_REQUEST;
}

}  // namespace zvqrn::scanner
