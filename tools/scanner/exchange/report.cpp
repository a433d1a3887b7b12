#include "scanner/exchange/report.h"

#include "common/json_lines.h"
#include "common/output.h"
#include "common/text.h"
#include "common/vocabulary.h"

namespace zvqrn::scanner {

namespace {

void PrintAnswerJson(const std::string& exchange, const Answer& answer) {
  tools::JsonObject object = {{"event", "answer"},
                              {"exchange", exchange},
                              {"uid", tools::JsonText(answer.uid)},
                              {"protocolVersion", tools::JsonText(answer.protocolVersion)},
                              {"xStatus", tools::JsonText(answer.status)},
                              {"xStatusMeaning", tools::StatusMeaning(answer.status)}};
  if (!answer.subevent.empty()) {
    object["subevent"] = tools::JsonText(answer.subevent);
  }
  if (!answer.parentUid.empty()) {
    object["parentUid"] = tools::JsonText(answer.parentUid);
  }
  if (answer.hasStatusOut) {
    object["statusOut"] = tools::JsonText(answer.statusOut);
    object["statusOutMeaning"] = tools::StatusOutMeaning(answer.statusOut);
  }
  if (!answer.problem.empty()) {
    object["problem"] = answer.problem;
  }
  object["exitCode"] = static_cast<int>(JudgeAnswer(answer));
  tools::PrintJsonLine(object);
}

}  // namespace

void PrintAnswer(bool json, const std::string& exchange, const Answer& answer) {
  if (json) {
    PrintAnswerJson(exchange, answer);
    return;
  }
  std::string text = "answer to the " + exchange + " request:\n    x-status  " +
                     tools::EscapeBytes(answer.status) + " (" +
                     tools::StatusMeaning(answer.status) + ")";
  if (answer.hasStatusOut) {
    text += "\n    StatusOut " + tools::EscapeBytes(answer.statusOut) + " (" +
            tools::StatusOutMeaning(answer.statusOut) + ")";
  }
  text += "\n    uid       " + tools::EscapeBytes(answer.uid) + ", protocol version " +
          tools::EscapeBytes(answer.protocolVersion);
  if (!answer.subevent.empty()) {
    text += ", subevent " + tools::EscapeBytes(answer.subevent);
  }
  if (!answer.parentUid.empty()) {
    text += ", parent uid " + tools::EscapeBytes(answer.parentUid);
  }
  if (!answer.problem.empty()) {
    text += "\n    NOT an answer of this protocol: " + answer.problem;
  }
  tools::PrintLine(text);
}

void PrintData(bool json, int number, const HostData& data, const std::string& file) {
  if (json) {
    tools::JsonObject object = {{"event", "data"},
                                {"number", number},
                                {"uid", tools::JsonText(data.uid)},
                                {"parentUid", tools::JsonText(data.parentUid)},
                                {"protocolVersion", tools::JsonText(data.protocolVersion)},
                                {"size", data.bytes.size()}};
    if (file.empty()) {
      object["data"] = tools::JsonText(data.bytes);
    } else {
      object["file"] = file;
    }
    tools::PrintJsonLine(object);
    return;
  }
  const std::string what =
      file.empty() ? ":\n    " + tools::EscapeBytes(data.bytes) : ", saved in " + file;
  tools::PrintLine("data " + std::to_string(number) + " from the host, uid " +
                   tools::EscapeBytes(data.uid) + ", for request " +
                   tools::EscapeBytes(data.parentUid) + ", " + std::to_string(data.bytes.size()) +
                   " bytes" + what);
}

}  // namespace zvqrn::scanner
