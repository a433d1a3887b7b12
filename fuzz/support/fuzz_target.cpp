#include "support/fuzz_target.h"

#include "platform/socket.h"

namespace zvqrn::fuzz {

FakePlatform fake;

std::string Bytes(const void* bytes, std::int32_t length) {
  return {static_cast<const char*>(bytes), static_cast<std::size_t>(length)};
}

OwnedParsedMessage HeadOf(const SuspiciousBlock& message) {
  ParsedMessage* made = nullptr;
  const std::int32_t kind = ParseHead(message.Data(), message.length, &made);
  REQUIRE(kind == (made != nullptr ? made->kind : -1));
  return OwnedParsedMessage(made);
}

std::string Header(const OwnedParsedMessage& parsed, const char* name) {
  const char* value = "";
  FindHeader(parsed.get(), name, &value);
  return value;
}

// The utility library: it knows the scanners whose names begin with XS.
static std::int32_t QRN_EXPORT FindDriver(const char* product, char* driver) {
  std::memset(driver, 'd', 34);  // no NUL
  return BeginsIgnoringCase(product, "XS") ? 1 : 0;
}

extern "C" {

int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  service.getTwainName = FindDriver;
  FuzzedDataProvider data(bytes, size);
  FuzzOne(&data);
  fake = {};
  return 0;
}

#define REPLACEMENT(call) __wrap__ZN5zvqrn8platform##call

std::int32_t REPLACEMENT(12WaitReadableEli)(platform::SocketHandle, std::int32_t) {
  return platform::SOCKET_TIMED_OUT;  // asked only when a receive has found a pause
}

std::int32_t REPLACEMENT(12ReceiveBytesElPvi)(platform::SocketHandle, char* to, std::int32_t size) {
  const std::int32_t cut = fake.cuts[fake.receives++ % fake.cuts.size()];
  const std::size_t most = static_cast<std::size_t>(std::min(cut, size));
  const std::size_t count = fake.incoming.copy(to, most);
  fake.incoming.erase(0, count);
  return cut == 0 ? platform::RECEIVE_NOTHING : static_cast<std::int32_t>(count);
}

std::uintptr_t REPLACEMENT(11StartThreadEPFvPvES1_NS0_9StackKindE)(void (*run)(void*), void* with) {
  fake.threads.emplace_back(std::bind(run, with));
  return 1;
}

}  // extern "C"

}  // namespace zvqrn::fuzz
