// What the system tells of itself beside its network: its name and version, the libraries that a
// process has loaded, and what a command of its prints.  Used by quorin-scanner doctor; any thread.
// The operating system shows through here only.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace zvqrn::tools {

// "Linux 6.1.0-18-amd64 x86_64", "Windows 10.0.19045".
std::string SystemText();

// The paths of the libraries that a process has loaded; false when the system does not tell, as of
// another user's processes.
bool ListModules(std::uint32_t processId, std::vector<std::string>* paths);

// True for a process of the user who runs this one, with the same rights: what it has loaded may be
// loaded here too.
bool IsOwnProcess(std::uint32_t processId);

// The first of the paths whose file has this name, in whatever case, or begins with it and a dot;
// empty when there is none.
std::string FindModulePath(const std::vector<std::string>& paths, const std::string& file);

// Runs a command of the shell and gives what it prints on standard output, at most 1 MiB; false
// when it cannot be run or ends with another code than 0.
bool RunCommand(const char* command, std::string* output);

// Shows a page in the user's browser; false when the system has none.  `address` may hold only what
// a shell leaves alone: letters, digits, and any of :/.?=-
bool OpenInBrowser(const std::string& address);

}  // namespace zvqrn::tools
