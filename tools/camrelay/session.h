// A run of link commands against one unit: the link is set up once, each
// command is queued when the one before it has left the queue and the link
// is idle, and watchdogs make sure that no run can hang.
#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "actions.h"
#include "camrelay/clsClient.h"
#include "cli.h"
#include "console.h"

namespace camrelay::cli {

class Session {
 public:
  Session(const Invocation& invocation, Console& console);
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  // Runs every command; returns the exit status, 0 or 1.
  int Run();

 private:
  using Clock = std::chrono::steady_clock;

  // Connetti, the database and the access code; false (and the reason
  // printed) when the link or the database cannot be set up.
  bool Open();
  void OnState(StatoConnessioneEnum stato);
  void StartNext();
  void CheckIdle();
  void EndCommand(const std::optional<std::string>& error);
  void Poll();
  void SchedulePoll();
  void WatchProgress(Clock::time_point now);
  void WatchStall(Clock::time_point now);
  // Drops the request the link cannot finish by building the link anew, and
  // ends the command with the reason.
  void Abandon(const std::string& reason);
  void OnSignal();

  const Invocation& invocation_;
  Console& console_;
  boost::asio::io_context io_;
  clsClient client_;
  Context context_;
  boost::asio::steady_timer poll_;
  boost::asio::signal_set signals_;

  // The time-outs and retry limit in force, for the watchdogs.
  std::chrono::milliseconds stallLimit_;
  std::chrono::milliseconds progressLimit_;

  std::size_t next_ = 0;
  std::unique_ptr<Action> current_;
  std::optional<std::string> error_;      // what the link reported for the current command
  std::string lastDebug_;                 // the library's last diagnostic line
  std::string code_;                      // the access code in force
  int failures_ = 0;
  bool finished_ = false;

  // Watchdog state for the current command.
  long long bestMark_ = 0;
  long long events_ = 0;
  Clock::time_point lastProgress_;
  std::optional<Clock::time_point> stalledSince_;
};

}  // namespace camrelay::cli
