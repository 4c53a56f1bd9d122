// What a fleet run prints: one line per unit as it ends, a progress line on a
// terminal, and a summary; or, with --json, one JSON object a line.
#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <ostream>
#include <set>
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
  // file: where every unit's JSON line also goes (--report); may be null.
  FleetReport(Console& console, bool json, std::optional<std::size_t> total, std::ostream* file = nullptr);

  void UnitEnded(const UnitOutcome& outcome);
  // The source of the units (the shared work list) failed: said at once,
  // and the run ends in failure.
  void SourceFailed(const std::string& reason);
  // Redraws the progress line (only shown on a terminal, without -q).
  void Progress(std::size_t running);
  // `interrupted`: the run was stopped before every unit was served.
  void Summary(double seconds, bool interrupted);

  std::size_t ended() const { return succeeded_ + failedNames_.size(); }
  std::size_t failed() const { return failedNames_.size(); }
  bool sourceFailed() const { return sourceFailed_; }

 private:
  Console& console_;
  bool json_;
  std::optional<std::size_t> total_;
  std::ostream* file_;
  std::size_t succeeded_ = 0;
  std::vector<std::string> failedNames_;
  bool sourceFailed_ = false;
};

// "name: ok in 2.3 s: note; note" or "name: failed in 0.4 s: error; error".
std::string OutcomeLine(const UnitOutcome& outcome);

// The units a report file (--report) names as failed. Throws UsageError
// naming the line that is not a unit's outcome.
std::set<std::string> FailedUnits(const std::filesystem::path& report);

}  // namespace camrelay::cli
