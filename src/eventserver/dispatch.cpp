#include "eventserver/dispatch.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <utility>

#include "base/allocation.h"
#include "base/driver_name.h"
#include "base/service_state.h"
#include "base/text.h"
#include "eventproto/message_head.h"
#include "eventproto/message_reader.h"
#include "eventserver/connection_tables.h"
#include "eventserver/delivery.h"
#include "eventserver/request_check.h"
#include "platform/clock.h"
#include "pushscan/documents.h"

namespace zvqrn {
namespace {

// The document of a request, ready for the host.
struct RequestDocument {
  std::int32_t code;  // DOC_OK, another DocumentResult, or one of the two codes below
  std::int32_t kind;
  OwnedBlock<char> data;
  std::int32_t dataSize;
};

// The driver's name cannot be had; both are response codes as well.
constexpr std::int32_t CODE_NO_DRIVER = QRN_RESPONSE_TWAIN_NOT_INSTALL;
constexpr std::int32_t CODE_NO_UTILITY_LIBRARY = QRN_RESPONSE_ERROR;

static_assert(offsetof(PushScanRequestRecord, productName) == 0 &&
                  offsetof(PushScanIdRecord, productName) == 0,
              "the product name comes first in both records");

// Takes the record of a request and fills in the name of the driver that serves its scanner: over
// the product name in a version 1 record, which has no field of its own for it.  The record may
// still be turned down by the document's code.  While the service stops the host gets no request
// any more, and the utility library is not asked: it may be slow, and may need the loader lock,
// which a host that unloads the library holds until this thread has ended.
void CompleteRequestData(const PushScanDataView& view, OwnedBlock<char> record,
                         RequestDocument* document) {
  char driverName[DRIVER_NAME_SIZE] = {};
  const DriverNameResult found =
      StopRequested() ? DRIVER_NAME_FOUND
                      : CallGetTwainName(service.getTwainName, record.get(), driverName);
  switch (found) {
    case DRIVER_NAME_FOUND: {
      const std::size_t place = view.kind == DOCUMENT_PUSHSCAN_V1
                                    ? offsetof(PushScanRequestRecord, productName)
                                    : offsetof(PushScanIdRecord, driverName);
      CopyBounded(record.get() + place, driverName, DRIVER_NAME_SIZE);
      document->kind = view.kind;
      document->data = std::move(record);
      document->dataSize = view.dataSize;
      return;
    }
    case DRIVER_NAME_NO_LIBRARY:
      document->code = CODE_NO_UTILITY_LIBRARY;
      return;
    default:
      document->code = CODE_NO_DRIVER;
  }
}

// Reads the body of a request; false for an internal failure, else the outcome is in the
// document's code.
bool ReadPushScanRequest(const char* body, std::int32_t bodyLength, const char* protocolVersion,
                         RequestDocument* document) {
  if (body == nullptr || bodyLength < 1) {
    return false;
  }
  PushScanDocument* made = nullptr;
  document->code = ParsePushScanDocument(body, bodyLength, protocolVersion, &made);
  if (document->code != DOC_OK) {
    return true;
  }
  const OwnedParsedDocument parsed(made);
  PushScanDataView view{};
  document->code = GetPushScanData(parsed.get(), &view);
  if (document->code != DOC_OK) {
    return true;
  }
  if (view.kind != DOCUMENT_PUSHSCAN_V1 && view.kind != DOCUMENT_PUSHSCAN_V2) {
    document->code = DOC_UNREADABLE;
    return true;
  }
  CompleteRequestData(view, OwnedBlock<char>(static_cast<char*>(TakePushScanData(made))), document);
  return true;
}

// Answers a request whose body was not accepted.  A missing driver is told in a document, under
// the status that the request has negotiated, as the host's own verdicts are.
void AnswerRejectedRequest(platform::SocketHandle socket, const EventHeader& header,
                           const CheckedRequest& checked, bool read, std::int32_t code) {
  OutgoingContent answer = AnswerWithoutBody(&header, STATUS_BAD_DOCUMENT, checked.parentUid);
  OwnedBlock<char> body;
  if (!read || code == DOC_FAILED) {
    answer.status = STATUS_INTERNAL_FAILURE;
  } else if (code == CODE_NO_DRIVER || code == CODE_NO_UTILITY_LIBRARY) {
    char* made = nullptr;
    if (BuildResponseBody(code, header.protocolVersion, &made, &answer.bodyLength) == 1) {
      body.reset(made);
      answer.body = made;
      answer.status = checked.status;
    } else {
      answer.status = STATUS_INTERNAL_FAILURE;
    }
  }
  QueueMessage(socket, answer);
}

void AcceptRequest(platform::SocketHandle socket, const EventHeader& header,
                   const CheckedRequest& checked, RequestDocument* document) {
  JobRecord* job =
      AddJob(socket, JobContent{&header, document->kind, document->data.release(),
                                document->dataSize, checked.status, checked.parentUid});
  if (job == nullptr) {
    QueueMessage(socket, AnswerWithoutBody(&header, STATUS_INTERNAL_FAILURE, checked.parentUid));
    return;
  }
  StartDelivery(job);
}

// True for a request of this protocol; its uid goes into the header.  Anything else gets no
// answer.
bool IsProtocolRequest(const ParsedMessage* parsed, EventHeader* header) {
  const char* name = nullptr;
  const char* uid = nullptr;
  if (parsed->kind != KIND_REQUEST || FindHeader(parsed, HEADER_PROTOCOL_NAME, &name) != 1 ||
      EqualsIgnoringCase(name, PROTOCOL_NAME) != 0 || FindHeader(parsed, HEADER_UID, &uid) != 1 ||
      std::strlen(uid) >= static_cast<std::size_t>(UID_SIZE)) {
    return false;
  }
  CopyBounded(header->uid, uid, UID_SIZE);
  return true;
}

// Keeps the bytes that begin the next message, or drops them when they cannot become one.
void KeepLeftover(OwnedBlock<char> bytes, std::int32_t length) {
  HeadMeasure measure{};
  if (!bytes || length >= HEAD_LIMIT ||
      MeasureHead(bytes.get(), length, &measure) != HEAD_UNFINISHED) {
    return;
  }
  service.incomingLeftover = bytes.release();
  service.incomingLeftoverLength = length;
  service.incomingLeftoverSince = platform::MonotonicMilliseconds();
}

}  // namespace

bool DispatchMessage(platform::SocketHandle socket, const char* bytes, std::int32_t length) {
  ParsedMessage* made = nullptr;
  ParseHead(bytes, length, &made);
  OwnedParsedMessage parsed(made);
  if (!parsed) {
    return false;
  }
  EventHeader header{};
  if (!IsProtocolRequest(parsed.get(), &header)) {
    return true;
  }
  CheckedRequest checked{};
  const CheckResult result = CheckRequestHeaders(parsed.get(), &header, &checked);
  SelectAnswerVersion(header.protocolVersion);
  parsed.reset();

  if (result == CHECK_REFUSED) {
    QueueMessage(socket, AnswerWithoutBody(&header, checked.status, checked.parentUid));
  }
  if (result != CHECK_ACCEPTED) {
    return true;
  }
  // Fewer bytes than announced are in hand when the scanner stopped in the middle of the body, or
  // the service did: then the body is not judged.
  const auto present = static_cast<std::int32_t>(bytes + length - checked.bodyStart);
  if (present < checked.contentLength && StopRequested()) {
    QueueMessage(socket, AnswerWithoutBody(&header, STATUS_BUSY, checked.parentUid));
    return true;
  }
  RequestDocument document{};
  const bool read = ReadPushScanRequest(checked.bodyStart, std::min(checked.contentLength, present),
                                        header.protocolVersion, &document);
  if (read && document.code == DOC_OK) {
    AcceptRequest(socket, header, checked, &document);
  } else {
    AnswerRejectedRequest(socket, header, checked, read, document.code);
  }
  return true;
}

void DropIncomingLeftover() {
  std::free(service.incomingLeftover);
  service.incomingLeftover = nullptr;
  service.incomingLeftoverLength = 0;
}

void AgeIncomingLeftover() {
  if (service.incomingLeftover != nullptr &&
      platform::MonotonicMilliseconds() - service.incomingLeftoverSince >= HEAD_SILENCE_LIMIT_MS) {
    DropIncomingLeftover();
  }
}

ProcessResult ProcessIncoming(platform::SocketHandle socket) {
  if (socket <= platform::NO_SOCKET) {
    return PROCESS_ENDED;
  }
  OwnedBlock<char> leftover(service.incomingLeftover);
  std::int32_t leftoverLength = service.incomingLeftoverLength;
  service.incomingLeftover = nullptr;
  service.incomingLeftoverLength = 0;

  // The first read may wait for the scanner; the others only take apart what it brought, so that a
  // scanner that never pauses cannot keep the answers from being sent.
  bool anyWhole = false;
  for (bool first = true; first || FindHeadEnd(leftover.get(), leftoverLength) != 0;
       first = false) {
    char* message = nullptr;
    std::int32_t messageLength = 0;
    char* rest = leftover.release();
    const ReadResult result = ReadMessage(socket, &message, &messageLength, &rest, &leftoverLength);
    const OwnedBlock<char> owner(message);
    leftover.reset(rest);
    if (result == READ_CLOSED || result == READ_FAILED) {
      return PROCESS_ENDED;
    }
    if (messageLength == 0) {
      break;
    }
    // A body that stopped short is judged as it stands, and makes no whole message.
    const bool isMessage = DispatchMessage(socket, message, messageLength);
    anyWhole = anyWhole || (isMessage && result == READ_DONE);
  }
  KeepLeftover(std::move(leftover), leftoverLength);
  return anyWhole ? PROCESS_HANDLED : PROCESS_IDLE;
}

}  // namespace zvqrn
