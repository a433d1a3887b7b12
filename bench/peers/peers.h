// The servers that the library is compared with.  Each serves until the program ends, on threads of
// its own, with messages of the sizes that the library's have.
#pragma once

#include <cstddef>
#include <cstdint>

namespace zvqrn::bench {

constexpr std::uint16_t TCP_PEER_PORT = 4001;
constexpr std::uint16_t HTTP_PEER_PORT = 4002;
constexpr std::uint16_t UDP_PEER_PORT = 4003;

struct PeerSizes {
  std::size_t request;
  std::size_t answer;
  std::size_t replyDatagram;
};

// Plain exchanges: the thread that waits for the request's bytes sends the answer's.  Each
// connection has such a thread.
void StartTcpPeer(const PeerSizes& sizes);

// One thread answers each datagram, with the bytes of the request's XID in their place.
void StartUdpPeer(const PeerSizes& sizes);

// libmicrohttpd with its own polling thread over epoll, and one response for all requests.
void StartHttpPeer(const PeerSizes& sizes);

}  // namespace zvqrn::bench
