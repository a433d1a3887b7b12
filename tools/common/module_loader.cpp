#include "common/module_loader.h"

#include "common/machine_text.h"

#if defined(_WIN32)
#include "platform/windows/windows_headers.h"
#else
#include <dlfcn.h>
#endif

namespace zvqrn::tools {

#if defined(_WIN32)

const char* const SERVICE_LIBRARY_FILE = "ZVQRN.dll";

void* OpenModule(const std::string& path, std::string* why) {
  HMODULE module = LoadLibraryW(WideText(path).c_str());
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

std::string ModuleVersion(const std::string& path) {
  const std::wstring file = WideText(path);
  std::string block(GetFileVersionInfoSizeW(file.c_str(), nullptr), '\0');
  void* found = nullptr;
  UINT size = 0;
  if (GetFileVersionInfoW(file.c_str(), 0, static_cast<DWORD>(block.size()), block.data()) == 0 ||
      VerQueryValueW(block.data(), L"\\", &found, &size) == 0) {
    return {};
  }
  const auto* numbers = static_cast<const VS_FIXEDFILEINFO*>(found);
  return std::to_string(HIWORD(numbers->dwFileVersionMS)) + "." +
         std::to_string(LOWORD(numbers->dwFileVersionMS)) + "." +
         std::to_string(HIWORD(numbers->dwFileVersionLS));
}

std::string ProgramFolder() {
  // No path of Windows is longer.
  std::wstring path(32768, L'\0');
  const auto room = static_cast<DWORD>(path.size());
  path.resize(GetModuleFileNameW(nullptr, path.data(), room));
  return TextOf(std::filesystem::path(path).parent_path());
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

// The plain name is a link to a file whose name ends in the version.
std::string ModuleVersion(const std::string& path) {
  std::error_code failed;
  const std::filesystem::path file = std::filesystem::canonical(path, failed);
  const std::string name = failed ? std::string() : file.filename().string();
  const std::string mark = ".so.";
  const std::size_t at = name.find(mark);
  return at == std::string::npos ? std::string() : name.substr(at + mark.size());
}

std::string ProgramFolder() {
  std::error_code failed;
  const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe", failed);
  return failed ? std::string() : TextOf(program.parent_path());
}

#endif

}  // namespace zvqrn::tools
