// Writes what a subcommand exchanged as a capture that Wireshark opens (format pcap, IPv4 packets),
// made from what was sent and received and not seen on the wire: it takes no rights, and shows the
// connection's messages, not the system's segments.  One thread.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "platform/socket.h"

namespace zvqrn::scanner {

// What a capture begins with, and who takes its frames as they come, each with its own header.
std::string CaptureHeader();
using FrameTaker = std::function<void(const std::string& frame)>;

class CaptureFile {
 public:
  // Begins the file; throws a Failure when it cannot be written.
  explicit CaptureFile(const std::string& path);

  // Hands the frames over instead.
  explicit CaptureFile(FrameTaker takeFrame) : takeFrame_(std::move(takeFrame)) {}

  void Datagram(const platform::Endpoint& from, const platform::Endpoint& to,
                const std::string& bytes);
  void Datagram(const platform::Endpoint& from, const platform::Endpoint& to,
                const std::string& bytes, std::int64_t timeUs);

  // The life of one connection after the other, from this machine's side.
  void BeginConnection(const platform::Endpoint& own, const platform::Endpoint& pc,
                       std::int64_t timeUs);
  void Connected();
  void Refused();
  void Sent(const std::string& bytes);
  void Received(const std::string& bytes);
  void EndedByPc();
  void EndedHere();

 private:
  enum Flags : unsigned { FIN = 1, SYN = 2, RST = 4, PSH = 8, ACK = 16 };
  void Segment(bool own, unsigned flags, const std::string& bytes, std::int64_t timeUs);
  void Packet(const platform::Endpoint& from, const platform::Endpoint& to, unsigned protocol,
              const std::string& payload, std::int64_t timeUs);

  FrameTaker takeFrame_;
  platform::Endpoint own_{};
  platform::Endpoint pc_{};
  std::uint32_t ownNext_ = 0;
  std::uint32_t pcNext_ = 0;
};

// The time for a capture, in microseconds since 1970.
std::int64_t CaptureTime();

// Null when `path` is empty.
std::shared_ptr<CaptureFile> OpenCaptureFile(const std::string& path);

}  // namespace zvqrn::scanner
