#include "commands.h"

namespace camrelay::unit {

std::string AnswerCommand(const std::string& command, Content& content) {
  if (command == "STATO?")
    return "STATO:PRONTO;EVENTI:" + std::to_string(content.LogSize()) + ";VERSIONE:" + kUnitVersion;
  if (command == "VERSIONE?") return std::string("VERSIONE:") + kUnitVersion;
  if (command == "EVENTI?") return "EVENTI:" + std::to_string(content.LogSize());
  if (command == "ULTIMO?") return "ULTIMO:" + content.LastCommand();
  return "ECHO:" + command;
}

}  // namespace camrelay::unit
