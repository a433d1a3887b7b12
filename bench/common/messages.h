// The messages that every benchmark sends: one scanner's single request, a START and its END, all
// in their usual size; and what the measured host sends of its own.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace zvqrn::bench {

constexpr std::uint16_t EVENT_PORT = 2968;

// What the host sends from inside the callback of a START, when it is told to.
constexpr char HOST_DATA[] =
    "profile=document;resolution=300;color=auto;duplex=yes;size=A4;format=pdf;name=scan-0001;end";
constexpr std::int32_t HOST_DATA_SIZE = sizeof HOST_DATA - 1;

// The digits of a uid, as scanners write them.
constexpr std::size_t UID_SIZE = 17;

// A request whose uid is renewed in place before each sending, so that composing one costs the
// sender next to nothing.
struct RequestText {
  std::string bytes;
  std::size_t uidAt;
  std::size_t parentUidAt = std::string::npos;  // of an END
};

RequestText SingleRequest();
RequestText StartRequest();
RequestText EndRequest();

std::string UidText(std::uint64_t number);

// The number whose digits begin at `at`; 0 when there are none.
std::uint64_t ReadUid(std::string_view bytes, std::size_t at);

// Writes a number into the uid, and the uid of the START into that of an END.
void SetUid(RequestText* request, std::uint64_t number);
void SetParentUid(RequestText* request, std::uint64_t number);

// The document of a single request alone.
const char* RequestDocument();

}  // namespace zvqrn::bench
