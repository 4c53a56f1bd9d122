#include "fleet/claim_source.h"

#include <stdexcept>

#include "store/commit_check.h"
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

// Which units each round serves, as a digest of their names: a round is one
// fleet, whatever machine joins it.
constexpr const char* kCreateRounds = R"sql(
  CREATE TABLE IF NOT EXISTS camrelay_fleet_rounds (
    round varchar PRIMARY KEY,
    units text NOT NULL
  ))sql";

std::string Interval(std::chrono::seconds seconds) {
  return "interval '" + std::to_string(seconds.count()) + " seconds'";
}

std::string FirstValue(store::Backend& server, const std::string& select) {
  auto rows = server.Query(select);
  if (!rows->Next()) throw std::runtime_error("the server returned nothing for: " + select);
  return store::DbText(rows->Value(0));
}

}  // namespace

ClaimSource::ClaimSource(std::vector<FleetUnit> units, const std::string& connection, std::string round,
                         std::chrono::seconds lease)
    : round_(std::move(round)), lease_(lease), me_(MachineAndProcess()) {
  const store::DatabaseLocation location = store::ParseConnection(connection);
  const auto* server = std::get_if<store::ServerDatabase>(&location);
  if (!server) throw std::runtime_error("--claim needs --db naming a PostgreSQL server");
  server_ = store::ConnectPostgres(*server);
  // The units' connections look in their own schemas: they name the list
  // with the schema it is in.
  list_ = store::QuoteIdentifier(FirstValue(*server_, "SELECT current_schema()")) + ".camrelay_fleet_units";
  std::string names, joined;
  for (FleetUnit& unit : units) {
    names += (names.empty() ? "(" : ", (") + server_->Literal(round_) + ", " + server_->Literal(unit.name) + ")";
    units_.emplace(unit.name, std::move(unit));
  }
  store::Transaction transaction(*server_);
  server_->Exec("SELECT pg_advisory_xact_lock(hashtext('camrelay_fleet_units'))");
  server_->Exec(kCreateList);
  server_->Exec(kCreateRounds);
  // The names come sorted from the map: the same fleet gives the same digest.
  for (const auto& [name, unit] : units_) joined += name + '\n';
  server_->Exec("INSERT INTO camrelay_fleet_rounds (round, units) VALUES (" + server_->Literal(round_) + ", md5(" +
                server_->Literal(joined) + ")) ON CONFLICT DO NOTHING");
  if (FirstValue(*server_, "SELECT units = md5(" + server_->Literal(joined) + ") FROM camrelay_fleet_rounds" +
                               Where()) != "1")
    throw std::runtime_error("the round " + round_ +
                             " serves another list of units: every machine of a round runs the same fleet file; "
                             "give this one a round of its own");
  if (!names.empty())
    server_->Exec("INSERT INTO camrelay_fleet_units (round, name) VALUES " + names + " ON CONFLICT DO NOTHING");
  transaction.Commit();
}

ClaimSource::~ClaimSource() {
  for (const auto& [name, unit] : units_) store::ClearCommitCheck(name);
}

std::string ClaimSource::Where() const { return " WHERE round = " + server_->Literal(round_); }

std::string ClaimSource::Mine(const std::string& name) const {
  return Where() + " AND name = " + server_->Literal(name) + " AND claimed_by = " + server_->Literal(me_);
}

std::optional<FleetUnit> ClaimSource::Next() {
  auto claimed = server_->Query(
      "UPDATE camrelay_fleet_units SET claimed_by = " + server_->Literal(me_) + ", lease_until = now() + " +
      Interval(lease_) + Where() + " AND name = (SELECT name FROM camrelay_fleet_units" + Where() +
      " AND finished_at IS NULL AND (lease_until IS NULL OR lease_until < now()) ORDER BY name LIMIT 1 "
      "FOR UPDATE SKIP LOCKED) RETURNING name");
  if (!claimed->Next()) return std::nullopt;
  const std::string name = store::DbText(claimed->Value(0));
  // Every machine of the round has the same names.
  const FleetUnit& unit = units_.at(name);
  KeepOnlyWhileClaimed(name);
  return unit;
}

// The unit's rows are kept only in a transaction that finds the claim still
// this machine's and marks the unit done, holding its row until the commit:
// a machine that took the unit after our lease lapsed has it, and our rows
// go. Once done, no machine takes it again this round.
void ClaimSource::KeepOnlyWhileClaimed(const std::string& name) {
  const std::string round = round_, me = me_, list = list_;
  store::SetCommitCheck(name, [round, me, list, name](store::Backend& unitDb) {
    auto rows = unitDb.Query("UPDATE " + list + " SET finished_at = coalesce(finished_at, now()) WHERE round = " +
                             unitDb.Literal(round) + " AND name = " + unitDb.Literal(name) +
                             " AND claimed_by = " + unitDb.Literal(me) + " RETURNING name");
    if (!rows->Next())
      throw std::runtime_error("another machine took the unit when this machine's claim lapsed; nothing of this "
                               "run was kept");
  });
}

std::size_t ClaimSource::Awaited() {
  return std::stoul(FirstValue(*server_, "SELECT count(*) FROM camrelay_fleet_units" + Where() +
                                             " AND finished_at IS NULL AND claimed_by IS DISTINCT FROM " +
                                             server_->Literal(me_)));
}

void ClaimSource::Finished(const FleetUnit& unit, bool succeeded) {
  store::ClearCommitCheck(unit.name);
  server_->Exec("UPDATE camrelay_fleet_units SET finished_at = coalesce(finished_at, now()), succeeded = " +
                std::string(succeeded ? "TRUE" : "FALSE") + Mine(unit.name));
}

void ClaimSource::Released(const FleetUnit& unit) {
  store::ClearCommitCheck(unit.name);
  server_->Exec("UPDATE camrelay_fleet_units SET claimed_by = NULL, lease_until = NULL" + Mine(unit.name) +
                " AND finished_at IS NULL");
}

void ClaimSource::Renew() {
  server_->Exec("UPDATE camrelay_fleet_units SET lease_until = now() + " + Interval(lease_) + Where() +
                " AND claimed_by = " + server_->Literal(me_) + " AND finished_at IS NULL");
}

}  // namespace camrelay::cli
