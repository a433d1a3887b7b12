// Heads of requests: ours copies and cuts the head into a table of tokens; the parser library's
// callbacks collect the same names and values as spans.
#include <benchmark/benchmark.h>
#include <http_parser.h>

#include <array>
#include <string_view>

#include "common/messages.h"
#include "eventproto/message_head.h"
#include "rooms/inputs.h"

namespace zvqrn::bench {
namespace {

void HeadOurs(benchmark::State& state) {
  const std::string bytes = SingleRequest().bytes;
  while (state.KeepRunning()) {
    ParsedMessage* made = nullptr;
    Require(ParseHead(bytes.data(), static_cast<std::int32_t>(bytes.size()), &made) ==
            KIND_REQUEST);
    const OwnedParsedMessage parsed(made);
    benchmark::DoNotOptimize(parsed.get());
  }
}
BENCHMARK(HeadOurs)->Name("head.ours");

struct CollectedHead {
  std::string_view url;
  std::array<std::string_view, 32> names;
  std::array<std::string_view, 32> values;
  std::size_t count;
};

CollectedHead* HeadOf(http_parser* parser) {
  return static_cast<CollectedHead*>(parser->data);
}

int OnUrl(http_parser* parser, const char* at, std::size_t size) {
  HeadOf(parser)->url = {at, size};
  return 0;
}

int OnName(http_parser* parser, const char* at, std::size_t size) {
  CollectedHead* head = HeadOf(parser);
  head->names.at(head->count) = {at, size};
  return 0;
}

int OnValue(http_parser* parser, const char* at, std::size_t size) {
  CollectedHead* head = HeadOf(parser);
  head->values.at(head->count++) = {at, size};
  return 0;
}

int OnHeadEnd(http_parser* parser) {
  http_parser_pause(parser, 1);
  return 0;
}

void HeadPeer(benchmark::State& state) {
  const std::string bytes = SingleRequest().bytes;
  http_parser_settings settings;
  http_parser_settings_init(&settings);
  settings.on_url = OnUrl;
  settings.on_header_field = OnName;
  settings.on_header_value = OnValue;
  settings.on_headers_complete = OnHeadEnd;
  while (state.KeepRunning()) {
    CollectedHead head{};
    http_parser parser;
    http_parser_init(&parser, HTTP_REQUEST);
    parser.data = &head;
    http_parser_execute(&parser, &settings, bytes.data(), bytes.size());
    Require(HTTP_PARSER_ERRNO(&parser) == HPE_PAUSED && head.count == 4);
    benchmark::DoNotOptimize(head);
  }
}
BENCHMARK(HeadPeer)->Name("head.http_parser");

}  // namespace
}  // namespace zvqrn::bench
