#include "scanner/wire/capture_file.h"

#include <algorithm>
#include <chrono>
#include <fstream>

#include "common/machine_text.h"
#include "scanner/command/exit_code.h"

namespace zvqrn::scanner {

namespace {

constexpr std::uint32_t MAGIC = 0xA1B2C3D4U;
constexpr std::uint32_t LINK_IPV4 = 101;  // frames are IP packets
constexpr std::uint32_t SNAP_LENGTH = 262144;
constexpr unsigned TCP = 6;
constexpr unsigned UDP = 17;
constexpr std::size_t SEGMENT_LIMIT = 65000;
constexpr std::uint32_t FIRST_SEQUENCE = 1000;

std::string Big(std::uint64_t number, unsigned size) {
  std::string bytes;
  for (unsigned shift = 8 * size; shift > 0; shift -= 8) {
    bytes.push_back(static_cast<char>((number >> (shift - 8)) & 0xFFU));
  }
  return bytes;
}

std::string AddressBytes(std::uint32_t address) {
  return {reinterpret_cast<const char*>(&address), sizeof address};
}

// The sum of IP, TCP and UDP over bytes whose own sum is 0.
std::uint32_t Checksum(const std::string& bytes) {
  std::uint32_t sum = 0;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    sum += static_cast<std::uint32_t>(static_cast<unsigned char>(bytes[i]))
           << (i % 2 == 0 ? 8U : 0U);
    sum = (sum & 0xFFFFU) + (sum >> 16U);
  }
  return ~sum & 0xFFFFU;
}

}  // namespace

std::string CaptureHeader() {
  return Big(MAGIC, 4) + Big(2, 2) + Big(4, 2) + Big(0, 4) + Big(0, 4) + Big(SNAP_LENGTH, 4) +
         Big(LINK_IPV4, 4);
}

CaptureFile::CaptureFile(const std::string& path) {
  const auto file =
      std::make_shared<std::ofstream>(tools::PathOf(path), std::ios::binary | std::ios::trunc);
  takeFrame_ = [path, file](const std::string& bytes) {
    file->write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    file->flush();
    if (!*file) {
      throw Failure(EXIT_LOCAL_TROUBLE, "cannot write '" + path + "'");
    }
  };
  takeFrame_(CaptureHeader());
}

void CaptureFile::Packet(const platform::Endpoint& from, const platform::Endpoint& to,
                         unsigned protocol, const std::string& payload, std::int64_t timeUs) {
  const std::string addresses = AddressBytes(from.address) + AddressBytes(to.address);
  std::string header = Big(0x4500, 2) + Big(20 + payload.size(), 2) + Big(0, 2) + Big(0x4000, 2) +
                       Big(64, 1) + Big(protocol, 1);
  header += Big(Checksum(header + addresses), 2) + addresses;
  const std::size_t sumAt = protocol == TCP ? 16 : 6;
  const std::string pseudoHeader = addresses + Big(protocol, 2) + Big(payload.size(), 2);
  std::string summed = payload;
  summed.replace(sumAt, 2, Big(Checksum(pseudoHeader + payload), 2));
  const std::string packet = header + summed;
  const auto time = static_cast<std::uint64_t>(timeUs);
  takeFrame_(Big(time / 1'000'000, 4) + Big(time % 1'000'000, 4) + Big(packet.size(), 4) +
             Big(packet.size(), 4) + packet);
}

void CaptureFile::Datagram(const platform::Endpoint& from, const platform::Endpoint& to,
                           const std::string& bytes) {
  Datagram(from, to, bytes, CaptureTime());
}

void CaptureFile::Datagram(const platform::Endpoint& from, const platform::Endpoint& to,
                           const std::string& bytes, std::int64_t timeUs) {
  Packet(from, to, UDP,
         Big(from.port, 2) + Big(to.port, 2) + Big(8 + bytes.size(), 2) + Big(0, 2) + bytes,
         timeUs);
}

void CaptureFile::Segment(bool own, unsigned flags, const std::string& bytes, std::int64_t timeUs) {
  const platform::Endpoint& from = own ? own_ : pc_;
  const platform::Endpoint& to = own ? pc_ : own_;
  std::uint32_t* next = own ? &ownNext_ : &pcNext_;
  const std::uint32_t acknowledged = (flags & ACK) == 0 ? 0 : own ? pcNext_ : ownNext_;
  Packet(from, to, TCP,
         Big(from.port, 2) + Big(to.port, 2) + Big(*next, 4) + Big(acknowledged, 4) +
             Big(5U << 4U, 1) + Big(flags, 1) + Big(65535, 2) + Big(0, 4) + bytes,
         timeUs);
  *next += static_cast<std::uint32_t>(bytes.size()) + ((flags & (SYN | FIN)) == 0 ? 0U : 1U);
}

void CaptureFile::BeginConnection(const platform::Endpoint& own, const platform::Endpoint& pc,
                                  std::int64_t timeUs) {
  own_ = own;
  pc_ = pc;
  ownNext_ = FIRST_SEQUENCE;
  pcNext_ = FIRST_SEQUENCE;
  Segment(true, SYN, {}, timeUs);
}

void CaptureFile::Connected() {
  Segment(false, SYN | ACK, {}, CaptureTime());
  Segment(true, ACK, {}, CaptureTime());
}

void CaptureFile::Refused() {
  Segment(false, RST | ACK, {}, CaptureTime());
}

void CaptureFile::Sent(const std::string& bytes) {
  for (std::size_t at = 0; at < bytes.size(); at += SEGMENT_LIMIT) {
    Segment(true, PSH | ACK, bytes.substr(at, SEGMENT_LIMIT), CaptureTime());
  }
}

void CaptureFile::Received(const std::string& bytes) {
  for (std::size_t at = 0; at < bytes.size(); at += SEGMENT_LIMIT) {
    Segment(false, PSH | ACK, bytes.substr(at, SEGMENT_LIMIT), CaptureTime());
  }
}

void CaptureFile::EndedByPc() {
  Segment(false, FIN | ACK, {}, CaptureTime());
}

void CaptureFile::EndedHere() {
  Segment(true, FIN | ACK, {}, CaptureTime());
}

std::int64_t CaptureTime() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::microseconds>(now).count();
}

std::shared_ptr<CaptureFile> OpenCaptureFile(const std::string& path) {
  return path.empty() ? nullptr : std::make_shared<CaptureFile>(path);
}

}  // namespace zvqrn::scanner
