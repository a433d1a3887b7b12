// Reads captures: the formats pcap and pcapng, IPv4 in the frames of the usual links.  Takes them
// apart by itself and not by libpcap, so that a capture can be read wherever the tool runs, under
// Windows without an installation too; and libpcap gives up a capture of several adapters when they
// are of different kinds, which is what Wireshark writes of "any" and "lo" together.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/socket.h"

namespace zvqrn::scanner {

// A TCP segment or a UDP datagram of a capture.
struct Packet {
  std::size_t frame = 0;    // counted from 1, as Wireshark does
  std::int64_t timeUs = 0;  // since 1970, in UTC
  bool isTcp = false;
  platform::Endpoint from{};
  platform::Endpoint to{};
  std::uint32_t sequence = 0;  // the rest of TCP's only
  bool begins = false;         // SYN
  bool ends = false;           // FIN
  bool resets = false;         // RST
  std::string bytes;
};

struct Capture {
  std::vector<Packet> packets;
  std::size_t frames = 0;
  std::size_t fragments = 0;  // pieces of IP packets, which are not put together
  std::size_t partial = 0;    // frames of which only the beginning was captured
  bool cutShort = false;      // the file ends inside a frame
  std::string lastSent;       // by the machine that captured, to know it when it comes to itself
};

// True when the bytes begin as a capture does, perhaps one that ReadCapture cannot read.
bool LooksLikeCapture(const std::string& bytes);

// Takes a capture apart; false, and why, when it is none that can be read.
bool ReadCapture(const std::string& bytes, Capture* capture, std::string* why);

}  // namespace zvqrn::scanner
