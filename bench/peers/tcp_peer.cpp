#include <memory>
#include <string>
#include <thread>

#include "common/sockets.h"
#include "peers/peers.h"

namespace zvqrn::bench {
namespace {

void Serve(const Descriptor& socket, const PeerSizes& sizes) {
  const std::string answer(sizes.answer, 'a');
  std::string request(sizes.request, '\0');
  while (ReceiveAll(socket, &request)) {
    SendAll(socket, answer);
  }
}

}  // namespace

void StartTcpPeer(const PeerSizes& sizes) {
  auto listening = std::make_shared<const Descriptor>(ListenTcp(TCP_PEER_PORT));
  std::thread([listening, sizes] {
    for (;;) {
      auto socket = std::make_shared<const Descriptor>(AcceptTcp(*listening));
      std::thread([socket, sizes] { Serve(*socket, sizes); }).detach();
    }
  }).detach();
}

}  // namespace zvqrn::bench
