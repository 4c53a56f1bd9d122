// Many units' runs on one loop: up to --parallel links in flight, the next
// unit started as soon as one ends, every unit with its own clsClient, folder
// and database. One unit's failure never stops the others.
#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <cstddef>
#include <functional>
#include <list>
#include <memory>
#include <vector>

#include "cli.h"
#include "fleet/fleet_report.h"
#include "fleet/unit_source.h"

namespace camrelay::cli {

class FleetRunner {
 public:
  // `common` holds what applies to every unit: the time-outs and retries.
  // `done` is called once, when the last unit has ended.
  FleetRunner(boost::asio::io_context& io, UnitSource& source, const std::vector<Command>& commands,
              const LinkOptions& common, const OutputOptions& output, int parallel, FleetReport& report,
              std::function<void()> done);
  ~FleetRunner();
  FleetRunner(const FleetRunner&) = delete;
  FleetRunner& operator=(const FleetRunner&) = delete;

  void Start();
  // Stops every unit in flight (each fails as interrupted) and starts no more.
  void Interrupt();
  std::size_t running() const { return slots_.size(); }

 private:
  struct Slot;
  using Clock = std::chrono::steady_clock;

  void Fill();
  void Launch(FleetUnit unit);
  // Starts the slot's run once its database is ready.
  void StartRun(Slot* slot);
  void Ended(Slot* slot, int failures);
  UnitOutcome OutcomeOf(const Slot& slot, int failures) const;

  boost::asio::io_context& io_;
  UnitSource& source_;
  const std::vector<Command>& commands_;
  LinkOptions common_;
  OutputOptions output_;
  std::size_t parallel_;
  FleetReport& report_;
  std::function<void()> done_;
  // Asks the source again while other machines hold units it may get back.
  boost::asio::steady_timer askAgain_;
  std::list<std::unique_ptr<Slot>> slots_;
  bool stopping_ = false;
  bool exhausted_ = false;
};

// camrelay fleet: reads the fleet file, runs, prints. Returns the exit
// status. Throws UsageError for a bad fleet file.
int RunFleet(const Invocation& invocation, Console& console);

}  // namespace camrelay::cli
