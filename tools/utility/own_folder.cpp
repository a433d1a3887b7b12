#include "own_folder.h"

#include <filesystem>

#if defined(_WIN32)
#include <windows.h>
#else
#include <dlfcn.h>
#endif

namespace zvqrn::utility {

namespace {

std::string AskForOwnFile() {
#if defined(_WIN32)
  HMODULE module = nullptr;
  constexpr DWORD FLAGS =
      GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT;
  if (GetModuleHandleExA(FLAGS, reinterpret_cast<LPCSTR>(&AskForOwnFile), &module) == 0) {
    return {};
  }
  char path[MAX_PATH] = {};
  const DWORD length = GetModuleFileNameA(module, path, MAX_PATH);
  return length < MAX_PATH ? std::string(path, length) : std::string();
#else
  Dl_info own = {};
  const bool known = dladdr(reinterpret_cast<void*>(&AskForOwnFile), &own) != 0;
  return known && own.dli_fname != nullptr ? own.dli_fname : "";
#endif
}

}  // namespace

std::string PathBesideLibrary(const std::string& name) {
  return (std::filesystem::path(AskForOwnFile()).parent_path() / name).string();
}

}  // namespace zvqrn::utility
