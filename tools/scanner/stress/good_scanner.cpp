#include <chrono>

#include "common/text.h"
#include "common/vocabulary.h"
#include "platform/clock.h"
#include "platform/thread.h"
#include "scanner/stress/stress.h"
#include "scanner/wire/exchange.h"

namespace zvqrn::scanner {

namespace {

constexpr std::size_t SHOWN_PROBLEMS = 4;
constexpr std::int32_t PAUSE_MS = 20;

using Clock = std::chrono::steady_clock;

double MillisecondsSince(Clock::time_point start) {
  return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

Answer Ask(Connection* connection, const RequestOptions& request) {
  const std::string uid = NextUid(request);
  Send(connection, MessageBytes(MakeRequest(request, EXCHANGE_OF_ONE, uid, {})));
  return AwaitAnswer(connection, uid, [](const HostData&) {});
}

// Counts an answer, or says what is wrong with it.
void Judge(const GoodScanner& scanner, const Answer& answer, bool mayBeBusy, Service* service) {
  if (!answer.problem.empty()) {
    NoteProblem(&service->problems, answer.problem);
  } else if (answer.status == scanner.expected.status &&
             answer.statusOut == scanner.expected.statusOut) {
    ++service->served;
  } else if (answer.status == tools::STATUS_BUSY && mayBeBusy) {
    ++service->busy;
  } else {
    NoteProblem(&service->problems, "answered " + tools::EscapeBytes(answer.status) + " " +
                                        tools::EscapeBytes(answer.statusOut) + ", not " +
                                        scanner.expected.status + " " + scanner.expected.statusOut);
  }
}

// One request on `connection`, which is made when there is none and kept when it is the main one.
void AskOnce(const GoodScanner& scanner, const Kind& kind, Place place, OpenConnection* connection,
             Service* service) {
  const bool mayBeBusy = place == PLACE_BEFORE || scanner.notAlone;
  const Clock::time_point start = Clock::now();
  try {
    if (*connection == nullptr) {
      *connection = Connect(scanner.request.link);
    }
    const Answer answer = Ask(connection->get(), scanner.request);
    service->answerMs.push_back(MillisecondsSince(start));
    Judge(scanner, answer, mayBeBusy, service);
    if (place == PLACE_BEFORE || answer.status == tools::STATUS_BUSY) {
      connection->reset();
    }
  } catch (const ConnectionEnded& ended) {
    connection->reset();
    ++service->closed;
    if (!scanner.notAlone && (place == PLACE_BESIDE || !kind.crowded)) {
      NoteProblem(&service->problems, ended.what());
    }
  } catch (const Failure& failure) {
    connection->reset();
    if (failure.exitCode == EXIT_PROTOCOL_ERROR) {
      NoteProblem(&service->problems, failure.what());
    } else if (!scanner.notAlone) {
      ++service->missed;
      NoteProblem(&service->problems, failure.what());
    }
  }
}

}  // namespace

void NoteProblem(std::vector<std::string>* problems, const std::string& problem) {
  if (problems->size() < SHOWN_PROBLEMS) {
    problems->push_back(problem);
  }
}

OpenConnection AwaitService(const GoodScanner& scanner, ServedAnswer* served) {
  const RequestOptions& request = scanner.request;
  const std::int64_t endMs = platform::MonotonicMilliseconds() + request.link.timeoutMs;
  for (;;) {
    try {
      OpenConnection connection = Connect(request.link);
      const Answer answer = Ask(connection.get(), request);
      if (tools::IsAccepting(answer.status) && answer.problem.empty()) {
        *served = {answer.status, answer.statusOut};
        return connection;
      }
      throw Failure(answer.status == tools::STATUS_BUSY ? EXIT_REFUSED : EXIT_PROTOCOL_ERROR,
                    "the PC does not serve: x-status " + tools::EscapeBytes(answer.status) + " (" +
                        tools::StatusMeaning(answer.status) + ") " + answer.problem);
    } catch (const Failure& failure) {
      // Its connections may be taken for a moment, or its service may just restart.
      const bool mayPass = failure.exitCode == EXIT_REFUSED ||
                           dynamic_cast<const ConnectionEnded*>(&failure) != nullptr ||
                           scanner.notAlone;
      if (!mayPass || platform::MonotonicMilliseconds() >= endMs) {
        throw;
      }
    }
    platform::SleepMilliseconds(PAUSE_MS);
  }
}

void SendBesideAttack(const GoodScanner& scanner, const Kind& kind, Place place, std::int64_t endMs,
                      OpenConnection connection, Service* service) {
  while (platform::MonotonicMilliseconds() < endMs) {
    AskOnce(scanner, kind, place, &connection, service);
    platform::SleepMilliseconds(PAUSE_MS);
  }
}

}  // namespace zvqrn::scanner
