#include "report/rows.h"

namespace zvqrn::bench {
namespace {

constexpr Unit NS = Unit::NANOSECONDS;
constexpr Unit RATE = Unit::PER_SECOND;
constexpr Unit COUNT = Unit::COUNT;
constexpr Unit BYTES = Unit::BYTES;
constexpr Unit KB = Unit::KILOBYTES;
constexpr Aim NONE = Aim::NONE;
constexpr Aim RATIO_AT_MOST = Aim::RATIO_AT_MOST;
constexpr Aim RATIO_AT_LEAST = Aim::RATIO_AT_LEAST;
constexpr Aim AT_MOST = Aim::AT_MOST;
constexpr Aim AT_LEAST = Aim::AT_LEAST;
constexpr Aim BELOW = Aim::BELOW;

constexpr char ECHO_NAME[] = "UDP echo";

// One row a line.
// clang-format off

// What depends on the placement; `p` begins the names of its figures.
std::vector<Row> ExchangeRows(const std::string& p, double toTcp, double toHttp, double rate) {
  return {
      {"answer, median", p + "answer.median.ours", NS, p + "answer.median.tcp", "TCP", RATIO_AT_MOST, toTcp},
      {"answer, median", p + "answer.median.ours", NS, p + "answer.median.http", "libmicrohttpd", RATIO_AT_MOST, toHttp},
      {"answer, 99th percentile", p + "answer.p99.ours", NS, p + "answer.p99.tcp", "TCP", RATIO_AT_MOST, 2},
      {"answer, 99th percentile", p + "answer.p99.ours", NS, p + "answer.p99.http", "libmicrohttpd"},
      {"requests, one by one", p + "answer.rate.ours", RATE, p + "answer.rate.http", "libmicrohttpd", RATIO_AT_LEAST, rate},
      {"requests, 100 in one write", p + "pipelined.rate.ours", RATE, p + "pipelined.rate.http", "libmicrohttpd", AT_LEAST, 50000},
      {"START with data: the data", p + "start_data.median.data", NS, p + "start_data.median.tcp", "TCP", RATIO_AT_MOST, 2.5},
      {"START with data: the answer", p + "start_data.median.answer", NS, p + "start_data.median.tcp", "TCP", RATIO_AT_MOST, 2.5},
      {"answer while 100 callbacks wait", p + "waiting.median.ours", NS, p + "waiting.median.tcp", "TCP"},
      {"reconnect to first answer", p + "reconnect.median.ours", NS, p + "reconnect.median.tcp", "TCP"}};
}

std::vector<Row> DiscoveryRows(const std::string& p) {
  return {
      {"first reply, median", p + "discovery.first.median.ours", NS, p + "discovery.first.median.udp", ECHO_NAME, RATIO_AT_MOST, 1.5},
      {"first reply, 99th percentile", p + "discovery.first.p99.ours", NS, p + "discovery.first.p99.udp", ECHO_NAME},
      {"requests answered", p + "discovery.first_rate.ours", RATE, p + "discovery.first_rate.udp", ECHO_NAME, RATIO_AT_LEAST, 0.7},
      {"requests answered, second replies sent between", p + "discovery.burst_rate.ours", RATE, p + "discovery.burst_rate.udp", ECHO_NAME},
      {"1,000 pending replies: threads", p + "discovery.pending_threads", COUNT, "", "", AT_MOST, 2},
      {"1,000 pending replies: memory", p + "discovery.pending_kb", KB, "", "", AT_MOST, 1000}};
}

// `toTcp` is an aim that one of the two machines has; 0: none.
std::vector<Row> WineRows(const std::string& machine, double toTcp) {
  std::vector<Row> rows;
  for (const auto& [placement, ends] : {std::pair("one_core.", " (one core)"), std::pair("two_cores.", " (two cores)")}) {
    const std::string p = machine + placement;
    rows.insert(rows.end(), {
        {std::string("answer, median") + ends, p + "answer.median.ours", NS, p + "answer.median.tcp", "TCP", toTcp > 0 ? RATIO_AT_MOST : NONE, toTcp},
        {std::string("answer, 99th percentile") + ends, p + "answer.p99.ours", NS, p + "answer.p99.tcp", "TCP"},
        {std::string("first discovery reply, median") + ends, p + "discovery.first.median.ours", NS, p + "discovery.first.median.udp", ECHO_NAME}});
  }
  rows.insert(rows.end(), {
      {"start, median", machine + "start", NS, "", ""},
      {"stop, median", machine + "stop", NS, "", ""}});
  return rows;
}

}  // namespace

std::vector<RowGroup> AllRows() {
  return {
      {"Answers, both ends on one core", ExchangeRows("one_core.", 2, 1.5, 0.6)},
      {"Answers, each end on a core of its own", ExchangeRows("two_cores.", 0.8, 0.8, 1.2)},
      {"Discovery, both ends on one core", DiscoveryRows("one_core.")},
      {"Discovery, each end on a core of its own", DiscoveryRows("two_cores.")},
      {"Growth", {
          {"answer after 100,000 requests", "growth.served.median.many", NS, "growth.served.median.few", "after 10", RATIO_AT_MOST, 1.1},
          {"processor time after 100,000 requests", "growth.served.cpu.many", NS, "growth.served.cpu.few", "after 10", RATIO_AT_MOST, 1.1},
          {"answer with 10,000 open STARTs", "growth.open.median.many", NS, "growth.open.median.few", "with 10", RATIO_AT_MOST, 1.1},
          {"processor time with 10,000 open STARTs", "growth.open.cpu.many", NS, "growth.open.cpu.few", "with 10", RATIO_AT_MOST, 1.1}}},
      {"One request from the socket to the host and back", {
          {"allocations", "request.allocations", COUNT, "", ""},
          {"blocks freed again", "request.releases", COUNT, "", ""},
          {"bytes allocated", "request.bytes_allocated", BYTES, "", ""},
          {"bytes copied", "request.bytes_copied", BYTES, "request.bytes_on_wire", "bytes on the wire"}}},
      {"Rooms", {
          {"reading a head", "head.ours", NS, "head.http_parser", "http_parser", RATIO_AT_MOST, 2},
          {"reading a document", "document.ours", NS, "document.pugixml", "pugixml", RATIO_AT_MOST, 0.6},
          {"reading a document", "document.ours", NS, "document.expat", "expat"},
          {"writing a document", "document.writing", NS, "", ""},
          {"writing a message", "message.writing", NS, "", ""},
          {"decoding a discovery request", "slp.decoding", NS, "", ""},
          {"encoding a discovery reply", "slp.encoding", NS, "", ""},
          {"building the attribute list", "attribute_list.building", NS, "", ""}}},
      {"The machine", {
          {"busy with something else, of all cores", "machine.busy_percent", Unit::PERCENT, "", ""}}},
      {"The service", {
          {"start, median", "start", NS, "", ""},
          {"stop, median", "stop", NS, "", ""},
          {"idle: wake-ups a second", "idle.wakeups", RATE, "", "", BELOW, 0.5},
          {"idle: of one core", "idle.cpu_percent", Unit::PERCENT, "", "", BELOW, 0.01},
          {"idle with a silent scanner: wake-ups a second", "connected.wakeups", RATE, "", ""},
          {"idle with a silent scanner: of one core", "connected.cpu_percent", Unit::PERCENT, "", ""},
          {"idle: memory, with the system's libraries that it loads", "idle.resident_kb", KB, "", ""},
          {"idle: memory of its own", "idle.anonymous_kb", KB, "", ""},
          {"idle: threads", "idle.threads", COUNT, "", ""},
          {"libZVQRN.so, stripped", "size.so", BYTES, "", ""},
          {"ZVQRN.dll for 32 bits, stripped", "size.dll32", BYTES, "", "", BELOW, 100000},
          {"ZVQRN.dll for 64 bits, stripped", "size.dll64", BYTES, "", ""}}},
      {"ZVQRN.dll for 32 bits under Wine (the peers run without it)", WineRows("wine32.", 10)},
      {"ZVQRN.dll for 64 bits under Wine (the peers run without it)", WineRows("wine64.", 0)},
  };
}
// clang-format on

}  // namespace zvqrn::bench
