// The unit's side of the protocol for one peer: it takes the component's
// messages one at a time and says what the unit sends back. No sockets and
// no clocks: delays and resets are carried by what it returns, and the
// transport carries them out.
//
// Downloads go stop and wait: the acceptance, then (after "OK{}type") one
// packet at a time, the next only when the bare "OK" for every copy of the
// current one has come. Uploads are acknowledged element by element.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "content.h"
#include "faults.h"
#include "log.h"
#include "message.h"
#include "playback.h"
#include "transfers.h"
#include "uploads.h"

namespace camrelay::unit {

struct Outgoing {
  std::string message;
  int delayMs = 0;     // held back this long after it is handed over
  bool reset = false;  // TCP: reset the connection here instead of sending
};

// The access codes; the code-change uploads replace them for every peer.
struct Codes {
  std::string installer;
  std::string user;
};

class Session {
 public:
  Session(Content& content, Codes& codes, Faults& faults, bool tcp, const Log& log);

  std::vector<Outgoing> Receive(std::string_view message);

 private:
  enum class Phase {
    Idle,       // nothing in progress
    Receiving,  // an upload accepted, elements arriving
    Accepted,   // a download accepted, "OK{}type" awaited
    Sending,    // a packet out, its acknowledgements awaited
    Done,       // the exchange is over
  };

  void HandleOpening(const Opening& opening, const std::string& prefix);
  void HandleProbe(const Probe& probe);
  void HandleElement(int ordinal, std::string element, const std::string& prefix);
  void HandleStart(std::string_view tipo);
  void HandleAck();

  void StartUpload(const Opening& opening, const std::string& prefix);
  void FinishUpload(const std::string& prefix);
  // The transfer that answers a request ("52", "08", "57"); nullopt for an
  // upload that only brings something, which Keep stores.
  std::optional<Transfer> Answer(const Upload& upload);
  void Keep(const Upload& upload);
  std::optional<Transfer> Download(const Opening& opening);
  void StartDownload(Transfer transfer, const std::string& prefix, bool mayBeBusy);
  void SendPacket(const std::string& prefix);
  void AnswerSilence(const Probe& probe, const std::string& prefix);

  // The reply to what just came: "BS" first when the busy fault strikes,
  // then the real answer after a pause. Only the first message carries the
  // prefix of a resend, which is what the component matches.
  void Reply(const std::string& prefix, const std::string& text, bool mayBeBusy = false);
  // A message that loss and delay may strike.
  void Emit(std::string message, int extraDelayMs = 0);
  void Push(std::string message, int extraDelayMs = 0);

  Content& content_;
  Codes& codes_;
  Faults& faults_;
  const bool tcp_;
  const Log& log_;

  std::vector<Outgoing> out_;
  Phase phase_ = Phase::Idle;
  std::string lastAnswer_;  // repeated on the component's "12"
  std::optional<Upload> upload_;
  bool uploadFinished_ = false;
  std::optional<Transfer> reply_;
  Transfer transfer_;
  std::vector<int> order_;  // packet numbers in the order they go out
  std::size_t position_ = 0;
  int pendingAcks_ = 0;
  int sentInTransfer_ = 0;
  bool eraseLogWhenSent_ = false;
  Playback playback_;
};

}  // namespace camrelay::unit
