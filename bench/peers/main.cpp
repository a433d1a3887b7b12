// bench_peers REQUEST ANSWER REPLY: serves the peers with messages of these sizes, says "ready",
// and ends with its input.
#include <unistd.h>

#include <cstdio>
#include <exception>
#include <iostream>
#include <string>

#include "peers/peers.h"

int main(int argc, char** argv) {
  if (argc != 4) {
    std::fputs("usage: bench_peers REQUEST ANSWER REPLY\n", stderr);
    return 2;
  }
  try {
    const zvqrn::bench::PeerSizes sizes{std::stoul(argv[1]), std::stoul(argv[2]),
                                        std::stoul(argv[3])};
    zvqrn::bench::StartTcpPeer(sizes);
    zvqrn::bench::StartUdpPeer(sizes);
    zvqrn::bench::StartHttpPeer(sizes);
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "bench_peers: %s\n", failure.what());
    return 1;
  }
  std::cout << "ready" << std::endl;
  std::string line;
  while (std::getline(std::cin, line)) {
  }
  // The peers' threads are at work until now.
  _exit(0);
}
