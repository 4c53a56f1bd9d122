// Framing and sending of messages, and the packet array's accessors.
#include <algorithm>

#include "link/codes.h"
#include "link/frmClient.h"
#include "link/guard.h"

namespace camrelay::link {

bool frmClient::IsTCP() const { return Winsock1->protocol() == sckTCPProtocol; }

void frmClient::TrasmettiStringa(const std::string& Stringa) {
  Guarded(*this, "TrasmettiStringa", [&] {
    const std::string wire =
        IsTCP() ? std::string(kFrameMarker) + std::to_string(Stringa.size()) + "{}" + Stringa : Stringa;
    TrasmissioneInCorso = true;
    Winsock1->sendData(wire);
    if (ShowCamRelay) {
      panel::AppendLogLine(Panel.txtTxData, LogStamp() + " - " + wire);
      Panel.lblRemoteIpOut = "Indirizzo IP remoto: " + Winsock1->remoteHostIP();
      Panel.lblRemotePortOut = "Porta di accesso remota: " + std::to_string(Winsock1->remotePort());
      Panel.lblLocalPort = "Porta locale: " + std::to_string(Winsock1->localPort());
      Panel.LblTentativiRicezione = "Tentativi di trasmissione pacchetto: " + std::to_string(TentativiTimeOut);
      Panel.LblTimeOut = "Durata TimeOut: " + std::to_string(tmrTimeOut->interval()) + "ms";
      Panel.LblStato = "Stato corrente: " + std::to_string(Stato);
    }
    tmrTimeOut->setEnabled(true);
  });
}

std::string frmClient::GetStringaPar(int Indice) const {
  if (Indice < 0 || Indice >= static_cast<int>(StringaPar.size())) return {};
  return StringaPar[Indice];
}

int frmClient::UboundStringaPar() const {
  return StringaPar.empty() ? 0 : static_cast<int>(StringaPar.size()) - 1;
}

namespace {

// Strips the leading separator of a data element (rewriting it) and returns
// its text without the two closing characters when the rest is longer than
// `threshold`; empty otherwise.
std::string TakeData(std::string& element, std::size_t threshold) {
  if (element.compare(0, 2, kSep) != 0) return {};
  element.erase(0, 2);
  return element.size() > threshold ? element.substr(0, element.size() - 2) : std::string();
}

std::string JoinUdp(std::vector<std::string>& StringaPar) {
  std::string& header = StringaPar[0];
  const auto p = header.find(kSep);
  if (p == std::string::npos || p == 0 || p + 3 >= header.size()) return {};
  header.erase(0, p + 2);
  const auto q = header.find(kSep);
  if (q == std::string::npos || q == 0) return {};
  const long long n = LeadingNumber(header.substr(0, q));
  if (static_cast<long long>(StringaPar.size()) - 1 != n) return {};
  // Element n is the closing element the header counts; it carries no data.
  std::string joined;
  for (long long i = 1; i <= n - 1; ++i) joined += TakeData(StringaPar[i], 3);
  return joined;
}

}  // namespace

std::string CreaStringaComando(std::vector<std::string>& StringaPar, int Protocollo, DebugSink* form) {
  std::string joined;
  try {
    if (StringaPar.empty()) return joined;
    if (Protocollo == sckUDPProtocol) return JoinUdp(StringaPar);
    for (auto& element : StringaPar) joined += TakeData(element, 1);
  } catch (const std::exception& e) {
    if (form) form->CreateEventOnDebug(std::string("CreaStringaComando: ") + e.what());
  }
  return joined;
}

int PacketsHeld(const frmClient& form) {
  if (form.StringaPar.size() < 2) return 0;
  return static_cast<int>(std::count_if(form.StringaPar.begin() + 1, form.StringaPar.end(),
                                        [](const std::string& packet) { return !packet.empty(); }));
}

std::pair<int, int> TransferProgress(const frmClient& form) {
  // Until the unit accepts the opening no transfer is in hand: StringaPar
  // then holds what the request has ready to send, nothing that moved.
  const int expected = form.sTipoArrivo == code::Login ? 0 : form.UboundStringaPar();
  if (expected < 1) return {0, 0};
  // Uploads count the packets the unit has acknowledged; a media run counts
  // its packets as they arrive; other downloads fill their slots in any order.
  int done = PacketsHeld(form);
  if (IsUploadType(form.sTipoArrivo)) done = form.StringaInviata - 1;
  else if (TypeOf(form.sTipoArrivo).payload == Payload::MediaFile) done = form.nPacchetti - 1;
  return {std::clamp(done, 0, expected), expected};
}

}  // namespace camrelay::link
