#include "report/rows.h"

namespace zvqrn::bench {

// One row a line.
// clang-format off
const std::vector<RowGroup>& AllRows() {
  constexpr Unit NS = Unit::NANOSECONDS;
  constexpr Unit RATE = Unit::PER_SECOND;
  constexpr Unit COUNT = Unit::COUNT;
  constexpr Unit BYTES = Unit::BYTES;
  constexpr Aim AT_MOST = Aim::RATIO_AT_MOST;
  constexpr Aim AT_LEAST = Aim::RATIO_AT_LEAST;
  constexpr Aim BELOW = Aim::VALUE_BELOW;
  static const std::vector<RowGroup> GROUPS = {
      {"Answers", {
          {"answer, median", "answer.median.ours", NS, "answer.median.tcp_thread", "TCP, a thread each", AT_MOST, 1.3},
          {"answer, median", "answer.median.ours", NS, "answer.median.tcp", "TCP"},
          {"answer, median", "answer.median.ours", NS, "answer.median.http", "libmicrohttpd"},
          {"answer, 95th percentile", "answer.p95.ours", NS, "answer.p95.tcp_thread", "TCP, a thread each"},
          {"answer, 99th percentile", "answer.p99.ours", NS, "answer.p99.tcp_thread", "TCP, a thread each"},
          {"answer, 99th percentile", "answer.p99.ours", NS, "answer.p99.http", "libmicrohttpd"},
          {"answer, 99th percentile", "answer.p99.ours", NS, "answer.median.ours", "own median", AT_MOST, 5},
          {"requests, one by one", "rate.sequential.ours", RATE, "rate.sequential.http", "libmicrohttpd", AT_LEAST, 1},
          {"requests, 100 in one write", "rate.pipelined.ours", RATE, "rate.pipelined.http", "libmicrohttpd", AT_LEAST, 1}}},
      {"Growth", {
          {"answer after 10,000 requests", "growth.served_10000.answer", NS, "growth.served_10.answer", "after 10"},
          {"answer after 100,000 requests", "growth.served_100000.answer", NS, "growth.served_10.answer", "after 10", AT_MOST, 1.1},
          {"processor time after 10,000 requests", "growth.served_10000.cpu", NS, "growth.served_10.cpu", "after 10"},
          {"processor time after 100,000 requests", "growth.served_100000.cpu", NS, "growth.served_10.cpu", "after 10", AT_MOST, 1.1},
          {"answer with 1,000 open STARTs", "growth.open_1000.answer", NS, "growth.open_10.answer", "with 10"},
          {"answer with 10,000 open STARTs", "growth.open_10000.answer", NS, "growth.open_10.answer", "with 10"},
          {"processor time with 1,000 open STARTs", "growth.open_1000.cpu", NS, "growth.open_10.cpu", "with 10"},
          {"processor time with 10,000 open STARTs", "growth.open_10000.cpu", NS, "growth.open_10.cpu", "with 10"}}},
      {"One request from the socket to the host and back", {
          {"allocations", "request.allocations", COUNT},
          {"blocks freed again", "request.releases", COUNT},
          {"bytes allocated", "request.bytes_allocated", BYTES},
          {"bytes copied", "request.bytes_copied", BYTES, "request.bytes_on_wire", "bytes on the wire"}}},
      {"Rooms", {
          {"reading a head", "head.ours", NS, "head.http_parser", "http_parser", AT_MOST, 2},
          {"reading a document", "document.ours", NS, "document.pugixml", "pugixml", AT_MOST, 0.7},
          {"reading a document", "document.ours", NS, "document.expat", "expat"},
          {"writing a document", "document.writing", NS},
          {"writing a message", "message.writing", NS},
          {"decoding a discovery request", "slp.decoding", NS},
          {"encoding a discovery reply", "slp.encoding", NS},
          {"building the attribute list", "attribute_list.building", NS}}},
      {"Discovery", {
          {"first reply, median", "discovery.first.ours", NS, "discovery.first.udp_thread", "UDP, a thread each", AT_MOST, 1.3},
          {"first reply, 99th percentile", "discovery.first_p99.ours", NS, "discovery.first_p99.udp_thread", "UDP, a thread each"},
          {"requests answered", "discovery.rate.ours", RATE, "discovery.rate.udp_thread", "UDP, a thread each"},
          {"memory for 1,000 pending replies", "discovery.pending_kb", Unit::KILOBYTES},
          {"threads for 1,000 pending replies", "discovery.pending_threads", COUNT}}},
      {"The service", {
          {"start, median", "start.median", NS},
          {"stop, median", "stop.median", NS},
          {"idle: processor time a minute", "idle.cpu_per_minute", NS},
          {"idle: of one core", "idle.cpu_percent", Unit::PERCENT, nullptr, "", BELOW, 0.1},
          {"idle: wake-ups a second", "idle.wakeups", RATE},
          {"idle: memory, with the system's libraries that it loads", "idle.resident_kb", Unit::KILOBYTES},
          {"idle: memory of its own", "idle.anonymous_kb", Unit::KILOBYTES},
          {"idle: threads", "idle.threads", COUNT},
          {"libZVQRN.so, stripped", "size.so", BYTES},
          {"ZVQRN.dll for 32 bits, stripped", "size.dll32", BYTES, nullptr, "", BELOW, 100000},
          {"ZVQRN.dll for 64 bits, stripped", "size.dll64", BYTES, nullptr, "", BELOW, 100000}}},
      {"ZVQRN.dll for 64 bits under Wine (the peers run without it)", {
          {"answer, median", "wine64.answer.median.ours", NS, "wine64.answer.median.tcp_thread", "TCP, a thread each"},
          {"answer, 99th percentile", "wine64.answer.p99.ours", NS, "wine64.answer.p99.tcp_thread", "TCP, a thread each"},
          {"first discovery reply, median", "wine64.discovery.first.ours", NS, "wine64.discovery.first.udp_thread", "UDP, a thread each"},
          {"start, median", "wine64.start.median", NS},
          {"stop, median", "wine64.stop.median", NS}}},
      {"ZVQRN.dll for 32 bits under Wine (the peers run without it)", {
          {"answer, median", "wine32.answer.median.ours", NS, "wine32.answer.median.tcp_thread", "TCP, a thread each"},
          {"answer, 99th percentile", "wine32.answer.p99.ours", NS, "wine32.answer.p99.tcp_thread", "TCP, a thread each"},
          {"first discovery reply, median", "wine32.discovery.first.ours", NS, "wine32.discovery.first.udp_thread", "UDP, a thread each"},
          {"start, median", "wine32.start.median", NS},
          {"stop, median", "wine32.stop.median", NS}}},
  };
  return GROUPS;
}
// clang-format on

}  // namespace zvqrn::bench
