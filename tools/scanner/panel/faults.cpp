#include "scanner/panel/faults.h"

#include <algorithm>

#include "common/vocabulary.h"

namespace zvqrn::scanner {

namespace {

void Without(RequestOptions* options, const char* name) {
  options->removedHeaders.emplace_back(name);
}

void With(RequestOptions* options, const char* name, const std::string& value) {
  options->replacedHeaders.emplace_back(name, value);
}

void OtherBody(RequestOptions* options, const std::string& body) {
  options->hasBody = true;
  options->body = body;
}

// Ends the lines of the head in LF alone.
void BareLines(std::string* bytes) {
  std::string head = bytes->substr(0, bytes->find("\r\n\r\n") + 4);
  const std::string body = bytes->substr(head.size());
  head.erase(std::remove(head.begin(), head.end(), '\r'), head.end());
  *bytes = head + body;
}

const std::vector<Fault> FAULTS = {
    {"version", RULE_VERSION, [](RequestOptions* options) { options->versionText = "3.00"; },
     nullptr},
    {"version-missing", RULE_VERSION_MISSING,
     [](RequestOptions* options) { Without(options, tools::HEADER_PROTOCOL_VERSION); }, nullptr},
    {"subevent", RULE_SUBEVENT,
     [](RequestOptions* options) { With(options, tools::HEADER_SUBEVENT, "MIDDLE"); }, nullptr},
    {"parent-missing", RULE_PARENT_MISSING,
     [](RequestOptions* options) {
       With(options, tools::HEADER_SUBEVENT, tools::SUBEVENT_END_WORD);
       Without(options, tools::HEADER_PARENT_UID);
     },
     nullptr},
    {"parent", RULE_PARENT,
     [](RequestOptions* options) {
       With(options, tools::HEADER_SUBEVENT, tools::SUBEVENT_END_WORD);
       With(options, tools::HEADER_PARENT_UID, "nobody");
     },
     nullptr},
    {"no-body", RULE_NO_BODY, [](RequestOptions* options) { OtherBody(options, {}); }, nullptr},
    {"no-document", RULE_NO_DOCUMENT,
     [](RequestOptions* options) { OtherBody(options, "This is no document.\r\n"); }, nullptr},
    {"field", RULE_FIELD,
     [](RequestOptions* options) {
       options->unchecked = true;
       options->fields.imageFormat = "BMP";
       options->fields.pushScanId = "4";
     },
     nullptr},
    {"protocol-name", RULE_PROTOCOL_NAME,
     [](RequestOptions* options) { With(options, tools::HEADER_PROTOCOL_NAME, "Another"); },
     nullptr},
    {"uid-missing", RULE_UID_MISSING,
     [](RequestOptions* options) { Without(options, tools::HEADER_UID); }, nullptr},
    {"uid-too-long", RULE_UID_TOO_LONG,
     [](RequestOptions* options) {
       With(options, tools::HEADER_UID, std::string(tools::UID_LIMIT + 1, '7'));
     },
     nullptr},
    {"lf-lines", RULE_LF_LINES, nullptr, BareLines},
    {"start-line", RULE_START_LINE, nullptr,
     [](std::string* bytes) { bytes->insert(bytes->find(' '), " "); }},
    {"header-line", RULE_HEADER_LINE, nullptr,
     [](std::string* bytes) { bytes->insert(bytes->find("\r\n") + 2, "no colon\r\n"); }},
    {"head-too-long", RULE_HEAD_TOO_LONG,
     [](RequestOptions* options) { With(options, "x-filling", std::string(4096, 'x')); }, nullptr},
    {"product", RULE_NO_DRIVER,
     [](RequestOptions* options) { options->fields.productName = "no such scanner"; }, nullptr},
    {"byte-by-byte", RULE_ACCEPTED, [](RequestOptions* options) { options->link.pieceSize = 1; },
     nullptr},
    {"pause-in-body", RULE_NO_BODY,
     [](RequestOptions* options) {
       options->link.pieceSize = HEAD_THEN_BODY;
       options->link.pauseMs = 600;
     },
     nullptr},
};

}  // namespace

const std::vector<Fault>& Faults() {
  return FAULTS;
}

const Fault* FindFault(const std::string& name) {
  const auto found = std::find_if(FAULTS.begin(), FAULTS.end(),
                                  [&](const Fault& fault) { return name == fault.name; });
  return found == FAULTS.end() ? nullptr : &*found;
}

}  // namespace zvqrn::scanner
