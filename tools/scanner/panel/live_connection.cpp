#include "scanner/panel/live_connection.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

#include "common/adapters.h"
#include "common/text.h"
#include "scanner/wire/capture_file.h"

namespace zvqrn::scanner {

namespace {

constexpr std::size_t ITEMS_LIMIT = 20'000;
// The texts of the items, and the bytes that no message has been made of.
constexpr std::size_t TEXTS_LIMIT = std::size_t{16} * 1024 * 1024;
constexpr std::size_t HELD_LIMIT = std::size_t{64} * 1024 * 1024;

std::string PlaceText(const platform::Endpoint& endpoint) {
  return tools::AddressText(endpoint.address) + ":" + std::to_string(endpoint.port);
}

bool IsFromPc(ItemKind kind) {
  return kind == ITEM_ANSWER || kind == ITEM_DATA || kind == ITEM_REPLY;
}

const char* KindWord(ItemKind kind) {
  constexpr const char* WORDS[] = {"request", "answer", "data", "connection", "search", "reply"};
  return WORDS[kind];
}

}  // namespace

tools::JsonObject DescribeItem(const Item& item, std::uint64_t number, int scanner,
                               std::uint64_t partner, std::uint64_t start, double milliseconds) {
  tools::JsonObject object = {{"number", number},
                              {"timeUs", item.timeUs},
                              {"scanner", scanner},
                              {"pc", PlaceText(IsFromPc(item.kind) ? item.from : item.to)},
                              {"kind", KindWord(item.kind)},
                              {"title", Shortened(item.title)},
                              {"size", item.size}};
  if (item.hasRule) {
    object["rule"] = RuleOf(item.rule).name;
    object["outcome"] = OutcomeWord(OutcomeOf(item));
    object["detail"] = Shortened(tools::EscapeBytes(item.detail));
    object["extra"] = item.onExtra;
  }
  if (item.kind == ITEM_ANSWER) {
    object["status"] = Shortened(tools::EscapeBytes(item.status));
    object["statusOut"] = Shortened(tools::EscapeBytes(item.statusOut));
  }
  if (partner != 0) {
    object["partner"] = partner;
    object["milliseconds"] = milliseconds;
  }
  if (start != 0) {
    object["start"] = start;
  }
  if (item.kind == ITEM_SEARCH) {
    object["replies"] = item.others.size();
  }
  return object;
}

std::uint64_t RememberItem(PanelState* state, Item* item, std::string bytes) {
  Remembered happened;
  happened.bytes = std::move(bytes);
  happened.fields = std::move(item->fields);
  item->fields.clear();
  if (item->kind == ITEM_DATA) {
    happened.bodyOffset = happened.bytes.find("\r\n\r\n") + 4;
  }
  return state->history.Add(std::move(happened));
}

LiveConnection::~LiveConnection() {
  const Guard guard(state_->lock);
  state_->connections.erase(this);
}

void LiveConnection::Begin(const Packet& packet, std::size_t frame) {
  begun_ = true;
  account_.scanner = packet.from;
  account_.pc = packet.to;
  account_.opening = packet;
  account_.opening.frame = frame;
  account_.keepsBytes = true;
  // The PC serves one connection; what this program holds is known, what others hold is not.
  for (const LiveConnection* other : state_->connections) {
    const ConnectionAccount& account = other->account_;
    const bool isOpen =
        !account.fromScanner.ended && !account.fromPc.ended && !account.refused && account.accepted;
    if (!isOpen || account.pc.address != packet.to.address || account.pc.port != packet.to.port) {
      continue;
    }
    if (account.isMain) {
      account_.isMain = false;
      account_.mainSince = account.opening.frame;
    } else {
      ++account_.othersOpen;
    }
  }
  state_->connections.insert(this);
}

void LiveConnection::TakeFrame(const std::string& frame) {
  Capture capture;
  std::string why;
  if (!ReadCapture(CaptureHeader() + frame, &capture, &why) || capture.packets.empty()) {
    return;
  }
  Packet& packet = capture.packets.front();
  {
    const Guard guard(state_->lock);
    packet.frame = state_->history.AddFrame(frame);
    if (!begun_) {
      Begin(packet, packet.frame);
    }
    TakePacket(&account_, packet, &items_);
    Publish();
  }
  state_->tellNews();
}

void LiveConnection::End() {
  if (!begun_) {
    return;
  }
  {
    const Guard guard(state_->lock);
    state_->connections.erase(this);
    EndConnection(&account_, &items_);
    SettleUnanswered(account_, &items_);
    Publish();
  }
  state_->tellNews();
}

bool LiveConnection::OwesAnswer() const {
  return std::any_of(account_.waiting.begin(), account_.waiting.end(), [&](const auto& waiting) {
    return std::any_of(waiting.second.begin(), waiting.second.end(), [&](std::size_t request) {
      const Outcome outcome = OutcomeOf(items_[request]);
      return outcome == OUTCOME_ACCEPTED || outcome == OUTCOME_REFUSED;
    });
  });
}

bool LiveConnection::IsFull() const {
  return items_.size() >= ITEMS_LIMIT || textsSize_ > TEXTS_LIMIT ||
         account_.fromPc.held.size() > HELD_LIMIT;
}

// Tells of what is new, and of the requests that what is new has settled.
void LiveConnection::Publish() {
  const std::size_t known = numbers_.size();
  for (std::size_t i = known; i < items_.size(); ++i) {
    numbers_.push_back(RememberItem(state_, &items_[i], std::move(items_[i].bytes)));
    rules_.push_back(items_[i].rule);
    items_[i].bytes.clear();
    textsSize_ += items_[i].title.size() + items_[i].uid.size() + items_[i].status.size() +
                  items_[i].statusOut.size();
    PublishItem(i);
    const std::size_t partner = items_[i].partner;
    if (items_[i].kind == ITEM_ANSWER && partner != NO_ITEM && partner < known) {
      rules_[partner] = items_[partner].rule;
      PublishItem(partner);
    }
  }
  for (const auto& [uid, waiting] : account_.waiting) {
    for (const std::size_t request : waiting) {
      if (rules_[request] != items_[request].rule) {
        rules_[request] = items_[request].rule;
        PublishItem(request);
      }
    }
  }
}

void LiveConnection::PublishItem(std::size_t number) {
  const Item& item = items_[number];
  Remembered* happened = state_->history.Find(numbers_[number]);
  if (happened == nullptr) {
    return;
  }
  const auto numberOf = [&](std::size_t other) {
    return other == NO_ITEM || other >= numbers_.size() ? 0 : numbers_[other];
  };
  double milliseconds = 0;
  if (item.partner != NO_ITEM) {
    milliseconds = static_cast<double>(std::abs(items_[item.partner].timeUs - item.timeUs)) / 1e3;
  }
  happened->summary = DescribeItem(item, numbers_[number], scanner_, numberOf(item.partner),
                                   numberOf(item.start), milliseconds)
                          .Text();
  state_->history.Tell("message", happened->summary);
}

}  // namespace zvqrn::scanner
