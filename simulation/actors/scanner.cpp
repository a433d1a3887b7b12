// Scanners that keep to the protocol.

#include "actors/line.h"
#include "platform/clock.h"

namespace zvqrn::simulation {
namespace {

struct Scanner {
  Dice dice;
  std::int32_t number;
  std::int32_t asked;  // requests so far

  std::string Uid() {
    std::string uid = "s" + std::to_string(number) + "-" + std::to_string(++asked);
    if (dice.OneIn(5)) {
      uid.resize(19, 'u');
    }
    return uid;
  }
  Micros Pause() { return dice.OneIn(4) ? dice.Spread(700 * MS) : 0; }
};

Request* AskSingle(Scanner* scanner, Line* line) {
  const bool sound = !scanner->dice.OneIn(4);
  const Request request = MakeRequest(&scanner->dice, scanner->Uid(), sound);
  return Ask(line, request, &scanner->dice, scanner->Pause());
}

// A START, and mostly its END once the START has been answered.
void AskPair(Scanner* scanner, Line* line) {
  Dice& dice = scanner->dice;
  Request start = MakeRequest(&dice, scanner->Uid(), true);
  start.subevent = dice.OneIn(4) ? "start" : "START";
  WriteRequest(&start, &dice);
  const Request* asked = Ask(line, start, &dice, scanner->Pause());
  if (!dice.OneIn(5) && !HearAll(line)) {
    return;
  }
  if (dice.OneIn(3)) {
    Hear(line, machine.now + dice.Spread(2 * SECOND));
  }
  if (dice.OneIn(10)) {
    // The same once more: the END may come while the host still has it.
    Ask(line, start, &dice);
  }
  const std::int32_t ends = dice.OneIn(6) ? 2 : dice.OneIn(6) ? 0 : 1;
  for (std::int32_t i = 0; i < ends && !line->hasEnded; i++) {
    Request end = MakeRequest(&dice, i == 0 && dice.OneIn(10) ? start.uid : scanner->Uid(), true);
    end.subevent = dice.OneIn(4) ? "End" : "END";
    end.parent = asked->currentUid;
    WriteRequest(&end, &dice);
    Ask(line, end, &dice, scanner->Pause());
    if (dice.OneIn(2) && !HearAll(line)) {
      return;
    }
  }
}

// Several at once.
void AskMany(Scanner* scanner, Line* line) {
  const std::int64_t count = scanner->dice.Between(2, 5);
  for (std::int64_t i = 0; i < count && !line->hasEnded; i++) {
    const bool sound = scanner->dice.OneIn(2);
    Ask(line, MakeRequest(&scanner->dice, scanner->Uid(), sound), &scanner->dice);
  }
}

// The uid of an earlier request again.
void AskAgain(Scanner* scanner, Line* line) {
  const Request first = MakeRequest(&scanner->dice, scanner->Uid(), true);
  for (int i = 0; i < 2; i++) {
    Request again = MakeRequest(&scanner->dice, first.uid, true);
    again.subevent = scanner->dice.OneIn(3) ? "START" : "";
    again.number = i + 1;  // by which the host's two can be told apart
    WriteRequest(&again, &scanner->dice);
    Ask(line, again, &scanner->dice);
  }
}

void EndConnection(Scanner* scanner, Line* line) {
  switch (scanner->dice.Below(4)) {
    case 0:
      if (!line->hasEnded) {
        BreakOff(line->conversation->socket);
        return;
      }
      break;
    case 1:
      if (!line->hasEnded) {
        platform::EndSending(line->conversation->socket);
        line->conversation->isPolite = false;  // what is not sent yet may be lost
        Hear(line, machine.now + 30 * SECOND);
      }
      break;
    default:
      break;
  }
  HangUp(line);
}

}  // namespace

void BehaveWell(Dice dice, std::int32_t number, bool bulky) {
  Scanner scanner{dice, number, 0};
  const std::int64_t connections = scanner.dice.Between(1, 3);
  for (std::int64_t i = 0; i < connections; i++) {
    if (scanner.dice.OneIn(3)) {
      Sleep(scanner.dice.Spread(3 * SECOND));
    }
    Line line{};
    const std::string name =
        "scanner " + std::to_string(number) + ", connection " + std::to_string(i + 1);
    if (!Connect(&line, name, true)) {
      Sleep(scanner.dice.Spread(SECOND));
      continue;
    }
    line.conversation->isBulky = line.conversation->isBulky || bulky;
    const std::int64_t steps = scanner.dice.Between(1, 4);
    for (std::int64_t step = 0; step < steps && !line.hasEnded; step++) {
      switch (scanner.dice.Below(6)) {
        case 0:
          AskPair(&scanner, &line);
          break;
        case 1:
          AskMany(&scanner, &line);
          break;
        case 2:
          AskAgain(&scanner, &line);
          break;
        case 3:
          Hear(&line, machine.now + scanner.dice.Spread(2 * SECOND));
          break;
        default:
          AskSingle(&scanner, &line);
      }
      if (scanner.dice.OneIn(2)) {
        HearAll(&line);
      }
      if (line.conversation->isServed && !line.hasEnded && scanner.dice.OneIn(8)) {
        // Scanners answer the host's data; nobody looks at it.
        Give(&line, "HTTP/1.0 200 OK\r\nx-uid : 1\r\nx-status : 0001\r\n\r\n");
      }
    }
    if (!line.hasEnded && !scanner.dice.OneIn(4)) {
      HearAll(&line);
    }
    EndConnection(&scanner, &line);
  }
}

void AskOnce(std::int32_t number) {
  Dice dice(static_cast<std::uint64_t>(number));
  Line line{};
  if (!Connect(&line, "the last scanner", true)) {
    Finding("the next start does not listen");
  }
  Ask(&line, MakeRequest(&dice, "last", true), &dice);
  if (!HearAll(&line) || !line.conversation->isServed) {
    Finding("the next start does not serve");
  }
  HangUp(&line);
}

}  // namespace zvqrn::simulation
