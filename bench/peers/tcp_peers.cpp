#include <memory>
#include <string>
#include <thread>
#include <utility>

#include "common/sockets.h"
#include "peers/peers.h"

namespace zvqrn::bench {
namespace {

using SharedSocket = std::shared_ptr<const Descriptor>;

void Serve(const SharedSocket& socket, const PeerSizes& sizes, bool threadEach) {
  const auto answer = std::make_shared<const std::string>(sizes.answer, 'a');
  std::string request(sizes.request, '\0');
  while (ReceiveAll(*socket, &request)) {
    if (threadEach) {
      std::thread([socket, answer] { SendAll(*socket, *answer); }).detach();
    } else {
      SendAll(*socket, *answer);
    }
  }
}

void StartTcpPeer(std::uint16_t port, const PeerSizes& sizes, bool threadEach) {
  auto listening = std::make_shared<const Descriptor>(ListenTcp(port));
  std::thread([listening, sizes, threadEach] {
    for (;;) {
      auto socket = std::make_shared<const Descriptor>(AcceptTcp(*listening));
      std::thread([socket, sizes, threadEach] { Serve(socket, sizes, threadEach); }).detach();
    }
  }).detach();
}

}  // namespace

void StartTcpPeers(const PeerSizes& sizes) {
  StartTcpPeer(TCP_PEER_PORT, sizes, false);
  StartTcpPeer(TCP_THREAD_PEER_PORT, sizes, true);
}

}  // namespace zvqrn::bench
