// Heads of event messages, and ReadMessage on a connection whose bytes arrive in any pieces, with
// pauses: no byte is lost or made up, and messages that are whole and well-formed come out as when
// everything arrives at once.

#include "eventproto/message_reader.h"
#include "support/fuzz_target.h"

namespace zvqrn::fuzz {

static HeadState Measure(const char* bytes, std::int32_t length) {
  HeadMeasure measure{};
  return MeasureHead(bytes, length, &measure);
}

// True for a message as long as it says, so that its end does not depend on the pieces.
static bool IsWhole(const std::string& message) {
  const OwnedParsedMessage parsed = HeadOf(BlockOf(message));
  const auto length = static_cast<std::int32_t>(message.size());
  return parsed && ContentLength(parsed.get()) == length - parsed->headLength;
}

// Reads until the peer closes or nothing good can follow; gives the messages that are whole.
static std::vector<std::string> ReadAll(std::string stream,
                                        const std::vector<std::uint16_t>& cuts) {
  fake.incoming = stream;
  fake.cuts = cuts;
  std::vector<std::string> messages;
  char* message = nullptr;
  char* rest = nullptr;
  std::int32_t restLength = 0;
  for (bool good = true; good;) {
    std::int32_t length = 0;
    good = ReadMessage(1, &message, &length, &rest, &restLength) != READ_CLOSED;
    const std::string read = Bytes(message, length);
    const std::string all = read + Bytes(rest, restLength) + fake.incoming;
    REQUIRE(good ? all == stream : all.empty());
    stream.erase(0, read.size());
    good = good && restLength < HEAD_LIMIT &&
           (IsWhole(read) || (length == 0 && Measure(rest, restLength) == HEAD_UNFINISHED));
    messages.resize(messages.size() + (good && length > 0 ? 1 : 0), read);
  }
  std::free(message);
  std::free(rest);
  return messages;
}

// The beginning of a good head may grow wherever it is cut; a whole one may not.
static void CheckHead(const std::string& stream, std::size_t cut) {
  const SuspiciousBlock block = BlockOf(stream);
  const SuspiciousBlock piece = BlockOf(stream.substr(0, cut));
  const OwnedParsedMessage parsed = HeadOf(block);
  const HeadState state = Measure(piece.Data(), piece.length);
  REQUIRE((state == HEAD_COMPLETE) == (HeadOf(piece) != nullptr));
  const bool ended = FindHeadEnd(piece.Data(), piece.length) > 0;
  REQUIRE(state == HEAD_UNFINISHED ? !ended : ended || !parsed);
  if (parsed) {
    const std::size_t end = stream.find("\r\n\r\n") + 4;
    REQUIRE(parsed->headLength == static_cast<std::int32_t>(end));
    REQUIRE(parsed->bodyStart == (end < stream.size() ? block.Data() + end : nullptr));
  }
}

void FuzzOne(FuzzedDataProvider* data) {
  const auto cut = data->ConsumeIntegralInRange<std::uint16_t>(1, 600);
  const std::vector<std::uint16_t> cuts{cut, data->ConsumeIntegral<std::uint8_t>()};
  // The filling makes a body that grows beyond its first buffer.
  const std::string filling(cut > 500 ? 9000 : 0, 'f');
  const std::string stream = data->ConsumeRemainingBytesAsString() + filling;
  CheckHead(stream, cut);
  const std::vector<std::string> whole = ReadAll(stream, {9999});
  const std::vector<std::string> pieces = ReadAll(stream, cuts);
  // A pause inside a body ends its message early; until then nothing differs.
  REQUIRE(cuts[1] == 0 ? pieces.size() <= whole.size() : pieces.size() == whole.size());
  REQUIRE(std::equal(pieces.begin(), pieces.end(), whole.begin()));
}

}  // namespace zvqrn::fuzz
