#include "common/module_loader.h"

#include <filesystem>

#if defined(_WIN32)
#include <windows.h>
#else
#include <dlfcn.h>
#endif

namespace zvqrn::tools {

#if defined(_WIN32)

const char* const SERVICE_LIBRARY_FILE = "ZVQRN.dll";

void* OpenModule(const std::string& path, std::string* why) {
  HMODULE module = LoadLibraryA(path.c_str());
  if (module == nullptr) {
    *why = "Windows error " + std::to_string(GetLastError());
  }
  return module;
}

void CloseModule(void* module) {
  FreeLibrary(static_cast<HMODULE>(module));
}

ModuleFunction FindFunction(void* module, const char* name) {
  return reinterpret_cast<ModuleFunction>(GetProcAddress(static_cast<HMODULE>(module), name));
}

std::string ProgramFolder() {
  char path[MAX_PATH] = {};
  const DWORD length = GetModuleFileNameA(nullptr, path, MAX_PATH);
  if (length == 0 || length >= MAX_PATH) {
    return {};
  }
  return std::filesystem::path(path).parent_path().string();
}

#else

const char* const SERVICE_LIBRARY_FILE = "libZVQRN.so";

void* OpenModule(const std::string& path, std::string* why) {
  void* module = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (module == nullptr) {
    *why = dlerror();
  }
  return module;
}

void CloseModule(void* module) {
  dlclose(module);
}

ModuleFunction FindFunction(void* module, const char* name) {
  return reinterpret_cast<ModuleFunction>(dlsym(module, name));
}

std::string ProgramFolder() {
  std::error_code failed;
  const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe", failed);
  return failed ? std::string() : program.parent_path().string();
}

#endif

}  // namespace zvqrn::tools
