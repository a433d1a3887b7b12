// A message's head as the library reads it: leniently where it is lenient, and with its reasons for
// giving one up.  (The scanner's own reader in wire/message.h takes only what the library writes.)
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "scanner/explain/rules.h"

namespace zvqrn::scanner {

// The most bytes of a head, its empty line included.
constexpr std::size_t HEAD_LIMIT = 4096;

// A piece of what was received, for people: where it is, what it is called, and its bytes.
struct Field {
  std::size_t offset;
  std::size_t size;
  std::string name;
  std::string value;
};

enum HeadState { HEAD_UNFINISHED, HEAD_MALFORMED, HEAD_COMPLETE };

struct Head {
  HeadState state = HEAD_UNFINISHED;
  RuleId problem = RULE_HEAD_CUT;  // when malformed
  bool isResponse = false;
  std::size_t length = 0;          // of a complete head, its empty line included
  std::int32_t contentLength = 0;  // as a number is read from the begin of the text; 0: none
  std::vector<Field> fields;       // the start line, then the headers, in their order
  std::size_t problemOffset = 0;   // where the malformed line begins
};

// Reads a head from the front of `bytes`.
Head ReadHead(std::string_view bytes);

// The value of the first header of this name, whatever its case; null when there is none.
const std::string* HeaderOf(const Head& head, const char* name);
std::string HeaderText(const Head& head, const char* name);

// The number at the begin of a text, within 32 bits: white space, a sign, digits; 0 without digits.
std::int32_t LeadingNumber(std::string_view text);

}  // namespace zvqrn::scanner
