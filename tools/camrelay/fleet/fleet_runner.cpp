#include "fleet/fleet_runner.h"

#include <algorithm>
#include <boost/asio/post.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/asio/steady_timer.hpp>
#include <filesystem>
#include <fstream>
#include <set>

#include "fleet/claim_source.h"
#include "host/session.h"
#include "host/store_threads.h"
#include "store/connection.h"
#include "store/DataVideo.h"
#include "store/postgres_backend.h"
#include "system.h"

namespace camrelay::cli {
namespace fs = std::filesystem;

namespace {

constexpr std::chrono::milliseconds kProgressInterval{500};
// How often a run with nothing to take asks again for the units other
// machines hold.
constexpr std::chrono::seconds kAwaitInterval{1};

// The codes a run may show in its messages, so that none is ever printed.
void AddSecrets(Console& console, const FleetUnit& unit, const std::vector<Command>& commands) {
  console.AddSecret(unit.code);
  for (const Command& command : commands)
    if (command.op == Op::SetInstallerCode || command.op == Op::SetUserCode) console.AddSecret(command.argument);
}

}  // namespace

struct FleetRunner::Slot {
  Slot(FleetUnit unit, const LinkOptions& common, const OutputOptions& output)
      : unit(std::move(unit)), link(common), console(output) {}

  FleetUnit unit;
  LinkOptions link;
  Captured captured;
  Console console;
  std::unique_ptr<UnitRun> run;
  Clock::time_point start = Clock::now();
};

// What the source said when asked for the next unit.
struct FleetRunner::SourceAnswer {
  std::optional<FleetUnit> unit;
  std::size_t awaited = 0;
  std::string failure;
};

FleetRunner::FleetRunner(boost::asio::io_context& io, UnitSource& source, const std::vector<Command>& commands,
                         const LinkOptions& common, const OutputOptions& output, int parallel, FleetReport& report,
                         std::function<void()> done, clsClient::StoreRunner sourceRunner)
    : io_(io),
      source_(source),
      commands_(commands),
      common_(common),
      output_(output),
      parallel_(static_cast<std::size_t>(std::max(1, parallel))),
      report_(report),
      done_(std::move(done)),
      sourceRunner_(std::move(sourceRunner)),
      askAgain_(io) {}

FleetRunner::~FleetRunner() = default;

void FleetRunner::Start() { Fill(); }

void FleetRunner::AskSource(std::function<void()> work, std::function<void()> then) {
  ++sourceCalls_;
  auto back = [this, then = std::move(then)] {
    --sourceCalls_;
    then();
    EndIfDone();
  };
  if (sourceRunner_) return sourceRunner_(std::move(work), std::move(back));
  boost::asio::post(io_, [work = std::move(work), back = std::move(back)] {
    work();
    back();
  });
}

void FleetRunner::Fill() {
  if (nextAsked_ || stopping_ || exhausted_ || slots_.size() >= parallel_) return EndIfDone();
  nextAsked_ = true;
  auto answer = std::make_shared<SourceAnswer>();
  AskSource(
      [this, answer] {
        try {
          answer->unit = source_.Next();
          if (!answer->unit) answer->awaited = source_.Awaited();
        } catch (const std::exception& e) {
          answer->failure = e.what();
        }
      },
      [this, answer] {
        nextAsked_ = false;
        Take(std::move(*answer));
      });
}

void FleetRunner::Take(SourceAnswer answer) {
  if (!answer.failure.empty()) {
    // The units in flight still end and are reported; no more start.
    report_.SourceFailed(answer.failure);
    exhausted_ = true;
  } else if (answer.unit && stopping_) {
    // Claimed as the operator stopped the run: still to be served.
    TellSource([this, unit = *answer.unit] { source_.Released(unit); });
  } else if (answer.unit) {
    Launch(std::move(*answer.unit));
  } else if (answer.awaited == 0) {
    exhausted_ = true;
  } else {
    askAgain_.expires_after(kAwaitInterval);
    askAgain_.async_wait([this](const boost::system::error_code& ec) {
      if (!ec) Fill();
    });
    return;
  }
  Fill();
}

void FleetRunner::TellSource(std::function<void()> call, std::function<void()> then) {
  auto failure = std::make_shared<std::string>();
  AskSource(
      [call = std::move(call), failure] {
        try {
          call();
        } catch (const std::exception& e) {
          *failure = e.what();
        }
      },
      [this, failure, then = std::move(then)] {
        if (!failure->empty()) report_.SourceFailed(*failure);
        if (then) then();
      });
}

void FleetRunner::EndIfDone() {
  if (slots_.empty() && sourceCalls_ == 0 && (exhausted_ || stopping_) && done_) std::exchange(done_, nullptr)();
}

void FleetRunner::Launch(FleetUnit unit) {
  slots_.push_back(std::make_unique<Slot>(std::move(unit), common_, output_));
  Slot* slot = slots_.back().get();
  slot->console.Capture(&slot->captured, slot->unit.name);
  AddSecrets(slot->console, slot->unit, commands_);
  LinkOptions& link = slot->link;
  link.host = slot->unit.host;
  link.port = slot->unit.port;
  link.localPort = 0;  // the system picks one per link
  link.tcp = slot->unit.tcp;
  link.code = slot->unit.code;
  link.dir = slot->unit.dir.string();
  link.database = store::IsServerDatabase(common_.database) ? store::WithSchema(common_.database, slot->unit.name)
                                                           : DefaultConnection(link.dir);
  link.settingsFile = false;
  try {
    fs::create_directories(slot->unit.dir);
    CheckUploadSources(commands_, link.database);
  } catch (const std::exception& e) {
    slot->captured.errors.push_back(e.what());
    boost::asio::post(io_, [this, slot] { Ended(slot, 1); });
    return;
  }
  if (!link.storeRunner || !store::IsServerDatabase(link.database)) return StartRun(slot);
  // The unit's schema is made or found by the store threads, so that the
  // link opens it without a word to the server.
  auto failure = std::make_shared<std::string>();
  link.storeRunner(
      [database = link.database, failure] {
        try {
          store::InitDatabase(database);
        } catch (const std::exception& e) {
          *failure = e.what();
        }
      },
      [this, slot, failure] {
        if (!failure->empty()) slot->captured.errors.push_back("cannot open the database: " + *failure);
        if (!failure->empty() || stopping_) return Ended(slot, 1);
        StartRun(slot);
      });
}

void FleetRunner::StartRun(Slot* slot) {
  slot->run = std::make_unique<UnitRun>(io_, slot->link, commands_, slot->console,
                                        [this, slot](int failures) { Ended(slot, failures); });
  slot->run->Start();
}

UnitOutcome FleetRunner::OutcomeOf(const Slot& slot, int failures) const {
  UnitOutcome outcome;
  outcome.name = slot.unit.name;
  outcome.succeeded = failures == 0 && slot.captured.errors.empty();
  outcome.seconds = std::chrono::duration<double>(Clock::now() - slot.start).count();
  outcome.errors = slot.captured.errors;
  outcome.notes = slot.captured.notes;
  return outcome;
}

void FleetRunner::Ended(Slot* slot, int failures) {
  const UnitOutcome outcome = OutcomeOf(*slot, failures);
  // A unit interrupted by the operator has not been served.
  const bool giveBack = stopping_ && !outcome.succeeded;
  TellSource(
      [this, giveBack, unit = slot->unit, succeeded = outcome.succeeded] {
        giveBack ? source_.Released(unit) : source_.Finished(unit, succeeded);
      },
      [this, outcome] { report_.UnitEnded(outcome); });
  const auto it = std::find_if(slots_.begin(), slots_.end(), [slot](const auto& s) { return s.get() == slot; });
  // The run whose handler called us is still on the stack: the last owner
  // of its slot is a handler that does nothing, destroyed once it has run.
  std::shared_ptr<Slot> ended(std::move(*it));
  slots_.erase(it);
  boost::asio::post(io_, [ended] {});
  Fill();
}

void FleetRunner::Interrupt() {
  stopping_ = true;
  askAgain_.cancel();
  for (const auto& slot : slots_)
    if (slot->run) slot->run->Interrupt();
  Fill();
}

// The fleet file's units, or those of them an earlier report names as
// failed; every name of the report must be in the file.
std::vector<FleetUnit> UnitsToServe(const FleetOptions& options) {
  std::vector<FleetUnit> units = ReadFleetFile(options.file);
  if (options.retry.empty()) return units;
  std::set<std::string> failed = FailedUnits(options.retry);
  std::erase_if(units, [&](const FleetUnit& unit) { return !failed.erase(unit.name); });
  if (!failed.empty())
    throw UsageError("fleet: " + options.retry + " names unit '" + *failed.begin() + "', which " + options.file +
                     " does not list");
  return units;
}

// With a server, the units' stores share --db-connections connections, the
// work list's own counted, whatever the links in flight: a server refuses
// connections past its limit. A link whose store finds them all in use
// waits for one. Each store thread uses one connection at a time.
int StoreConnections(const Invocation& invocation) {
  const FleetOptions& options = *invocation.fleet;
  return std::max(1, options.dbConnections - (options.claim.empty() ? 0 : 1));
}

int RunFleet(const Invocation& invocation, Console& console) {
  const FleetOptions& options = *invocation.fleet;
  std::vector<FleetUnit> toServe = UnitsToServe(options);
  if (toServe.empty()) {
    console.Note("fleet: no unit failed in " + options.retry + "; nothing to run");
    return 0;
  }
  std::ofstream reportFile;
  if (!options.report.empty()) {
    reportFile.open(options.report, std::ios::trunc);
    if (!reportFile) throw UsageError("fleet: --report: cannot write " + options.report);
  }
  std::unique_ptr<UnitSource> units;
  ClaimSource* claims = nullptr;
  if (options.claim.empty()) {
    units = std::make_unique<ListSource>(std::move(toServe));
  } else {
    units = std::make_unique<ClaimSource>(std::move(toServe), invocation.link.database, options.claim,
                                          std::chrono::seconds(options.lease));
    claims = static_cast<ClaimSource*>(units.get());
  }
  UnitSource& source = *units;
  RaiseOpenFileLimit();
  boost::asio::io_context io;
  FleetReport report(console, options.json, source.Total(), options.report.empty() ? nullptr : &reportFile);
  LinkOptions common = invocation.link;
  std::optional<StoreThreads> stores;
  if (store::IsServerDatabase(common.database)) {
    store::LimitServerConnections(StoreConnections(invocation));
    stores.emplace(io, StoreConnections(invocation));
    common.storeRunner = stores->Runner();
  }
  // The claims wait on the server: one thread of their own keeps them off
  // the loop, in the order they were made, on the one connection they have.
  std::optional<StoreThreads> claimThread;
  if (claims) claimThread.emplace(io, 1);
  FleetRunner runner(io, source, invocation.commands, common, invocation.output, options.parallel, report,
                     [&io] { io.stop(); }, claimThread ? claimThread->Runner() : nullptr);

  bool interrupted = false;
  boost::asio::signal_set signals(io, SIGINT, SIGTERM);
  signals.async_wait([&](const boost::system::error_code& ec, int) {
    if (ec) return;
    interrupted = true;
    runner.Interrupt();
  });
  boost::asio::steady_timer progress(io);
  std::function<void()> showProgress = [&] {
    report.Progress(runner.running());
    progress.expires_after(kProgressInterval);
    progress.async_wait([&](const boost::system::error_code& ec) {
      if (!ec) showProgress();
    });
  };

  // Claimed units stay this machine's while their runs go on.
  boost::asio::steady_timer renewal(io);
  std::function<void()> renew = [&] {
    if (!claims) return;
    renewal.expires_after(claims->lease() / 3);
    renewal.async_wait([&](const boost::system::error_code& ec) {
      if (ec) return;
      runner.TellSource([claims] { claims->Renew(); });
      renew();
    });
  };

  const auto start = std::chrono::steady_clock::now();
  boost::asio::post(io, [&] {
    runner.Start();
    showProgress();
    renew();
  });
  io.run();
  signals.cancel();
  progress.cancel();
  renewal.cancel();
  // What the links' ends posted runs while everything is still there.
  io.restart();
  io.poll();
  report.Summary(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(), interrupted);
  return report.failed() > 0 || report.sourceFailed() || interrupted ? 1 : 0;
}

}  // namespace camrelay::cli
