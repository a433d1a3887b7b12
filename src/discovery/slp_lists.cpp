#include "discovery/slp_lists.h"

#include <cstring>

#include "base/allocation.h"
#include "base/text.h"

namespace zvqrn {
namespace {

bool IsContinuation(char byte) {
  return (static_cast<unsigned char>(byte) & 0xC0) == 0x80;
}

// How many backslashes stand right before `at`, going back to `start`.
std::int32_t BackslashesBefore(const char* at, const char* start) {
  std::int32_t count = 0;
  while (at != start && at[-1] == '\\') {
    at--;
    count++;
  }
  return count;
}

}  // namespace

const char* FindSeparator(const char* text, const char* separator) {
  if (text == nullptr || separator == nullptr || *text == '\0') {
    return nullptr;
  }
  for (;;) {
    const char* found = std::strstr(text, separator);
    if (found == nullptr || BackslashesBefore(found, text) % 2 == 0) {
      return found;
    }
    text = found + 1;
    if (*text == '\0') {
      return nullptr;
    }
  }
}

std::int32_t CountListElements(const char* list, const char* separator, std::int32_t* count) {
  if (list == nullptr || separator == nullptr || count == nullptr) {
    return 0;
  }
  *count = 0;
  for (;;) {
    const char* found = FindSeparator(list, separator);
    (*count)++;
    if (found == nullptr || found[1] == '\0') {
      return 1;
    }
    list = found + 1;
  }
}

std::int32_t GetListElement(const char* list, const char* separator, std::int32_t index,
                            char** element) {
  if (element != nullptr) {
    *element = nullptr;
  }
  if (list == nullptr || separator == nullptr || element == nullptr || index < 1) {
    return 0;
  }
  const char* end = FindSeparator(list, separator);
  for (std::int32_t i = 1; i < index; i++) {
    if (end == nullptr || end[1] == '\0') {
      return 0;
    }
    list = end + 1;
    end = FindSeparator(list, separator);
  }
  const std::size_t length =
      end != nullptr ? static_cast<std::size_t>(end - list) : std::strlen(list);
  if (length == 0) {
    return 0;
  }
  OwnedBlock<char> copy(NewBytes(static_cast<std::int64_t>(length) + 1));
  if (!copy) {
    return 0;
  }
  std::memcpy(copy.get(), list, length);
  if (UnescapeInPlace(copy.get()) < 0) {
    return 0;
  }
  *element = copy.release();
  return 1;
}

std::int32_t UnescapeInPlace(char* text) {
  if (CountUtf8Chars(text) < 0) {
    return -1;
  }
  const char* from = text;
  char* to = text;
  while (*from != '\0') {
    if (*from == '\\') {
      from++;
      if (Utf8CharLength(from) != 1) {
        return -1;
      }
    }
    for (std::int32_t left = Utf8CharLength(from); left > 0; left--) {
      *to++ = *from++;
    }
  }
  *to = '\0';
  return static_cast<std::int32_t>(to - text);
}

std::int32_t CountUtf8Chars(const char* text) {
  std::int32_t count = 0;
  while (*text != '\0') {
    const std::int32_t length = Utf8CharLength(text);
    if (length < 1) {
      return -1;
    }
    text += length;
    count++;
  }
  return count;
}

// A NUL is no continuation byte, so a character that the text cuts short is not read beyond it.
std::int32_t Utf8CharLength(const char* bytes) {
  const auto first = static_cast<unsigned char>(bytes[0]);
  if (first == 0) {
    return 0;
  }
  if (first < 0x80) {
    return 1;
  }
  std::int32_t length = -1;
  if ((first & 0xE0) == 0xC0) {
    length = 2;
  } else if ((first & 0xF0) == 0xE0) {
    length = 3;
  } else if ((first & 0xF8) == 0xF0) {
    length = 4;
  }
  for (std::int32_t i = 1; i < length; i++) {
    if (!IsContinuation(bytes[i])) {
      return -1;
    }
  }
  return length;
}

std::int32_t IsInResponderList(const char* list, const char* address, char separator) {
  if (list == nullptr || address == nullptr) {
    return 0;
  }
  const std::size_t length = std::strlen(address);
  while (*list != '\0') {
    const char* end = std::strchr(list, separator);
    const std::size_t size =
        end != nullptr ? static_cast<std::size_t>(end - list) : std::strlen(list);
    if (size > 0 && size == length && BeginsIgnoringCase(list, address)) {
      return 1;
    }
    if (end == nullptr) {
      return 0;
    }
    list = end + 1;
  }
  return 0;
}

}  // namespace zvqrn
