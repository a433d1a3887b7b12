// The messages that every benchmark sends: one scanner's single request, a START, and a discovery
// request, all in their usual size.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace zvqrn::bench {

constexpr std::uint16_t EVENT_PORT = 2968;

// A request whose uid is renewed in place before each sending, so that composing one costs the
// sender next to nothing.
struct RequestText {
  std::string bytes;
  std::size_t uidAt;
};

RequestText SingleRequest();
RequestText StartRequest();

// Writes a number into the uid, in the 17 digits that scanners use.
void SetUid(RequestText* request, std::uint64_t number);

// The document of a single request alone.
const char* RequestDocument();

}  // namespace zvqrn::bench
