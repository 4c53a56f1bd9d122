// A run of link commands against one unit: the link is set up once, each
// command is queued when the one before it has left the queue and the link
// is idle, and watchdogs make sure that no run can hang. UnitRun is that run
// on a loop its owner runs, so that many units share one loop; Session is the
// single unit of the command line, on a loop of its own.
#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "camrelay/clsClient.h"
#include "host/actions.h"
#include "host/commands.h"
#include "host/console.h"
#include "host/site.h"

namespace camrelay::host {

// Connetti, the database and the access code; the reason when the link or
// the database cannot be set up. lastDebug is the library's last diagnostic
// line, kept up to date by the caller's OnDebug handler.
std::optional<std::string> OpenLink(clsClient& client, const LinkOptions& link, const std::string& code,
                                    const std::string& lastDebug);

// What a state change says of the request being served: the reason it
// failed, or nullopt. Judged by the state and the status view's outcome,
// never by the library's words: a refused code, or a give-up that names the
// unit and how far the transfer got ("no answer from 10.0.0.7:19201 udp
// after 15 attempts, 1240 of 3000 packets received; nothing stored (...)").
std::optional<std::string> LinkFailure(clsClient& client, StatoConnessioneEnum stato);

// The unit a client talks to, as messages name it: "10.0.0.7:19201 udp".
std::string UnitName(clsClient& client);

class UnitRun {
 public:
  // Called once, from its own turn of the loop, when the run is over: with
  // the number of commands that failed (every failure has been reported to
  // the console).
  using Done = std::function<void(int failures)>;

  UnitRun(boost::asio::io_context& io, const LinkOptions& link, const std::vector<Command>& commands,
          Console& console, Done done);
  ~UnitRun();
  UnitRun(const UnitRun&) = delete;
  UnitRun& operator=(const UnitRun&) = delete;

  // Sets up the link and starts the first command.
  void Start();
  // Ends the run at once: the command in hand cleans up what it leaves half
  // done and fails as interrupted.
  void Interrupt();
  // The unit the link was set up for, once a command on it succeeded.
  std::optional<SiteUnit> Reached() const;

 private:
  using Clock = std::chrono::steady_clock;

  // Connetti, the database and the access code; false (and the reason
  // printed) when the link or the database cannot be set up.
  bool Open();
  void OnState(StatoConnessioneEnum stato);
  void StartNext();
  void CheckIdle();
  void EndCommand(const std::optional<std::string>& error);
  void SkipTheRest();
  void Poll();
  void SchedulePoll();
  void WatchProgress(Clock::time_point now);
  void WatchStall(Clock::time_point now);
  // Drops the request the link cannot finish by building the link anew, and
  // ends the command with the reason.
  void Abandon(const std::string& reason);
  // Ends the run: the link goes now, the owner hears of it from a later turn.
  void Finish();
  void Report();
  // Runs work from a later turn of the loop, unless this run is gone by then.
  void Later(void (UnitRun::*step)());

  boost::asio::io_context& io_;
  const LinkOptions& link_;
  const std::vector<Command>& commands_;
  Console& console_;
  Done done_;
  clsClient client_;
  Context context_;
  boost::asio::steady_timer poll_;

  // The time-outs and retry limit in force, for the watchdogs.
  std::chrono::milliseconds stallLimit_;
  std::chrono::milliseconds progressLimit_;
  // How long an answer may follow the link going idle: every attempt's wait.
  std::chrono::milliseconds answerWait_;

  std::size_t next_ = 0;
  std::unique_ptr<Action> current_;
  std::optional<std::string> error_;      // what the link reported for the current command
  std::string lastDebug_;                 // the library's last diagnostic line
  std::string code_;                      // the access code in force
  int failures_ = 0;
  bool finished_ = false;
  bool codeRefused_ = false;             // the unit refused the access code: the run ends
  bool reached_ = false;                 // a command succeeded
  SiteUnit unit_;                        // the unit the link was set up for

  // Watchdog state for the current command.
  long long bestMark_ = 0;
  long long events_ = 0;
  Clock::time_point lastProgress_;
  std::optional<Clock::time_point> stalledSince_;
  std::optional<Clock::time_point> idleSince_;
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

// The command line's run: one unit on a loop of its own, ended by SIGINT or
// SIGTERM as well.
class Session {
 public:
  Session(const LinkOptions& link, const std::vector<Command>& commands, Console& console);
  // Runs every command; returns the exit status: 0, 1, or 128 + the signal
  // that interrupted it (130 for Ctrl-C).
  int Run();
  std::optional<SiteUnit> Reached() const { return run_.Reached(); }

 private:
  boost::asio::io_context io_;
  boost::asio::signal_set signals_;
  int failures_ = 0;
  int signal_ = 0;  // the signal that interrupted the run
  UnitRun run_;
};

}  // namespace camrelay::host
