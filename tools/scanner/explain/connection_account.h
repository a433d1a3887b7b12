// One TCP connection as the library lives through it: cuts the bytes of both sides into messages
// by its limits and pauses, judges the scanner's, and ties answers and data to them.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "scanner/explain/account.h"

namespace zvqrn::scanner {

// Connections beside the main one that the library serves at a time.
constexpr std::size_t EXTRA_PLACES = 5;

// A piece of one side's stream, in its order.
struct Piece {
  std::size_t frame = 0;
  std::int64_t timeUs = 0;
  std::string bytes;
};

// One side's bytes, put into their order.
struct Side {
  bool known = false;      // `next` is
  std::uint32_t next = 0;  // sequence number
  bool ended = false;
  std::vector<Packet> early;  // packets that came before their turn
  std::string held;           // bytes that no message has been made of
  bool inBody = false;        // what is held has a whole head, and since when
  std::int64_t bodySinceUs = 0;
  std::size_t lastFrame = 0;  // where the last bytes came
  std::int64_t lastUs = 0;
};

// A request that the library has taken on, until its connection forgets it.
struct Job {
  std::size_t item;
  bool isStart;
  bool isEnd;
  bool answered;
};

struct ConnectionAccount {
  platform::Endpoint scanner{};
  platform::Endpoint pc{};
  bool isMain = true;
  bool timed = true;           // the pieces have times
  bool keepsBytes = false;     // the items get theirs
  std::size_t mainSince = 0;   // of another connection: the frame where the main one began
  std::size_t othersOpen = 0;  // extra connections that were open when this one began
  Packet opening;
  bool begun = false;     // its first packet asked for the connection
  bool accepted = false;  // the PC took it
  bool refused = false;
  const char* endedBy = nullptr;  // by whom first
  bool judgedOnce = false;        // a connection that is not the main one gets a single answer
  Side fromScanner;
  Side fromPc;
  std::map<std::string, std::vector<Job>> jobs;             // by uid, oldest first
  std::map<std::string, std::size_t> lastRequest;           // by uid, the last of all, as item
  std::map<std::string, std::vector<std::size_t>> waiting;  // by uid, those without an answer
};

// Takes the next packet of the connection.
void TakePacket(ConnectionAccount* connection, const Packet& packet, std::vector<Item>* items);

// Takes bytes that have no times, of the scanner's side or of the PC's.
void TakeUntimedBytes(ConnectionAccount* connection, const std::string& bytes, bool fromPc,
                      std::vector<Item>* items);

// Judges what is still held when no more comes.
void EndConnection(ConnectionAccount* connection, std::vector<Item>* items);

// Says of the requests of a connection that has ended that nobody answered them.
void SettleUnanswered(const ConnectionAccount& connection, std::vector<Item>* items);

}  // namespace zvqrn::scanner
