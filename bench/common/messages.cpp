#include "common/messages.h"

#include "support/messages.h"

namespace zvqrn::bench {
namespace {

constexpr char UID[] = "20260101000000000";

RequestText Compose(const std::string& furtherLines) {
  RequestText request{test::Request(test::Identity("1.00", UID) + furtherLines, test::DOCUMENT_V1),
                      0};
  request.uidAt = request.bytes.find(UID);
  return request;
}

}  // namespace

RequestText SingleRequest() {
  return Compose("");
}

RequestText StartRequest() {
  return Compose("x-subevent : START\r\n");
}

void SetUid(RequestText* request, std::uint64_t number) {
  for (std::size_t digit = sizeof UID - 1; digit-- > 0; number /= 10) {
    request->bytes[request->uidAt + digit] = static_cast<char>('0' + number % 10);
  }
}

const char* RequestDocument() {
  return test::DOCUMENT_V1;
}

}  // namespace zvqrn::bench
