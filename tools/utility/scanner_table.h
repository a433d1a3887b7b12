// The table of scanners that the stand-in utility library knows: a text with lines
// "product name = driver name".  Blanks around both names do not count; empty lines and lines that
// begin with # say nothing; of several lines for one product the first counts.  A line without "=",
// with an empty name, or with a driver name longer than a TWAIN name field holds is left out.
#pragma once

#include <cstddef>
#include <string_view>

namespace zvqrn::utility {

// The most bytes of a driver name; one more is needed for its NUL.
constexpr std::size_t DRIVER_NAME_LIMIT = 33;

// Gives the driver name of a product, a part of the table, whose letters A to Z may be in either
// case; empty when the table does not have it.
std::string_view FindDriverName(std::string_view table, std::string_view productName);

}  // namespace zvqrn::utility
