#include "scanner/explain/capture.h"

#include <cmath>
#include <cstring>
#include <string_view>

namespace zvqrn::scanner {

namespace {

constexpr std::uint32_t PCAP_MICROSECONDS = 0xA1B2C3D4U;
constexpr std::uint32_t PCAP_NANOSECONDS = 0xA1B23C4DU;
constexpr std::uint32_t PCAPNG_SECTION = 0x0A0D0D0AU;
constexpr std::uint32_t PCAPNG_BYTE_ORDER = 0x1A2B3C4DU;
constexpr std::uint32_t PCAPNG_INTERFACE = 1;
constexpr std::uint32_t PCAPNG_SIMPLE_PACKET = 3;
constexpr std::uint32_t PCAPNG_PACKET = 6;
constexpr std::uint32_t PCAPNG_TIME_RESOLUTION = 9;
constexpr std::uint32_t IPV4 = 0x0800;
constexpr std::int64_t SECOND_US = 1'000'000;
constexpr char PACKED[] = "it is compressed; unpack it first (gunzip, zstd -d, lz4 -d)";
constexpr char FOREIGN[] =
    "it is a capture of another format; Wireshark saves it as pcapng, or: editcap -F pcapng FILE NEW";

// Numbers at offsets of a run of bytes; beyond its end they are 0.
struct Bytes {
  std::string_view text;
  bool swapped = false;  // lowest byte last

  std::uint32_t Byte(std::size_t at) const {
    return at < text.size() ? static_cast<unsigned char>(text[at]) : 0;
  }
  std::uint32_t Big16(std::size_t at) const { return Byte(at) << 8U | Byte(at + 1); }
  std::uint32_t Big32(std::size_t at) const { return Big16(at) << 16U | Big16(at + 2); }
  std::uint32_t Number16(std::size_t at) const {
    return swapped ? Big16(at) : Byte(at + 1) << 8U | Byte(at);
  }
  std::uint32_t Number32(std::size_t at) const {
    return swapped ? Big32(at) : Number16(at + 2) << 16U | Number16(at);
  }
  std::string_view From(std::size_t at, std::size_t size = std::string_view::npos) const {
    return at < text.size() ? text.substr(at, size) : std::string_view();
  }
};

platform::Endpoint EndpointAt(const Bytes& packet, std::size_t address, std::uint32_t port) {
  platform::Endpoint endpoint{};
  std::memcpy(&endpoint.address, packet.text.data() + address, sizeof endpoint.address);
  endpoint.port = static_cast<std::uint16_t>(port);
  return endpoint;
}

// ---- What lies in a frame ----

void TakeTransport(const Bytes& packet, std::size_t headerSize, Packet* made, Capture* capture) {
  constexpr std::uint32_t TCP = 6;
  constexpr std::uint32_t UDP = 17;
  constexpr std::size_t UDP_HEADER = 8;
  constexpr std::size_t TCP_HEADER = 20;
  const Bytes segment{packet.From(headerSize), true};
  made->isTcp = packet.Byte(9) == TCP;
  const std::size_t least = made->isTcp ? TCP_HEADER : UDP_HEADER;
  if ((!made->isTcp && packet.Byte(9) != UDP) || segment.text.size() < least) {
    return;
  }
  made->from = EndpointAt(packet, 12, segment.Big16(0));
  made->to = EndpointAt(packet, 16, segment.Big16(2));
  if (made->isTcp) {
    const std::uint32_t flags = segment.Byte(13);
    made->sequence = segment.Big32(4);
    made->ends = (flags & 0x01U) != 0;
    made->begins = (flags & 0x02U) != 0;
    made->resets = (flags & 0x04U) != 0;
    made->bytes = std::string(segment.From((segment.Byte(12) >> 4U) * std::size_t{4}));
  } else {
    const std::size_t length = segment.Big16(4);
    if (length < UDP_HEADER) {
      return;
    }
    made->bytes = std::string(segment.From(UDP_HEADER, length - UDP_HEADER));
  }
  capture->packets.push_back(*made);
}

void TakeIp(std::string_view bytes, Packet* made, Capture* capture) {
  constexpr std::size_t SHORTEST_HEADER = 20;
  Bytes packet{bytes, true};
  const std::size_t headerSize = (packet.Byte(0) & 0x0FU) * std::size_t{4};
  if (bytes.size() < SHORTEST_HEADER || packet.Byte(0) >> 4U != 4 || headerSize < SHORTEST_HEADER) {
    return;
  }
  // Where the adapter cuts packets, a large one has no length of its own.
  const std::size_t length = packet.Big16(2);
  if (length >= headerSize && length < bytes.size()) {
    packet.text = bytes.substr(0, length);
  }
  if ((packet.Big16(6) & 0x3FFFU) != 0) {
    ++capture->fragments;
    return;
  }
  TakeTransport(packet, headerSize, made, capture);
}

// True when a machine that captures on all its adapters sees again what it has sent to itself.
bool IsSecondSight(std::uint32_t link, const Bytes& frame, std::size_t at, Capture* capture) {
  constexpr std::uint32_t SENT = 4;
  if ((link == 113 ? frame.Big16(0) : frame.Byte(10)) == SENT) {
    capture->lastSent = std::string(frame.From(at));
    return false;
  }
  return frame.From(at) == capture->lastSent;
}

// The kind of link, as captures number them, and where IP begins behind it.
void TakeFrame(std::uint32_t link, std::string_view bytes, Packet* made, Capture* capture) {
  const Bytes frame{bytes, true};
  std::size_t at = 0;
  switch (link) {
    case 0:    // loopback, the system's own number before the packet
    case 108:  // the same in network byte order
      at = 4;
      break;
    case 1: {  // Ethernet, perhaps with VLAN tags
      at = 14;
      std::uint32_t type = frame.Big16(12);
      while (type == 0x8100 || type == 0x88A8) {
        type = frame.Big16(at + 2);
        at += 4;
      }
      if (type != IPV4) {
        return;
      }
      break;
    }
    case 113:  // Linux, all adapters
    case 276:
      at = link == 113 ? 16 : 20;
      if (frame.Big16(link == 113 ? 14 : 0) != IPV4 || IsSecondSight(link, frame, at, capture)) {
        return;
      }
      break;
    default:  // 12, 14, 101 and 228: the packet itself
      break;
  }
  TakeIp(frame.From(at), made, capture);
}

// `size` is how long the frame was before it was captured.
void TakeRecord(std::uint32_t link, std::int64_t timeUs, std::string_view bytes, std::size_t size,
                Capture* capture) {
  Packet made;
  capture->partial += bytes.size() < size ? 1U : 0U;
  made.frame = ++capture->frames;
  made.timeUs = timeUs;
  TakeFrame(link, bytes, &made, capture);
}

// ---- The two formats ----

bool ReadPcap(const Bytes& file, bool nanoseconds, Capture* capture) {
  constexpr std::size_t FILE_HEADER = 24;
  constexpr std::size_t RECORD_HEADER = 16;
  const std::uint32_t link = file.Number32(20) & 0x0FFFFFFFU;
  capture->cutShort = file.text.size() < FILE_HEADER;
  for (std::size_t at = FILE_HEADER; at < file.text.size();) {
    const std::uint32_t size = file.Number32(at + 8);
    const std::size_t start = at + RECORD_HEADER;
    if (start > file.text.size() || size > file.text.size() - start) {
      capture->cutShort = true;
      break;
    }
    const std::int64_t fraction = file.Number32(at + 4);
    TakeRecord(link, file.Number32(at) * SECOND_US + (nanoseconds ? fraction / 1000 : fraction),
               file.From(start, size), file.Number32(at + 12), capture);
    at = start + size;
  }
  return true;
}

struct Interface {
  std::uint32_t link;
  std::int64_t ticksPerSecond;
};

Interface ReadInterface(const Bytes& block) {
  Interface made{block.Number16(8), SECOND_US};
  for (std::size_t at = 16; at + 4 < block.text.size() && block.Number16(at) != 0;) {
    const std::uint32_t size = block.Number16(at + 2);
    if (block.Number16(at) == PCAPNG_TIME_RESOLUTION && size == 1) {
      const std::uint32_t resolution = block.Byte(at + 4);
      const bool isBinary = (resolution & 0x80U) != 0;
      made.ticksPerSecond = 1;
      for (std::uint32_t i = 0; i < (resolution & 0x7FU) && i < (isBinary ? 40U : 12U); ++i) {
        made.ticksPerSecond *= isBinary ? 2 : 10;
      }
    }
    at += 4 + (size + 3) / 4 * std::size_t{4};
  }
  return made;
}

std::int64_t Microseconds(std::uint64_t ticks, std::int64_t ticksPerSecond) {
  const auto rate = static_cast<std::uint64_t>(ticksPerSecond);
  const auto whole = static_cast<std::int64_t>(ticks / rate);
  const double part = static_cast<double>(ticks % rate) / static_cast<double>(rate);
  return whole % (SECOND_US * SECOND_US) * SECOND_US + std::llround(part * 1e6);
}

void TakeBlock(std::uint32_t type, const Bytes& block, std::vector<Interface>* interfaces,
               Capture* capture) {
  if (type == PCAPNG_INTERFACE) {
    interfaces->push_back(ReadInterface(block));
  } else if (type == PCAPNG_PACKET && block.Number32(8) < interfaces->size()) {
    const Interface& interface = (*interfaces)[block.Number32(8)];
    const std::uint64_t ticks =
        static_cast<std::uint64_t>(block.Number32(12)) << 32U | block.Number32(16);
    TakeRecord(interface.link, Microseconds(ticks, interface.ticksPerSecond),
               block.From(28, block.Number32(20)), block.Number32(24), capture);
  } else if (type == PCAPNG_SIMPLE_PACKET && !interfaces->empty()) {
    TakeRecord(interfaces->front().link, 0, block.From(12, block.Number32(8)), block.Number32(8),
               capture);
  }
}

bool ReadPcapng(Bytes file, Capture* capture) {
  constexpr std::size_t LEAST_BLOCK = 12;
  std::vector<Interface> interfaces;
  for (std::size_t at = 0; at < file.text.size();) {
    const std::uint32_t type = file.Number32(at);
    if (type == PCAPNG_SECTION) {
      file.swapped = file.Big32(at + 8) == PCAPNG_BYTE_ORDER;
      interfaces.clear();
    }
    const std::uint32_t size = file.Number32(at + 4);
    if (size < LEAST_BLOCK || size > file.text.size() - at) {
      capture->cutShort = true;
      break;
    }
    TakeBlock(type, {file.From(at, size - 4), file.swapped}, &interfaces, capture);
    at += size;
  }
  return true;
}

// Why a file that begins so cannot be read; null for any that no other format is known by.
const char* WhyForeign(const std::string& bytes) {
  constexpr struct {
    std::string_view begin;
    const char* why;
  } FORMATS[] = {
      {"\x1F\x8B", PACKED},
      {"\x28\xB5\x2F\xFD", PACKED},
      {"\x04\x22\x4D\x18", PACKED},
      {"snoop", FOREIGN},
      {"GMBU", FOREIGN},
      {"RTSS", FOREIGN},
      {"\x34\xCD\xB2\xA1", FOREIGN},
      {"\xA1\xB2\xCD\x34", FOREIGN},
  };
  for (const auto& format : FORMATS) {
    if (bytes.compare(0, format.begin.size(), format.begin) == 0) {
      return format.why;
    }
  }
  return nullptr;
}

}  // namespace

bool LooksLikeCapture(const std::string& bytes) {
  if (WhyForeign(bytes) != nullptr) {
    return true;
  }
  const Bytes file{bytes};
  const Bytes other{bytes, true};
  for (const std::uint32_t magic : {PCAP_MICROSECONDS, PCAP_NANOSECONDS, PCAPNG_SECTION}) {
    if (bytes.size() >= 4 && (file.Number32(0) == magic || other.Number32(0) == magic)) {
      return true;
    }
  }
  return false;
}

bool ReadCapture(const std::string& bytes, Capture* capture, std::string* why) {
  if (const char* foreign = WhyForeign(bytes)) {
    *why = foreign;
    return false;
  }
  Bytes file{bytes};
  if (file.Number32(0) == PCAPNG_SECTION) {
    return ReadPcapng(file, capture);
  }
  for (const bool swapped : {false, true}) {
    file.swapped = swapped;
    const std::uint32_t magic = file.Number32(0);
    if (magic == PCAP_MICROSECONDS || magic == PCAP_NANOSECONDS) {
      return ReadPcap(file, magic == PCAP_NANOSECONDS, capture);
    }
  }
  *why = "it is no capture in the formats pcap or pcapng";
  return false;
}

}  // namespace zvqrn::scanner
