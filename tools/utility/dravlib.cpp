// The one export of the stand-in utility library.  The table is read when the library is loaded:
// a call must not ask the system for anything that takes the loader's lock, because a host that
// unloads its library holds that lock and waits for the calls in progress.  Any thread may call at
// any time.
#include <cstdint>
#include <cstring>
#include <fstream>

#include "own_folder.h"
#include "scanner_table.h"
#include "zvqrn/zvqrn.h"

namespace {

constexpr std::int32_t DRIVER_KNOWN = 1;
constexpr std::int32_t DRIVER_UNKNOWN = 0;

// The table as it stands in the file; what is beyond its end is not read.  An array, so that
// nothing is destroyed under a call that comes as the process ends.
struct Table {
  Table() noexcept {
    try {
      std::ifstream file(zvqrn::utility::PathBesideLibrary("DRAVLIB.txt"), std::ios::binary);
      file.read(text, sizeof text);
      length = static_cast<std::size_t>(file.gcount());
    } catch (...) {
      length = 0;
    }
  }
  char text[64 * 1024] = {};
  std::size_t length = 0;
};
const Table TABLE;

}  // namespace

// Gives the name of the TWAIN driver that serves a scanner: 1 with at most 33 bytes and a NUL in
// the 34 bytes at `buffer`, 0 with nothing written when the scanner is unknown.
extern "C" QRN_PUBLIC std::int32_t QRN_EXPORT GetTWAINName(const char* productName, char* buffer) {
  if (productName == nullptr || buffer == nullptr) {
    return DRIVER_UNKNOWN;
  }
  const std::string_view driver =
      zvqrn::utility::FindDriverName({TABLE.text, TABLE.length}, productName);
  if (driver.empty()) {
    return DRIVER_UNKNOWN;
  }
  std::memcpy(buffer, driver.data(), driver.size());
  buffer[driver.size()] = '\0';
  return DRIVER_KNOWN;
}
