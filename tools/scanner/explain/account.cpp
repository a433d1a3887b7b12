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

// A reply takes so long from its first datagram on.
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
  SlpDatagram datagram;
  std::size_t repeats = NO_ITEM;  // the search whose reply may be in progress
};

// Sender and XID.
using SearchName = std::pair<std::uint32_t, std::uint32_t>;

// Where a search went, beside the addresses of PCs.
constexpr std::uint32_t ANYWHERE = 0;
constexpr std::uint32_t GROUP = 0xFFFFFFFF;

struct Searches {
  std::vector<OpenSearch> all;
  std::set<std::string> pcs;                 // addresses that have been announced
  std::map<SearchName, std::size_t> latest;  // the last one that is no repeat, as item
  // The last one in order, by where it went: a PC, the group, or anywhere.
  std::map<std::pair<SearchName, std::uint32_t>, std::size_t> inOrder;
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
  const auto search = searches->latest.find({packet.to.address, datagram.xid});
  if (search != searches->latest.end() &&
      packet.timeUs - (*items)[search->second].timeUs <= REPLY_PATIENCE_US) {
    item.partner = search->second;
    (*items)[search->second].others.push_back(items->size());
  }
  items->push_back(item);
}

// True while the reply to a search may be in progress, and a repeat of it is dropped.  The host's
// filter may take any time before the first datagram; a search that it declines is not repeated
// with more success, so a late reply is to the first one.
bool MayBeInProgress(const std::vector<Item>& items, std::size_t search, std::int64_t nowUs) {
  const Item& item = items[search];
  if (!item.others.empty()) {
    return nowUs - items[item.others.front()].timeUs < REPLY_US;
  }
  return nowUs - item.timeUs < (item.rule == RULE_SCOPE_ASKED ? REPLY_PATIENCE_US : REPLY_US);
}

// The last search in order of this name that could have reached the same PC; NO_ITEM for none.
std::size_t EarlierSearch(const Searches& searches, const SearchName& name, std::uint32_t to) {
  std::size_t latest = NO_ITEM;
  for (const std::uint32_t place : {IsGroup(to) ? ANYWHERE : to, GROUP}) {
    const auto found = searches.inOrder.find({name, place});
    if (found != searches.inOrder.end() && (latest == NO_ITEM || found->second > latest)) {
      latest = found->second;
    }
  }
  return latest;
}

void TakeSearch(Searches* searches, const Packet& packet, const SlpDatagram& datagram,
                std::vector<Item>* items) {
  Item item = MakeDatagramItem(ITEM_SEARCH, packet, datagram);
  item.title =
      "search, " + XidText(datagram.xid) + ", scope '" + tools::EscapeUtf8(datagram.scopes) + "'";
  item.hasRule = true;
  item.rule = datagram.judgement.rule;
  item.detail = datagram.judgement.detail;
  const SearchName name{packet.from.address, datagram.xid};
  OpenSearch search{items->size(), datagram};
  const bool inOrder = RuleOf(item.rule).outcome == OUTCOME_ACCEPTED;
  // The library looks at the language tag last.
  if (inOrder || item.rule == RULE_LANGUAGE_TAG) {
    const std::size_t earlier = EarlierSearch(*searches, name, packet.to.address);
    if (earlier != NO_ITEM && MayBeInProgress(*items, earlier, packet.timeUs)) {
      search.repeats = earlier;
      item.rule = RULE_REPEATED;
      item.detail = "first seen in frame " + std::to_string((*items)[earlier].frame);
    } else if (inOrder) {
      const bool isGroup = IsGroup(packet.to.address);
      searches->inOrder[{name, isGroup ? GROUP : packet.to.address}] = items->size();
      searches->inOrder[{name, ANYWHERE}] = items->size();
    }
  }
  if (search.repeats == NO_ITEM) {
    searches->latest[name] = items->size();
  }
  searches->all.push_back(search);
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
                           std::uint32_t pcAddress) {
  std::set<std::string> pcs = searches.pcs;
  if (pcAddress != 0) {
    pcs.insert(tools::AddressText(pcAddress));
  }
  if (item.to.address != 0 && !IsGroup(item.to.address)) {
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
  if (search.repeats != NO_ITEM && (*items)[search.repeats].others.empty()) {
    // No reply to the first was in progress: whatever kept the PC from it met this one too.
    item->rule = search.datagram.judgement.rule;
    item->detail = search.datagram.judgement.detail;
  }
  const bool inOrder = RuleOf(item->rule).outcome == OUTCOME_ACCEPTED;
  if (!inOrder && item->rule != RULE_REPEATED && item->rule != RULE_LANGUAGE_TAG) {
    return;
  }
  const std::string responder = KnownResponder(searches, search, *item, surroundings.pcAddress);
  if (!responder.empty()) {
    item->rule = RULE_PREVIOUS_RESPONDER;
    item->detail = responder;
  } else if (inOrder && fromCapture) {
    item->rule = item->rule == RULE_SCOPE_ASKED ? RULE_SCOPE_UNSERVED : RULE_NO_REPLY;
  }
}

void SettleSearches(const Searches& searches, bool fromCapture, const Surroundings& surroundings,
                    std::vector<Item>* items) {
  for (const OpenSearch& search : searches.all) {
    SettleSearch(searches, search, fromCapture, surroundings, items);
  }
}

}  // namespace

Outcome OutcomeOf(const Item& item) {
  const Outcome outcome = RuleOf(item.rule).outcome;
  return item.onExtra && outcome == OUTCOME_DROPPED ? OUTCOME_CLOSED : outcome;
}

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
  for (const ConnectionAccount& connection : connections.all) {
    SettleUnanswered(connection, &items);
  }
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
