// The command line of a tool: its options, its help, and what is said about a wrong one.  The
// command-line library is behind this file: it takes seconds to compile wherever it is included.
// One thread.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace zvqrn::tools {

// A program or one of its commands.
using CommandLine = CLI::App;

// What help says about an option.
struct OptionHelp {
  const char* name;
  const char* type;  // what its value is; null for the usual word
  const char* text;
  const char* group = "Options";
  bool showsDefault = false;
};

constexpr bool SHOW_DEFAULT = true;

// Says what is wrong with a text; empty when nothing is.
using TextCheck = std::function<std::string(const std::string&)>;
using TextAction = std::function<void(const std::string&)>;

// Ends the reading of the command line: it cannot be used, for this reason.
[[noreturn]] void RefuseCommandLine(const std::string& reason);

// An option whose value goes into `*value`, which holds the default until then.
CLI::Option* AddText(CommandLine* line, const OptionHelp& help, std::string* value,
                     const TextCheck& check = {});

// An option that names a machine by its IPv4 address or by its name; `*value` gets the address's
// text.
CLI::Option* AddHost(CommandLine* line, const OptionHelp& help, std::string* value);

CLI::Option* AddNumber(CommandLine* line, const OptionHelp& help, std::int32_t* value,
                       std::int32_t least, std::int32_t most);
CLI::Option* AddNumber(CommandLine* line, const OptionHelp& help, std::uint16_t* value,
                       std::int32_t least, std::int32_t most);
CLI::Option* AddNumber(CommandLine* line, const OptionHelp& help, double* value, double least,
                       double most);

// A value without an option before it, which must be given.
CLI::Option* AddArgument(CommandLine* line, const OptionHelp& help, std::string* value);

// An option of several texts with commas between.
CLI::Option* AddTextList(CommandLine* line, const OptionHelp& help,
                         std::vector<std::string>* values, const TextCheck& check);

// An option without a value.
CLI::Option* AddFlag(CommandLine* line, const OptionHelp& help, bool* value);
CLI::Option* AddFlagAction(CommandLine* line, const OptionHelp& help,
                           const std::function<void()>& action);

// An option that may come once, and one that may come often; the action may refuse the text.
CLI::Option* AddTextAction(CommandLine* line, const OptionHelp& help, const TextAction& action);
CLI::Option* AddRepeatable(CommandLine* line, const OptionHelp& help, const TextAction& action);

// A repeatable option that acts where it stands, so that several options keep their common order.
CLI::Option* AddInOrder(CommandLine* line, const OptionHelp& help, const TextAction& action);

// Two options that cannot be used together.
void Exclude(CLI::Option* option, CLI::Option* other);

bool WasGiven(const CLI::Option* option);

// Adds a command; `onChosen` is called when the command line names it and is right so far.
CommandLine* AddCommand(CommandLine* program, const char* name, const char* description,
                        const std::string& footer, const std::function<void()>& onChosen);

// What a program says about itself.
struct ProgramHelp {
  const char* name;
  const char* description;
  std::string footer;
  std::function<std::string()> version;  // asked when the other options have been read
};

// Reads the command line of a program whose options `addOptions` adds; `check` may then refuse it.
// False when the program is to end at once with `*exitCode`: help or the version was asked for, or
// something is wrong, and it has been printed.
bool ReadCommandLine(std::vector<std::string> arguments, const ProgramHelp& help,
                     const std::function<void(CommandLine*)>& addOptions,
                     const std::function<void()>& check, int* exitCode);

}  // namespace zvqrn::tools
