#include "discovery/attribute_list.h"

#include <algorithm>
#include <cstring>

#include "base/allocation.h"
#include "base/service_state.h"
#include "base/text.h"
#include "platform/encoding.h"
#include "platform/socket.h"

namespace zvqrn {
namespace {

bool IsReserved(char byte) {
  return byte == '\\' || byte == '(' || byte == ')' || byte == ',';
}

// Joins the three attributes in a block of their exact size; null when that is too large or cannot
// be had.
char* JoinAttributes(const char* name, const char* address, const char* port,
                     std::int32_t* length) {
  const char* const pieces[] = {
      "(ClientName=", name, "),(IPAddress=", address, "),(EventPort=", port, ")"};
  std::size_t size = 1;
  for (const char* piece : pieces) {
    size += std::strlen(piece);
  }
  if (size > static_cast<std::size_t>(ATTRIBUTE_LIST_LIMIT)) {
    return nullptr;
  }
  char* text = NewBytes(static_cast<std::int64_t>(size));
  if (text == nullptr) {
    return nullptr;
  }
  char* at = text;
  for (const char* piece : pieces) {
    at = std::copy(piece, piece + std::strlen(piece), at);
  }
  *length = static_cast<std::int32_t>(size - 1);
  return text;
}

}  // namespace

void BuildAttributeList(char** text, std::int32_t* length) {
  if (text == nullptr || length == nullptr) {
    return;
  }
  *text = nullptr;
  *length = 0;
  // Held to the end: the three values belong together.
  const LockScope scope(&service.identityLock);
  if (!scope.Held() || service.localAddress == 0) {
    return;
  }
  const OwnedBlock<char> escaped(EscapeAttributeValue(service.pcName));
  if (!escaped) {
    return;
  }
  char* converted = nullptr;
  std::int32_t convertedLength = 0;
  AnsiToUtf8(escaped.get(), &converted, &convertedLength);
  const OwnedBlock<char> name(converted);
  if (!name) {
    return;
  }
  char address[platform::ADDRESS_TEXT_SIZE];
  platform::AddressToText(service.localAddress, address);
  char port[DECIMAL_TEXT_SIZE];
  FormatDecimal(service.eventPort, port);
  *text = JoinAttributes(name.get(), address, port, length);
}

char* EscapeAttributeValue(const char* value) {
  if (value == nullptr || *value == '\0') {
    return nullptr;
  }
  // Every byte may need a backslash.
  OwnedBlock<char> escaped(NewBytes(2 * static_cast<std::int64_t>(std::strlen(value)) + 1));
  if (!escaped) {
    return nullptr;
  }
  char* to = escaped.get();
  while (*value != '\0') {
    if (platform::IsLeadByte(value[0])) {
      if (value[1] == '\0') {
        break;
      }
      *to++ = *value++;
    } else if (IsReserved(value[0])) {
      *to++ = '\\';
    }
    *to++ = *value++;
  }
  return to != escaped.get() ? escaped.release() : nullptr;
}

void AnsiToUtf8(const char* text, char** utf8, std::int32_t* utf8Length) {
  *utf8 = nullptr;
  *utf8Length = 0;
  const std::int32_t size = platform::AnsiToUtf8Bytes(text, nullptr, 0);
  OwnedBlock<char> converted(NewBytes(size));
  if (size < 1 || !converted || platform::AnsiToUtf8Bytes(text, converted.get(), size) != size) {
    return;
  }
  *utf8 = converted.release();
  *utf8Length = size - 1;
}

}  // namespace zvqrn
