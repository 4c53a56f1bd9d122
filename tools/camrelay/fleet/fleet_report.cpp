#include "fleet/fleet_report.h"

#include <cstdio>
#include <fstream>
#include <nlohmann/json.hpp>

namespace camrelay::cli {

namespace {

// A summary names this many failed units at most; --json and the unit lines
// name them all.
constexpr std::size_t kNamedFailures = 10;

std::string Seconds(double seconds) {
  char text[32];
  std::snprintf(text, sizeof text, "%.1f s", seconds);
  return text;
}

std::string Joined(const std::vector<std::string>& texts) {
  std::string out;
  for (const std::string& text : texts) out += (out.empty() ? "" : "; ") + text;
  return out;
}

// Texts from a unit may hold bytes that are not UTF-8: they are replaced,
// never a reason to lose the line.
std::string JsonLine(const nlohmann::ordered_json& value) {
  return value.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

}  // namespace

std::string OutcomeLine(const UnitOutcome& outcome) {
  const auto& texts = outcome.succeeded ? outcome.notes : outcome.errors;
  std::string line = outcome.name + ": " + (outcome.succeeded ? "ok" : "failed") + " in " + Seconds(outcome.seconds);
  if (!texts.empty()) line += ": " + Joined(texts);
  return line;
}

FleetReport::FleetReport(Console& console, bool json, std::optional<std::size_t> total, std::ostream* file)
    : console_(console), json_(json), total_(total), file_(file) {}

void FleetReport::UnitEnded(const UnitOutcome& outcome) {
  if (outcome.succeeded)
    ++succeeded_;
  else
    failedNames_.push_back(outcome.name);
  const std::string json = JsonLine({{"unit", outcome.name},
                                     {"ok", outcome.succeeded},
                                     {"seconds", outcome.seconds},
                                     {"errors", outcome.errors},
                                     {"notes", outcome.notes}});
  // Flushed line by line: a run that is killed still leaves what it did.
  if (file_) *file_ << json << std::endl;
  console_.Answer(json_ ? json : OutcomeLine(outcome));
}

std::set<std::string> FailedUnits(const std::filesystem::path& report) {
  std::ifstream in(report);
  if (!in) throw UsageError("fleet: cannot read " + report.string());
  std::set<std::string> failed;
  std::string line;
  for (int number = 1; std::getline(in, line); ++number) {
    if (line.empty()) continue;
    const auto outcome = nlohmann::json::parse(line, nullptr, false);
    if (outcome.is_discarded() || !outcome.is_object() || !outcome.contains("unit") || !outcome["unit"].is_string() ||
        !outcome.contains("ok") || !outcome["ok"].is_boolean())
      throw UsageError("fleet: " + report.string() + ":" + std::to_string(number) + ": not a unit's outcome");
    if (!outcome["ok"].get<bool>()) failed.insert(outcome["unit"].get<std::string>());
  }
  return failed;
}

void FleetReport::SourceFailed(const std::string& reason) {
  sourceFailed_ = true;
  console_.EndProgress();
  console_.Error("fleet: the work list: " + reason);
}

void FleetReport::Progress(std::size_t running) {
  std::string label = "fleet: " + std::to_string(ended());
  if (total_) label += "/" + std::to_string(*total_);
  label += " done, " + std::to_string(failed()) + " failed, " + std::to_string(running) + " running";
  const double fraction = total_ && *total_ > 0 ? double(ended()) / double(*total_) : 0.0;
  // A new label at the same percentage is drawn all the same.
  console_.EndProgress();
  console_.Progress(label, fraction);
}

void FleetReport::Summary(double seconds, bool interrupted) {
  console_.EndProgress();
  if (json_) {
    nlohmann::ordered_json summary{{"units", ended()},   {"succeeded", succeeded_}, {"failed", failed()},
                           {"seconds", seconds}, {"interrupted", interrupted}};
    if (total_) summary["listed"] = *total_;
    return console_.Answer(JsonLine({{"summary", summary}}));
  }
  std::string line = "fleet: " + std::to_string(ended()) + " units in " + Seconds(seconds) + ", " +
                     std::to_string(succeeded_) + " succeeded, " + std::to_string(failed()) + " failed";
  if (!failedNames_.empty()) {
    std::vector<std::string> named(failedNames_.begin(),
                                   failedNames_.begin() + std::min(failedNames_.size(), kNamedFailures));
    if (failedNames_.size() > kNamedFailures) named.push_back("...");
    line += " (" + Joined(named) + ")";
  }
  if (interrupted && total_ && *total_ > ended())
    line += "; interrupted, " + std::to_string(*total_ - ended()) + " not served";
  else if (interrupted)
    line += "; interrupted";
  console_.Answer(line);
}

}  // namespace camrelay::cli
