#include "scanner/panel/history.h"

#include <algorithm>
#include <utility>

namespace zvqrn::scanner {

namespace {

// News go out in lots of so many bytes.
constexpr std::size_t LOT_SIZE = std::size_t{256} * 1024;

// What the bytes of a message cost, with the fields that were made of them.
std::size_t CostOf(const Remembered& message) {
  std::size_t cost = message.bytes.size() + message.fields.size() * sizeof(Field);
  for (const Field& field : message.fields) {
    cost += field.name.size() + field.value.size();
  }
  return cost;
}

}  // namespace

std::uint64_t History::Add(Remembered happened) {
  happened.number = nextNumber_++;
  bytes_ += CostOf(happened);
  messages_.push_back(std::move(happened));
  while (messages_.size() > limits_.messages) {
    bytes_ -= CostOf(messages_.front());
    messages_.pop_front();
  }
  ForgetBytes();
  return messages_.empty() ? 0 : messages_.back().number;
}

void History::ForgetBytes() {
  if (messages_.empty()) {
    return;
  }
  nextWithBytes_ = std::max(nextWithBytes_, messages_.front().number);
  for (; bytes_ > limits_.bytes && nextWithBytes_ < nextNumber_; ++nextWithBytes_) {
    Remembered* oldest = Find(nextWithBytes_);
    bytes_ -= CostOf(*oldest);
    oldest->forgotten = !oldest->bytes.empty();
    std::string().swap(oldest->bytes);
    std::vector<Field>().swap(oldest->fields);
  }
}

Remembered* History::Find(std::uint64_t number) {
  if (messages_.empty() || number < messages_.front().number || number >= nextNumber_) {
    return nullptr;
  }
  return &messages_[static_cast<std::size_t>(number - messages_.front().number)];
}

std::size_t History::AddFrame(const std::string& frame) {
  frames_.push_back(frame);
  frameBytes_ += frame.size();
  while (frameBytes_ > limits_.frameBytes) {
    frameBytes_ -= frames_.front().size();
    frames_.pop_front();
  }
  return ++frameCount_;
}

std::string History::Frames() const {
  std::string bytes;
  bytes.reserve(frameBytes_);
  for (const std::string& frame : frames_) {
    bytes += frame;
  }
  return bytes;
}

void History::Tell(const std::string& kind, const std::string& json) {
  changes_.push_back("id: " + std::to_string(nextChange_++) + "\nevent: " + kind +
                     "\ndata: " + json + "\n\n");
  changeBytes_ += changes_.back().size();
  while (changes_.size() > limits_.changes || changeBytes_ > limits_.changeBytes) {
    changeBytes_ -= changes_.front().size();
    changes_.pop_front();
  }
}

std::string History::ChangesAfter(std::uint64_t* last) const {
  const std::uint64_t first = nextChange_ - changes_.size();
  if (*last + 1 < first || *last >= nextChange_) {
    *last = nextChange_ - 1;
    return "id: " + std::to_string(*last) + "\nevent: anew\ndata: {}\n\n";
  }
  std::string text;
  for (; *last + 1 < nextChange_ && text.size() < LOT_SIZE; ++*last) {
    text += changes_[static_cast<std::size_t>(*last + 1 - first)];
  }
  return text;
}

void History::Clear() {
  messages_.clear();
  bytes_ = 0;
  frames_.clear();
  frameBytes_ = 0;
  frameCount_ = 0;
}

}  // namespace zvqrn::scanner
