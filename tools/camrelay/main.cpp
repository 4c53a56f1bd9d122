// camrelay: the command-line host. It drives a unit through the library, one
// command after another, and works on the local database.
#include <iostream>

#include "cli.h"
#include "console.h"
#include "db_local.h"
#include "session.h"

int main(int argc, char** argv) {
  using namespace camrelay::cli;
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
    Session session(invocation, console);
    return session.Run();
  } catch (const UsageError& e) {
    std::cerr << "camrelay: " << e.what() << "\n";
    return 2;
  } catch (const std::exception& e) {
    std::cerr << "camrelay: " << e.what() << "\n";
    return 1;
  }
}
