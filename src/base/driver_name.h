// The maker's utility library and its one function, which knows the TWAIN driver of each scanner.
#pragma once

#include <cstdint>

#include "base/service_state.h"

namespace zvqrn {

// The buffer that GetTWAINName writes into: a TWAIN 32-character text.
constexpr std::int32_t DRIVER_NAME_SIZE = 34;

enum DriverNameResult : std::int32_t {
  DRIVER_NAME_FOUND = 1,
  DRIVER_NAME_BAD_ARGUMENT = 0,
  DRIVER_NAME_NO_LIBRARY = -1,  // the utility library or its function is missing
  DRIVER_NAME_UNKNOWN = -2      // it knows no driver for that product
};

// Asks `function` for the driver of a product.  `buffer` has DRIVER_NAME_SIZE bytes, all zero.
DriverNameResult CallGetTwainName(GetTwainNameFunction function, const char* productName,
                                  char* buffer);

// Looks for the utility library and its function; either may be missing.  Unloading closes it.
void LoadUtilityLibrary();
void UnloadUtilityLibrary();

}  // namespace zvqrn
