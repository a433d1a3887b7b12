// first_host - a host program in C++17: prints every push-scan request and answers it.
//
//   first_host [ANSWER [SECONDS]]
//
// ANSWER is the number of a QRN_RESPONSE_ code (default 1, OK; 9 declines).  It runs for SECONDS,
// or until Ctrl-C.  Linked to the library, so the system says so itself when ZVQRN.dll or
// libZVQRN.so is missing.
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <sstream>
#include <string>
#include <string_view>
#if defined(_WIN32)
#include <windows.h>
#else
#include <time.h>
#endif

#include <zvqrn/zvqrn.hpp>

namespace {

volatile std::sig_atomic_t interrupted = 0;

void SleepTenth() {
#if defined(_WIN32)
  Sleep(100);
#else
  const timespec time = {0, 100'000'000};
  nanosleep(&time, nullptr);
#endif
}

// A text of a request.  Anyone on the network can choose its bytes: what could disturb a terminal
// becomes a question mark.
std::string Shown(std::string_view text) {
  std::string shown(text);
  for (char& byte : shown) {
    byte = byte >= ' ' && byte <= '~' && byte != '"' ? byte : '?';
  }
  return shown;
}

std::string Describe(const zvqrn::Request& request) {
  std::ostringstream text;
  text << "request " << Shown(request.uid) << ": "
       << (request.exchange == zvqrn::Exchange::Start ? "START"
           : request.exchange == zvqrn::Exchange::End ? "END"
                                                      : "single")
       << ", driver \"" << Shown(request.driverName) << "\", scanner " << Shown(request.ipAddress);
  if (request.settings) {
    text << ", format " << static_cast<int>(request.settings->imageFormat) << ", colour "
         << static_cast<int>(request.settings->colorType) << ", paper "
         << static_cast<int>(request.settings->paperType);
  } else {
    text << ", push-scan ID " << request.pushScanId;
  }
  return text.str() + "\n";
}

}  // namespace

int main(int argc, char** argv) {
  const auto answer = static_cast<zvqrn::Answer>(argc > 1 ? std::atoi(argv[1]) : QRN_RESPONSE_OK);
  const long seconds = argc > 2 ? std::atol(argv[2]) : 0;
  std::signal(SIGINT, [](int) { interrupted = 1; });

  zvqrn::Callbacks callbacks;
  // Called on a thread of the library, several at once.  The texts of the request die when it
  // returns; request.id, by which data is sent to the scanner, may be kept.
  callbacks.onRequest = [answer](const zvqrn::Request& request) {
    std::cout << Describe(request) << std::flush;
    return answer;
  };
  // Locks of the library are held in here: return soon, and call none of its functions.
  callbacks.onStatus = [](zvqrn::StatusCode code, std::string_view message) {
    std::cerr << message
              << (code == zvqrn::StatusCode::NoNetwork ? "  Waiting until this PC has an address.\n"
                                                       : "\n");
  };
  zvqrn::Service service(callbacks);
  if (service.Start() == zvqrn::StartResult::Failed) {
    std::cerr << "The service did not start: another host holds port 2968, or the PC's name or\n"
                 "address could not be had.  quorin-scanner doctor --local says more.\n";
    return 1;
  }
  std::cout << "Waiting for requests; Ctrl-C ends." << std::endl;
  for (long tenths = 0; interrupted == 0 && (seconds == 0 || tenths < 10 * seconds); ++tenths) {
    SleepTenth();
  }
  service.Stop();  // no callback comes after this
  return 0;
}
