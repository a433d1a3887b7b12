// The simulated network: the PC and the scanners' machines, TCP and UDP between them.  The library
// and the actors use it through src/platform/socket.h; what only a simulation can do or know
// stands here.
//
// Where it is stricter than the real ones: bytes are cut into segments anywhere, a reset may cost
// the receiver what it has not read yet, and a full queue of arrivals holds no more than it was
// asked for.
#pragma once

#include <array>
#include <deque>
#include <string>
#include <vector>

#include "machine/machine.h"
#include "platform/socket.h"

namespace zvqrn::simulation {

// What a life's network is like.
struct Weather {
  Micros delay;             // of every packet
  Micros jitter;            // up to so much more
  std::int64_t lossOdds;    // one datagram in so many is lost; 0: none
  std::int64_t doubleOdds;  // or comes twice
  std::int64_t segment;     // longest segment of a stream
  std::int64_t cutOdds;     // one segment in so many is shorter than it could be
  std::int64_t sendBuffer;  // bytes that a connection takes for sending
  std::int64_t window;      // bytes that it holds unread
  Micros acknowledgeDelay;  // RFC 1122, section 4.2.3.2
  bool losesUnreadAtReset;
};

struct Interface {
  std::uint32_t index;
  std::uint32_t address;  // network byte order
  bool isUp;
};

// When the byte before `end` was given to the sending side, or came to the receiving one.
struct StreamMark {
  std::int64_t end;
  Micros time;
};

struct Socket {
  platform::SocketHandle handle;
  std::int32_t machine;
  enum Kind { FRESH, DATAGRAM, LISTENING, STREAM } kind;
  std::uint32_t address;  // its own; 0 = any
  std::uint16_t port;
  bool isShared;  // others may be bound to its port
  bool isOpen;

  std::vector<Socket*> arrivals;  // of a listening one
  std::size_t backlog;

  // A stream, as its end here knows it.
  Socket* peer;
  bool isConnected;
  bool isRefused;
  bool isReset;                 // broken off
  std::string unread;           // has come and waits to be read
  std::int64_t read;            // bytes so far
  bool endHasCome;              // the peer sends nothing more
  Micros peerGoneAt;            // when that or a reset came; NEVER before
  std::string unsent;           // waits to be sent
  std::int64_t given;           // bytes so far
  std::int64_t unacknowledged;  // sent, and not yet heard that they came
  std::int64_t onTheWay;        // sent, and not yet come
  bool ends, endIsSent;
  Micros lastArrival;           // no segment overtakes another
  std::int64_t toAcknowledge;   // bytes that have come since the last word to the peer
  Micros acceptedAt, closedAt;  // NEVER before
  std::vector<StreamMark> sentMarks, cameMarks;

  // A datagram socket.
  struct Datagram {
    std::string bytes;
    platform::Endpoint sender;
  };
  std::deque<Datagram> datagrams;
  std::vector<platform::GroupMembership> memberships;
};

struct SentDatagram {
  Micros time;
  std::int32_t machine;  // that sent it
  platform::Endpoint from, to;
  std::string bytes;
  std::vector<Micros> heardAt;  // when it came to a socket of the PC's, once or twice
  Micros missedAt;              // when it came to the PC for a group that nobody was in
};

struct Network {
  Weather weather;
  std::deque<Socket> sockets;           // all of the life
  std::array<Interface, 2> interfaces;  // of the PC; the first that is up has the default route
  std::deque<SentDatagram> datagrams;   // all of the life
};
extern Network network;

void BeginNetwork(const Weather& weather);

Socket* SocketOf(platform::SocketHandle handle);
Socket* MakeSocket(std::int32_t onMachine, Socket::Kind kind);

// Address of a scanner's machine; and the machine that has an address, as another one sees it, or
// -1.
std::uint32_t AddressOf(std::int32_t scanner);
std::int32_t MachineOf(std::uint32_t address, std::int32_t seenFrom);

// The PC's interface that is its own; null without one.
const Interface* OwnInterface();

// Changes the PC's interfaces; those who asked to be told are.
void ChangeInterfaces(const std::array<Interface, 2>& interfaces);
void TellOfChange();

// Breaks a connection off with a reset.
void BreakOff(platform::SocketHandle handle);

// Another program of the PC takes a port, and gives it back.
Socket* TakePort(Socket::Kind kind, std::uint16_t port);
void GivePortBack(Socket* socket);

// Open sockets of the library's.
std::int64_t OpenSockets();

}  // namespace zvqrn::simulation
