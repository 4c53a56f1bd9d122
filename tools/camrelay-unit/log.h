// The unit's diagnostics on standard error: errors always, one line per
// exchange normally, every message in and out when verbose.
#pragma once

#include <string>
#include <string_view>

namespace camrelay::unit {

class Log {
 public:
  enum Level { Quiet, Normal, Verbose };
  explicit Log(Level level = Normal) : level_(level) {}

  void Error(std::string_view line) const;
  void Info(std::string_view line) const;
  // direction: "<-" received, "->" sent, or a word for a message a fault
  // took away.
  void Traffic(std::string_view direction, std::string_view message) const;

 private:
  Level level_;
};

// The message as a readable line: control bytes escaped, long texts cut.
std::string Printable(std::string_view message);

}  // namespace camrelay::unit
