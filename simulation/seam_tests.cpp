// tests/seam_test.cpp on the simulated machine: one life, on whose first thread the tests run. What
// they ask of the real system stands here in its simulated form.

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "common/module_loader.h"
#include "common/rude_socket.h"
#include "host/service_library.h"
#include "machine/machine.h"
#include "machine/seam.h"
#include "network/network.h"
#include "support/process.h"
#include "support/replaced_calls.h"

namespace zvqrn::test {

const char* const SCANNER_ADDRESS = "10.68.0.9";

const char* MulticastInterface(const char* address) {
  return address;
}

// Any address may be bound here.
void RunCommand(const std::string& /*command*/) {}

void TellOfAddressChange() {
  simulation::TellOfChange();
}

std::ptrdiff_t Handles() {
  return simulation::machine.handles + simulation::OpenSockets();
}

}  // namespace zvqrn::test

namespace zvqrn::tools {

void BreakOffConnection(platform::SocketHandle socket) {
  simulation::BreakOff(socket);
}

const char* const SERVICE_LIBRARY_FILE = "";

std::string ProgramFolder() {
  return "";
}

}  // namespace zvqrn::tools

namespace zvqrn::host {

bool LoadServiceLibrary(const std::string& /*path*/, ServiceLibrary* /*library*/,
                        std::string* /*why*/) {
  return false;
}

void UnloadServiceLibrary(ServiceLibrary* /*library*/) {}

}  // namespace zvqrn::host

namespace zvqrn::simulation {

void Reached(const char* /*what*/) {}

void ReportFinding(const std::string& what) {
  std::fprintf(stderr, "%s\n", what.c_str());
  std::exit(1);
}

}  // namespace zvqrn::simulation

int main(int count, char** arguments) {
  using namespace zvqrn::simulation;
  testing::InitGoogleTest(&count, arguments);
  int result = 1;
  for (const bool likeWindows : {false, true}) {
    Temper temper{};
    temper.exact = true;
    temper.switchOdds = 5;
    temper.likeWindows = likeWindows;
    RunLife(1, temper, [&result] {
      Weather weather{};
      weather.delay = 20;
      weather.segment = 1460;
      weather.sendBuffer = weather.window = 65536;
      weather.acknowledgeDelay = 40 * MS;
      BeginSeam();
      BeginNetwork(weather);
      machine.computerName = "OFFICE-PC";
      machine.canWatchAddresses = true;
      result = zvqrn::platform::StartSockets() ? RUN_ALL_TESTS() : 1;
    });
    if (result != 0) {
      return result;
    }
  }
  return 0;
}
