#include <algorithm>
#include <cmath>
#include <cstdio>

#include "common/json_lines.h"
#include "common/output.h"
#include "scanner/stress/stress.h"

namespace zvqrn::scanner {

namespace {

constexpr const char* PLACE_NAMES[] = {"beside", "before"};

double Median(std::vector<double> values) {
  if (values.empty()) {
    return 0;
  }
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

double Worst(const std::vector<double>& values) {
  return values.empty() ? 0 : *std::max_element(values.begin(), values.end());
}

double Rounded(double milliseconds) {
  return std::round(milliseconds * 100) / 100;
}

std::string Text(double milliseconds) {
  char text[32];
  std::snprintf(text, sizeof text, "%.1f ms", milliseconds);
  return text;
}

std::string AnswersText(const Tally& tally) {
  std::string text;
  for (const auto& [status, count] : tally.answers) {
    text += (text.empty() ? "" : ", ") + status + " x " + std::to_string(count);
  }
  return text.empty() ? "nothing" : text;
}

std::string BadText(const Tally& tally) {
  return std::to_string(tally.messages) + " messages (" + std::to_string(tally.bytes) +
         " bytes) on " + std::to_string(tally.connections) + " connections; " +
         std::to_string(tally.notConnected) + " not connected, " + std::to_string(tally.closed) +
         " ended by the PC; answered: " + AnswersText(tally);
}

std::string GoodText(const Service& service) {
  return std::to_string(service.served) + " served, " + std::to_string(service.busy) + " busy, " +
         std::to_string(service.closed) + " closed, " + std::to_string(service.missed) +
         " missed; median " + Text(Median(service.answerMs)) + ", worst " +
         Text(Worst(service.answerMs)) + "; free again after " + Text(service.recoveryMs);
}

tools::JsonObject PlaceObject(const Tally& tally, const Service& service) {
  tools::JsonObject answers;
  for (const auto& [status, count] : tally.answers) {
    answers[status] = count;
  }
  std::vector<std::string> problems = tally.problems;
  problems.insert(problems.end(), service.problems.begin(), service.problems.end());
  return {{"messages", tally.messages},
          {"bytes", tally.bytes},
          {"connections", tally.connections},
          {"notConnected", tally.notConnected},
          {"ended", tally.closed},
          {"answers", answers},
          {"goodServed", service.served},
          {"goodBusy", service.busy},
          {"goodClosed", service.closed},
          {"goodMissed", service.missed},
          {"goodMedianMs", Rounded(Median(service.answerMs))},
          {"goodWorstMs", Rounded(Worst(service.answerMs))},
          {"recoveryMs", Rounded(service.recoveryMs)},
          {"problems", problems}};
}

}  // namespace

void PrintKindResult(bool json, const KindResult& result) {
  const int places = result.kind->datagram ? 1 : 2;
  const bool good = AnswersWereRight(result) && NothingWasMissed(result);
  if (json) {
    tools::JsonObject object = {{"event", "kind"}, {"kind", result.kind->name}};
    for (int place = 0; place < places; ++place) {
      object[PLACE_NAMES[place]] = PlaceObject(result.tally[place], result.service[place]);
    }
    object["good"] = good;
    tools::PrintJsonLine(object);
    return;
  }
  std::string text = std::string(result.kind->name) + ": " + (good ? "as it should be" : "FAILED");
  for (int place = 0; place < places; ++place) {
    const std::string indent = std::string("\n    ") + PLACE_NAMES[place];
    text += indent + "  bad   " + BadText(result.tally[place]);
    text += indent + "  good  " + GoodText(result.service[place]);
    for (const auto* problems : {&result.tally[place].problems, &result.service[place].problems}) {
      for (const std::string& problem : *problems) {
        text.append(indent).append("  WRONG ").append(problem);
      }
    }
  }
  tools::PrintLine(text);
}

bool NothingWasMissed(const KindResult& result) {
  return result.service[PLACE_BESIDE].missed + result.service[PLACE_BEFORE].missed == 0;
}

bool AnswersWereRight(const KindResult& result) {
  bool right = true;
  for (const Place place : {PLACE_BESIDE, PLACE_BEFORE}) {
    const Service& service = result.service[place];
    // What was missed is a problem too, but not one of a wrong answer.
    right = right && result.tally[place].problems.empty() &&
            (service.problems.empty() || service.missed > 0);
  }
  return right;
}

}  // namespace zvqrn::scanner
