// What the library does with one whole event message, by its content alone, and why.
#pragma once

#include <string>
#include <string_view>

#include "scanner/explain/head.h"

namespace zvqrn::scanner {

// The rule that decides, and what in the message meets it (not escaped, may be empty).
struct Judgement {
  RuleId rule = RULE_ACCEPTED;
  std::string detail;
};

// What the message's connection adds.
struct ConnectionView {
  bool isMain = true;
  // For an END: its START is open and has been answered.
  bool parentIsOpen = true;
};

// Judges a message whose head is complete; `body` is what came of its body, at most as much as it
// announces.
Judgement JudgeMessage(const Head& head, std::string_view body, const ConnectionView& view);

// Adds the elements of a document that the library would find, each with its offset in the message.
void ListElements(std::string_view body, std::size_t bodyOffset, std::vector<Field>* fields);

// The text of an element as the library finds it; false when it has none.
bool FindElement(std::string_view body, const char* name, Field* found);

// True for a request of protocol version 2, whose document has a push-scan ID.
bool IsVersion2(const Head& head);

}  // namespace zvqrn::scanner
