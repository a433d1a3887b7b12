#include "scanner/explain/account.h"

#include <algorithm>
#include <map>
#include <set>
#include <utility>

#include "common/adapters.h"
#include "common/text.h"
#include "common/utf8.h"
#include "common/vocabulary.h"
#include "scanner/explain/connection_account.h"
#include "scanner/explain/search_judge.h"
#include "scanner/wire/attribute_list.h"
#include "scanner/wire/reply_socket.h"

namespace zvqrn::scanner {

namespace {

// A reply takes so long, and a repeat of its search is dropped meanwhile.
constexpr std::int64_t REPLY_US = 1'500'000;
// A reply that comes later belongs to no search.
constexpr std::int64_t REPLY_PATIENCE_US = 30'000'000;

using Place = std::pair<std::uint32_t, std::uint16_t>;

Place PlaceOf(const platform::Endpoint& endpoint) {
  return {endpoint.address, endpoint.port};
}

// ---- Connections ---------------------------------------------------------------------------------

bool IsOpen(const ConnectionAccount& connection) {
  return !connection.fromScanner.ended && !connection.fromPc.ended && !connection.refused;
}

struct Connections {
  std::vector<ConnectionAccount> all;
  std::map<std::pair<Place, Place>, std::size_t> latest;  // by scanner and PC
  std::map<Place, std::size_t> mainOf;                    // by PC
  std::map<Place, std::vector<std::size_t>> othersOf;     // by PC, those that may be open
};

// How many connections beside the main one are open, as far as that matters; forgets the others.
std::size_t CountOthers(Connections* connections, const Place& pc) {
  std::vector<std::size_t>& others = connections->othersOf[pc];
  std::size_t open = 0;
  while (open < others.size() && open < EXTRA_PLACES) {
    if (IsOpen(connections->all[others[open]])) {
      ++open;
    } else {
      others[open] = others.back();
      others.pop_back();
    }
  }
  return open;
}

ConnectionAccount* Begin(Connections* connections, const Packet& packet, bool fromScanner) {
  ConnectionAccount connection;
  connection.scanner = fromScanner ? packet.from : packet.to;
  connection.pc = fromScanner ? packet.to : packet.from;
  connection.opening = packet;
  const Place pc = PlaceOf(connection.pc);
  const auto main = connections->mainOf.find(pc);
  if (main != connections->mainOf.end() && IsOpen(connections->all[main->second])) {
    connection.isMain = false;
    connection.mainSince = connections->all[main->second].opening.frame;
    connection.othersOpen = CountOthers(connections, pc);
    connections->othersOf[pc].push_back(connections->all.size());
  } else {
    connections->mainOf[pc] = connections->all.size();
  }
  connections->latest[{PlaceOf(connection.scanner), pc}] = connections->all.size();
  connections->all.push_back(std::move(connection));
  return &connections->all.back();
}

void TakeTcp(Connections* connections, const Packet& packet, std::uint16_t port,
             std::vector<Item>* items) {
  const bool fromScanner = packet.to.port == port;
  const Place scanner = PlaceOf(fromScanner ? packet.from : packet.to);
  const Place pc = PlaceOf(fromScanner ? packet.to : packet.from);
  const auto known = connections->latest.find({scanner, pc});
  ConnectionAccount* connection =
      known == connections->latest.end() ? nullptr : &connections->all[known->second];
  const bool isAnew = fromScanner && packet.begins && connection != nullptr &&
                      packet.sequence != connection->opening.sequence;
  if (connection == nullptr || isAnew) {
    connection = Begin(connections, packet, fromScanner);
  }
  TakePacket(connection, packet, items);
}

// ---- Searches ------------------------------------------------------------------------------------

// What is remembered of a search while replies to it may come.
struct OpenSearch {
  std::size_t item;
  std::uint32_t xid;
  SlpDatagram datagram;
};

struct Searches {
  std::vector<OpenSearch> all;
  std::set<std::string> pcs;  // addresses that have been announced
};

Item MakeDatagramItem(ItemKind kind, const Packet& packet, const SlpDatagram& datagram) {
  Item item;
  item.kind = kind;
  item.frame = packet.frame;
  item.timeUs = packet.timeUs;
  item.from = packet.from;
  item.to = packet.to;
  item.size = packet.bytes.size();
  item.fields = datagram.fields;
  return item;
}

std::string XidText(std::uint32_t xid) {
  return "XID " + std::to_string(xid);
}

void TakeReply(Searches* searches, const Packet& packet, const SlpDatagram& datagram,
               std::vector<Item>* items) {
  Item item = MakeDatagramItem(ITEM_REPLY, packet, datagram);
  PcDescription pc;
  const std::string problem = ReadAttributes(datagram.attributes, &pc);
  item.title = "reply, " + XidText(datagram.xid);
  if (problem.empty()) {
    searches->pcs.insert(pc.address);
    item.title += ", '" + tools::EscapeUtf8(pc.name) + "' at " + pc.address + " port " +
                  std::to_string(pc.eventPort);
  } else {
    item.detail = problem;
  }
  for (auto search = searches->all.rbegin(); search != searches->all.rend(); ++search) {
    Item* known = &(*items)[search->item];
    if (packet.timeUs - known->timeUs > REPLY_PATIENCE_US) {
      break;
    }
    if (search->xid == datagram.xid && known->from.address == packet.to.address &&
        known->rule != RULE_REPEATED) {
      item.partner = search->item;
      known->others.push_back(items->size());
      break;
    }
  }
  items->push_back(item);
}

void TakeSearch(Searches* searches, const Packet& packet, const SlpDatagram& datagram,
                std::vector<Item>* items) {
  Item item = MakeDatagramItem(ITEM_SEARCH, packet, datagram);
  item.title =
      "search, " + XidText(datagram.xid) + ", scope '" + tools::EscapeUtf8(datagram.scopes) + "'";
  item.hasRule = true;
  item.rule = datagram.judgement.rule;
  item.detail = datagram.judgement.detail;
  const bool inOrder = RuleOf(item.rule).outcome == OUTCOME_ACCEPTED;
  for (auto earlier = searches->all.rbegin(); inOrder && earlier != searches->all.rend();
       ++earlier) {
    const Item& known = (*items)[earlier->item];
    if (packet.timeUs - known.timeUs >= REPLY_US) {
      break;
    }
    if (earlier->xid == datagram.xid && known.from.address == packet.from.address &&
        (IsGroup(known.to.address) || IsGroup(packet.to.address) ||
         known.to.address == packet.to.address) &&
        RuleOf(known.rule).outcome == OUTCOME_ACCEPTED) {
      item.rule = RULE_REPEATED;
      item.detail = "first seen in frame " + std::to_string(known.frame);
      break;
    }
  }
  searches->all.push_back({items->size(), datagram.xid, datagram});
  items->push_back(item);
}

void TakeUdp(Searches* searches, const Packet& packet, std::uint16_t port,
             std::vector<Item>* items) {
  if (packet.to.port != port) {
    return;
  }
  const SlpDatagram datagram = ReadSlpDatagram(packet.bytes);
  if (datagram.isReply) {
    TakeReply(searches, packet, datagram, items);
  } else {
    TakeSearch(searches, packet, datagram, items);
  }
}

// The PCs among the previous responders of a search: those that were asked or have announced
// themselves.
std::string KnownResponder(const Searches& searches, const OpenSearch& search, const Item& item,
                           const std::string& pcAddress) {
  std::set<std::string> pcs = searches.pcs;
  pcs.insert(pcAddress);
  if (!IsGroup(item.to.address)) {
    pcs = {tools::AddressText(item.to.address)};
  }
  for (const std::string& pc : pcs) {
    if (IsPreviousResponder(search.datagram.previousResponders, pc)) {
      return pc;
    }
  }
  return {};
}

// What replies, and their absence, say of a search that is in order by itself.
void SettleSearch(const Searches& searches, const OpenSearch& search, bool fromCapture,
                  const Surroundings& surroundings, std::vector<Item>* items) {
  Item* item = &(*items)[search.item];
  if (!item->others.empty()) {
    const bool inOrder = RuleOf(item->rule).outcome == OUTCOME_ACCEPTED;
    item->detail =
        inOrder ? "" : "the rule " + std::string(RuleOf(item->rule).name) + " forbids it";
    item->rule = inOrder ? RULE_ANSWERED : RULE_UNEXPECTED;
    return;
  }
  if (RuleOf(item->rule).outcome != OUTCOME_ACCEPTED) {
    return;
  }
  const std::string responder =
      KnownResponder(searches, search, *item, tools::AddressText(surroundings.pcAddress));
  if (!responder.empty()) {
    item->rule = RULE_PREVIOUS_RESPONDER;
    item->detail = responder;
  } else if (fromCapture) {
    item->rule = item->rule == RULE_SCOPE_ASKED ? RULE_SCOPE_UNSERVED : RULE_NO_REPLY;
  }
}

void SettleSearches(const Searches& searches, bool fromCapture, const Surroundings& surroundings,
                    std::vector<Item>* items) {
  for (const OpenSearch& search : searches.all) {
    SettleSearch(searches, search, fromCapture, surroundings, items);
  }
}

// Requests that nothing was wrong with and that nobody answered.
void SettleUnanswered(const Connections& connections, std::vector<Item>* items) {
  for (const ConnectionAccount& connection : connections.all) {
    for (const std::size_t request : connection.waiting) {
      Item* item = &(*items)[request];
      const Rule& rule = RuleOf(item->rule);
      if (rule.outcome == OUTCOME_ACCEPTED && connection.fromPc.known) {
        item->rule = RULE_NO_ANSWER;
      } else if (rule.outcome == OUTCOME_ACCEPTED || rule.outcome == OUTCOME_REFUSED) {
        item->detail += std::string(item->detail.empty() ? "" : "; ") +
                        (connection.fromPc.known ? "no answer was seen"
                                                 : "nothing that the PC sent is in the capture");
      }
    }
  }
}

}  // namespace

std::vector<Item> ExplainCapture(const Capture& capture, const Surroundings& surroundings) {
  std::vector<Item> items;
  Connections connections;
  Searches searches;
  const std::uint16_t port = surroundings.port;
  for (const Packet& packet : capture.packets) {
    if (!packet.isTcp) {
      TakeUdp(&searches, packet, port, &items);
    } else if (packet.to.port == port || packet.from.port == port) {
      TakeTcp(&connections, packet, port, &items);
    }
  }
  for (ConnectionAccount& connection : connections.all) {
    EndConnection(&connection, &items);
  }
  SettleUnanswered(connections, &items);
  SettleSearches(searches, true, surroundings, &items);
  return items;
}

std::vector<Item> ExplainBytes(const std::string& bytes, const Surroundings& surroundings) {
  std::vector<Item> items;
  Packet packet;
  packet.bytes = bytes;
  // A datagram begins with a version number, a message with letters.
  constexpr unsigned char FIRST_LETTER = 0x20;
  if (surroundings.takesDatagram || static_cast<unsigned char>(bytes.front()) < FIRST_LETTER) {
    Searches searches;
    const SlpDatagram datagram = ReadSlpDatagram(bytes);
    if (datagram.isReply) {
      TakeReply(&searches, packet, datagram, &items);
    } else {
      TakeSearch(&searches, packet, datagram, &items);
      SettleSearches(searches, false, surroundings, &items);
    }
    return items;
  }
  ConnectionAccount connection;
  const Head head = ReadHead(bytes);
  TakeUntimedBytes(&connection, bytes, head.isResponse && HeaderOf(head, tools::HEADER_SERVER),
                   &items);
  std::size_t offset = 0;
  for (Item& item : items) {
    item.offset = offset;
    offset += item.size;
  }
  return items;
}

}  // namespace zvqrn::scanner
