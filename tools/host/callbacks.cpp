#include "host/callbacks.h"

#include <algorithm>

#include "common/text.h"
#include "host/asking.h"
#include "host/event_log.h"
#include "host/request_text.h"
#include "platform/clock.h"
#include "platform/thread.h"

namespace zvqrn::host {

namespace {

bool GetsData(const HostOptions& options, const EventHeader& header) {
  const bool isStart = header.subevent == SUBEVENT_START;
  const bool isSingle = header.exchangeType == EXCHANGE_SINGLE;
  return !options.sends.empty() && ((isStart && options.sendTo != SEND_TO_SINGLE) ||
                                    (isSingle && options.sendTo != SEND_TO_START));
}

std::int32_t AnswerFor(const HostOptions& options, const std::string& driverName) {
  const auto own = options.answerOf.find(driverName);
  return own == options.answerOf.end() ? options.answer : own->second;
}

void SendAll(HostState* state, std::int32_t number, const EventHeader& header) {
  for (const std::string& bytes : state->options->sends) {
    // A copy each time: the library writes the data's own uid into the record that it is given.
    EventHeader request = header;
    const std::int32_t result =
        state->library->sendData(&request, bytes.data(), static_cast<std::int32_t>(bytes.size()));
    const std::string newUid = tools::FieldText(request.uid, sizeof request.uid);
    const HeldLock lock = LockState(state);
    LogSend(state->options->json, number, header, newUid, bytes, result);
  }
}

}  // namespace

HeldLock LockState(HostState* state) {
  platform::WaitSemaphore(state->lock, platform::WAIT_WITHOUT_END);
  return HeldLock(state->lock);
}

std::int32_t QRN_CALLBACK OnPeer(const PeerDescription* peer, FilterContext context) {
  auto* state = static_cast<HostState*>(context);
  if (state->options->asks) {
    return AskAboutPeer(state, *peer);
  }
  if (state->options->filterDelayMs > 0) {
    platform::SleepMilliseconds(state->options->filterDelayMs);
  }
  const HeldLock lock = LockState(state);
  const bool answers = !state->options->ignoresPeers;
  LogPeer(state->options->json, *peer, answers);
  return answers ? 1 : 0;
}

std::int32_t QRN_CALLBACK OnScanEvent(EventHeader* header, std::int32_t documentKind,
                                      const void* requestData, std::int32_t requestDataSize,
                                      EventContext context) {
  auto* state = static_cast<HostState*>(context);
  const HostOptions& options = *state->options;
  const EventHeader request = *header;
  if (options.asks) {
    return AskAboutRequest(state, request, documentKind, requestData, requestDataSize);
  }
  const std::int32_t code =
      AnswerFor(options, DriverName(documentKind, requestData, requestDataSize));
  std::int32_t number = 0;
  {
    const HeldLock lock = LockState(state);
    number = ++state->received;
    LogRequest(options.json, number, request, documentKind, requestData, requestDataSize);
  }
  const bool sends = GetsData(options, request);
  if (sends && options.sendAfterMs == SEND_INSIDE_CALLBACK) {
    SendAll(state, number, request);
  }
  if (options.delayMs > 0) {
    platform::SleepMilliseconds(options.delayMs);
  }
  const HeldLock lock = LockState(state);
  LogAnswer(options.json, number, request, code);
  ++state->answered;
  if (sends && options.sendAfterMs != SEND_INSIDE_CALLBACK) {
    const std::int64_t dueMs = platform::MonotonicMilliseconds() + options.sendAfterMs;
    state->dueSends.push_back({dueMs, number, request});
  }
  platform::SignalEvent(state->changed);
  return code;
}

std::int32_t QRN_CALLBACK OnStatus(std::int32_t statusClass, std::int32_t statusCode,
                                   const char* message, StatusContext context) {
  auto* state = static_cast<HostState*>(context);
  const HeldLock lock = LockState(state);
  state->toldNoNetwork = statusCode == QRN_STATUS_NO_NETWORK;
  LogStatus(state->options->json, statusClass, statusCode, message);
  return 0;
}

void SendWhatIsDue(HostState* state) {
  std::vector<DueSend> due;
  {
    const HeldLock lock = LockState(state);
    const std::int64_t now = platform::MonotonicMilliseconds();
    std::vector<DueSend>& all = state->dueSends;
    const auto firstDue = std::stable_partition(
        all.begin(), all.end(), [now](const DueSend& send) { return send.dueMs > now; });
    due.assign(firstDue, all.end());
    all.erase(firstDue, all.end());
  }
  for (const DueSend& send : due) {
    SendAll(state, send.number, send.header);
  }
}

}  // namespace zvqrn::host
