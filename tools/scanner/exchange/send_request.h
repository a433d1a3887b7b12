// One request from the command line's options to its printed answer; every subcommand that sends
// requests does it through here.
#pragma once

#include <string>

#include "scanner/exchange/request_options.h"
#include "scanner/wire/exchange.h"

namespace zvqrn::scanner {

// Sends a request, waits for its answer and prints it; gives the exit code that the answer stands
// for.  `parentUid` is that of an END; `*uid` receives the uid under which the request was sent.
ExitCode SendRequest(Connection* connection, const RequestOptions& options, Exchange exchange,
                     const std::string& parentUid, const DataHandler& onData, std::string* uid);

// The same for the END of START `startUid`, always under a uid of its own.
ExitCode SendEnd(Connection* connection, const RequestOptions& options, const std::string& startUid,
                 const DataHandler& onData);

}  // namespace zvqrn::scanner
