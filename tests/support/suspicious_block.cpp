#include "support/suspicious_block.h"

#include <cstring>

namespace zvqrn::test {

SuspiciousBlock BlockOf(std::string_view text) {
  SuspiciousBlock block{std::make_unique<char[]>(text.size()),
                        static_cast<std::int32_t>(text.size())};
  std::memcpy(block.bytes.get(), text.data(), text.size());
  return block;
}

}  // namespace zvqrn::test
