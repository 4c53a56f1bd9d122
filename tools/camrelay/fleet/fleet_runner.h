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

#include "camrelay/clsClient.h"
#include "cli.h"
#include "fleet/fleet_report.h"
#include "fleet/unit_source.h"

namespace camrelay::cli {

class FleetRunner {
 public:
  // `common` holds what applies to every unit: the time-outs and retries.
  // `done` is called once, when the last unit has ended and the source has
  // heard of it. `sourceRunner`, when given, runs every call of the source
  // away from the loop (a source that waits on a server); without it the
  // calls run on the loop.
  FleetRunner(boost::asio::io_context& io, UnitSource& source, const std::vector<Command>& commands,
              const LinkOptions& common, const OutputOptions& output, int parallel, FleetReport& report,
              std::function<void()> done, clsClient::StoreRunner sourceRunner = nullptr);
  ~FleetRunner();
  FleetRunner(const FleetRunner&) = delete;
  FleetRunner& operator=(const FleetRunner&) = delete;

  void Start();
  // Stops every unit in flight (each fails as interrupted) and starts no more.
  void Interrupt();
  std::size_t running() const { return slots_.size(); }
  // Makes `call`, a call of the source that answers nothing, after the
  // calls made before it; a failure of it is reported as the work list's,
  // then `then` runs on the loop.
  void TellSource(std::function<void()> call, std::function<void()> then = nullptr);

 private:
  struct Slot;
  struct SourceAnswer;
  using Clock = std::chrono::steady_clock;

  // Runs `work`, a call of the source, where the source's calls run (the
  // source runner or the loop), then `then` on the loop.
  void AskSource(std::function<void()> work, std::function<void()> then);
  // Asks the source for the next unit while a link is free.
  void Fill();
  void Take(SourceAnswer answer);
  void EndIfDone();
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
  clsClient::StoreRunner sourceRunner_;
  // Asks the source again while other machines hold units it may get back.
  boost::asio::steady_timer askAgain_;
  std::list<std::unique_ptr<Slot>> slots_;
  bool stopping_ = false;
  bool exhausted_ = false;
  bool nextAsked_ = false;  // a Next is away; one at a time keeps the order
  int sourceCalls_ = 0;     // calls of the source not yet back
};

// camrelay fleet: reads the fleet file, runs, prints. Returns the exit
// status. Throws UsageError for a bad fleet file.
int RunFleet(const Invocation& invocation, Console& console);

}  // namespace camrelay::cli
