// A scanner's end of a connection: sends, hears whole messages, and enters both in the book.
#pragma once

#include <functional>

#include "actors/actors.h"

namespace zvqrn::simulation {

struct Line {
  Conversation* conversation;
  std::string received;  // not yet a whole message
  bool hasEnded;
};

// Connects; false when that fails.  A service that runs undisturbed must accept it.
bool Connect(Line* line, const std::string& name, bool polite);

// Gives bytes to the connection, all at once or cut in pieces with pauses; false when it is broken.
bool Give(Line* line, const std::string& bytes);
bool GiveInPieces(Line* line, const std::string& bytes, Dice* dice, Micros longestPause);

// Enters a request and gives it.
Request* Ask(Line* line, const Request& request, Dice* dice, Micros longestPause = 0);

// Hears until that time, or until `enough` or the connection's end.
void Hear(Line* line, Micros until, const std::function<bool()>& enough = nullptr);

// Hears until nothing is due any more; false when the connection has ended.
bool HearAll(Line* line);

void HangUp(Line* line);

// A request as scanners make them; `sound` ones are for the host.
Request MakeRequest(Dice* dice, const std::string& uid, bool sound);

}  // namespace zvqrn::simulation
