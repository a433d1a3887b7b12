#include <sys/socket.h>

#include <memory>
#include <string>
#include <thread>

#include "common/sockets.h"
#include "peers/peers.h"

namespace zvqrn::bench {
namespace {

constexpr std::size_t XID_AT = 10;
constexpr std::size_t XID_SIZE = 2;

void Serve(const Descriptor& socket, std::size_t replySize) {
  std::string reply(replySize, 'r');
  for (;;) {
    char request[2000];
    sockaddr_storage from{};
    socklen_t fromSize = sizeof from;
    const long size = recvfrom(socket.Get(), request, sizeof request, 0,
                               reinterpret_cast<sockaddr*>(&from), &fromSize);
    if (size >= static_cast<long>(XID_AT + XID_SIZE)) {
      reply.replace(XID_AT, XID_SIZE, request + XID_AT, XID_SIZE);
      sendto(socket.Get(), reply.data(), reply.size(), 0, reinterpret_cast<const sockaddr*>(&from),
             fromSize);
    }
  }
}

}  // namespace

void StartUdpPeer(const PeerSizes& sizes) {
  auto socket = std::make_shared<const Descriptor>(BindUdp("0.0.0.0", UDP_PEER_PORT, 0));
  std::thread([socket, sizes] { Serve(*socket, sizes.replyDatagram); }).detach();
}

}  // namespace zvqrn::bench
