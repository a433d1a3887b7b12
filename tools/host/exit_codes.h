// How quorin-host ends.
#pragma once

namespace zvqrn::host {

enum ExitCode : int {
  EXIT_OK = 0,          // ended as asked, the service stopped
  EXIT_FAILED = 1,      // the PC name was not taken, or the service did not stop
  EXIT_USAGE = 2,       // the command line cannot be used
  EXIT_NO_LIBRARY = 3,  // the library was not found or is not usable
  EXIT_NO_SERVICE = 4   // the service did not start
};

}  // namespace zvqrn::host
