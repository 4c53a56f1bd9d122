// The receive dispatcher: cuts the unit's messages out of what the socket
// delivers and hands each one to the handler of its code. Winsock_Cisei is
// the handler of the unit's acceptance: it completes the login and starts the
// accepted upload or download.
#include <algorithm>
#include <iterator>

#include "link/codes.h"
#include "link/frmClient.h"
#include "link/guard.h"
#include "link/limits.h"
#include "link/reception.h"

namespace camrelay::link {

namespace {

// How a read of the socket ends: a message to handle, nothing more to do in
// this event, or the rest of the stream still to come (the reply timer is
// then armed again).
enum class Cut { Message, EndHandler, LeaveLoop };

// The messages of one data-arrival event. On TCP the text that does not yet
// make a whole frame goes back to sBufferRicezione when the event ends.
class Incoming {
 public:
  explicit Incoming(frmClient& form) : form_(form), tcp_(form.IsTCP()) {
    if (tcp_) text_ = std::move(form.sBufferRicezione);
  }
  ~Incoming() {
    if (!tcp_) return;
    text_.erase(0, pos_);
    form_.sBufferRicezione = std::move(text_);
  }
  Incoming(const Incoming&) = delete;
  Incoming& operator=(const Incoming&) = delete;

  Cut Next(std::string& message) { return tcp_ ? NextFrame(message) : NextDatagram(message); }

 private:
  std::string Read();
  Cut NextDatagram(std::string& message);
  Cut NextFrame(std::string& message);
  bool FromTheUnit();
  void KeepPartialMarker();
  void ReportDropped(const std::string& what);

  frmClient& form_;
  const bool tcp_;
  std::string text_;     // received and not yet handed out
  std::size_t pos_ = 0;  // start of what is still to be cut
};

std::string Incoming::Read() {
  std::string data = form_.Winsock1->getData();
  if (!data.empty() && form_.ShowCamRelay) {
    panel::AppendLogLine(form_.Panel.txtRxData,
                         frmClient::LogStamp() + " - " + std::to_string(data.size()) + " - " + data);
    form_.Panel.lblRemoteIp = "Indirizzo IP remoto: " + form_.Winsock1->peerIP();
    form_.Panel.lblRemotePort = "Porta di accesso remota: " + std::to_string(form_.Winsock1->peerPort());
  }
  return data;
}

// One datagram is one message, taken only from the unit's address and port:
// anyone else on the network could otherwise answer in its place.
Cut Incoming::NextDatagram(std::string& message) {
  message = Read();
  if (message.empty() || !FromTheUnit()) return Cut::EndHandler;
  return Cut::Message;
}

bool Incoming::FromTheUnit() {
  if (form_.Winsock1->fromRemote()) return true;
  const long dropped = ++form_.foreignDatagrams;
  if (dropped % kForeignDatagramReportEvery == 1)
    form_.CreateEventOnDebug("Winsock1_DataArrival: datagram from " + form_.Winsock1->peerIP() + ":" +
                             std::to_string(form_.Winsock1->peerPort()) + ", not the unit; dropped (" +
                             std::to_string(dropped) + " so far)");
  return false;
}

// "LN{}" length "{}" message; whatever precedes the marker is garbage.
Cut Incoming::NextFrame(std::string& message) {
  text_ += Read();
  for (;;) {
    const auto marker = text_.find(kFrameMarker, pos_);
    if (marker == std::string::npos) {
      KeepPartialMarker();
      return Cut::EndHandler;
    }
    pos_ = marker;
    const auto lengthAt = marker + kFrameMarker.size();
    const auto sep = text_.find(kSep, lengthAt);
    if (sep == std::string::npos) {
      if (text_.size() - pos_ > kMaxFrameBytes) {
        ReportDropped(std::to_string(text_.size() - pos_) + " bytes received without a complete frame header");
        pos_ = text_.size();
      }
      return Cut::LeaveLoop;
    }
    // A length that is not a number reads as 0 and yields an empty message.
    const auto length =
        static_cast<std::size_t>(std::max(0LL, LeadingNumber(text_.substr(lengthAt, sep - lengthAt))));
    const auto body = sep + kSep.size();
    if (length > kMaxFrameBytes) {
      // Skip the header only: the next marker in the stream starts over.
      ReportDropped("frame of " + std::to_string(length) + " bytes announced");
      pos_ = body;
      continue;
    }
    if (length > text_.size() - body) {
      // The rest of the frame is still travelling: the time-out starts anew.
      if (form_.ShowCamRelay) panel::AppendLogLine(form_.Panel.txtRxData, "MANCA!!!!!!!");
      form_.tmrTimeOut->setEnabled(false);
      return Cut::LeaveLoop;
    }
    message = text_.substr(body, length);
    pos_ = body + length;
    return Cut::Message;
  }
}

// Without a marker the text is dropped, except an end that may be the start
// of a marker split across two reads.
void Incoming::KeepPartialMarker() {
  pos_ = std::max(pos_, text_.size() - std::min(text_.size(), kFrameMarker.size() - 1));
  while (pos_ < text_.size() && !kFrameMarker.starts_with(std::string_view(text_).substr(pos_))) ++pos_;
}

void Incoming::ReportDropped(const std::string& what) {
  form_.CreateEventOnDebug("Winsock1_DataArrival: " + what + ", above the limit of " +
                           std::to_string(kMaxFrameBytes) + "; dropped");
}

// Splits off the text before the next separator, and the separator; all of
// the text when there is none.
std::string TakeField(std::string& text) {
  const auto sep = text.find(kSep);
  std::string field = text.substr(0, sep);
  text.erase(0, sep == std::string::npos ? text.size() : sep + kSep.size());
  return field;
}

enum class EndCheck { Dispatch, NextPass, EndHandler };

// While a "13" is awaited nothing else gets through. A "13" confirms the
// transfer when its type and count match ours; what follows it in the same
// message is then handled as a message of its own.
EndCheck CheckEndOfTransfer(frmClient& f, std::string& message) {
  std::string tipo;
  long long count = 0;
  if (message.starts_with(code::End)) {
    message.erase(0, std::min<std::size_t>(4, message.size()));
    tipo = TakeField(message);
    count = LeadingNumber(TakeField(message));
  }
  if (tipo == code::Login) {
    // The unit has nothing in progress: start the request again. The
    // restart is one more attempt of the same request, not a new request:
    // its count goes on, so that a unit answering so every time still
    // brings the request to its give-up.
    f.tmrTimeOut->setEnabled(false);
    f.bAttesaFine = false;
    f.Stato = cNoOperation;
    const auto attempts = f.TentativiTimeOut;
    f.ReadRichiesta();
    f.TentativiTimeOut = std::max(attempts, f.TentativiTimeOut);
    return EndCheck::NextPass;
  }
  const long long expected = IsUploadType(f.sTipoArrivo) ? f.StringaInviata - 1 : f.nPacchetti;
  f.bAttesaFine = !(tipo == f.sTipoArrivo && count == expected);
  if (f.bAttesaFine) {
    if (f.ShowCamRelay)
      panel::AppendLogLine(f.Panel.txtRxData,
                           std::to_string(f.nPacchetti) + " - " + std::to_string(f.StringaInviata - 1) + " - " +
                               std::to_string(count) + " - " + f.sTipoArrivo + " - " + tipo +
                               " ->No: " + std::to_string(f.QueueLength()));
    return EndCheck::EndHandler;
  }
  if (message.size() < 2) {
    f.Stato = cNoOperation;
    f.ReadRichiesta();
    return EndCheck::NextPass;
  }
  return EndCheck::Dispatch;
}

void PasswordRefused(frmClient& f, const std::string&) {
  if (f.PwdCrypted && !f.bPwdCryptedAccettata) {
    // A unit that does not know the scrambled form gets the code as typed:
    // the login, still at the head, is sent again.
    f.PwdCrypted = false;
    f.Stato = cNoOperation;
    if (f.bReportPwdCrypted) f.CreateEventOnDebug("Password di accesso al sistema criptata NON ACCETTATA");
    f.ReadRichiesta();
    return;
  }
  f.RemotePasswordType = 0;
  f.StringaErroreConnessione = "Password di accesso errata!";
  f.Stato = cConnessioneRifiutata;
  f.RaiseStato(cConnessioneRifiutata);
  f.Stato = cNoOperation;
  f.EndRequest(RequestOutcome::CodeRefused);
}

void DataPacket(frmClient& f, const std::string& message) {
  const TransferType& type = TypeOf(f.sTipoArrivo);
  f.tmrTimeOut->setInterval(type.packet == Interval::Short ? f.TimeOutBreve : f.TimeOutLungo);
  if (type.payload == Payload::MediaFile)
    f.WinSock_DownloadMedia(message);
  else
    f.WinSock_Download(message);
}

struct Route {
  std::string_view code;
  void (*handle)(frmClient&, const std::string&);
};

// Tested in this order; a code in no row ends the event.
constexpr Route kRoutes[] = {
    {code::Request, [](frmClient& f, const std::string& m) { f.Winsock_Cisei(m); }},
    {code::Password, PasswordRefused},
    {code::Busy, [](frmClient& f, const std::string& m) { f.Winsock_RicevutoAttendi(m); }},
    {code::Ack, [](frmClient& f, const std::string& m) { f.Winsock_RicevutoPacchetto(m); }},
    {code::End, [](frmClient&, const std::string&) {}},
    {code::ResendAll, [](frmClient& f, const std::string& m) { f.Winsock_ResendAll(m); }},
    {kSep, DataPacket},
};

// Returns false for a message of no known code.
bool Dispatch(frmClient& f, const std::string& message) {
  const auto route = std::find_if(std::begin(kRoutes), std::end(kRoutes),
                                  [&](const Route& r) { return message.starts_with(r.code); });
  if (route == std::end(kRoutes)) return false;
  route->handle(f, message);
  return true;
}

// The unit's acceptance: "AA" "{}" count "{}" type, then further fields.
struct Acceptance {
  bool valid = false;  // both separators are there
  std::string count;
  std::string tipo;
  std::string after;  // what follows the separator after the type
};

Acceptance ParseAcceptance(const std::string& text) {
  Acceptance a;
  if (text.size() <= 2) return a;
  const auto first = text.find(kSep, 2);
  if (first == std::string::npos) return a;
  const auto second = text.find(kSep, first + kSep.size());
  if (second == std::string::npos) return a;
  a.valid = true;
  a.count = text.substr(first + kSep.size(), second - first - kSep.size());
  const auto typeAt = second + kSep.size();
  a.tipo = text.substr(typeAt, 2);
  if (text.compare(std::min(typeAt + 2, text.size()), kSep.size(), kSep) == 0) a.after = text.substr(typeAt + 4);
  return a;
}

bool IsUploadState(int stato) { return TypeInState(stato).direction == Direction::Upload; }

// A preview image being reported still belongs to the preview's download.
bool IsDownloadState(int stato) {
  return TypeInState(stato).direction == Direction::Download || stato == cRicezionePreViewOK;
}

// The exchanges that expect a prompt answer get the short interval.
bool DownloadWaitsBriefly(int stato) {
  return TypeInState(stato).reply == Interval::Short || stato == cRicezionePreViewOK;
}

long long AnnouncedPackets(const Acceptance& a) { return a.valid ? std::max(0LL, LeadingNumber(a.count)) : 0; }

// A download announcing more packets than the link could ever hold is not
// believed, and checked before the acceptance changes anything: the link stays
// in the state of the request it sent, and the timer asks the unit again.
bool IgnoredForItsCount(frmClient& f, const Acceptance& a) {
  const auto adopted = a.valid ? StatoForTipo(a.tipo) : std::nullopt;
  const int stato = adopted ? *adopted : f.Stato;
  const long long n = AnnouncedPackets(a);
  if (!IsDownloadState(stato) || n <= kMaxAnnouncedPackets) return false;
  f.CreateEventOnDebug("Winsock_Cisei: " + std::to_string(n) + " packets announced, above the limit of " +
                       std::to_string(kMaxAnnouncedPackets) + "; acceptance ignored");
  f.tmrTimeOut->setEnabled(true);
  return true;
}

void AdoptType(frmClient& f, const std::string& tipo) {
  const auto stato = StatoForTipo(tipo);
  if (!stato) {
    f.sTipoArrivo = std::string(code::Login);
    return;
  }
  f.sTipoArrivo = tipo;
  f.Stato = *stato;
  if (TypeOf(tipo).payload == Payload::MediaFile) f.ProgressoMultimedia = 0;
}

void LoginAnswered(frmClient& f, const Acceptance& a) {
  f.RemotePasswordType = static_cast<std::int16_t>(LeadingNumber(a.after.substr(0, 1)));
  if (!f.PwdCrypted) return;
  if (f.bReportPwdCrypted) f.CreateEventOnDebug("Accettata la password di accesso al sistema criptata");
  f.bPwdCryptedAccettata = true;
}

// The acceptance acknowledges the opening packet: the next one goes out as
// after any acknowledgement, and the unit's own "OK"s release the rest.
void StartUpload(frmClient& f, const std::string& text) {
  if (f.StringaInviata >= 0 && f.StringaInviata < static_cast<int>(f.StringaPar.size()))
    f.Winsock_RicevutoPacchetto(text);
}

void StartDownload(frmClient& f, const std::string& text, const Acceptance& a) {
  f.tmrTimeOut->setInterval(DownloadWaitsBriefly(f.Stato) ? f.TimeOutBreve : f.TimeOutLungo);
  if (!a.valid) f.sTipoArrivo = std::string(code::Login);
  const long long n = AnnouncedPackets(a);
  f.nPacchetti = 0;
  f.StringaPar.assign(static_cast<std::size_t>(n) + 1, std::string());
  f.bytesInTransfer = 0;
  const std::string tipo = f.sTipoArrivo;
  const Payload payload = TypeOf(tipo).payload;
  const std::string ack = std::string(code::Ack) + std::string(kSep) + tipo;
  if (payload == Payload::Image || payload == Payload::Command) {
    // The acceptance itself is packet 0.
    f.StringaPar[0] = text;
    f.nPacchetti = 1;
    // With nothing to follow, the acceptance is the whole transfer.
    if (n > 0)
      f.TrasmettiStringa(ack);
    else
      CompleteTransfer(f, tipo);
  } else if (payload == Payload::MediaFile) {
    // Every acceptance starts the file from its first packet.
    DiscardPartialMediaFile(f);
    if (n > 0) f.nPacchetti = 1;
    f.TrasmettiStringa(ack);
  } else if (payload == Payload::Voice) {
    f.TrasmettiStringa(ack);
    // The opening element of the voice layout follows the acceptance, or the
    // acceptance, "AA{}N{}06", is that element itself.
    f.StringaPar[0] = a.after.empty() ? text : a.after;
    f.nPacchetti = 1;
  } else {
    f.TrasmettiStringa(ack);
  }
}

// The login answer, or an acceptance of nothing we asked for: the link is
// idle again, and a login at the head has been served.
void EndLogin(frmClient& f) {
  const bool loginServed = f.sTipoArrivo == code::Login && f.QueueLength() > 0 &&
                           (f.Richieste[1].Tipo == code::Login || f.Richieste[1].Tipo == code::Request);
  // Idle before the next request is served, so that its own state stands.
  f.Stato = cNoOperation;
  if (loginServed) f.EndRequest(RequestOutcome::Completed);
}

}  // namespace

void frmClient::Winsock1_DataArrival(long) {
  GuardedWithState(*this, "Winsock1_DataArrival", [&] {
    Incoming incoming(*this);
    std::string message;
    for (;;) {
      const Cut cut = incoming.Next(message);
      if (cut == Cut::EndHandler) return;
      if (cut == Cut::LeaveLoop) break;
      if (bAttesaFine) {
        const EndCheck check = CheckEndOfTransfer(*this, message);
        if (check == EndCheck::NextPass) continue;
        if (check == EndCheck::EndHandler) return;
      }
      tmrTimeOut->setEnabled(false);
      if (!Dispatch(*this, message)) break;
    }
    tmrTimeOut->setEnabled(true);
  });
}

void frmClient::Winsock_Cisei(const std::string& Stringa) {
  GuardedWithState(*this, "Winsock_Cisei", [&] {
    if (ShowCamRelay) panel::AppendLogLine(Panel.txtRxData, Stringa + " <--- " + sTipoRichiesta);
    const Acceptance accepted = ParseAcceptance(Stringa);
    if (IgnoredForItsCount(*this, accepted)) return;
    if (accepted.valid) AdoptType(*this, accepted.tipo);
    PannelloConnetti("Connesso con " + Winsock1->peerIP(), panel::kGreen);
    if (sTipoArrivo == code::Login) LoginAnswered(*this, accepted);
    RaiseStato(cConnessioneOK);
    if (IsUploadState(Stato))
      StartUpload(*this, Stringa);
    else if (IsDownloadState(Stato))
      StartDownload(*this, Stringa, accepted);
    else
      EndLogin(*this);
  });
}

}  // namespace camrelay::link
