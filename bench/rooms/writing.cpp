// What the library writes for an answer: the document, the message around it, and both lists of
// discovery.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "base/service_state.h"
#include "discovery/attribute_list.h"
#include "discovery/slp_message.h"
#include "eventproto/message_writer.h"
#include "eventserver/delivery.h"
#include "platform/socket.h"
#include "rooms/inputs.h"
#include "scanner/wire/attribute_message.h"

namespace zvqrn::bench {
namespace {

// A block that is given to the caller.
using OwnedBytes = OwnedBlock<char>;

OwnedBytes BuildBody(std::int32_t* length) {
  char* body = nullptr;
  Require(BuildResponseBody(QRN_RESPONSE_OK, "1.00", &body, length) == 1);
  return OwnedBytes(body);
}

void DocumentWriting(benchmark::State& state) {
  while (state.KeepRunning()) {
    std::int32_t length = 0;
    const OwnedBytes body = BuildBody(&length);
    benchmark::DoNotOptimize(body.get());
  }
}
BENCHMARK(DocumentWriting)->Name("document.writing");

void MessageWriting(benchmark::State& state) {
  EventHeader header{EXCHANGE_SINGLE, SUBEVENT_NONE, "20260101000000001", "1.00", ""};
  std::int32_t length = 0;
  const OwnedBytes body = BuildBody(&length);
  const OutgoingContent content{&header, body.get(), length, "0001", "", 1};
  while (state.KeepRunning()) {
    const OwnedOutgoingMessage message(MakeOutgoingMessage(1, content));
    char* made = nullptr;
    std::int32_t size = 0;
    Require(BuildMessageBytes(message.get(), &made, &size) == 1);
    const OwnedBytes bytes(made);
    benchmark::DoNotOptimize(bytes.get());
  }
}
BENCHMARK(MessageWriting)->Name("message.writing");

void SlpDecoding(benchmark::State& state) {
  const std::string bytes = scanner::RequestBytes(scanner::AttributeRequest());
  while (state.KeepRunning()) {
    SlpMessage* made = nullptr;
    Require(DecodeSlpMessage(bytes.data(), static_cast<std::int32_t>(bytes.size()), &made) ==
            SLP_OK);
    const OwnedSlpMessage message(made);
    benchmark::DoNotOptimize(message.get());
  }
}
BENCHMARK(SlpDecoding)->Name("slp.decoding");

void SlpEncoding(benchmark::State& state) {
  constexpr char LIST[] = "(pc-name=BENCH),(ip-address=192.168.1.20),(event-port=2968)";
  while (state.KeepRunning()) {
    SlpMessage* made = nullptr;
    Require(BuildAttrRply(1, 0, LIST, "en", &made) == SLP_OK);
    const OwnedSlpMessage message(made);
    const OwnedBytes bytes(NewBytes(message->header->length));
    Require(EncodeSlpMessage(message.get(), bytes.get()) > 0);
    benchmark::DoNotOptimize(bytes.get());
  }
}
BENCHMARK(SlpEncoding)->Name("slp.encoding");

// The identity that a start would give this PC.
struct Identity {
  Identity() {
    constexpr char NAME[] = "BENCH";
    Require(CreateServiceLock(&service.identityLock, 1, 1));
    service.pcName = NewBytes(sizeof NAME);
    std::memcpy(service.pcName, NAME, sizeof NAME);
    service.pcNameLength = sizeof NAME - 1;
    service.eventPort = 2968;
    Require(platform::TextToAddress("192.168.1.20", &service.localAddress));
  }
  ~Identity() {
    std::free(service.pcName);
    service.pcName = nullptr;
    DestroyServiceLock(&service.identityLock);
  }
  Identity(const Identity&) = delete;
  Identity& operator=(const Identity&) = delete;
};

void AttributeList(benchmark::State& state) {
  const Identity identity;
  while (state.KeepRunning()) {
    char* made = nullptr;
    std::int32_t length = 0;
    BuildAttributeList(&made, &length);
    const OwnedBytes list(made);
    Require(list != nullptr);
  }
}
BENCHMARK(AttributeList)->Name("attribute_list.building");

}  // namespace
}  // namespace zvqrn::bench
