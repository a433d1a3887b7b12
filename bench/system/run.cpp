#include "system/run.h"

#include <thread>

namespace zvqrn::bench {

std::vector<std::string> NativeHost(const Settings& settings) {
  return {settings.folder + "/bench_host", settings.folder + "/libZVQRN.so"};
}

Child StartService(const std::vector<std::string>& command) {
  Child host = StartChild(command);
  Order(host, "load");
  Order(host, "start");
  return host;
}

void StopService(const Child& host) {
  Order(host, "stop");
}

void Pause(double seconds) {
  std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
}

}  // namespace zvqrn::bench
