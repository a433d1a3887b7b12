#include "common/sockets.h"

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace zvqrn::bench {
namespace {

constexpr long PATIENCE_MS = 10000;
constexpr int BACKLOG = 8;
constexpr int DATAGRAM_BUFFER = 8 * 1024 * 1024;

sockaddr_in AddressOf(const char* address, std::uint16_t port) {
  sockaddr_in made{};
  made.sin_family = AF_INET;
  made.sin_port = htons(port);
  if (inet_pton(AF_INET, address, &made.sin_addr) != 1) {
    throw std::runtime_error(std::string("no address: ") + address);
  }
  return made;
}

const sockaddr* Generic(const sockaddr_in& address) {
  return reinterpret_cast<const sockaddr*>(&address);
}

Descriptor OpenSocket(int type) {
  return Descriptor(
      static_cast<int>(Checked(socket(AF_INET, type | SOCK_CLOEXEC, 0), "opening a socket")));
}

void SetFlag(const Descriptor& socket, int level, int option, int value) {
  Checked(setsockopt(socket.Get(), level, option, &value, sizeof value), "setting up a socket");
}

void SetPatience(const Descriptor& socket, long milliseconds) {
  const timeval patience{milliseconds / 1000, milliseconds % 1000 * 1000};
  Checked(setsockopt(socket.Get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience),
          "setting up a socket");
}

// True when a call that does not wait has moved no byte for want of room or of bytes.
bool WouldWait(long result) {
  return result < 0 && (errno == EAGAIN || errno == EINTR);
}

}  // namespace

Descriptor::~Descriptor() {
  if (number_ >= 0) {
    close(number_);
  }
}

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
  if (this != &other) {
    const Descriptor old(std::exchange(number_, other.Release()));
  }
  return *this;
}

int Descriptor::Release() {
  return std::exchange(number_, -1);
}

long Checked(long result, const char* what) {
  if (result < 0) {
    throw std::system_error(errno, std::generic_category(), what);
  }
  return result;
}

Descriptor ConnectTcp(const char* address, std::uint16_t port) {
  Descriptor made = OpenSocket(SOCK_STREAM);
  const sockaddr_in to = AddressOf(address, port);
  SetFlag(made, IPPROTO_TCP, TCP_NODELAY, 1);
  SetPatience(made, PATIENCE_MS);
  Checked(connect(made.Get(), Generic(to), sizeof to), "connecting");
  return made;
}

Descriptor ListenTcp(std::uint16_t port) {
  Descriptor made = OpenSocket(SOCK_STREAM);
  const sockaddr_in at = AddressOf("127.0.0.1", port);
  SetFlag(made, SOL_SOCKET, SO_REUSEADDR, 1);
  Checked(bind(made.Get(), Generic(at), sizeof at), "binding");
  Checked(listen(made.Get(), BACKLOG), "listening");
  return made;
}

Descriptor AcceptTcp(const Descriptor& listening) {
  Descriptor made(static_cast<int>(
      Checked(accept4(listening.Get(), nullptr, nullptr, SOCK_CLOEXEC), "accepting")));
  SetFlag(made, IPPROTO_TCP, TCP_NODELAY, 1);
  return made;
}

Descriptor BindUdp(const char* address, std::uint16_t port, long patienceMs) {
  Descriptor made = OpenSocket(SOCK_DGRAM);
  const sockaddr_in at = AddressOf(address, port);
  SetFlag(made, SOL_SOCKET, SO_REUSEADDR, 1);
  SetFlag(made, SOL_SOCKET, SO_RCVBUF, DATAGRAM_BUFFER);
  SetPatience(made, patienceMs);
  Checked(bind(made.Get(), Generic(at), sizeof at), "binding");
  return made;
}

void SendUdp(const Descriptor& socket, std::string_view bytes, const char* address,
             std::uint16_t port) {
  const sockaddr_in to = AddressOf(address, port);
  Checked(sendto(socket.Get(), bytes.data(), bytes.size(), 0, Generic(to), sizeof to),
          "sending a datagram");
}

void SendAll(const Descriptor& socket, std::string_view bytes) {
  while (!bytes.empty()) {
    bytes.remove_prefix(static_cast<std::size_t>(
        Checked(send(socket.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL), "sending")));
  }
}

bool ReceiveAll(const Descriptor& socket, std::string* buffer) {
  std::size_t filled = 0;
  while (filled < buffer->size()) {
    const long count = Checked(
        recv(socket.Get(), buffer->data() + filled, buffer->size() - filled, 0), "receiving");
    if (count == 0 && filled == 0) {
      return false;
    }
    if (count == 0) {
      throw std::runtime_error("the peer has ended the stream");
    }
    filled += static_cast<std::size_t>(count);
  }
  return true;
}

void ExchangeAll(const Descriptor& socket, std::string_view bytes, std::string* answers) {
  std::size_t filled = 0;
  while (!bytes.empty() || filled < answers->size()) {
    pollfd wait{socket.Get(), static_cast<short>(bytes.empty() ? POLLIN : POLLIN | POLLOUT), 0};
    if (Checked(poll(&wait, 1, PATIENCE_MS), "waiting") == 0) {
      throw std::runtime_error("the peer does not answer");
    }
    if ((wait.revents & POLLOUT) != 0) {
      const long count =
          send(socket.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
      bytes.remove_prefix(
          static_cast<std::size_t>(WouldWait(count) ? 0 : Checked(count, "sending")));
    }
    if ((wait.revents & (POLLIN | POLLHUP | POLLERR)) != 0) {
      const long count =
          recv(socket.Get(), answers->data() + filled, answers->size() - filled, MSG_DONTWAIT);
      if (count == 0) {
        throw std::runtime_error("the peer has ended the stream, or sent more than it should");
      }
      filled += static_cast<std::size_t>(WouldWait(count) ? 0 : Checked(count, "receiving"));
    }
  }
}

}  // namespace zvqrn::bench
