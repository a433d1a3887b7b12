// What a test program finds around it, looked at before its first test.
#pragma once

#include <string>
#include <vector>

namespace zvqrn::test {

// Says, in sentences for whoever gave this command, why the program's tests cannot run here; empty
// when they can.  room_tests run anywhere.  The others serve port 2968 and change addresses, so
// they need a network of their own; and beside them the library, and the stand-in for the utility
// library with its table unless only WithoutUtilityLibrary is to run.
std::string WhyNotHere(const std::vector<std::string>& arguments);

}  // namespace zvqrn::test
