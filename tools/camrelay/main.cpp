// camrelay: the command-line host. It drives a unit through the library, one
// command after another, and works on the local database.
#include <cstdlib>
#include <iostream>
#include <string_view>

#include "cli.h"
#include "db_local.h"
#include "fleet/fleet_runner.h"
#include "host/console.h"
#include "host/session.h"
#include "web/web_console.h"

namespace {

using namespace camrelay::cli;
using namespace camrelay::host;

// A command line that could not be parsed still names its codes: they are
// hidden from the message that says what is wrong with it.
void AddSecretsOf(int argc, char** argv, Console& console) {
  if (const char* code = std::getenv("CAMRELAY_CODE")) console.AddSecret(code);
  for (int i = 1; i < argc; ++i) {
    const std::string_view arg = argv[i];
    if (arg.starts_with("--code=")) console.AddSecret(std::string(arg.substr(7)));
    if ((arg == "--code" || arg == "set-installer-code" || arg == "set-user-code") && i + 1 < argc)
      console.AddSecret(argv[i + 1]);
  }
}

// The working folder remembers the unit its run reached, so that the next
// run there reaches the same unit whoever ran last elsewhere.
void RememberReachedUnit(const Session& session, const std::string& dir, Console& console) {
  const auto unit = session.Reached();
  if (!unit) return;
  try {
    RememberSite(dir, *unit);
  } catch (const std::exception& e) {
    console.Error(std::string("cannot remember the unit of this folder: ") + e.what());
  }
}

}  // namespace

int main(int argc, char** argv) {
  Console usage(OutputOptions{});
  AddSecretsOf(argc, argv, usage);
  try {
    const Invocation invocation = Parse(argc, argv);
    if (invocation.help) {
      std::cout << *invocation.help;
      return 0;
    }
    Console console(invocation.output);
    console.AddSecret(invocation.link.code);
    for (const Command& command : invocation.commands)
      if (command.op == Op::SetInstallerCode || command.op == Op::SetUserCode) console.AddSecret(command.argument);
    if (invocation.db) return RunDb(invocation, console);
    if (invocation.fleet) return RunFleet(invocation, console);
    if (invocation.webConsole) return camrelay::web::RunWebConsole(invocation, console);
    Session session(invocation.link, invocation.commands, console);
    const int status = session.Run();
    RememberReachedUnit(session, invocation.link.dir, console);
    return status;
  } catch (const UsageError& e) {
    usage.Error(e.what());
    return 2;
  } catch (const std::exception& e) {
    usage.Error(e.what());
    return 1;
  }
}
