#include <string>

#include "common/adapters.h"
#include "common/module_loader.h"
#include "common/text.h"
#include "common/utf8.h"
#include "common/vocabulary.h"
#include "scanner/doctor/checks.h"
#include "scanner/exchange/request_options.h"
#include "scanner/search/search.h"
#include "scanner/wire/exchange.h"
#include "zvqrn/zvqrn.h"

namespace zvqrn::scanner {

namespace {

// No driver serves this, so the library answers by itself and the host hears of nothing.
constexpr char NO_PRODUCT[] = "quorin-doctor asks";

// A driver's name has at most so many bytes, its NUL included.
constexpr std::size_t DRIVER_NAME_SIZE = 34;

Answer Push(Account* account, const ServiceChecks& checks, const Patient& patient) {
  RequestOptions request;
  request.protocol = 2;
  request.fields.productName = NO_PRODUCT;
  request.fields.ipAddress = tools::AddressText(patient.address);
  request.link.address = tools::AddressText(patient.address);
  request.link.port = patient.eventPort;
  request.link.timeoutMs = checks.timeoutMs;
  request.link.trace = checks.trace;
  request.link.record = &account->trace;
  const OpenConnection connection = Connect(request.link);
  const std::string uid = NextUid(request);
  Send(connection.get(), MessageBytes(MakeRequest(request, EXCHANGE_OF_ONE, uid, {})));
  return AwaitAnswer(connection.get(), uid, [](const HostData&) {});
}

bool Is(const Answer& answer, const char* word) {
  return tools::IsAccepting(answer.status) && tools::EqualsIgnoringCase(answer.statusOut, word);
}

// What the utility library says of a product: 1 known, 0 not, below that it cannot be asked here.
int AskUtilityLibrary(const std::string& path, const std::string& product) {
  using GetTwainName = std::int32_t(QRN_EXPORT*)(const char* productName, char* buffer);
  std::string why;
  void* module = path.empty() ? nullptr : tools::OpenModule(path, &why);
  if (module == nullptr) {
    return -1;
  }
  const auto ask = reinterpret_cast<GetTwainName>(tools::FindFunction(module, "GetTWAINName"));
  char name[DRIVER_NAME_SIZE] = {};
  const int known = ask == nullptr ? -1 : ask(product.c_str(), name) == 1 ? 1 : 0;
  tools::CloseModule(module);
  return known;
}

bool IsFoundByProduct(Account* account, const ServiceChecks& checks, const std::string& product,
                      const Patient& patient) {
  Search search = MakeSearch(patient.address);
  search.from = ChooseSource(patient.address);
  search.request.scopes = EscapeScope(product);
  search.timeoutMs = checks.timeoutMs;
  search.trace = checks.trace;
  search.record = &account->trace;
  return !RunSearch(search, [](const SearchResult& soFar) {
            return !soFar.pcs.empty();
          }).pcs.empty();
}

void ReportNotFound(Account* account, const std::string& product, const Patient& patient) {
  const std::string topic = "product";
  const std::string text = "a search by '" + tools::EscapeUtf8(product) + "' is not answered";
  // Another user's library could do anything here.
  const int known = patient.mayLoad ? AskUtilityLibrary(patient.utilityPath, product) : -1;
  const std::string library = tools::EscapeUtf8(patient.utilityPath);
  if (patient.modulesKnown && !patient.libraryPath.empty() && patient.utilityPath.empty()) {
    Report(account, topic, VERDICT_PROBLEM, text + ": the host has loaded no utility library",
           "no-utility-library", "put the utility library beside the host program");
  } else if (known == 0) {
    Report(account, topic, VERDICT_PROBLEM, text + ": " + library + " knows no driver for it",
           "unknown-product", "install the driver of this scanner, or try the name that it sends");
  } else if (known == 1) {
    Report(account, topic, VERDICT_PROBLEM,
           text + ", though " + library + " knows it: the host's filter declines", "filter-refuses",
           "see to the host program's PeerFilterCallback");
  } else {
    Report(account, topic, VERDICT_PROBLEM,
           text + ": the utility library does not know it, or the host's filter declines",
           "unknown-product", "run this as the user of the host program to be told which");
  }
}

}  // namespace

void CheckUtilityLibrary(Account* account, const ServiceChecks& checks, const Patient& patient) {
  const std::string topic = "drivers";
  try {
    const Answer answer = Push(account, checks, patient);
    if (Is(answer, "TWAIN_NOT_INSTALL")) {
      Report(account, topic, VERDICT_OK,
             "there is a utility library" + (patient.utilityPath.empty()
                                                 ? std::string()
                                                 : ": " + tools::EscapeUtf8(patient.utilityPath)));
    } else if (Is(answer, "ERROR")) {
      Report(account, topic, VERDICT_PROBLEM,
             "there is no utility library: every request is answered ERROR, without the host",
             "no-utility-library", "put the utility library beside the host program");
    } else if (answer.status == tools::STATUS_BUSY) {
      Report(account, topic, VERDICT_WARNING,
             "not tried: another scanner is connected, or the service stops", "busy",
             "look again when it has gone");
    } else {
      Report(account, topic, VERDICT_WARNING,
             "a product that does not exist was answered x-status " +
                 tools::EscapeBytes(answer.status) + " " + tools::EscapeBytes(answer.statusOut),
             "unknown-product",
             "the utility library knows every name, or the program is another one");
    }
  } catch (const Failure& failure) {
    Report(account, topic, VERDICT_WARNING, std::string("not tried: ") + failure.what());
  }
}

void CheckProduct(Account* account, const ServiceChecks& checks, const std::string& product,
                  const Patient& patient) {
  try {
    if (IsFoundByProduct(account, checks, product, patient)) {
      Report(account, "product", VERDICT_OK,
             "a search by '" + tools::EscapeUtf8(product) + "' is answered");
    } else {
      ReportNotFound(account, product, patient);
    }
  } catch (const Failure& failure) {
    Report(account, "product", VERDICT_WARNING, std::string("not tried: ") + failure.what());
  }
}

}  // namespace zvqrn::scanner
