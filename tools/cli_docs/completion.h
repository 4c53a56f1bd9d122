// Shell completion written from a program's own command line: every command
// and option the CLI11 app defines is offered, so a command added later needs
// no work here.
#pragma once

#include <string>

namespace CLI {
class App;
}

namespace camrelay::cli_docs {

// Adds the option "--completion SHELL" (bash or zsh): the program prints its
// completion script for that shell and exits 0. The script covers every
// command and option the app holds when it is asked for; hidden options (no
// group) are left out. An option whose value is named FILE or DIR (type_name,
// or the name of a positional) completes file or folder names.
void AddCompletionOption(CLI::App& app);

std::string BashCompletion(const CLI::App& app);
std::string ZshCompletion(const CLI::App& app);

}  // namespace camrelay::cli_docs
