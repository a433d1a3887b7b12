#include "support/surroundings.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <vector>

#include "common/adapters.h"
#include "common/module_loader.h"
#include "support/patience.h"
#include "support/process.h"

namespace zvqrn::test {
namespace {

// Loopback, and the addresses of scripts/private_network.sh, which name nothing elsewhere.
bool IsPrivate(std::uint32_t address) {
  unsigned char bytes[4];
  std::memcpy(bytes, &address, sizeof bytes);
  return address == 0 || bytes[0] == 127 || (bytes[0] == 10 && bytes[1] == 68 && bytes[2] == 0);
}

// What somebody may have set by hand, and what the system says.
bool HasNetworkOfItsOwn() {
  std::vector<tools::Adapter> adapters;
  // Under Wine the service that knows them begins late on a slow machine.
  bool isPrivate = std::getenv("QUORIN_PRIVATE_ADDRESS") != nullptr &&
                   Eventually([&] { return tools::ListAdapters(&adapters); });
  for (const tools::Adapter& adapter : adapters) {
    isPrivate = isPrivate && IsPrivate(adapter.address);
  }
  return isPrivate;
}

// What starts it right, as one types it.
std::string CommandFor(const std::vector<std::string>& arguments) {
  std::string command = PRIVATE_STARTER;
  for (const std::string& argument : arguments) {
    const bool plain = argument.find_first_of(" *?:'\"$&|;<>()[]`\\!#~") == std::string::npos;
    command += plain ? " " + argument : " '" + argument + "'";
  }
  return command;
}

}  // namespace

std::string WhyNotHere(const std::vector<std::string>& arguments) {
  const std::filesystem::path program = arguments[0];
  if (program.stem() == "room_tests") {
    return {};
  }
  if (!HasNetworkOfItsOwn()) {
    return "These tests would open ports of this machine and change its addresses.  In a network "
           "of "
           "their own they run with\n  " +
           CommandFor(arguments);
  }
  const std::filesystem::path folder = tools::ProgramFolder();
  const std::string library = tools::SERVICE_LIBRARY_FILE;
  std::vector<std::string> files = {library};
  if (testing::GTEST_FLAG(filter).rfind("WithoutUtilityLibrary.", 0) != 0) {
    std::string standIn = library;
    standIn.replace(standIn.find("ZVQRN"), std::strlen("ZVQRN"), "DRAVLIB");
    files.insert(files.end(), {standIn, "DRAVLIB.txt"});
  }
  for (const std::string& file : files) {
    if (!std::filesystem::exists(folder / file)) {
      return (folder / file).string() + " is missing: build the target " + program.stem().string();
    }
  }
  return {};
}

}  // namespace zvqrn::test
