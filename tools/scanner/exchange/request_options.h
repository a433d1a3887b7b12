// The options that the subcommands share which send requests: where to, with what in them, and how
// they are made wrong on purpose.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "common/command_line.h"
#include "scanner/wire/connection.h"
#include "scanner/wire/document.h"
#include "scanner/wire/message.h"

namespace zvqrn::scanner {

struct RequestOptions {
  Link link;
  std::string bind;      // the address to connect from; empty: the system's choice
  std::string pcapFile;  // where to capture what is exchanged; empty: nowhere
  bool json = false;
  int protocol = 1;         // which document the request carries
  std::string versionText;  // instead of "1.00" or "2.00"
  std::string uid;          // empty: a fresh one for each request
  PushScanFields fields;
  bool unchecked = false;  // send the fields even when a PC must refuse them
  Headers replacedHeaders;
  Headers addedHeaders;
  std::vector<std::string> removedHeaders;
  bool hasBody = false;  // `body` instead of a document
  std::string body;
};

// Which message of an exchange a request is.
enum Exchange { EXCHANGE_OF_ONE, EXCHANGE_START, EXCHANGE_END };

// "single", "start" or "end".
const char* ExchangeName(Exchange exchange);

// Adds the options of where to send to and what to print.
void AddLinkOptions(tools::CommandLine* command, RequestOptions* options);

// Adds all the shared options, those above among them, to a subcommand.
void AddRequestOptions(tools::CommandLine* command, RequestOptions* options);

// Refuses the command line when the fields cannot be those of a scanner, unless `unchecked`.
void CheckRequestOptions(const RequestOptions& options);

// Adds what subcommands with a single connection know besides: from where, and its capture.
void AddConnectionOptions(tools::CommandLine* command, RequestOptions* options);

// The link with what its options name looked up and opened; throws a Failure when that cannot be.
Link OpenLink(const RequestOptions& options);

// Gives the uid for the next request.
std::string NextUid(const RequestOptions& options);

// Gives the request as the options want it; `parentUid` is that of an END.
Message MakeRequest(const RequestOptions& options, Exchange exchange, const std::string& uid,
                    const std::string& parentUid);

}  // namespace zvqrn::scanner
