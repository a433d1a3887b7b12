#include "host/service_library.h"

#include <cstdint>
#include <fstream>

#include "common/machine_text.h"
#include "common/module_loader.h"

namespace zvqrn::host {

namespace {

constexpr int PROGRAM_BITS = static_cast<int>(sizeof(void*) * 8);

struct BinaryKind {
  const char* system;  // null: no library of a kind known here
  int bits;
};

std::uint32_t ReadNumber(std::istream& file, std::uint32_t offset, int bytes) {
  file.clear();
  file.seekg(offset);
  std::uint32_t number = 0;
  for (int i = 0; i < bytes; ++i) {
    const int byte = file.get();
    number |= static_cast<std::uint32_t>(byte < 0 ? 0 : byte) << (8 * i);
  }
  return number;
}

// Looks at the file itself, because systems describe a library of the wrong kind in words that
// nobody understands, each in its own.
BinaryKind InspectBinary(const std::string& path) {
  constexpr std::uint32_t ELF_MAGIC = 0x464C457F;
  constexpr std::uint32_t ELF_CLASS_OFFSET = 4;
  constexpr std::uint32_t DOS_MAGIC = 0x5A4D;
  constexpr std::uint32_t PE_POINTER_OFFSET = 0x3C;
  constexpr std::uint32_t PE_MAGIC = 0x4550;
  constexpr std::uint32_t MACHINE_I386 = 0x14C;
  std::ifstream file(tools::PathOf(path), std::ios::binary);
  if (ReadNumber(file, 0, 4) == ELF_MAGIC) {
    return {"Linux", ReadNumber(file, ELF_CLASS_OFFSET, 1) == 1 ? 32 : 64};
  }
  if (ReadNumber(file, 0, 2) == DOS_MAGIC) {
    const std::uint32_t header = ReadNumber(file, PE_POINTER_OFFSET, 4);
    if (ReadNumber(file, header, 4) == PE_MAGIC) {
      return {"Windows", ReadNumber(file, header + 4, 2) == MACHINE_I386 ? 32 : 64};
    }
  }
  return {nullptr, 0};
}

std::string ExplainFailure(const std::string& path, const std::string& systemsReason) {
  const std::string quoted = "'" + path + "'";
  std::error_code failed;
  if (!std::filesystem::exists(tools::PathOf(path), failed)) {
    return "there is no library " + quoted + "; --library says where it is";
  }
  const BinaryKind kind = InspectBinary(path);
  if (kind.system == nullptr) {
    return quoted + " is no library (" + systemsReason + ")";
  }
  const std::string bits = std::to_string(kind.bits);
  if (kind.bits != PROGRAM_BITS) {
    return quoted + " is a " + bits + "-bit " + kind.system + " library, this program has " +
           std::to_string(PROGRAM_BITS) + " bits: a " + bits + "-bit quorin-host can load it";
  }
  return quoted + " (" + kind.system + ", " + bits + " bits) cannot be loaded: " + systemsReason;
}

template <typename Function>
bool Find(void* module, const char* name, Function* function, std::string* why) {
  *function = reinterpret_cast<Function>(tools::FindFunction(module, name));
  if (*function == nullptr) {
    *why = std::string("the library does not export ") + name;
  }
  return *function != nullptr;
}

}  // namespace

std::string LibraryPath(const HostOptions& options) {
  if (!options.libraryPath.empty()) {
    return options.libraryPath;
  }
  const std::filesystem::path folder = tools::PathOf(tools::ProgramFolder());
  const std::filesystem::path beside = folder / tools::SERVICE_LIBRARY_FILE;
#if defined(QUORIN_INSTALLED_LIBRARY)
  const std::filesystem::path installed = folder / QUORIN_INSTALLED_LIBRARY;
  std::error_code failed;
  if (!std::filesystem::exists(beside, failed) && std::filesystem::exists(installed, failed)) {
    return tools::TextOf(installed);
  }
#endif
  return tools::TextOf(beside);
}

bool LoadServiceLibrary(const std::string& path, ServiceLibrary* library, std::string* why) {
  // Without a folder the system would look for the name along its own search path.
  std::error_code failed;
  const std::string wholePath =
      tools::TextOf(std::filesystem::absolute(tools::PathOf(path), failed));
  std::string systemsReason;
  library->module = tools::OpenModule(wholePath, &systemsReason);
  if (library->module == nullptr) {
    *why = ExplainFailure(wholePath, systemsReason);
    return false;
  }
  void* module = library->module;
  const bool complete = Find(module, "QRNStartService", &library->startService, why) &&
                        Find(module, "QRNStopService", &library->stopService, why) &&
                        Find(module, "QRNSendData", &library->sendData, why) &&
                        Find(module, "QRNGetPCName", &library->getPcName, why) &&
                        Find(module, "QRNSetPCName", &library->setPcName, why);
  if (!complete) {
    UnloadServiceLibrary(library);
    *why = "'" + wholePath + "' is not usable: " + *why;
  }
  return complete;
}

void UnloadServiceLibrary(ServiceLibrary* library) {
  if (library->module != nullptr) {
    tools::CloseModule(library->module);
  }
  *library = ServiceLibrary();
}

}  // namespace zvqrn::host
