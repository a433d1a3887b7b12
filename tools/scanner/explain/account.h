// What a run of packets, or of bytes, says: the messages and datagrams in it one by one, each with
// the rule that decides what becomes of it and with what it belongs to.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/socket.h"
#include "scanner/explain/capture.h"
#include "scanner/explain/head.h"
#include "scanner/explain/request_judge.h"

namespace zvqrn::scanner {

enum ItemKind {
  ITEM_REQUEST,     // from a scanner; with a rule
  ITEM_ANSWER,      // from the PC, to a request
  ITEM_DATA,        // the host's, from the PC
  ITEM_CONNECTION,  // one that came to nothing; with a rule
  ITEM_SEARCH,      // with a rule
  ITEM_REPLY
};

constexpr std::size_t NO_ITEM = static_cast<std::size_t>(-1);

struct Item {
  ItemKind kind = ITEM_REQUEST;
  std::size_t frame = 0;    // 0: not from a capture
  std::int64_t timeUs = 0;  // since 1970
  platform::Endpoint from{};
  platform::Endpoint to{};
  std::string title;  // in a few words, escaped
  std::string uid;
  std::size_t offset = 0;  // in the bytes that were given, when there is no capture
  std::size_t size = 0;
  std::string bytes;  // only when its connection keeps them
  std::vector<Field> fields;
  bool hasRule = false;
  RuleId rule = RULE_ACCEPTED;
  bool onExtra = false;             // on a connection beside the main one
  std::string detail;               // as it came
  std::string status;               // x-status of an answer
  std::string statusOut;            // StatusOut of an answer, if any
  std::size_t partner = NO_ITEM;    // of a request its answer, of an answer or data its request
  std::size_t start = NO_ITEM;      // of an END its START
  std::vector<std::size_t> others;  // of a search its replies
};

// What became of an item with a rule: that of the rule, but a connection beside the main one has a
// single message, and is closed with what would be dropped.
Outcome OutcomeOf(const Item& item);

// What is known from elsewhere.
struct Surroundings {
  std::uint16_t port = 2968;    // of both protocols
  std::uint32_t pcAddress = 0;  // network byte order; 0: learnt from the replies
  bool takesDatagram = false;   // bytes that begin like text are a datagram all the same
};

std::vector<Item> ExplainCapture(const Capture& capture, const Surroundings& surroundings);

// The bytes of one or more messages, or of one datagram.
std::vector<Item> ExplainBytes(const std::string& bytes, const Surroundings& surroundings);

}  // namespace zvqrn::scanner
