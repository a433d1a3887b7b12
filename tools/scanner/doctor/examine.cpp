#include "scanner/doctor/examine.h"

namespace zvqrn::scanner {

namespace {

// What a scanner sees of a service whose event port is known.
void AskEventServer(Account* account, const Examination& examination, const Patient& patient) {
  const int problems = account->problems;
  CheckEventPort(account, examination.checks, patient);
  if (account->problems == problems) {
    CheckUtilityLibrary(account, examination.checks, patient);
  }
  for (const std::string& product : examination.products) {
    CheckProduct(account, examination.checks, product, patient);
  }
}

// The part that asks the service.
void AskService(Account* account, const Examination& examination, Patient* patient) {
  CheckDirectRequest(account, examination.checks, patient);
  if (!examination.local) {
    CheckGroupRequest(account, examination.checks, patient);
  }
  if (patient->eventPort == 0) {
    return;
  }
  AskEventServer(account, examination, *patient);
}

}  // namespace

ExitCode Examine(const Examination& examination, Account* account, Patient* patient) {
  CheckAdapters(account, patient);
  CheckAnnouncedAddress(account, examination.scanner, patient);
  CheckName(account);
  CheckPorts(account, patient);
  CheckFirewall(account);
  if (!examination.local) {
    CheckGroup(account);
  }
  if (patient->address != 0) {
    AskService(account, examination, patient);
  }
  ExitCode exitCode = EXIT_OK;
  if (account->problems > 0) {
    exitCode = EXIT_PROBLEM_FOUND;
  } else if (!account->answered) {
    exitCode = EXIT_NOTHING_THERE;
  }
  PrintSummary(account, exitCode);
  return exitCode;
}

void ExamineOther(const Examination& examination, std::uint32_t address, std::uint16_t eventPort,
                  Account* account) {
  Patient patient;
  patient.address = address;
  patient.eventPort = eventPort;
  AskEventServer(account, examination, patient);
}

}  // namespace zvqrn::scanner
