#include "common/utf8.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "common/text.h"

namespace zvqrn::tools {

namespace {

constexpr std::uint32_t NO_CHARACTER = 0xFFFFFFFF;

struct CharacterRange {
  std::uint32_t first;
  std::uint32_t last;
};

// C0 and C1 controls, soft hyphen, and the characters of the general category "format", line and
// paragraph separators: they have no picture of their own, and some reorder what stands after them.
constexpr CharacterRange UNSHOWN[] = {{0x0000, 0x001F},   {0x007F, 0x009F},   {0x00AD, 0x00AD},
                                      {0x0600, 0x0605},   {0x061C, 0x061C},   {0x06DD, 0x06DD},
                                      {0x070F, 0x070F},   {0x180E, 0x180E},   {0x200B, 0x200F},
                                      {0x2028, 0x202E},   {0x2060, 0x206F},   {0xFEFF, 0xFEFF},
                                      {0xFFF0, 0xFFFB},   {0xFFFE, 0xFFFF},   {0x110BD, 0x110BD},
                                      {0x1D173, 0x1D17A}, {0xE0000, 0xE0FFF}, {0xF0000, 0x10FFFF}};

struct LeadByte {
  std::uint32_t mask;
  std::uint32_t mark;
  std::size_t length;
  std::uint32_t smallest;  // below this the form is overlong
};

constexpr LeadByte LEAD_BYTES[] = {
    {0x80, 0x00, 1, 0x0}, {0xE0, 0xC0, 2, 0x80}, {0xF0, 0xE0, 3, 0x800}, {0xF8, 0xF0, 4, 0x10000}};

bool IsScalar(std::uint32_t character) {
  return character <= 0x10FFFF && (character < 0xD800 || character > 0xDFFF);
}

// Reads the character at `index` and its length; NO_CHARACTER (length 1) when there is none.
std::uint32_t CharacterAt(const std::string& bytes, std::size_t index, std::size_t* length) {
  *length = 1;
  const std::uint32_t first = static_cast<unsigned char>(bytes[index]);
  for (const LeadByte& lead : LEAD_BYTES) {
    if ((first & lead.mask) != lead.mark) {
      continue;
    }
    if (bytes.size() - index < lead.length) {
      return NO_CHARACTER;
    }
    std::uint32_t character = first & ~lead.mask;
    for (std::size_t i = 1; i < lead.length; ++i) {
      const std::uint32_t next = static_cast<unsigned char>(bytes[index + i]);
      if ((next & 0xC0U) != 0x80U) {
        return NO_CHARACTER;
      }
      character = (character << 6U) | (next & 0x3FU);
    }
    if (character < lead.smallest || !IsScalar(character)) {
      return NO_CHARACTER;
    }
    *length = lead.length;
    return character;
  }
  return NO_CHARACTER;
}

bool IsShown(std::uint32_t character) {
  for (const CharacterRange& range : UNSHOWN) {
    if (character >= range.first && character <= range.last) {
      return false;
    }
  }
  return true;
}

std::string Shown(const std::string& bytes, std::uint32_t character) {
  // EscapeBytes knows the ASCII ones and every single byte.
  if (character < 0x80 || character == NO_CHARACTER) {
    return EscapeBytes(bytes);
  }
  if (IsShown(character)) {
    return bytes;
  }
  char text[16];
  std::snprintf(text, sizeof text, "\\u{%04X}", static_cast<unsigned>(character));
  return text;
}

}  // namespace

bool IsUtf8(const std::string& bytes) {
  std::size_t length = 0;
  for (std::size_t i = 0; i < bytes.size(); i += length) {
    if (CharacterAt(bytes, i, &length) == NO_CHARACTER) {
      return false;
    }
  }
  return true;
}

std::string EscapeUtf8(const std::string& bytes) {
  std::string text;
  std::size_t length = 0;
  for (std::size_t i = 0; i < bytes.size(); i += length) {
    const std::uint32_t character = CharacterAt(bytes, i, &length);
    text += Shown(bytes.substr(i, length), character);
  }
  return text;
}

}  // namespace zvqrn::tools
