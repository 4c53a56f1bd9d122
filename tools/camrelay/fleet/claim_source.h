// A fleet shared by several machines through a PostgreSQL server: every
// machine runs the same command on the same fleet file, and each unit is
// served by whichever machine claims it first. A claim is a lease: the
// machine renews it while the unit's run goes on, and a machine that dies
// stops renewing, so that its units are claimed again once the lease ends.
#pragma once

#include <chrono>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "fleet/unit_source.h"
#include "store/backend.h"

namespace camrelay::cli {

class ClaimSource : public UnitSource {
 public:
  // Enters the units into the work list of the round (a name the machines
  // share; a new round serves every unit again) unless they are there.
  // Throws std::runtime_error when the server cannot be used, and for a
  // round that serves other units than these.
  ClaimSource(std::vector<FleetUnit> units, const std::string& connection, std::string round,
              std::chrono::seconds lease);
  ~ClaimSource() override;

  // Claims a unit of the round that is not finished and whose lease, if
  // any, has ended; the rows locked by other machines' claims are skipped.
  // The unit's rows are kept from then on only while the claim holds.
  std::optional<FleetUnit> Next() override;
  // The units of the round other machines hold and have not finished: they
  // come back to this one if their leases end.
  std::size_t Awaited() override;
  void Finished(const FleetUnit& unit, bool succeeded) override;
  // Gives the claim up at once, without waiting for its lease to end.
  void Released(const FleetUnit& unit) override;
  std::optional<std::size_t> Total() const override { return std::nullopt; }
  // Extends the lease of every unit this machine is serving.
  void Renew();

  std::chrono::seconds lease() const { return lease_; }

 private:
  std::string Where() const;
  // The clause that picks the unit while this machine holds its claim.
  std::string Mine(const std::string& name) const;
  void KeepOnlyWhileClaimed(const std::string& name);

  std::map<std::string, FleetUnit> units_;
  std::unique_ptr<store::Backend> server_;
  std::string list_;  // the work list's table, with its schema
  std::string round_;
  std::chrono::seconds lease_;
  std::string me_;
};

}  // namespace camrelay::cli
