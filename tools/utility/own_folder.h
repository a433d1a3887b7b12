// Where the stand-in utility library itself lies: its table of scanners is beside it.  Asked while
// the library is loaded: later the question could wait for the loader.
#pragma once

#include <filesystem>

namespace zvqrn::utility {

// The path of `name` beside this library's own file; just `name` when the system does not tell
// where that is.
std::filesystem::path PathBesideLibrary(const char* name);

}  // namespace zvqrn::utility
