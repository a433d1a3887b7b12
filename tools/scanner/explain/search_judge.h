// What the library does with a datagram that comes to its discovery port, by its content alone.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "scanner/explain/head.h"
#include "scanner/explain/request_judge.h"

namespace zvqrn::scanner {

// An attribute request or reply, as far as it can be read.
struct SlpDatagram {
  bool isReply = false;
  std::uint32_t xid = 0;
  std::string scopes;
  std::string previousResponders;
  std::string attributes;     // of a reply
  std::vector<Field> fields;  // those that could be read
  Judgement judgement;        // RULE_ANSWERABLE or RULE_SCOPE_ASKED when nothing is wrong
};

SlpDatagram ReadSlpDatagram(std::string_view bytes);

// True when the dotted address is an element of a list of previous responders.
bool IsPreviousResponder(const std::string& list, const std::string& address);

}  // namespace zvqrn::scanner
