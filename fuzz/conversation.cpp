// Whole conversations on a main connection: messages, deliveries that run in any order, host
// verdicts, host sends and a stop.  Every request of the protocol gets exactly one answer, every
// send of the host goes out once, each reads back as it was meant, and only open STARTs are left.

#include "eventproto/message_writer.h"
#include "eventserver/connection_tables.h"
#include "eventserver/delivery.h"
#include "eventserver/dispatch.h"
#include "eventserver/host_data.h"
#include "eventserver/request_check.h"
#include "support/fuzz_target.h"

namespace zvqrn::fuzz {

// What must be sent: answers by their uid, data of the host with a mark before its own.
static std::vector<std::string> due;
static EventHeader lastRequest;
static FuzzedDataProvider* input;

static std::int32_t QRN_CALLBACK OnEvent(EventHeader* header, std::int32_t kind, const void* data,
                                         std::int32_t size, void*) {
  REQUIRE(kind == (header->protocolVersion[0] == '1' ? 1 : 3) && BlockOf(Bytes(data, size)).length);
  const auto choice = input->ConsumeIntegral<std::uint8_t>();
  EventHeader request = choice > 200 ? lastRequest : *header;
  lastRequest = *header;
  if (choice > 100 && SendHostData(&request, "data", 4) == 1) {
    due.push_back(std::string("data ") + request.uid);
  }
  return choice % 12;
}

// The check of the headers agrees with what they say.
static void CheckRequest(const OwnedParsedMessage& parsed) {
  EventHeader header{};
  CheckedRequest checked{};
  const bool good = CheckRequestHeaders(parsed.get(), &header, &checked) == CHECK_ACCEPTED;
  const std::string version = Header(parsed, HEADER_PROTOCOL_VERSION);
  const bool isVersion1 = version.rfind("1.", 0) == 0;
  REQUIRE(good == (checked.status[0] == '0') && (!good || isVersion1 || version == VERSION_2));
  REQUIRE(!good || (parsed->bodyStart != nullptr && ContentLength(parsed.get()) > 0));
  const bool isEnd = header.subevent == SUBEVENT_END;
  REQUIRE(!good || checked.parentUid == (isEnd ? Header(parsed, HEADER_PARENT_UID) : ""));
  SelectAnswerVersion(header.protocolVersion);
  REQUIRE(header.protocolVersion == std::string(version == VERSION_2 ? VERSION_2 : VERSION_1));
}

static void Dispatch(const SuspiciousBlock& message) {
  const OwnedParsedMessage parsed = HeadOf(message);
  const std::string uid = Header(parsed, HEADER_UID);
  const std::string name = Header(parsed, HEADER_PROTOCOL_NAME);
  if (parsed && parsed->kind == KIND_REQUEST && !uid.empty() && uid.size() < UID_SIZE &&
      EqualsIgnoringCase(name.c_str(), PROTOCOL_NAME) == 0) {
    CheckRequest(parsed);
    due.push_back(uid);
  }
  DispatchMessage(1, message.Data(), message.length);
}

static void CrossOut(const OutgoingMessage& message) {
  char* made = nullptr;
  std::int32_t size = 0;
  REQUIRE(BuildMessageBytes(&message, &made, &size) == 1);
  const OwnedBlock<char> bytes(made);
  const OwnedParsedMessage parsed = HeadOf(BlockOf(Bytes(made, size)));
  REQUIRE(parsed && Bytes(made + parsed->headLength, size - parsed->headLength) ==
                        Bytes(message.body, ContentLength(parsed.get())));
  const bool isAnswer = parsed->kind == KIND_RESPONSE;
  REQUIRE(Header(parsed, HEADER_STATUS) == (isAnswer ? message.status : ""));
  REQUIRE(Header(parsed, HEADER_PARENT_UID) == message.parentUid);
  const std::string sent = (isAnswer ? "" : "data ") + Header(parsed, HEADER_UID);
  const auto found = std::find(due.begin(), due.end(), sent);
  REQUIRE(found != due.end());
  due.erase(found);
}

void FuzzOne(FuzzedDataProvider* data) {
  input = data;
  lastRequest = {};
  service.eventCallback = OnEvent;
  service.listenerState = THREAD_RUNNING;
  CreateConnectionTables();
  while (data->remaining_bytes() > 0 || !fake.threads.empty()) {
    const bool ends = data->remaining_bytes() == 0;
    const auto choice = data->ConsumeIntegral<std::uint8_t>();
    if (choice == 255) {
      service.listenerState = THREAD_STOP_REQUESTED;
    } else if ((choice >= 100 || ends) && !fake.threads.empty()) {
      std::swap(fake.threads[choice % fake.threads.size()], fake.threads.back());
      const std::function<void()> thread = fake.threads.back();
      fake.threads.pop_back();
      thread();
    } else {
      Dispatch(BlockOf(data->ConsumeRandomLengthString()));
    }
  }
  for (const ListNode* node = service.sendQueue.head; node != nullptr; node = node->next) {
    CrossOut(*static_cast<const OutgoingMessage*>(node->item));
  }
  REQUIRE(due.empty());
  for (const ListNode* node = service.jobTable.head; node != nullptr; node = node->next) {
    const auto& job = *static_cast<const JobRecord*>(node->item);
    REQUIRE(job.delivered == 1 && job.header.subevent == SUBEVENT_START);
  }
  WaitForDeliveries();
  DestroyDeliveryList();
  DestroyJobTableAndSendQueue();
  due.shrink_to_fit();  // what an input leaves behind looks like a leak
}

}  // namespace zvqrn::fuzz
