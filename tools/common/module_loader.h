// Shared libraries as a program loads them at run time, and the folder in which the program lies.
// The operating system shows through here only.
#pragma once

#include <string>

namespace zvqrn::tools {

// "ZVQRN.dll" or "libZVQRN.so".
extern const char* const SERVICE_LIBRARY_FILE;

// Loads the library at `path`; gives null and the system's reason in `why` when it cannot.  The
// caller closes it.
void* OpenModule(const std::string& path, std::string* why);
void CloseModule(void* module);

// An exported function, or null.
using ModuleFunction = void (*)();
ModuleFunction FindFunction(void* module, const char* name);

// The version of the library at `path`, such as "0.1.0"; empty when the file does not tell.
std::string ModuleVersion(const std::string& path);

// The folder of the running program's file; empty when the system does not tell.
std::string ProgramFolder();

}  // namespace zvqrn::tools
