#include "scanner/panel/state.h"

#include "common/adapters.h"
#include "common/text.h"
#include "scanner/wire/capture_file.h"

namespace zvqrn::scanner {

namespace {

constexpr std::size_t SHOWN_OF_A_TEXT = 500;

}  // namespace

std::string Shortened(const std::string& text) {
  return text.size() > SHOWN_OF_A_TEXT ? text.substr(0, SHOWN_OF_A_TEXT) + "..." : text;
}

void NoteEvent(PanelState* state, int scanner, const std::string& kind, const std::string& pc,
               const std::string& text) {
  const std::uint64_t number = state->history.Add({});
  Remembered* event = state->history.Find(number);
  event->summary = tools::JsonObject({{"number", number},
                                      {"timeUs", CaptureTime()},
                                      {"scanner", scanner},
                                      {"pc", pc},
                                      {"kind", kind},
                                      {"title", Shortened(text)}})
                       .Text();
  state->history.Tell("message", event->summary);
}

tools::JsonObject DescribePc(const KnownPc& pc) {
  std::vector<tools::JsonObject> findings;
  for (const Finding& finding : pc.findings) {
    findings.push_back({{"topic", finding.topic},
                        {"verdict", VerdictWord(finding.verdict)},
                        {"text", Shortened(finding.text)},
                        {"advice", finding.advice},
                        {"cause", finding.cause}});
  }
  return {{"from", tools::AddressText(pc.sender)},
          {"name", ShownName(pc.description.name)},
          {"formerName", ShownName(pc.formerName)},
          {"address", pc.description.address},
          {"eventPort", pc.description.eventPort},
          {"notes", pc.notes},
          {"lastReplyMs", pc.lastReplyMs},
          {"replyMs", pc.replyMs},
          {"missed", pc.missed},
          {"gone", pc.gone},
          {"own", pc.isOwn},
          {"examining", pc.examining},
          {"examined", pc.examined},
          {"findings", findings}};
}

tools::JsonObject DescribePcs(const PanelState& state) {
  std::vector<tools::JsonObject> pcs;
  for (const KnownPc& pc : state.pcs.pcs) {
    pcs.push_back(DescribePc(pc));
  }
  return {{"pcs", pcs},
          {"more", state.pcs.moreSenders},
          {"trouble", state.searchTrouble},
          {"product", state.product}};
}

void TellPcs(PanelState* state) {
  state->history.Tell("pcs", DescribePcs(*state).Text());
}

}  // namespace zvqrn::scanner
