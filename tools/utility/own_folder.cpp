#include "own_folder.h"

#if defined(_WIN32)
#include <windows.h>
#else
#include <dlfcn.h>
#endif

namespace zvqrn::utility {

namespace {

std::filesystem::path AskForOwnFile() {
#if defined(_WIN32)
  HMODULE module = nullptr;
  constexpr DWORD FLAGS =
      GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT;
  if (GetModuleHandleExW(FLAGS, reinterpret_cast<LPCWSTR>(&AskForOwnFile), &module) == 0) {
    return {};
  }
  // No path of Windows is longer.
  std::wstring path(32768, L'\0');
  const auto room = static_cast<DWORD>(path.size());
  path.resize(GetModuleFileNameW(module, path.data(), room));
  return path;
#else
  Dl_info own = {};
  const bool known = dladdr(reinterpret_cast<void*>(&AskForOwnFile), &own) != 0;
  return known && own.dli_fname != nullptr ? own.dli_fname : "";
#endif
}

}  // namespace

std::filesystem::path PathBesideLibrary(const char* name) {
  return AskForOwnFile().parent_path() / name;
}

}  // namespace zvqrn::utility
