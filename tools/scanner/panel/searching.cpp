#include "scanner/panel/searching.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

#include "common/adapters.h"
#include "common/text.h"
#include "platform/clock.h"
#include "platform/thread.h"
#include "scanner/doctor/examine.h"
#include "scanner/explain/account.h"
#include "scanner/panel/live_connection.h"

namespace zvqrn::scanner {

namespace {

constexpr std::int32_t REPLIES_TIME_MS = 1500;  // the three replies of a burst take a second
constexpr std::int32_t SEARCH_REST_MS = 2500;   // between two searches
constexpr std::int64_t NOTE_EVERY_MS = 100;
constexpr std::size_t ALSO_ASKED_LIMIT = 8;
// What a search has brought is shown to so many bytes.
constexpr std::size_t SHOWN_FRAMES_SIZE = std::size_t{1} << 20U;

std::int64_t NowMs() {
  return CaptureTime() / 1000;
}

}  // namespace

Searching::Searching(PanelState* state, std::uint32_t to, std::uint32_t from)
    : state_(state), to_(to), from_(from), event_(platform::MakeEvent()) {
  if (event_ == nullptr) {
    throw Failure(EXIT_LOCAL_TROUBLE, "this machine gives no event");
  }
}

Searching::~Searching() {
  platform::CloseEvent(event_);
}

void Searching::Start() {
  if (platform::StartThread(Run, this, platform::STACK_FOR_HOST_CALLBACKS) == 0) {
    throw Failure(EXIT_LOCAL_TROUBLE, "this machine gives no thread");
  }
}

void Searching::Poke() {
  platform::SignalEvent(event_);
}

void Searching::SearchNow(const std::string& product) {
  if (state_->product != product) {
    // Others may answer this one.
    state_->product = product;
    state_->pcs = {};
    TellPcs(state_);
  }
  isWanted_ = true;
  Poke();
}

bool Searching::AskToo(std::uint32_t address) {
  if (alsoAsked_.size() >= ALSO_ASKED_LIMIT && alsoAsked_.count(address) == 0) {
    return false;
  }
  alsoAsked_.insert(address);
  return true;
}

bool Searching::Examine(std::uint32_t sender) {
  KnownPc* pc = FindPc(&state_->pcs, sender);
  if (pc == nullptr) {
    return false;
  }
  if (!pc->examining) {
    pc->examining = true;
    toExamine_.push_back(sender);
    TellPcs(state_);
    Poke();
  }
  return true;
}

void Searching::Run(void* argument) {
  static_cast<Searching*>(argument)->Work();
}

void Searching::Work() {
  while (!state_->ending.load()) {
    bool isShown = false;
    {
      const Guard guard(state_->lock);
      platform::ClearEvent(event_);
      isShown = std::exchange(isWanted_, false);
    }
    ExamineNext();
    Round(isShown);
    platform::WaitEvent(event_, SEARCH_REST_MS);
  }
}

void Searching::Round(bool isShown) {
  std::string product;
  std::set<std::uint32_t> places;
  {
    const Guard guard(state_->lock);
    product = state_->product;
    places = alsoAsked_;
  }
  std::vector<FoundPc> found;
  std::string trouble;
  places.insert(to_);
  for (const std::uint32_t place : places) {
    try {
      const std::vector<FoundPc> more = Ask(place, product, isShown);
      found.insert(found.end(), more.begin(), more.end());
    } catch (const Failure& failure) {
      trouble = failure.what();
    }
  }
  {
    const Guard guard(state_->lock);
    // Somebody may have chosen another product meanwhile.
    if (state_->product == product) {
      NoteEndOfRound(&state_->pcs, found);
    }
    state_->searchTrouble = trouble;
    TellPcs(state_);
  }
  state_->tellNews();
}

std::vector<FoundPc> Searching::Ask(std::uint32_t to, const std::string& product, bool isShown) {
  Search search = MakeSearch(to);
  search.from = from_ != 0 && IsGroup(to) ? from_ : ChooseSource(to);
  search.timeoutMs = REPLIES_TIME_MS;
  if (!product.empty()) {
    search.request.scopes = EscapeScope(product);
  }
  std::string frames;
  if (isShown) {
    search.capture = std::make_shared<CaptureFile>([&frames](const std::string& frame) {
      frames += frames.size() < SHOWN_FRAMES_SIZE ? frame : std::string();
    });
  }
  const auto note = [&](const SearchResult& soFar) {
    bool isNew = false;
    {
      const Guard guard(state_->lock);
      isNew = state_->product == product && NoteReplies(&state_->pcs, soFar.pcs, NowMs());
      if (isNew) {
        TellPcs(state_);
      }
    }
    if (isNew) {
      state_->tellNews();
    }
  };
  // Each time costs as much as there are PCs: a flood of replies is noted as a few.
  std::int64_t notedMs = 0;
  const SearchResult result = RunSearch(search, [&](const SearchResult& soFar) {
    const std::int64_t nowMs = platform::MonotonicMilliseconds();
    if (nowMs - notedMs >= NOTE_EVERY_MS) {
      notedMs = nowMs;
      note(soFar);
    }
    return state_->ending.load();
  });
  note(result);
  if (isShown) {
    ShowExchange(frames);
  }
  return result.pcs;
}

// Explains what a search has exchanged, once that is whole.
void Searching::ShowExchange(const std::string& frames) {
  Capture capture;
  std::string why;
  if (!ReadCapture(CaptureHeader() + frames, &capture, &why)) {
    return;
  }
  std::vector<Item> items = ExplainCapture(capture, {});
  std::vector<std::uint64_t> numbers;
  {
    const Guard guard(state_->lock);
    for (const Packet& packet : capture.packets) {
      std::string one;
      CaptureFile([&one](const std::string& frame) {
        one = frame;
      }).Datagram(packet.from, packet.to, packet.bytes, packet.timeUs);
      state_->history.AddFrame(one);
    }
    for (Item& item : items) {
      numbers.push_back(RememberItem(state_, &item, capture.packets[item.frame - 1].bytes));
    }
    for (std::size_t i = 0; i < items.size(); ++i) {
      const Item& item = items[i];
      const std::size_t partner =
          item.kind == ITEM_SEARCH && !item.others.empty() ? item.others.front() : item.partner;
      const bool hasPartner = partner != NO_ITEM;
      Remembered* happened = state_->history.Find(numbers[i]);
      if (happened == nullptr) {
        continue;
      }
      const double milliseconds =
          hasPartner ? static_cast<double>(std::abs(items[partner].timeUs - item.timeUs)) / 1e3 : 0;
      happened->summary =
          DescribeItem(item, numbers[i], 0, hasPartner ? numbers[partner] : 0, 0, milliseconds)
              .Text();
      state_->history.Tell("message", happened->summary);
    }
  }
  state_->tellNews();
}

void Searching::ExamineNext() {
  while (!state_->ending.load()) {
    KnownPc patient;
    Examination examination;
    {
      const Guard guard(state_->lock);
      if (toExamine_.empty()) {
        return;
      }
      const KnownPc* pc = FindPc(&state_->pcs, toExamine_.front());
      toExamine_.erase(toExamine_.begin());
      if (pc == nullptr) {
        continue;
      }
      patient = *pc;
      if (!state_->product.empty()) {
        examination.products.push_back(state_->product);
      }
    }
    Account account;
    account.quiet = true;
    examination.checks.timeoutMs = REPLIES_TIME_MS;
    if (patient.isOwn) {
      Patient self;
      scanner::Examine(examination, &account, &self);
    } else {
      ExamineOther(examination, patient.sender, patient.description.eventPort, &account);
      Report(&account, "the rest", VERDICT_NOTE,
             "its adapters, its firewall and its host are seen on that PC only", "",
             "run 'quorin-scanner doctor' there");
    }
    {
      const Guard guard(state_->lock);
      KnownPc* pc = FindPc(&state_->pcs, patient.sender);
      if (pc != nullptr) {
        pc->examining = false;
        pc->examined = true;
        pc->findings = account.findings;
        TellPcs(state_);
      }
    }
    state_->tellNews();
  }
}

}  // namespace zvqrn::scanner
