#include "scanner/exchange/send_request.h"

#include "common/vocabulary.h"
#include "scanner/exchange/report.h"

namespace zvqrn::scanner {

ExitCode SendRequest(Connection* connection, const RequestOptions& options, Exchange exchange,
                     const std::string& parentUid, const DataHandler& onData, std::string* uid) {
  const Message message = MakeRequest(options, exchange, NextUid(options), parentUid);
  // A header given on the command line may have replaced the uid or taken it away.
  const std::string* sentUid = FindHeader(message.headers, tools::HEADER_UID);
  *uid = sentUid == nullptr ? std::string() : *sentUid;
  Send(connection, MessageBytes(message));
  const Answer answer = AwaitAnswer(connection, *uid, onData);
  PrintAnswer(options.json, ExchangeName(exchange), answer);
  return JudgeAnswer(answer);
}

ExitCode SendEnd(Connection* connection, const RequestOptions& options, const std::string& startUid,
                 const DataHandler& onData) {
  RequestOptions endOptions = options;
  endOptions.uid.clear();
  std::string endUid;
  return SendRequest(connection, endOptions, EXCHANGE_END, startUid, onData, &endUid);
}

}  // namespace zvqrn::scanner
