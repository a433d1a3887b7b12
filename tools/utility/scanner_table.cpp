#include "scanner_table.h"

#include <algorithm>

namespace zvqrn::utility {

namespace {

constexpr char BLANKS[] = " \t\r";

std::string Trim(const std::string& text) {
  const std::size_t first = text.find_first_not_of(BLANKS);
  if (first == std::string::npos) {
    return {};
  }
  return text.substr(first, text.find_last_not_of(BLANKS) - first + 1);
}

char LowerAscii(char letter) {
  return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

bool SameProduct(const std::string& left, const std::string& right) {
  return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                    [](char a, char b) { return LowerAscii(a) == LowerAscii(b); });
}

}  // namespace

std::string FindDriverName(std::istream& table, const std::string& productName) {
  const std::string wanted = Trim(productName);
  std::string line;
  while (std::getline(table, line)) {
    const std::string text = Trim(line);
    const std::size_t equals = text.find('=');
    if (text.empty() || text.front() == '#' || equals == std::string::npos) {
      continue;
    }
    const std::string product = Trim(text.substr(0, equals));
    std::string driver = Trim(text.substr(equals + 1));
    const bool usable = !product.empty() && !driver.empty() && driver.size() <= DRIVER_NAME_LIMIT;
    if (usable && SameProduct(product, wanted)) {
      return driver;
    }
  }
  return {};
}

}  // namespace zvqrn::utility
