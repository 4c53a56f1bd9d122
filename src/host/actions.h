// One command of the command line while it runs: the request it queues, what
// it does with what arrives, and how it judges the outcome once the link is
// idle again.
#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "camrelay/clsClient.h"
#include "host/commands.h"
#include "host/console.h"

namespace camrelay::host {

struct Context {
  clsClient& client;
  Console& console;
  std::filesystem::path dir;  // the working folder
};

// What a user's hand does to a clip held open (the console's player).
enum class PlaybackOrder { Play, Pause, Next, Previous, Seek, Quality, Close };

class Action {
 public:
  explicit Action(Command command) : command_(std::move(command)) {}
  virtual ~Action() = default;
  Action(const Action&) = delete;
  Action& operator=(const Action&) = delete;

  const Command& command() const { return command_; }

  // Queues the command's request.
  virtual void Start(Context& ctx) = 0;
  // A state change raised while this command is the one running.
  virtual void OnState(Context& ctx, StatoConnessioneEnum stato);
  // The link is idle again and the command is over. `error` is what the
  // link reported (a refusal, a give-up); the result is the failure to tell
  // the user, or nullopt when the command succeeded.
  virtual std::optional<std::string> Finish(Context& ctx, const std::optional<std::string>& error);
  // How far the transfer is, 0..1, for the progress bar; nullopt for none.
  virtual std::optional<double> Progress(Context& ctx) const;
  // The link is idle, yet the unit may still send what the command waits
  // for (an answer that follows the request's last acknowledgement).
  virtual bool AwaitsMore() const { return false; }
  // What the progress watchdog counts as steps forward, when not the link's
  // own packets and bytes: a preview or a clip asks for the next image after
  // each one lost, for ever, so there only an image that arrives is a step.
  virtual std::optional<long long> ImagesArrived() const { return std::nullopt; }
  // A diagnostic line of the library while this command runs.
  virtual void OnDebug(const std::string&) {}

  // Whether the images that arrive are saved. The command line saves every
  // one; the console only while the user records, so that watching does
  // not fill the disk.
  void Record(bool on) { record_ = on; }
  bool recording() const { return record_; }

  // A clip held open by hand (a playback with no frame count) takes the
  // user's orders while it runs; value is the seek's seconds or the
  // quality. False when this command takes none, or is closing.
  virtual bool Order(Context&, PlaybackOrder, double /*value*/) { return false; }
  // Held by hand: whether it is over, the clip closed or refused.
  virtual bool HeldOver(Context&) const { return true; }

 protected:
  // The state that says the command's exchange completed; cNoOperation when
  // the exchange ends without one.
  virtual StatoConnessioneEnum Completion() const = 0;
  bool completed() const { return completed_; }
  // Start found nothing worth sending: no request goes out, and this is the
  // command's failure.
  void Refuse(std::string reason) { refusal_ = std::move(reason); }

 private:
  Command command_;
  bool record_ = true;
  bool completed_ = false;
  std::optional<std::string> refusal_;
};

std::unique_ptr<Action> MakeAction(const Command& command);

}  // namespace camrelay::host
