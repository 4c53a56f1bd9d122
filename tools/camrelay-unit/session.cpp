#include "session.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

#include "commands.h"
#include "protocol.h"
#include "unscramble.h"

namespace camrelay::unit {

namespace {

bool StartsWith(std::string_view text, std::string_view prefix) { return text.substr(0, prefix.size()) == prefix; }

std::string Acceptance(int count, const std::string& tipo) { return "AA{}" + std::to_string(count) + "{}" + tipo; }

}  // namespace

Session::Session(Content& content, Codes& codes, Faults& faults, bool tcp, const Log& log)
    : content_(content), codes_(codes), faults_(faults), tcp_(tcp), log_(log) {}

std::vector<Outgoing> Session::Receive(std::string_view message) {
  if (faults_.LoseIncoming()) {
    log_.Traffic("lost <-", message);
    return {};
  }
  log_.Traffic("<-", message);
  const std::string_view head = message.substr(0, 2);
  if (head == code::Request) {
    if (const auto opening = ParseOpening(message)) HandleOpening(*opening, "");
  } else if (head == code::End) {
    if (const auto probe = ParseProbe(message)) HandleProbe(*probe);
  } else if (head == code::ResendAll) {
    if (!lastAnswer_.empty()) Emit(lastAnswer_);
  } else if (message == code::Ack) {
    HandleAck();
  } else if (head == code::Ack) {
    HandleStart(message.substr(4));
  } else if (head == kSep) {
    HandleElement(upload_ ? upload_->NextOrdinal() : 0, std::string(message), "");
  }
  // "BS" is the component echoing a busy reply on TCP: nothing to answer.
  return std::exchange(out_, {});
}

// Every opening starts its exchange afresh: the component only repeats one
// when it never saw the answer, so nothing of the exchange has happened yet.
void Session::HandleOpening(const Opening& opening, const std::string& prefix) {
  upload_.reset();
  phase_ = Phase::Idle;
  eraseLogWhenSent_ = false;
  // Either code may change either code: the component makes a new code its
  // own access code at once, so a host that changes the user code and then
  // the installer code asks the second change with the new user code.
  const CodeKind kind = CheckCode(opening.code, codes_.installer, codes_.user);
  if (kind == CodeKind::None) {
    log_.Info("access code refused (request " + opening.tipo + ")");
    lastAnswer_ = std::string(code::Password);
    Reply(prefix, lastAnswer_);
    return;
  }
  if (opening.tipo == type::Login) {
    log_.Info(kind == CodeKind::Installer ? "login with the installer code" : "login with the user code");
    lastAnswer_ = "AA{}0{}00{}" + std::to_string(static_cast<int>(kind));
    Reply(prefix, lastAnswer_);
  } else if (IsUpload(opening.tipo)) {
    StartUpload(opening, prefix);
  } else if (auto transfer = Download(opening)) {
    StartDownload(std::move(*transfer), prefix, true);
  } else {
    log_.Info("request of unknown type " + opening.tipo + " ignored");
  }
}

std::optional<Transfer> Session::Download(const Opening& opening) {
  const std::string& tipo = opening.tipo;
  if (tipo == type::Prog) return TableTransfer(tipo, content_.Programmazione());
  if (tipo == type::Log) return TableTransfer(tipo, content_.Log());
  if (tipo == type::LogThenErase) {
    // The log goes out, then the unit forgets it.
    eraseLogWhenSent_ = true;
    return TableTransfer(tipo, content_.Log());
  }
  if (tipo == type::EraseLog) {
    content_.EraseLog();
    return TableTransfer(tipo, {});
  }
  if (tipo == type::CamEvents) return TableTransfer(tipo, content_.CamEvents());
  if (tipo == type::ProgCamEvents) return TableTransfer(tipo, content_.ProgCamEvents());
  if (tipo == type::Wave) return VoiceTransfer(content_.VoiceMessages());
  if (tipo == type::Media) return MediaTransfer(content_.MediaFile(ChunkText(opening.rest)).value_or(""));
  return std::nullopt;
}

void Session::HandleProbe(const Probe& probe) {
  const std::string prefix = "13{}" + probe.tipo + "{}" + std::to_string(probe.count) + "{}";
  if (probe.rest.empty()) {
    AnswerSilence(probe, prefix);
  } else if (const auto opening = ParseOpening(probe.rest)) {
    HandleOpening(*opening, prefix);
  } else if (StartsWith(probe.rest, kSep)) {
    HandleElement(probe.count, probe.rest, prefix);
  }
}

// The component heard nothing for a while: say again what it is missing.
void Session::AnswerSilence(const Probe& probe, const std::string& prefix) {
  switch (phase_) {
    case Phase::Receiving:
    case Phase::Accepted:
      Reply(prefix, lastAnswer_);
      return;
    case Phase::Sending:
      if (!transfer_.indexed) {
        // A counted transfer: the probe says how many packets arrived, so
        // the next one it needs is that number.
        if (probe.count > static_cast<int>(order_.size())) {
          phase_ = Phase::Done;
          Reply(prefix, "12{}" + transfer_.tipo);
          return;
        }
        position_ = static_cast<std::size_t>(std::max(probe.count, 1) - 1);
      }
      SendPacket(prefix);
      return;
    case Phase::Idle:
    case Phase::Done:
      // Nothing in progress here: the request never arrived. Ask for it again.
      Emit("13{}00{}0{}");
      return;
  }
}

void Session::StartUpload(const Opening& opening, const std::string& prefix) {
  upload_.emplace(opening.tipo, opening.count, opening.rest);
  uploadFinished_ = false;
  reply_.reset();
  // A request that fits in its opening is complete at once.
  if (opening.count == 0) {
    FinishUpload(prefix);
    return;
  }
  phase_ = Phase::Receiving;
  lastAnswer_ = Acceptance(opening.count, opening.tipo);
  Reply(prefix, lastAnswer_);
}

void Session::HandleElement(int ordinal, std::string element, const std::string& prefix) {
  if (!upload_ || !upload_->Store(ordinal, std::move(element))) {
    log_.Info("element " + std::to_string(ordinal) + " outside any upload ignored");
    return;
  }
  if (upload_->Complete())
    FinishUpload(prefix);
  else
    Reply(prefix, "OK");
}

// The last element may come again when the answer to it was lost: what it
// caused happens once, the answer is given every time.
void Session::FinishUpload(const std::string& prefix) {
  if (!uploadFinished_) {
    reply_ = Answer(*upload_);
    if (!reply_) Keep(*upload_);
    uploadFinished_ = true;
  }
  if (reply_) {
    if (upload_->tipo() == type::CommandRequest && faults_.settings().okBeforeAnswer) {
      Reply(prefix, "OK");
      StartDownload(*reply_, "", true);
      return;
    }
    StartDownload(*reply_, prefix, true);
    return;
  }
  phase_ = Phase::Done;
  // Writing a firmware image or voice messages keeps a unit busy.
  const bool slow = upload_->tipo() == type::WaveUpload || upload_->tipo() == type::Firmware;
  Reply(prefix, "OK", slow);
}

std::optional<Transfer> Session::Answer(const Upload& upload) {
  const std::string& tipo = upload.tipo();
  if (tipo == type::CommandRequest) return StringTransfer(AnswerCommand(upload.Text(), content_), tcp_);
  if (tipo == type::Preview) return playback_.Answer(upload.Text(), content_);
  if (tipo == type::StreamRequest) {
    const auto image = content_.PreviewImage(std::atoi(upload.Text().c_str()));
    return image ? ImageTransfer(type::StreamImage, *image) : ImageReply(type::StreamImage, "Reg Error");
  }
  return std::nullopt;
}

void Session::Keep(const Upload& upload) {
  const std::string& tipo = upload.tipo();
  if (tipo == type::ProgUpload || tipo == type::ProgCamEventsUpload) {
    auto dati = upload.RecordTexts();
    tipo == type::ProgUpload ? content_.StoreProgrammazione(dati) : content_.StoreProgCamEvents(dati);
    log_.Info(tipo == type::ProgUpload ? "programming received" : "camera-event programming received");
  } else if (tipo == type::WaveUpload || tipo == type::Firmware) {
    for (const auto& file : upload.Files()) {
      const bool kept = tipo == type::WaveUpload ? content_.StoreVoiceMessage(file.name, file.bytes)
                                     : content_.StoreFirmware(file.name, file.bytes);
      log_.Info((kept ? "received " : "refused the file name ") + Printable(file.name));
    }
  } else if ((tipo == type::InstallerCode || tipo == type::UserCode) && !upload.Text().empty()) {
    (tipo == type::InstallerCode ? codes_.installer : codes_.user) = upload.Text();
    log_.Info(tipo == type::InstallerCode ? "installer code changed" : "user code changed");
  } else if (tipo == type::Command) {
    content_.StoreLastCommand(upload.Text());
    log_.Info("command received: " + Printable(upload.Text()));
  }
}

void Session::StartDownload(Transfer transfer, const std::string& prefix, bool mayBeBusy) {
  transfer_ = std::move(transfer);
  order_.clear();
  for (std::size_t i = 1; i <= transfer_.packets.size(); ++i) order_.push_back(static_cast<int>(i));
  // Swap neighbours, never the last packet: the component takes the
  // arrival of the last index as the end of the transfer.
  if (transfer_.indexed)
    for (std::size_t k = 0; k + 2 < order_.size(); ++k)
      if (faults_.Reorder()) std::swap(order_[k], order_[k + 1]), ++k;
  position_ = 0;
  pendingAcks_ = 0;
  sentInTransfer_ = 0;
  phase_ = transfer_.packets.empty() ? Phase::Done : Phase::Accepted;
  lastAnswer_ = transfer_.acceptance;
  Reply(prefix, transfer_.acceptance, mayBeBusy);
}

void Session::HandleStart(std::string_view tipo) {
  // A second "OK{}type" means the component took the acceptance again and
  // dropped what it had collected: start over.
  if ((phase_ != Phase::Accepted && phase_ != Phase::Sending) || tipo != transfer_.tipo) return;
  phase_ = Phase::Sending;
  position_ = 0;
  SendPacket("");
}

void Session::HandleAck() {
  if (phase_ != Phase::Sending || pendingAcks_ <= 0) return;
  if (--pendingAcks_ > 0) return;  // the acknowledgement of a copy
  if (++position_ < order_.size()) {
    SendPacket("");
    return;
  }
  phase_ = Phase::Done;
  log_.Info("transfer " + transfer_.tipo + " sent: " + std::to_string(order_.size()) + " packets");
  if (tcp_ && transfer_.closedByResendAll) Emit("12{}" + transfer_.tipo);
}

void Session::SendPacket(const std::string& prefix) {
  const int number = order_[position_];
  const bool last = number == static_cast<int>(order_.size());
  const std::string message = prefix + transfer_.packets[static_cast<std::size_t>(number) - 1];
  if (last && eraseLogWhenSent_) {
    content_.EraseLog();
    eraseLogWhenSent_ = false;
  }
  int copies = 1;
  if (faults_.LoseOutgoing()) {
    copies = 0;
    log_.Traffic("lost ->", message);
  } else if (prefix.empty() && transfer_.indexed && !last && faults_.Duplicate()) {
    // Never the last packet: a late copy of it would end the component's
    // next transfer.
    copies = 2;
  }
  const FaultSettings& settings = faults_.settings();
  const int slow = transfer_.tipo == settings.slowType ? settings.slowMs : 0;
  for (int i = 0; i < copies; ++i) Push(message, slow);
  pendingAcks_ = copies;
  faults_.NoteSent(++sentInTransfer_);
  if (tcp_ && faults_.ResetNow(sentInTransfer_)) {
    log_.Info("resetting the connection");
    out_.push_back({{}, 0, true});
  }
}

void Session::Reply(const std::string& prefix, const std::string& text, bool mayBeBusy) {
  if (mayBeBusy && faults_.Busy()) {
    Emit(prefix + std::string(code::Busy));
    Emit(text, faults_.settings().busyDelayMs);
    return;
  }
  Emit(prefix + text);
}

void Session::Emit(std::string message, int extraDelayMs) {
  if (faults_.LoseOutgoing()) {
    log_.Traffic("lost ->", message);
    return;
  }
  Push(std::move(message), extraDelayMs);
}

void Session::Push(std::string message, int extraDelayMs) {
  log_.Traffic("->", message);
  out_.push_back({std::move(message), extraDelayMs + faults_.Delay(), false});
}

}  // namespace camrelay::unit
