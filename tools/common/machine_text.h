// Texts of this machine: the command line, names of files, and what the library takes and gives. In
// a tool all of them are UTF-8; Windows has them in UTF-16 or in its code page.  Any thread.  The
// operating system shows through here only.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace zvqrn::tools {

// Gives the arguments of the program's command line without its name, and makes the library take
// them for the letters that they are.  To be called by main.
std::vector<std::string> ReadArguments(int argc, char** argv);

// A file's name as the system wants it, and as a tool shows it.
std::filesystem::path PathOf(const std::string& text);
std::string TextOf(const std::filesystem::path& path);

// Reads standard input to its end, byte by byte as it comes; false when that fails.
bool ReadStandardInput(std::string* bytes);

// Gives `text` as the library takes it, in the PC's code page; false when that has not all of its
// letters.
bool ToLibraryText(const std::string& text, std::string* bytes);

// Gives a text of the library; its bytes as they are where they are no text.
std::string FromLibraryText(const std::string& bytes);

#if defined(_WIN32)
// UTF-16, as Windows has it, and back.
std::wstring WideText(const std::string& text);
std::string NarrowText(const std::wstring& text);
#endif

}  // namespace zvqrn::tools
