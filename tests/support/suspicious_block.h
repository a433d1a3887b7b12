// Inputs that end exactly where their heap block ends, so that the address sanitiser sees the first
// byte read beyond them.
#pragma once

#include <cstdint>
#include <memory>
#include <string_view>

namespace zvqrn::test {

struct SuspiciousBlock {
  std::unique_ptr<char[]> bytes;
  std::int32_t length;

  const char* Data() const { return bytes.get(); }
};

SuspiciousBlock BlockOf(std::string_view text);

}  // namespace zvqrn::test
