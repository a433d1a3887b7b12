// The one export of the stand-in utility library.  It keeps nothing between calls: the table is
// read afresh each time, so an edited table counts from the next request on, and any thread may
// call at any time.
#include <cstdint>
#include <cstring>
#include <fstream>

#include "own_folder.h"
#include "scanner_table.h"
#include "zvqrn/zvqrn.h"

namespace {

constexpr std::int32_t DRIVER_KNOWN = 1;
constexpr std::int32_t DRIVER_UNKNOWN = 0;

std::int32_t LookUp(const char* productName, char* buffer) {
  std::ifstream table(zvqrn::utility::PathBesideLibrary("DRAVLIB.txt"));
  const std::string driver = zvqrn::utility::FindDriverName(table, productName);
  if (driver.empty()) {
    return DRIVER_UNKNOWN;
  }
  std::memcpy(buffer, driver.c_str(), driver.size() + 1);
  return DRIVER_KNOWN;
}

}  // namespace

// Gives the name of the TWAIN driver that serves a scanner: 1 with at most 33 bytes and a NUL in
// the 34 bytes at `buffer`, 0 with nothing written when the scanner is unknown.
extern "C" QRN_PUBLIC std::int32_t QRN_EXPORT GetTWAINName(const char* productName, char* buffer) {
  if (productName == nullptr || buffer == nullptr) {
    return DRIVER_UNKNOWN;
  }
  // The caller knows nothing of C++: whatever goes wrong in here is "unknown" to it.
  try {
    return LookUp(productName, buffer);
  } catch (...) {
    return DRIVER_UNKNOWN;
  }
}
