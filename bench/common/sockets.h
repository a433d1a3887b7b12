// Blocking sockets of the benchmarks' clients and peers.  Whatever fails ends the program by an
// exception: a figure from a half-working run would be worth nothing.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace zvqrn::bench {

// A file descriptor that is closed with its owner.
class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int number) : number_(number) {}
  ~Descriptor();
  Descriptor(Descriptor&& other) noexcept : number_(other.Release()) {}
  Descriptor& operator=(Descriptor&& other) noexcept;
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  int Get() const { return number_; }
  int Release();

 private:
  int number_ = -1;
};

// Throws the system's reason when `result` is negative, otherwise gives it back.
long Checked(long result, const char* what);

// Connects, with small messages sent at once and receives that give up after 10 s.
Descriptor ConnectTcp(const char* address, std::uint16_t port);
Descriptor ListenTcp(std::uint16_t port);

// Accepts a connection, with small messages sent at once.
Descriptor AcceptTcp(const Descriptor& listening);

// Binds beside others that share the port; receives give up after `patienceMs` (0: never).
Descriptor BindUdp(const char* address, std::uint16_t port, long patienceMs);
void SendUdp(const Descriptor& socket, std::string_view bytes, const char* address,
             std::uint16_t port);

void SendAll(const Descriptor& socket, std::string_view bytes);

// Fills the whole buffer; false when the peer ends the stream before its first byte.
bool ReceiveAll(const Descriptor& socket, std::string* buffer);

// Sends and receives at the same time, until all is sent and the whole buffer is filled.
void ExchangeAll(const Descriptor& socket, std::string_view bytes, std::string* answers);

}  // namespace zvqrn::bench
