#include "common/text.h"

#include <charconv>
#include <cstring>
#include <fstream>

#include "common/machine_text.h"

namespace zvqrn::tools {

namespace {

constexpr char HEX_DIGITS[] = "0123456789ABCDEF";
constexpr std::size_t BYTES_A_ROW = 16;
constexpr std::size_t READ_SIZE = 65536;

bool IsPrintable(unsigned char byte) {
  return byte >= 0x20 && byte < 0x7F;
}

char LowerAscii(char letter) {
  return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

void AppendHex(std::string* text, unsigned char byte) {
  text->push_back(HEX_DIGITS[byte >> 4U]);
  text->push_back(HEX_DIGITS[byte & 0x0FU]);
}

}  // namespace

std::string EscapeBytes(const std::string& bytes) {
  std::string text;
  for (const char letter : bytes) {
    const auto byte = static_cast<unsigned char>(letter);
    if (letter == '\\') {
      text += "\\\\";
    } else if (IsPrintable(byte)) {
      text.push_back(letter);
    } else if (letter == '\r') {
      text += "\\r";
    } else if (letter == '\n') {
      text += "\\n";
    } else if (letter == '\t') {
      text += "\\t";
    } else {
      text += "\\x";
      AppendHex(&text, byte);
    }
  }
  return text;
}

std::string QuoteBytes(const std::string& bytes) {
  return "\"" + EscapeBytes(bytes) + "\"";
}

std::string HexDump(const std::string& bytes, const std::string& indent) {
  std::string dump;
  for (std::size_t row = 0; row < bytes.size(); row += BYTES_A_ROW) {
    dump += indent;
    for (unsigned shift = 16; shift > 0; shift -= 4) {
      dump.push_back(HEX_DIGITS[(row >> (shift - 4)) & 0x0FU]);
    }
    dump += "  ";
    std::string printable;
    for (std::size_t column = 0; column < BYTES_A_ROW; ++column) {
      if (row + column >= bytes.size()) {
        dump += "   ";
        continue;
      }
      const auto byte = static_cast<unsigned char>(bytes[row + column]);
      AppendHex(&dump, byte);
      dump.push_back(' ');
      printable.push_back(IsPrintable(byte) ? bytes[row + column] : '.');
    }
    dump += " " + printable + "\n";
  }
  return dump;
}

std::string FieldText(const char* field, std::size_t size) {
  const void* end = std::memchr(field, 0, size);
  return end == nullptr ? std::string(field, size) : std::string(field);
}

bool ReadFileBytes(const std::string& path, std::string* bytes) {
  std::ifstream file(PathOf(path), std::ios::binary);
  if (!file) {
    return false;
  }
  bytes->clear();
  std::string block(READ_SIZE, '\0');
  while (file) {
    file.read(block.data(), static_cast<std::streamsize>(block.size()));
    bytes->append(block, 0, static_cast<std::size_t>(file.gcount()));
  }
  return file.eof();
}

bool ParseNumber(const std::string& text, std::int32_t* number) {
  const char* end = text.data() + text.size();
  const std::from_chars_result result = std::from_chars(text.data(), end, *number);
  return result.ec == std::errc() && result.ptr == end;
}

bool EqualsIgnoringCase(const std::string& left, const std::string& right) {
  if (left.size() != right.size()) {
    return false;
  }
  for (std::size_t i = 0; i < left.size(); ++i) {
    if (LowerAscii(left[i]) != LowerAscii(right[i])) {
      return false;
    }
  }
  return true;
}

std::string TrimBlanks(const std::string& text) {
  const std::size_t first = text.find_first_not_of(" \t");
  if (first == std::string::npos) {
    return {};
  }
  return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

}  // namespace zvqrn::tools
