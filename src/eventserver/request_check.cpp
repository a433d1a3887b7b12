#include "eventserver/request_check.h"

#include "base/text.h"
#include "eventserver/connection_tables.h"

namespace zvqrn {
namespace {

CheckResult Refuse(CheckedRequest* checked, const char* status) {
  CopyBounded(checked->status, status, STATUS_SIZE);
  return CHECK_REFUSED;
}

CheckResult CheckParent(const ParsedMessage* parsed, CheckedRequest* checked) {
  const char* parentUid = nullptr;
  if (FindHeader(parsed, HEADER_PARENT_UID, &parentUid) != 1) {
    return Refuse(checked, STATUS_BAD_HEADERS);
  }
  const char* answer = CheckParentUid(parentUid);
  if (answer == nullptr) {
    return CHECK_FAILED;
  }
  if (EqualsIgnoringCase(answer, STATUS_ACCEPTED) != 0) {
    return Refuse(checked, answer);
  }
  CopyBounded(checked->parentUid, parentUid, UID_SIZE);
  return CHECK_ACCEPTED;
}

CheckResult CheckSubevent(const ParsedMessage* parsed, EventHeader* header,
                          CheckedRequest* checked) {
  header->exchangeType = EXCHANGE_SINGLE;
  header->subevent = SUBEVENT_NONE;
  const char* word = nullptr;
  if (FindHeader(parsed, HEADER_SUBEVENT, &word) != 1) {
    return CHECK_ACCEPTED;
  }
  const bool isStart = EqualsIgnoringCase(word, SUBEVENT_WORD_START) == 0;
  const bool isEnd = EqualsIgnoringCase(word, SUBEVENT_WORD_END) == 0;
  if (!isStart && !isEnd) {
    return Refuse(checked, STATUS_BAD_HEADERS);
  }
  header->exchangeType = EXCHANGE_PAIRED;
  header->subevent = isStart ? SUBEVENT_START : SUBEVENT_END;
  return isEnd ? CheckParent(parsed, checked) : CHECK_ACCEPTED;
}

}  // namespace

CheckResult CheckRequestHeaders(const ParsedMessage* parsed, EventHeader* header,
                                CheckedRequest* checked) {
  if (parsed == nullptr || header == nullptr || checked == nullptr) {
    return CHECK_FAILED;
  }
  const char* version = nullptr;
  if (FindHeader(parsed, HEADER_PROTOCOL_VERSION, &version) != 1) {
    return Refuse(checked, STATUS_BAD_HEADERS);
  }
  if (CheckVersion(version, checked->status) != 1) {
    return CHECK_REFUSED;
  }
  CopyBounded(header->protocolVersion, version, VERSION_SIZE);
  const CheckResult subevent = CheckSubevent(parsed, header, checked);
  if (subevent != CHECK_ACCEPTED) {
    return subevent;
  }
  checked->contentLength = ContentLength(parsed);
  if (checked->contentLength < 1 || GetBodyStart(parsed, &checked->bodyStart) != 1 ||
      checked->bodyStart == nullptr) {
    return Refuse(checked, STATUS_NO_BODY);
  }
  return CHECK_ACCEPTED;
}

}  // namespace zvqrn
