#include "common/command_line.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <sstream>

#include "common/adapters.h"
#include "common/output.h"

namespace zvqrn::tools {

namespace {

constexpr int EXIT_WRONG_COMMAND_LINE = 2;

CLI::Option* Describe(CLI::Option* option, const OptionHelp& help) {
  if (help.type != nullptr) {
    option->type_name(help.type);
  }
  if (help.showsDefault) {
    option->capture_default_str();
  }
  return option->group(help.group);
}

template <typename Number, typename Bound>
CLI::Option* AddAnyNumber(CommandLine* line, const OptionHelp& help, Number* value, Bound least,
                          Bound most) {
  return Describe(line->add_option(help.name, *value, help.text), help)
      ->check(CLI::Range(least, most).description(""));
}

// Says which word stands where a command was expected, when one does.
void NameWrongWord(const CommandLine& program) {
  const std::vector<std::string> words = program.remaining();
  if (words.empty()) {
    return;
  }
  std::string commands;
  for (const CommandLine* command :
       program.get_subcommands([](const CommandLine*) { return true; })) {
    commands += " " + command->get_name();
  }
  RefuseCommandLine("'" + words.front() + "' is none of" + commands);
}

void AddTimeFlag(CommandLine* line) {
  AddFlagAction(line,
                {"--time", nullptr, "Begin each line with the time (in --json it is always there)"},
                PrintTimes);
}

void Print(std::string text, void (*print)(const std::string&)) {
  if (!text.empty()) {
    text.pop_back();
    print(text);
  }
}

}  // namespace

void RefuseCommandLine(const std::string& reason) {
  throw CLI::ValidationError(reason);
}

CLI::Option* AddText(CommandLine* line, const OptionHelp& help, std::string* value,
                     const TextCheck& check) {
  CLI::Option* option = Describe(line->add_option(help.name, *value, help.text), help);
  return check ? option->check(check) : option;
}

CLI::Option* AddHost(CommandLine* line, const OptionHelp& help, std::string* value) {
  const auto resolve = [](std::string& text) -> std::string {
    std::uint32_t address = 0;
    if (!ResolveHost(text, &address)) {
      return "'" + text +
             "' is no IPv4 address such as 192.0.2.1, and no host of this name is known";
    }
    text = AddressText(address);
    return {};
  };
  return Describe(line->add_option(help.name, *value, help.text), help)
      ->transform(CLI::Validator(resolve, ""));
}

CLI::Option* AddNumber(CommandLine* line, const OptionHelp& help, std::int32_t* value,
                       std::int32_t least, std::int32_t most) {
  return AddAnyNumber(line, help, value, least, most);
}

CLI::Option* AddNumber(CommandLine* line, const OptionHelp& help, std::uint16_t* value,
                       std::int32_t least, std::int32_t most) {
  return AddAnyNumber(line, help, value, least, most);
}

CLI::Option* AddNumber(CommandLine* line, const OptionHelp& help, double* value, double least,
                       double most) {
  return AddAnyNumber(line, help, value, least, most);
}

CLI::Option* AddArgument(CommandLine* line, const OptionHelp& help, std::string* value) {
  return Describe(line->add_option(help.name, *value, help.text), help);
}

CLI::Option* AddTextList(CommandLine* line, const OptionHelp& help,
                         std::vector<std::string>* values, const TextCheck& check) {
  return Describe(line->add_option(help.name, *values, help.text), help)
      ->delimiter(',')
      ->check(check);
}

CLI::Option* AddFlag(CommandLine* line, const OptionHelp& help, bool* value) {
  return Describe(line->add_flag(help.name, *value, help.text), help);
}

CLI::Option* AddFlagAction(CommandLine* line, const OptionHelp& help,
                           const std::function<void()>& action) {
  return Describe(line->add_flag_callback(help.name, action, help.text), help);
}

CLI::Option* AddTextAction(CommandLine* line, const OptionHelp& help, const TextAction& action) {
  return Describe(line->add_option_function<std::string>(help.name, action, help.text), help);
}

CLI::Option* AddRepeatable(CommandLine* line, const OptionHelp& help, const TextAction& action) {
  const auto each = [action](const std::vector<std::string>& texts) {
    for (const std::string& text : texts) {
      action(text);
    }
  };
  return Describe(line->add_option_function<std::vector<std::string>>(help.name, each, help.text),
                  help)
      ->allow_extra_args(false);
}

CLI::Option* AddInOrder(CommandLine* line, const OptionHelp& help, const TextAction& action) {
  return AddTextAction(line, help, action)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeLast)
      ->trigger_on_parse();
}

void Exclude(CLI::Option* option, CLI::Option* other) {
  option->excludes(other);
}

bool WasGiven(const CLI::Option* option) {
  return option->count() > 0;
}

CommandLine* AddCommand(CommandLine* program, const char* name, const char* description,
                        const std::string& footer, const std::function<void()>& onChosen) {
  CommandLine* command = program->add_subcommand(name, description);
  command->footer(footer);
  command->callback(onChosen);
  AddTimeFlag(command);
  program->require_subcommand(1);
  return command;
}

bool ReadCommandLine(std::vector<std::string> arguments, const ProgramHelp& help,
                     const std::function<void(CommandLine*)>& addOptions,
                     const std::function<void()>& check, int* exitCode) {
  CommandLine program(help.description, help.name);
  program.footer(help.footer);
  // A file's name may begin with a slash on every system.
  program.allow_windows_style_options(false);
  addOptions(&program);
  if (program.get_subcommands([](const CommandLine*) { return true; }).empty()) {
    AddTimeFlag(&program);
  }
  program.set_version_flag("--version", help.version, "Print the version and exit");
  std::reverse(arguments.begin(), arguments.end());
  try {
    try {
      program.parse(std::move(arguments));
      if (check) {
        check();
      }
    } catch (const CLI::RequiredError&) {
      NameWrongWord(program);
      throw;
    } catch (const CLI::ExtrasError&) {
      // CLI11 names them from the last to the first.
      std::vector<std::string> words = program.remaining(true);
      std::reverse(words.begin(), words.end());
      throw CLI::ExtrasError(std::move(words));
    }
  } catch (const CLI::ParseError& error) {
    std::ostringstream output;
    std::ostringstream errors;
    *exitCode = program.exit(error, output, errors) == 0 ? 0 : EXIT_WRONG_COMMAND_LINE;
    Print(output.str(), PrintLine);
    Print(errors.str(), PrintError);
    return false;
  }
  return true;
}

}  // namespace zvqrn::tools
