#include "log.h"

#include <cstdio>
#include <iostream>

namespace camrelay::unit {

namespace {
constexpr std::size_t kShown = 160;
}

std::string Printable(std::string_view message) {
  std::string line;
  for (unsigned char c : message.substr(0, kShown)) {
    if (c == '\r') line += "\\r";
    else if (c == '\n') line += "\\n";
    else if (c == '\\') line += "\\\\";
    else if (c < 0x20 || c >= 0x7f) {
      char hex[5];
      std::snprintf(hex, sizeof hex, "\\x%02x", c);
      line += hex;
    } else line += static_cast<char>(c);
  }
  if (message.size() > kShown) line += "... (" + std::to_string(message.size()) + " bytes)";
  return line;
}

void Log::Error(std::string_view line) const { std::cerr << "camrelay-unit: " << line << std::endl; }

void Log::Info(std::string_view line) const {
  if (level_ >= Normal) std::cerr << "camrelay-unit: " << line << std::endl;
}

void Log::Traffic(std::string_view direction, std::string_view message) const {
  if (level_ >= Verbose) std::cerr << direction << ' ' << Printable(message) << std::endl;
}

}  // namespace camrelay::unit
