// What a fleet run prints: one line per unit as it ends, a progress line on a
// terminal, and a summary; or, with --json, one JSON object a line.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "cli.h"

namespace camrelay::cli {

struct UnitOutcome {
  std::string name;
  bool succeeded = false;
  double seconds = 0;
  std::vector<std::string> errors;  // each "<command>: <reason>", or what kept the unit from starting
  std::vector<std::string> notes;   // what the commands did, answers included
};

class FleetReport {
 public:
  FleetReport(Console& console, bool json, std::optional<std::size_t> total);

  void UnitEnded(const UnitOutcome& outcome);
  // Redraws the progress line (only shown on a terminal, without -q).
  void Progress(std::size_t running);
  // `interrupted`: the run was stopped before every unit was served.
  void Summary(double seconds, bool interrupted);

  std::size_t ended() const { return succeeded_ + failedNames_.size(); }
  std::size_t failed() const { return failedNames_.size(); }

 private:
  Console& console_;
  bool json_;
  std::optional<std::size_t> total_;
  std::size_t succeeded_ = 0;
  std::vector<std::string> failedNames_;
};

// "name: ok in 2.3 s: note; note" or "name: failed in 0.4 s: error; error".
std::string OutcomeLine(const UnitOutcome& outcome);

}  // namespace camrelay::cli
