#include "scanner_table.h"

#include <algorithm>

namespace zvqrn::utility {

namespace {

constexpr char BLANKS[] = " \t\r";

std::string_view Trim(std::string_view text) {
  const std::size_t first = text.find_first_not_of(BLANKS);
  if (first == std::string_view::npos) {
    return {};
  }
  return text.substr(first, text.find_last_not_of(BLANKS) - first + 1);
}

char LowerAscii(char letter) {
  return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

bool SameProduct(std::string_view left, std::string_view right) {
  return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                    [](char a, char b) { return LowerAscii(a) == LowerAscii(b); });
}

// Cuts the first line off the table.
std::string_view TakeLine(std::string_view* table) {
  const std::string_view line = table->substr(0, table->find('\n'));
  table->remove_prefix(std::min(table->size(), line.size() + 1));
  return line;
}

}  // namespace

std::string_view FindDriverName(std::string_view table, std::string_view productName) {
  const std::string_view wanted = Trim(productName);
  while (!table.empty()) {
    const std::string_view text = Trim(TakeLine(&table));
    const std::size_t equals = text.find('=');
    if (text.empty() || text.front() == '#' || equals == std::string_view::npos) {
      continue;
    }
    const std::string_view product = Trim(text.substr(0, equals));
    const std::string_view driver = Trim(text.substr(equals + 1));
    const bool usable = !product.empty() && !driver.empty() && driver.size() <= DRIVER_NAME_LIMIT;
    if (usable && SameProduct(product, wanted)) {
      return driver;
    }
  }
  return {};
}

}  // namespace zvqrn::utility
