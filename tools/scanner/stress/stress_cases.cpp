#include "scanner/stress/stress_cases.h"

#include "scanner/stress/bad_peer.h"
#include "scanner/wire/attribute_message.h"

namespace zvqrn::scanner {

namespace {

constexpr std::size_t HEAD_LIMIT = 4096;
constexpr char SERVED[] = "0001";
constexpr char DROPPED[] = "";

std::string With(const Attack& attack, const std::string& uid, const Headers& headers) {
  RequestOptions options = attack.request;
  options.replacedHeaders = headers;
  return MessageBytes(MakeRequest(options, EXCHANGE_OF_ONE, uid, {}));
}

StressCase HeaderCase(const std::string& statuses, const Headers& headers) {
  return {{}, statuses, [headers](const Attack& attack, const std::string& uid) {
            return With(attack, uid, headers);
          }};
}

StressCase UidCase(const std::string& statuses, const std::string& uid) {
  return {uid, statuses,
          [](const Attack& attack, const std::string& sent) { return With(attack, sent, {}); }};
}

// A request whose head has exactly so many bytes.
StressCase HeadCase(const std::string& statuses, std::size_t size) {
  return {{}, statuses, [size](const Attack& attack, const std::string& uid) {
            const std::string shortest = With(attack, uid, {{"x-filler", "f"}});
            const std::size_t head = shortest.find("\r\n\r\n") + 4;
            return With(attack, uid, {{"x-filler", std::string(size - head + 1, 'f')}});
          }};
}

// A document with one field changed; `protocol` says which document.
StressCase FieldCase(const std::string& statuses, int protocol, std::string PushScanFields::*field,
                     const std::string& value) {
  return {{}, statuses, [=](const Attack& attack, const std::string& uid) {
            RequestOptions options = attack.request;
            options.protocol = protocol;
            options.fields.*field = value;
            return MessageBytes(MakeRequest(options, EXCHANGE_OF_ONE, uid, {}));
          }};
}

}  // namespace

std::vector<StressCase> LimitCases() {
  Headers crowd;
  for (int i = 0; i < 300; ++i) {
    crowd.emplace_back("h" + std::to_string(i), "v");
  }
  const std::string longText(1000, 'n');
  return {
      UidCase(SERVED, "1"),
      UidCase(SERVED, std::string(19, 'u')),
      UidCase(DROPPED, std::string(20, 'u')),
      UidCase(DROPPED, std::string(1000, 'u')),
      HeadCase(SERVED, HEAD_LIMIT - 1),
      HeadCase(SERVED, HEAD_LIMIT),
      HeadCase(DROPPED, HEAD_LIMIT + 1),
      HeadCase(DROPPED, 4 * HEAD_LIMIT),
      HeaderCase(SERVED, crowd),
      HeaderCase(SERVED, {{longText, longText}}),
      HeaderCase("1003", {{"Content-Length", "0"}}),
      HeaderCase("1003", {{"Content-Length", "many"}}),
      HeaderCase("1001", {{"x-protocol-version", longText}}),
      HeaderCase("1001", {{"x-protocol-version", "2"}}),
      HeaderCase("0002", {{"x-protocol-version", "1.99"}}),
      HeaderCase("1004", {{"x-subevent", longText}}),
      HeaderCase("1004", {{"x-subevent", "END"}}),
      HeaderCase("2002", {{"x-subevent", "END"}, {"x-parent-uid", longText}}),
      HeaderCase(DROPPED, {{"x-protocol-name", longText}}),
  };
}

std::vector<StressCase> ValueCases() {
  const std::string refused = "2003";
  const std::string longText(10000, '9');
  std::vector<StressCase> cases = {
      FieldCase(refused, 1, &PushScanFields::productName, ""),
      FieldCase(SERVED, 1, &PushScanFields::productName, std::string(31, 'n')),
      FieldCase(refused, 1, &PushScanFields::productName, std::string(32, 'n')),
      FieldCase(refused, 1, &PushScanFields::productName, longText),
      FieldCase(refused, 1, &PushScanFields::ipAddress, ""),
      FieldCase(refused, 1, &PushScanFields::ipAddress, std::string(32, '1')),
      FieldCase(refused, 1, &PushScanFields::imageFormat, "PNG"),
      FieldCase(refused, 1, &PushScanFields::colorType, longText),
      FieldCase(refused, 1, &PushScanFields::loadPaper, " Auto"),
      FieldCase(refused, 1, &PushScanFields::paperType, "A9"),
      FieldCase(refused, 2, &PushScanFields::ipAddress, std::string(32, '1')),
  };
  for (const char* id : {"0", "4", "-1", "999999999", "9999999999", "1x", "\xFF"}) {
    cases.push_back(FieldCase(refused, 2, &PushScanFields::pushScanId, id));
  }
  for (const auto field : {&PushScanFields::paperWidth, &PushScanFields::paperHeight,
                           &PushScanFields::scanX, &PushScanFields::scanY}) {
    cases.push_back(FieldCase(SERVED, 1, field, "999999999"));
    for (const char* number : {"-1", "1000000000", "4294967296", "0x10", "1e3", "one"}) {
      cases.push_back(FieldCase(refused, 1, field, number));
    }
    cases.push_back(FieldCase(refused, 1, field, longText));
  }
  return cases;
}

std::vector<std::string> DiscoveryCases(std::uint16_t xid) {
  AttributeRequest request;
  request.xid = xid;
  const std::string good = RequestBytes(request);
  std::vector<std::string> cases = {good, good.substr(0, xid % good.size())};
  const auto add = [&](std::string AttributeRequest::*field, const std::string& value) {
    AttributeRequest changed = request;
    changed.*field = value;
    cases.push_back(RequestBytes(changed));
  };
  add(&AttributeRequest::scopes, std::string(1300, ','));
  add(&AttributeRequest::scopes, "XS-" + std::to_string(xid));
  add(&AttributeRequest::previousResponders, std::string(1300, '\\'));
  add(&AttributeRequest::serviceType, "service:other");
  add(&AttributeRequest::tags, std::string(2000, 't'));
  add(&AttributeRequest::language, "");
  std::string bent = good;
  bent[xid % bent.size()] = static_cast<char>(xid >> 8U);
  cases.push_back(bent);
  return cases;
}

}  // namespace zvqrn::scanner
