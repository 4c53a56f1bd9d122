// The console's one link to the unit. The page's clicks become the command
// line's own actions on one clsClient, queued at once so that the link's
// queue decides (a duplicate is refused, and the page is told); what the link
// does comes back as messages for the page: the panel, state changes,
// diagnostic lines, each command's progress and outcome, preview images.
#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "host/actions.h"
#include "camrelay/clsClient.h"
#include "camrelay/status.h"
#include "cli.h"
#include "host/console.h"

namespace camrelay::web {

class LiveLink {
 public:
  using Publish = std::function<void(const nlohmann::json& message)>;

  LiveLink(boost::asio::io_context& io, const cli::Invocation& invocation, host::Console& console, Publish publish);
  ~LiveLink();
  LiveLink(const LiveLink&) = delete;
  LiveLink& operator=(const LiveLink&) = delete;

  // Sets up the link and the database; the reason when it cannot.
  std::optional<std::string> Open();

  // A command of the command table, checked as the command line checks it
  // (throws host::UsageError). Returns the job's number. A playback opens
  // the clip held by hand: it moves on the page's orders until closed.
  int Run(host::Command command);
  // An order to the clip held open; throws host::UsageError when none is.
  void OrderClip(host::PlaybackOrder order, double value);
  // Whether the preview's images and the clip's frames are saved from now
  // on; off at first, so that watching does not fill the disk.
  void Record(bool on);
  // Sets the link up again for this unit (an empty host, a port of 0 or an
  // empty code keep the one in use); what was queued is dropped, its jobs
  // failed. The reason when the link cannot be set up.
  std::optional<std::string> Connect(const std::string& host, int port, bool tcp, const std::string& code);
  // Takes the link down; what was queued ends failed.
  void Disconnect();
  // Stops the preview the page started.
  void StopPreview();
  // Cancels a job: a request in hand is abandoned, one waiting is taken out
  // of the queue; the others stay queued. Throws host::UsageError when the
  // job is over or its request cannot be taken back.
  void Cancel(int id);
  // The panel's send row: the typed text goes out through the panel's own
  // button, which sends on UDP only. False on TCP.
  bool SendRow(const std::string& text);

  // Everything a page that just connected needs to catch up.
  std::vector<nlohmann::json> Welcome();

  const std::filesystem::path& dir() const { return context_.dir; }
  store::DataVideo& database() { return client_.Database(); }
  // Text for the page: secrets hidden, the unit's bytes as UTF-8.
  std::string ForPage(const std::string& text) const;

 private:
  struct Job {
    int id = 0;
    std::unique_ptr<host::Action> action;
    bool inQueue = true;  // false: its request left the queue as it was sent
    std::optional<std::string> error;
    std::vector<std::string> lines;  // answers and notes while it ran
    int percent = -1;
    int images = 0;  // preview only
    bool stopped = false;
    bool staleRefusal = false;  // preview only: the link's last outcome was a refusal before it began
    std::optional<std::string> cancelled;  // what the cancel did, and what it kept
  };

  void OnState(StatoConnessioneEnum stato);
  void OnDebug(const std::string& line);
  void Settle();
  bool PreviewOver();
  void Finish(Job& job);
  nlohmann::json JobMessage(const Job& job, const std::string& status, const std::string& message) const;
  void PublishJob(const Job& job, const std::string& status, const std::string& message = "");
  void PublishImage(const char* source);
  void Poll();
  void PublishPanel();
  void PublishSummary();
  nlohmann::json UnitMessage();
  nlohmann::json RecordMessage() const;
  Job* Held();
  void CheckPreviewRefused();
  void PublishProgress();
  int WaitingRequests();
  int QueuePosition(const Job& job);
  Job* FindJob(int id);
  template <typename F>
  void As(Job& job, F&& body);

  boost::asio::io_context& io_;
  host::LinkOptions link_;  // the unit and code in use: the command line's, then the page's
  host::Console& console_;
  Publish publish_;
  clsClient client_;
  host::Context context_;
  boost::asio::steady_timer poll_;
  std::string lastDebug_;

  // Whether the database was there before the console made it, and the
  // commands done since: an upload from tables nobody filled is refused.
  bool haveDatabase_;
  std::vector<host::Op> done_;
  int nextId_ = 1;
  std::deque<Job> jobs_;       // in the order of their requests in the link's queue
  std::optional<Job> preview_;
  std::optional<Job> clip_;    // a clip held open by hand
  bool record_ = false;
  Job* speaking_ = nullptr;    // the job whose action runs now, for its lines
  nlohmann::json panel_;       // the panel as last published
  nlohmann::json summary_;     // the summary as last published
  std::deque<nlohmann::json> timeline_;
  std::deque<nlohmann::json> debug_;
  std::deque<nlohmann::json> finished_;
};

}  // namespace camrelay::web
