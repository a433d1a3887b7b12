// Requests that are wrong on purpose, each meeting another rule of the library: the choices of the
// panel's form.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "scanner/exchange/request_options.h"
#include "scanner/explain/rules.h"

namespace zvqrn::scanner {

// As the size of the pieces in which a message is sent: its head, then its body.
constexpr std::int32_t HEAD_THEN_BODY = -1;

struct Fault {
  const char* name;  // stays; the page's table of words has its text
  RuleId rule;       // by which the library judges such a request, when nothing else is wrong
  void (*change)(RequestOptions* options);  // null: nothing
  void (*changeBytes)(std::string* bytes);  // of the whole message; null: nothing
};

const std::vector<Fault>& Faults();

// Null when there is none of this name.
const Fault* FindFault(const std::string& name);

}  // namespace zvqrn::scanner
