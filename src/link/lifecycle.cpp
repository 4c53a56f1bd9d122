// Load and unload of the link, its transport set-up, the socket's own
// handlers and the status display.
#include <chrono>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <filesystem>

#include "link/frmClient.h"
#include "link/codes.h"
#include "link/guard.h"
#include "link/reception.h"

namespace camrelay::link {

namespace {

// A closed socket of the given transport, pointed at the unit.
void AimSocket(Socket& socket, int protocol, const std::string& host, int port) {
  socket.setProtocol(protocol);
  socket.close();
  socket.setRemoteHost(host);
  socket.setRemotePort(port);
}

}  // namespace

frmClient::frmClient(std::shared_ptr<Platform> platform, std::shared_ptr<store::DataVideo> db)
    : platform_(std::move(platform)), db_(std::move(db)) {
  Winsock1 = platform_->makeSocket();
  tmrTimeOut = platform_->makeTimer();
  Winsock1->onConnect = [this] { Winsock1_Connect(); };
  Winsock1->onClose = [this] { Winsock1_Close(); };
  Winsock1->onConnectionRequest = [this] { Winsock1_ConnectionRequest(); };
  Winsock1->onDataArrival = [this](long bytes) { Winsock1_DataArrival(bytes); };
  Winsock1->onError = [this](int n, const std::string& d) { Winsock1_Error(n, d); };
  Winsock1->onSendComplete = [this] { Winsock1_SendComplete(); };
  tmrTimeOut->onTick = [this] { tmrTimeOut_Timer(); };
}

frmClient::~frmClient() { Form_Unload(); }

void frmClient::Form_Load() {
  Guarded(*this, "Form_Load", [&] {
    // The panel is built without a Close command, so there is no system menu
    // item to remove.
    PannelloConnetti("Non connesso", panel::kRed);
    sCurrDir = std::filesystem::current_path().string();
    sTipoArrivo = std::string(code::Login);
    nPacchetti = 0;
    StringaInviata = 0;
    TentativiTimeOut = 0;
    TentativiRicezione = 0;
    RemotePasswordType = 0;
    Richieste.assign(1, Richiesta{});
  });
}

void frmClient::Form_Unload() {
  Unloaded = true;
  IgnoringErrors([&] {
    // A media file cut short by the host is never finished: its partial
    // copy goes with the link.
    if (Stato == StatoForTipo(tipo::DownloadMedia)) DiscardPartialMediaFile(*this);
    tmrTimeOut->setEnabled(false);
    Winsock1->close();
  });
}

void frmClient::WskProtocol(int vProtocol) {
  Guarded(*this, "WskProtocol", [&] {
    if (vProtocol == sckTCPProtocol) {
      TentativiTimeOutMax = 10;
      TimeOutBreve = 60000;
      TimeOutLungo = 60000;
      Panel.height = panel::kHeightTCP;
      Panel.sendRowVisible = false;
      AimSocket(*Winsock1, sckTCPProtocol, IpAddressRemote, RemoteAddrPort);
    } else if (vProtocol == sckUDPProtocol) {
      TimeOutBreve = 750;
      TimeOutLungo = 1000;
      TentativiTimeOutMax = 15;
      Panel.height = panel::kHeightUDP;
      Panel.sendRowVisible = true;
      AimSocket(*Winsock1, sckUDPProtocol, IpAddressRemote, RemoteAddrPort);
      Winsock1->setLocalPort(LocalAddrPort);
      Winsock1->bind(LocalAddrPort);
    }
    if (Timing.timeoutLong > 0) TimeOutLungo = Timing.timeoutLong;
    if (Timing.timeoutShort > 0) TimeOutBreve = Timing.timeoutShort;
    if (Timing.retries > 0) TentativiTimeOutMax = Timing.retries;
    if (vProtocol != sckProtocolError) {
      Panel.lblLocalIp = "Indirizzo IP locale: " + Winsock1->localIP();
      Panel.lblLocalPort = "Porta locale: " + std::to_string(Winsock1->localPort());
    }
    Panel.LblTypeCon = std::string("Tipo di connessione: ") +
                       (vProtocol == sckTCPProtocol   ? "TCP"
                        : vProtocol == sckUDPProtocol ? "UDP"
                                                      : "ERRORE");
  });
}

// The status is part of the panel's state even while nobody looks: a panel
// shown later must show the status in force ("Non connesso" from the load
// on), not a blank. Only the log boxes are skipped while it is hidden.
void frmClient::PannelloConnetti(const std::string& sVar, long cl) {
  Guarded(*this, "PannelloConnetti", [&] {
    Panel.pct = "Stato connessione: " + sVar;
    Panel.pctColour = cl;
    Panel.sbarConnesso = sVar;
  });
}

void frmClient::CreateEventOnDebug(const std::string& Message) {
  IgnoringErrors([&] {
    if (OnDebug) OnDebug(Message);
  });
}

std::string frmClient::CurrDir() const { return sCurrDir; }

void frmClient::CurrDir(const std::string& CurrentDir) { sCurrDir = CurrentDir; }

std::string frmClient::BaseDir() {
  if (sCurrDir.empty()) sCurrDir = std::filesystem::current_path().string();
  return sCurrDir;
}

void frmClient::Winsock1_Connect() {
  IgnoringErrors([&] {
    if (ShowCamRelay) panel::AppendLogLine(Panel.Label3, LogStamp() + " - Connessione attivata.");
    if (Stato == cNoOperation) ReadRichiesta();
  });
}

void frmClient::Winsock1_Close() {
  IgnoringErrors([&] {
    if (ShowCamRelay) panel::AppendLogLine(Panel.Label3, LogStamp() + " - Connessione chiusa.");
    TrasmissioneInCorso = false;
    Winsock1->close();
    Stato = cNoOperation;
    Richieste.assign(1, Richiesta{});
  });
}

void frmClient::Winsock1_ConnectionRequest() {
  IgnoringErrors([&] {
    if (ShowCamRelay) panel::AppendLogLine(Panel.Label3, LogStamp() + " - ConnectionRequest.");
  });
}

void frmClient::Winsock1_SendComplete() { TrasmissioneInCorso = false; }

void frmClient::Winsock1_Error(int Number, const std::string& Description) {
  Guarded(*this, "Winsock1_Error", [&] {
    StringaErroreConnessione = Description;
    Winsock1->close();
    if (Number == sckConnectionReset) {
      Stato = cNoOperation;
      if (ErroreConnessione) ErroreConnessione();
    } else if (Number == sckConnectionAborted) {
      Stato = cNoOperation;
      if (ErroreTimeOutConnessioneTCP) ErroreTimeOutConnessioneTCP();
    } else {
      RaiseStato(cErroreConnessione);
    }
    PannelloConnetti("Winsock1_Error: " + std::to_string(Number) + " - " + Description, panel::kRed);
  });
}

void frmClient::RaiseStato(int value) {
  if (CambioStatoConnessione) CambioStatoConnessione(static_cast<StatoConnessioneEnum>(value));
}

void frmClient::SetStatoAndRaise(int value) {
  if (Stato == value) return;
  Stato = value;
  RaiseStato(value);
}

// "hh:mm:ss." and a millisecond figure. The figure is what the clock loses
// when printed with single precision and read back, times 1000: it shows the
// rounding remainder only, and logs have always been read that way.
std::string frmClient::LogStamp() {
  using namespace std::chrono;
  const auto now = system_clock::now();
  const std::time_t t = system_clock::to_time_t(now);
  std::tm local{};
  localtime_r(&t, &local);
  const double millis =
      static_cast<double>(duration_cast<milliseconds>(now.time_since_epoch()).count() % 1000);
  const double clock = local.tm_hour * 3600.0 + local.tm_min * 60.0 + local.tm_sec + millis / 1000.0;
  char printed[32];
  std::snprintf(printed, sizeof printed, "%.7g", static_cast<double>(static_cast<float>(clock)));
  const long figure = std::lround((clock - std::strtod(printed, nullptr)) * 1000.0);
  const int whole = static_cast<int>(clock);
  char stamp[48];
  std::snprintf(stamp, sizeof stamp, "%02d:%02d:%02d.%ld", whole / 3600, (whole / 60) % 60, whole % 60,
                figure);
  return stamp;
}

long long LeadingNumber(const std::string& text) {
  std::size_t i = 0;
  while (i < text.size() && (text[i] == ' ' || text[i] == '\t')) ++i;
  bool negative = false;
  if (i < text.size() && (text[i] == '-' || text[i] == '+')) negative = text[i++] == '-';
  long long value = 0;
  for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) {
    if (value > 1'000'000'000'000LL) break;  // far beyond any count or length
    value = value * 10 + (text[i] - '0');
  }
  return negative ? -value : value;
}

std::string StateReport(const frmClient& form) {
  return "\r\nStato: " + std::to_string(form.Stato) + "\r\nsTipoArrivo: " + form.sTipoArrivo +
         "\r\nnPacchetti: " + std::to_string(form.nPacchetti) +
         "\r\nStringaInviata: " + std::to_string(form.StringaInviata) +
         "\r\nUBound(StringaPar): " + std::to_string(form.UboundStringaPar());
}

}  // namespace camrelay::link
