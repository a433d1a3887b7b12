#include "common/messages.h"

#include <charconv>

#include "support/messages.h"

namespace zvqrn::bench {
namespace {

constexpr char UID[] = "20260101000000000";
static_assert(sizeof UID - 1 == UID_SIZE);

RequestText Compose(const std::string& furtherLines) {
  RequestText request{test::Request(test::Identity("1.00", UID) + furtherLines, test::DOCUMENT_V1),
                      0};
  request.uidAt = request.bytes.find(UID);
  request.parentUidAt = request.bytes.find(UID, request.uidAt + 1);
  return request;
}

void SetDigits(std::string* bytes, std::size_t at, std::uint64_t number) {
  for (std::size_t digit = UID_SIZE; digit-- > 0; number /= 10) {
    (*bytes)[at + digit] = static_cast<char>('0' + number % 10);
  }
}

}  // namespace

RequestText SingleRequest() {
  return Compose("");
}

RequestText StartRequest() {
  return Compose("x-subevent : START\r\n");
}

RequestText EndRequest() {
  return Compose("x-subevent : END\r\nx-parent-uid : " + std::string(UID) + "\r\n");
}

std::string UidText(std::uint64_t number) {
  std::string text(UID_SIZE, '0');
  SetDigits(&text, 0, number);
  return text;
}

std::uint64_t ReadUid(std::string_view bytes, std::size_t at) {
  std::uint64_t number = 0;
  const char* digits = bytes.data() + at;
  return std::from_chars(digits, digits + UID_SIZE, number).ptr == digits + UID_SIZE ? number : 0;
}

void SetUid(RequestText* request, std::uint64_t number) {
  SetDigits(&request->bytes, request->uidAt, number);
}

void SetParentUid(RequestText* request, std::uint64_t number) {
  SetDigits(&request->bytes, request->parentUidAt, number);
}

const char* RequestDocument() {
  return test::DOCUMENT_V1;
}

}  // namespace zvqrn::bench
