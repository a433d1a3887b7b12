#include "system/run.h"

#include <stdexcept>
#include <thread>

namespace zvqrn::bench {

std::string Prefix(const Placement& placement) {
  return placement.name + ".";
}

std::vector<std::string> NativeHost(const Settings& settings) {
  return {settings.folder + "/bench_host", settings.folder + "/libZVQRN.so"};
}

Child StartService(const std::vector<std::string>& command, std::size_t core) {
  Child host = StartChild(command, core);
  Order(host, "load");
  Order(host, "start");
  return host;
}

Child StartPeers(const Settings& settings, const Placement& placement, const PeerSizes& sizes) {
  Child peers = StartChild({settings.folder + "/bench_peers", std::to_string(sizes.request),
                            std::to_string(sizes.answer), std::to_string(sizes.replyDatagram)},
                           placement.hostCore);
  if (ReadReply(peers) != "ready") {
    throw std::runtime_error("the peers do not start");
  }
  return peers;
}

void StopService(const Child& host) {
  Order(host, "stop");
}

void Pause(double seconds) {
  std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
}

}  // namespace zvqrn::bench
