#include "host/event_log.h"

#include "common/json_lines.h"
#include "common/machine_text.h"
#include "common/output.h"
#include "common/text.h"
#include "common/utf8.h"
#include "host/asking.h"
#include "host/options.h"
#include "host/request_text.h"

namespace zvqrn::host {

namespace {

std::string Uid(const EventHeader& header) {
  return tools::FieldText(header.uid, sizeof header.uid);
}

void AddPeerFields(const PeerDescription& peer, tools::JsonObject* object) {
  (*object)["driverName"] = tools::JsonText(peer.driverName);
  (*object)["serviceType"] = tools::JsonText(peer.serviceType);
  (*object)["scopeList"] = tools::JsonText(peer.scopeList);
  (*object)["tagList"] = tools::JsonText(peer.tagList);
}

}  // namespace

void LogStarted(const HostOptions& options, const std::string& pcName, bool waiting) {
  if (options.json) {
    tools::JsonObject object = {
        {"event", "started"}, {"pcName", tools::JsonText(pcName)}, {"waiting", waiting}};
    if (options.asks) {
      object["ask"] = ASK_VERSION;
    }
    tools::PrintJsonLine(object);
    return;
  }
  if (!waiting) {
    tools::PrintLine("PC name: " + tools::EscapeUtf8(tools::FromLibraryText(pcName)));
  }
  tools::PrintLine(waiting ? "The service waits for the PC to get a usable address."
                           : "The service runs and listens on TCP port 2968.");
}

void LogRequest(bool json, std::int32_t number, const EventHeader& header,
                std::int32_t documentKind, const void* requestData, std::int32_t size) {
  if (json) {
    tools::JsonObject object = {{"event", "request"}, {"number", number}};
    AddRequestFields(header, documentKind, requestData, size, &object);
    tools::PrintJsonLine(object);
    return;
  }
  tools::PrintLine("request " + std::to_string(number) + ": " +
                   DescribeRequest(header, documentKind, requestData, size));
}

void LogAnswer(bool json, std::int32_t number, const EventHeader& header, std::int32_t code) {
  if (json) {
    tools::PrintJsonLine({{"event", "answer"},
                          {"number", number},
                          {"uid", tools::JsonText(Uid(header))},
                          {"code", code},
                          {"word", AnswerWord(code)}});
    return;
  }
  tools::PrintLine("answer " + std::to_string(number) + ": " + std::to_string(code) + " (" +
                   AnswerWord(code) + ")");
}

void LogSend(bool json, std::int32_t number, const EventHeader& header, const std::string& newUid,
             const std::string& bytes, std::int32_t result) {
  if (json) {
    tools::JsonObject object = {
        {"event", "send"}, {"number", number}, {"uid", tools::JsonText(Uid(header))}};
    if (result == 1) {
      object["newUid"] = tools::JsonText(newUid);
    }
    object["bytes"] = bytes.size();
    object["result"] = result;
    tools::PrintJsonLine(object);
    return;
  }
  const std::string what = std::to_string(bytes.size()) + " bytes";
  tools::PrintLine("data for request " + std::to_string(number) + ": " +
                   (result == 1 ? what + " on their way under uid " + tools::QuoteBytes(newUid)
                                : what + " not taken: the request is not open any more"));
}

void LogPeerQuestion(std::int32_t number, const PeerDescription& peer) {
  tools::JsonObject object = {{"event", "peer"}, {"number", number}};
  AddPeerFields(peer, &object);
  tools::PrintJsonLine(object);
}

void LogPeerAnswer(std::int32_t number, bool answered) {
  tools::PrintJsonLine({{"event", "peerAnswer"}, {"number", number}, {"answered", answered}});
}

void LogExpired(std::int32_t number) {
  tools::PrintJsonLine({{"event", "expired"}, {"number", number}});
}

void LogMistake(std::size_t line, const std::string& reason) {
  tools::PrintJsonLine({{"event", "mistake"}, {"line", line}, {"reason", reason}});
}

void LogPeer(bool json, const PeerDescription& peer, bool answered) {
  if (json) {
    tools::JsonObject object = {{"event", "peer"}};
    AddPeerFields(peer, &object);
    object["answered"] = answered;
    tools::PrintJsonLine(object);
    return;
  }
  tools::PrintLine("a scanner looks for this PC: scope " + tools::QuoteBytes(peer.scopeList) +
                   ", driver " + tools::QuoteBytes(peer.driverName) + ", tags " +
                   tools::QuoteBytes(peer.tagList) + (answered ? "; answered" : "; declined"));
}

void LogStatus(bool json, std::int32_t statusClass, std::int32_t statusCode,
               const std::string& message) {
  if (json) {
    tools::PrintJsonLine({{"event", "status"},
                          {"class", statusClass},
                          {"code", statusCode},
                          {"message", tools::JsonText(message)}});
    return;
  }
  const char* kind = statusClass == QRN_STATUS_CLASS_ERROR ? "error" : "notice";
  tools::PrintLine(std::string("the library reports (") + kind + ", code " +
                   std::to_string(statusCode) + "): " + tools::EscapeBytes(message));
}

void LogStopped(bool json, std::int32_t result, std::int32_t requests) {
  if (json) {
    tools::PrintJsonLine({{"event", "stopped"}, {"result", result}, {"requests", requests}});
    return;
  }
  tools::PrintLine("The service has ended after " + std::to_string(requests) +
                   (requests == 1 ? " request." : " requests."));
}

}  // namespace zvqrn::host
