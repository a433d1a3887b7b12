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

struct Waiting {
  sockaddr_storage from;
  socklen_t fromSize;
  std::string reply;
};

void Serve(const std::shared_ptr<const Descriptor>& socket, std::size_t replySize) {
  for (;;) {
    char request[2000];
    Waiting waiting{{}, sizeof waiting.from, std::string(replySize, 'r')};
    const long size = recvfrom(socket->Get(), request, sizeof request, 0,
                               reinterpret_cast<sockaddr*>(&waiting.from), &waiting.fromSize);
    if (size < static_cast<long>(XID_AT + XID_SIZE)) {
      continue;
    }
    waiting.reply.replace(XID_AT, XID_SIZE, request + XID_AT, XID_SIZE);
    std::thread([socket, waiting] {
      sendto(socket->Get(), waiting.reply.data(), waiting.reply.size(), 0,
             reinterpret_cast<const sockaddr*>(&waiting.from), waiting.fromSize);
    }).detach();
  }
}

}  // namespace

void StartUdpPeer(const PeerSizes& sizes) {
  auto socket = std::make_shared<const Descriptor>(BindUdp("0.0.0.0", UDP_THREAD_PEER_PORT, 0));
  std::thread([socket, sizes] { Serve(socket, sizes.replyDatagram); }).detach();
}

}  // namespace zvqrn::bench
