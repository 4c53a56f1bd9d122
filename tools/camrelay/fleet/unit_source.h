// Where a fleet run takes its units from. The runner asks for the next unit
// whenever a link is free and says when each one has ended, so a source that
// shares one fleet between several machines can claim a unit in Next and
// record its outcome in Finished.
#pragma once

#include <cstddef>
#include <optional>
#include <vector>

#include "fleet/fleet_file.h"

namespace camrelay::cli {

class UnitSource {
 public:
  virtual ~UnitSource() = default;
  // The next unit to serve; nullopt when there is none to take now.
  virtual std::optional<FleetUnit> Next() = 0;
  // How many units, none of them to take now, may still come back to this
  // run (held by another machine that may die): the run waits for them.
  virtual std::size_t Awaited() { return 0; }
  // The unit's run is over.
  virtual void Finished(const FleetUnit& unit, bool succeeded) = 0;
  // The unit's run was cut short by the operator: it is still to be served,
  // by another machine if the source is shared.
  virtual void Released(const FleetUnit& unit) = 0;
  // How many units this run serves in all, when the source knows.
  virtual std::optional<std::size_t> Total() const = 0;
};

// The units of a fleet file, in the file's order.
class ListSource : public UnitSource {
 public:
  explicit ListSource(std::vector<FleetUnit> units) : units_(std::move(units)) {}
  std::optional<FleetUnit> Next() override {
    if (next_ >= units_.size()) return std::nullopt;
    return units_[next_++];
  }
  void Finished(const FleetUnit&, bool) override {}
  void Released(const FleetUnit&) override {}
  std::optional<std::size_t> Total() const override { return units_.size(); }

 private:
  std::vector<FleetUnit> units_;
  std::size_t next_ = 0;
};

}  // namespace camrelay::cli
