#include "fleet/claim_source.h"

#include <stdexcept>

#include "store/connection.h"
#include "store/postgres_backend.h"
#include "system.h"

namespace camrelay::cli {
namespace {

// The work list of every round, in the server's default schema. Made once,
// under a lock, by whichever machine comes first.
constexpr const char* kCreateList = R"sql(
  CREATE TABLE IF NOT EXISTS camrelay_fleet_units (
    round       varchar NOT NULL,
    name        varchar NOT NULL,
    claimed_by  varchar,
    lease_until timestamptz,
    finished_at timestamptz,
    succeeded   boolean,
    PRIMARY KEY (round, name)
  ))sql";

std::string Interval(std::chrono::seconds seconds) {
  return "interval '" + std::to_string(seconds.count()) + " seconds'";
}

}  // namespace

ClaimSource::ClaimSource(std::vector<FleetUnit> units, const std::string& connection, std::string round,
                         std::chrono::seconds lease)
    : round_(std::move(round)), lease_(lease), me_(MachineAndProcess()) {
  const store::DatabaseLocation location = store::ParseConnection(connection);
  const auto* server = std::get_if<store::ServerDatabase>(&location);
  if (!server) throw std::runtime_error("--claim needs --db naming a PostgreSQL server");
  server_ = store::ConnectPostgres(*server);
  std::string names;
  for (FleetUnit& unit : units) {
    names += (names.empty() ? "(" : ", (") + store::QuoteLiteral(round_) + ", " + store::QuoteLiteral(unit.name) + ")";
    units_.emplace(unit.name, std::move(unit));
  }
  store::Transaction transaction(*server_);
  server_->Exec("SELECT pg_advisory_xact_lock(hashtext('camrelay_fleet_units'))");
  server_->Exec(kCreateList);
  if (!names.empty())
    server_->Exec("INSERT INTO camrelay_fleet_units (round, name) VALUES " + names + " ON CONFLICT DO NOTHING");
  transaction.Commit();
}

ClaimSource::~ClaimSource() = default;

std::string ClaimSource::Where() const { return " WHERE round = " + store::QuoteLiteral(round_); }

std::optional<FleetUnit> ClaimSource::Next() {
  for (;;) {
    auto claimed = server_->Query(
        "UPDATE camrelay_fleet_units SET claimed_by = " + store::QuoteLiteral(me_) + ", lease_until = now() + " +
        Interval(lease_) + Where() + " AND name = (SELECT name FROM camrelay_fleet_units" + Where() +
        " AND finished_at IS NULL AND (lease_until IS NULL OR lease_until < now()) ORDER BY name LIMIT 1 "
        "FOR UPDATE SKIP LOCKED) RETURNING name");
    if (!claimed->Next()) return std::nullopt;
    const std::string name = store::DbText(claimed->Value(0));
    auto unit = units_.find(name);
    if (unit != units_.end()) return unit->second;
    // A unit another machine's fleet file names: left to that machine.
    server_->Exec("UPDATE camrelay_fleet_units SET claimed_by = NULL, lease_until = now() + " + Interval(lease_) +
                  Where() + " AND name = " + store::QuoteLiteral(name));
  }
}

void ClaimSource::Finished(const FleetUnit& unit, bool succeeded) {
  server_->Exec("UPDATE camrelay_fleet_units SET finished_at = now(), succeeded = " +
                std::string(succeeded ? "TRUE" : "FALSE") + Where() + " AND name = " + store::QuoteLiteral(unit.name) +
                " AND claimed_by = " + store::QuoteLiteral(me_));
}

void ClaimSource::Released(const FleetUnit& unit) {
  server_->Exec("UPDATE camrelay_fleet_units SET claimed_by = NULL, lease_until = NULL" + Where() +
                " AND name = " + store::QuoteLiteral(unit.name) + " AND claimed_by = " + store::QuoteLiteral(me_) +
                " AND finished_at IS NULL");
}

void ClaimSource::Renew() {
  server_->Exec("UPDATE camrelay_fleet_units SET lease_until = now() + " + Interval(lease_) + Where() +
                " AND claimed_by = " + store::QuoteLiteral(me_) + " AND finished_at IS NULL");
}

}  // namespace camrelay::cli
