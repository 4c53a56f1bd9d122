// clsClient: the host's view of the link. It keeps the connection's settings,
// owns one frmClient at a time, relays its events, and rebuilds the link by
// itself after a link error. Almost every member guards and forwards.
#include "camrelay/clsClient.h"

#include <boost/asio/io_context.hpp>
#include <cmath>
#include <cstdio>
#include <stdexcept>

#include "component/settings.h"
#include "link/codes.h"
#include "link/frmClient.h"
#include "link/guard.h"
#include "store/DataVideo.h"
#include "store/values.h"

namespace camrelay {

using link::frmClient;

namespace {

constexpr const char* kSection = "AppSetting";
constexpr int kDefaultDelay = 50;

component::SettingsStore Settings() { return component::SettingsStore("CamRelay"); }

std::string DecimalText(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.15g", value);
  return text;
}

// A port the socket cannot take is refused rather than cut to 16 bits, which
// would bind or send somewhere else than the settings then say. A local port
// of 0 lets the system pick one.
int CheckedPort(const char* which, int port, int lowest) {
  if (port < lowest || port > 65535)
    throw std::invalid_argument(std::string("the ") + which + " port " + std::to_string(port) + " is outside " +
                                std::to_string(lowest) + " to 65535");
  return port;
}

}  // namespace

clsClient::clsClient(boost::asio::io_context& io) : clsClient(link::makeAsioPlatform(io)) {}

clsClient::clsClient(std::shared_ptr<link::Platform> platform)
    : platform_(std::move(platform)), db_(std::make_shared<store::DataVideo>()) {}

// A client is not destroyed from inside one of its own events, so its links
// can go at once.
clsClient::~clsClient() {
  *alive_ = false;
  Disconnetti();
  retired_.clear();
}

// ---- Plumbing. ---------------------------------------------------------------

// What a host's handler throws stays with the host's event: the library's
// own work (a rebuild, a transfer) goes on, and nothing reaches the loop.
void clsClient::Raise(StatoConnessioneEnum stato) {
  if (!CambioStatoConnessione) return;
  try {
    CambioStatoConnessione(stato);
  } catch (...) {
    Debug("CambioStatoConnessione", "the host's handler failed: " + link::Describe(std::current_exception()));
  }
}

void clsClient::Debug(const std::string& member, const std::string& description) {
  if (!OnDebug) return;
  try {
    OnDebug(member + ": " + description);
  } catch (...) {
    // The host's own diagnostics failed; there is nowhere left to report it.
  }
}

bool clsClient::Guard(bool raiseNoOperation) {
  if (frm_) return true;
  if (raiseNoOperation) Raise(cNoOperation);
  return false;
}

void clsClient::Report(const char* member, const std::function<void()>& body) {
  try {
    body();
  } catch (...) {
    Debug(member, link::Describe(std::current_exception()));
  }
}

void clsClient::Queue(const char* member, const std::string& tipo, const std::string& parametro, bool forceAdd) {
  if (!Guard()) return;
  Report(member, [&] { frm_->AddRichiesta(tipo, parametro, forceAdd); });
}

void clsClient::Subscribe() {
  frmClient* form = frm_.get();
  form->CambioStatoConnessione = [this](StatoConnessioneEnum s) { Raise(s); };
  form->CambioStatoDB = [this](StatoDBEnum) {
    if (!CambioStatoDB) return;
    try {
      CambioStatoDB(db_->StatoDB);
    } catch (...) {
      Debug("CambioStatoDB", "the host's handler failed: " + link::Describe(std::current_exception()));
    }
  };
  form->OnDebug = [this](const std::string& m) {
    if (!OnDebug) return;
    try {
      OnDebug(m);
    } catch (...) {
      // As in Debug: nowhere left to report it.
    }
  };
  // Both link errors rebuild the link. The rebuild destroys the form whose
  // handler raised the error, so it runs from a fresh turn of the loop.
  auto onLinkError = [this, form] {
    Report("frm_ErroreConnessione", [&] {
      form->lastOutcome = RequestOutcome::LinkError;
      Raise(cErroreConnessione);
      const auto protocol = static_cast<sckProtocol>(form->Winsock1->protocol());
      platform_->post([this, alive = std::weak_ptr<bool>(alive_), form, protocol] {
        auto live = alive.lock();
        if (!live || !*live || frm_.get() != form) return;  // the host moved on meanwhile
        Report("frm_ErroreConnessione", [&] { ReconnectSequence(protocol); });
      });
    });
  };
  form->ErroreConnessione = onLinkError;
  form->ErroreTimeOutConnessioneTCP = onLinkError;
}

// The form may be the one whose handler is running: it is unloaded and
// detached now, and destroyed from a later turn of the loop.
void clsClient::RetireForm() {
  retiredOutcome_ = frm_->lastOutcome;
  retiredRequestsEnded_ += frm_->RequestsEnded;
  frm_->CambioStatoConnessione = nullptr;
  frm_->CambioStatoDB = nullptr;
  frm_->OnDebug = nullptr;
  frm_->ErroreConnessione = nullptr;
  frm_->ErroreTimeOutConnessioneTCP = nullptr;
  frm_->Form_Unload();
  retired_.push_back(std::move(frm_));
  platform_->post([this, alive = std::weak_ptr<bool>(alive_)] {
    if (auto live = alive.lock(); live && *live) retired_.clear();
  });
}

// ---- Properties. ---------------------------------------------------------------

std::string clsClient::StringaConnDB() {
  std::string value;
  if (Guard(false)) Report("StringaConnDB", [&] { value = frm_->StringaConnDB(); });
  return value;
}

void clsClient::StringaConnDB(const std::string& value) {
  if (!Guard(false)) return;
  Report("StringaConnDB", [&] {
    frm_->StringaConnDB(value);
    stringaConnDB_ = value;
  });
}

void clsClient::VideoCicle(int mask) {
  if (!Guard()) return;
  Report("lVideoCicle", [&] {
    frm_->VideoCiclePreview = mask;
    int k = -1;
    if (mask > 0)
      for (int bit = 0; bit <= 30 && k < 0; ++bit)
        if (mask & (1 << bit)) k = bit;
    frm_->AddRichiesta("08", std::to_string(k + 1));
  });
}

int clsClient::VideoCicle() {
  if (!Guard()) return 0;
  return frm_->VideoCiclePreview;
}

int clsClient::CameraPreview() {
  if (!Guard()) return 0;
  return frm_->NCamPreviewDownloaded;
}

double clsClient::CurrentTimeFileVideo() {
  if (!Guard()) return 0;
  return frm_->CurrentTimeFileVideo;
}

void clsClient::CurrentTimeFileVideo(double value) {
  if (!Guard()) return;
  Report("lCurrentTimeFileVideo", [&] {
    frm_->CurrentTimeFileVideo = value;
    frm_->AddRichiesta("08", "CurrentTimeFileVideo:" + DecimalText(value), true);
    Raise(static_cast<StatoConnessioneEnum>(frm_->Stato));
  });
}

std::string clsClient::RemoteHost() { return Guard(false) ? remoteHost_ : std::string(); }

int clsClient::RemotePort() { return Guard(false) && frm_->Winsock1 ? frm_->Winsock1->remotePort() : 0; }

int clsClient::LocalPort() { return Guard(false) && frm_->Winsock1 ? frm_->Winsock1->localPort() : 0; }

bool clsClient::Connesso() {
  if (!Guard(false)) return false;
  const int state = frm_->Winsock1->state();
  return state == link::sckOpen || state == link::sckConnected;
}

std::string clsClient::ImagePreview() { return Guard(false) ? frm_->ImagePreview : std::string(); }

std::string clsClient::StringaErroreConnessione() {
  return Guard(false) ? frm_->StringaErroreConnessione : std::string();
}

bool clsClient::PwdCrypted() { return Guard(false) && frm_->PwdCrypted; }

sckProtocol clsClient::Protocol() { return Guard(false) ? protocol_ : sckTCPProtocol; }

void clsClient::Protocol(sckProtocol value) {
  if (!Guard(false)) return;
  Report("Protocol", [&] {
    if (value == sckProtocolError) {
      Disconnetti();
      protocol_ = sckProtocolError;
      return;
    }
    ReconnectSequence(value);
  });
}

std::string clsClient::StringaRicevuta() { return Guard(false) ? frm_->StringaRicevuta : std::string(); }

std::vector<std::string> clsClient::VettoreStringaRicevuta() {
  return Guard(false) ? frm_->StringaPar : std::vector<std::string>();
}

std::string clsClient::StringaCodiceAccesso() { return Guard(false) ? frm_->sStringaPassword : std::string(); }

void clsClient::StringaCodiceAccesso(const std::string& value) {
  if (Guard(false)) frm_->sStringaPassword = value;
}

int clsClient::RemotePasswordType() { return Guard(false) ? frm_->RemotePasswordType : 0; }

std::string clsClient::p_NewStringaPassWord() { return Guard(false) ? frm_->NewStringaPassWord : std::string(); }

void clsClient::p_NewStringaPassWord(const std::string& value) {
  if (Guard(false)) frm_->NewStringaPassWord = value;
}

int clsClient::FileMultimediaSize() { return Guard(false) ? frm_->FileMultimediaSize : 0; }

int clsClient::TentativiTimeOut() { return Guard(false) ? frm_->TentativiTimeOut : 0; }

// ---- Methods. ------------------------------------------------------------------

void clsClient::Show() {
  if (!Guard()) return;
  Report("Show", [&] {
    panelVisible_ = true;
    frm_->ShowCamRelay = true;
    frm_->Panel.visible = true;
  });
}

void clsClient::Hide() {
  if (!Guard()) return;
  Report("Hide", [&] {
    panelVisible_ = false;
    frm_->ShowCamRelay = false;
    frm_->Panel.visible = false;
  });
}

void clsClient::AttivaPreview(const std::string& strCommand) {
  if (!Guard()) return;
  Report("cAttivaPreview", [&] {
    if (strCommand.find(".avi") != std::string::npos || strCommand.find(':') != std::string::npos) {
      frm_->VideoCiclePreview = 0;
      frm_->AddRichiesta("08", strCommand, true);
      return;
    }
    // A camera converts as any whole number does ("2.6" is camera 3); a
    // text that is no number is refused before anything is sent.
    std::int64_t camera = 0;
    try {
      camera = store::ParseLong(strCommand);
    } catch (const std::invalid_argument&) {
      throw std::runtime_error("\"" + strCommand + "\" is not a camera number; nothing sent");
    }
    if (camera > 31) throw std::runtime_error("camera " + strCommand + " is out of range (1 to 31)");
    frm_->VideoCiclePreview = camera >= 1 ? 1 << (camera - 1) : 0;
    frm_->AddRichiesta("08", std::to_string(camera));
  });
}

void clsClient::FermaPreview() {
  if (!Guard()) return;
  Report("cFermaPreview", [&] {
    frm_->VideoCiclePreview = 0;
    frm_->AddRichiesta("08", "0");
    Raise(static_cast<StatoConnessioneEnum>(frm_->Stato));
  });
}

void clsClient::UpLoadProgrammazione() { Queue("UpLoadProgrammazione", "01"); }
void clsClient::UpLoadProgCamEvents() { Queue("UpLoadProgCamEvents", "55"); }
void clsClient::DownLoadProgrammazione() { Queue("DownLoadProgrammazione", "02"); }
void clsClient::ScaricaLog() { Queue("ScaricaLog", "04"); }
// Deliberately the same request as ScaricaLog.
void clsClient::CaricaLog() { Queue("CaricaLog", "04"); }
void clsClient::CancellaLog() { Queue("CancellaLog", "11"); }
void clsClient::DownLoadStrCommand(const std::string& strCommand) { Queue("DownLoadStrCommand", "52", strCommand); }
void clsClient::DownLoadStreamImage(const std::string& strCommand) { Queue("DownLoadStreamImage", "57", strCommand); }
void clsClient::DownloadCamEvents() { Queue("DownloadCamEvents", "53"); }
void clsClient::DownloadProgCamEvents() { Queue("DownloadProgCamEvents", "54"); }
void clsClient::DownloadMultimediaFile(const std::string& strFileName) {
  Queue("DownloadMultimediaFile", "56", strFileName);
}
void clsClient::UploadStrCommand(const std::string& strCommand) { Queue("UploadStrCommand", "50", strCommand); }
void clsClient::UpLoadMessaggiWave(const std::string& strDirName) { Queue("UpLoadMessaggiWave", "05", strDirName); }
void clsClient::UpLoadAggiornamento(const std::string& strFileName) {
  Queue("UpLoadAggiornamento", "10", strFileName);
}
void clsClient::DownLoadMessaggiWave() { Queue("DownLoadMessaggiWave", "06"); }
void clsClient::RichiestaDiConnessione() { Queue("RichiestaDiConnessione", "AA"); }
void clsClient::UploadCodInstallatore() { Queue("UploadCodInstallatore", "07"); }
void clsClient::UploadCodUtente() { Queue("UploadCodUtente", "14"); }

void clsClient::Connetti(const std::string& RemoteHost, int RemotePort, int LocalPort, bool ViewRunTimeError,
                         sckProtocol WinsockProtocol, std::optional<std::string> CurrDir) {
  Report("Connetti", [&] {
    if (WinsockProtocol == sckProtocolError) {
      protocol_ = sckProtocolError;
      if (!frm_) throw std::runtime_error("the link is not set up: no transport was chosen");
      frm_->Stato = cNoOperation;
      return;
    }
    const auto settings = Settings();
    // Without the settings file every key reads as absent, and a local port
    // left out is one the system picks: there is no last one to come back to.
    auto setting = [&](const char* key, const std::string& fallback) {
      return usaFileImpostazioni_ ? settings.GetSetting(kSection, key, fallback) : fallback;
    };
    const int remotePort = CheckedPort(
        "remote", RemotePort > 0 ? RemotePort : component::SettingAsInteger(setting("RemotePort", "19201")), 1);
    const int localPort = CheckedPort(
        "local",
        LocalPort > 0 ? LocalPort
                      : component::SettingAsInteger(setting("LocalPort", usaFileImpostazioni_ ? "14400" : "0")),
        0);
    remoteHost_ = !RemoteHost.empty() ? RemoteHost : setting("RemoteHost", "192.168.0.1");
    remotePort_ = remotePort;
    localPort_ = localPort;
    viewRunTimeError_ = ViewRunTimeError;
    panelVisible_ = false;
    delayLoadDataFromDB_ =
        component::SettingAsInteger(setting("DelayLoadDataFromDB", std::to_string(kDefaultDelay)));
    if (delayLoadDataFromDB_ < 1 || delayLoadDataFromDB_ >= 1801) delayLoadDataFromDB_ = kDefaultDelay;
    if (usaFileImpostazioni_) {
      settings.SaveSetting(kSection, "RemoteHost", remoteHost_);
      settings.SaveSetting(kSection, "RemotePort", std::to_string(remotePort_));
      settings.SaveSetting(kSection, "LocalPort", std::to_string(localPort_));
      settings.SaveSetting(kSection, "DelayLoadDataFromDB", std::to_string(delayLoadDataFromDB_));
    }
    if (frm_) Disconnetti();

    frm_ = std::make_unique<frmClient>(platform_, db_);
    Subscribe();
    frm_->Form_Load();
    frm_->IpAddressRemote = remoteHost_;
    frm_->RemoteAddrPort = remotePort_;
    frm_->LocalAddrPort = portaLocaleLibera_ ? 0 : localPort_;
    frm_->ShowCamRelay = false;
    frm_->ViewLibraryErr = viewRunTimeError_;
    frm_->DelayLoadDataFromDB = delayLoadDataFromDB_;
    frm_->PwdCrypted = true;
    frm_->Timing = {timeoutLong_, timeoutShort_, retries_};
    frm_->RunStore = storeRunner_;
    frm_->WskProtocol(WinsockProtocol);

    if (WinsockProtocol == sckTCPProtocol || frm_->Winsock1->localPort() >= 1) {
      protocol_ = static_cast<sckProtocol>(frm_->Winsock1->protocol());
    } else {
      protocol_ = sckProtocolError;
      Raise(cErroreConnessione);
    }
    frm_->Stato = cNoOperation;
    if (CurrDir && !CurrDir->empty() && CurrDir->find_first_not_of(" \t") != std::string::npos)
      frm_->CurrDir(*CurrDir);
  });
}

void clsClient::Disconnetti() {
  Report("Disconnetti", [&] {
    if (frm_) RetireForm();
  });
}

void clsClient::ApriDB() {
  if (!Guard()) return;
  Report("ApriDB", [&] { frm_->OpenDB(); });
}

void clsClient::ChiudiDB() {
  if (!Guard()) return;
  Report("ChiudiDB", [&] { frm_->CloseDB(); });
}

void clsClient::AnnullaRichiesta() {
  if (!Guard()) return;
  Report("AnnullaRichiesta", [&] {
    frm_->Stato = cNoOperation;
    frm_->lastOutcome = RequestOutcome::Cancelled;
  });
}

// ---- Additions. ----------------------------------------------------------------

int clsClient::ProgressoMultimedia() { return Guard(false) ? frm_->ProgressoMultimedia : 0; }
int clsClient::UboundStringaPar() { return Guard(false) ? frm_->UboundStringaPar() : 0; }
std::string clsClient::GetStringaPar(int Indice) { return Guard(false) ? frm_->GetStringaPar(Indice) : std::string(); }
int clsClient::RichiesteInCoda() { return Guard(false) ? frm_->QueueLength() : 0; }
bool clsClient::WithdrawRequest(int position) {
  if (!Guard(false)) return false;
  bool withdrawn = false;
  Report("WithdrawRequest", [&] { withdrawn = frm_->WithdrawRequest(position); });
  return withdrawn;
}

StatoConnessioneEnum clsClient::StatoCorrente() {
  return Guard(false) ? static_cast<StatoConnessioneEnum>(frm_->Stato) : cNoOperation;
}

LinkStatus clsClient::Status() const {
  LinkStatus status;
  status.lastOutcome = retiredOutcome_;
  status.requestsEnded = retiredRequestsEnded_;
  status.database = db_->StatoDB;
  if (!frm_) return status;
  const link::frmClient& f = *frm_;
  status.linked = true;
  const int socket = f.Winsock1->state();
  status.connecting = socket == link::sckConnecting;
  status.connected = socket == link::sckConnected || socket == link::sckOpen;
  status.operation = static_cast<StatoConnessioneEnum>(f.Stato);
  status.transferType = f.sTipoArrivo;
  status.upload = link::IsUploadType(f.sTipoArrivo);
  const auto [done, expected] = link::TransferProgress(f);
  status.packetsDone = done;
  status.packetsExpected = expected;
  status.mediaBytes = f.sTipoArrivo == link::tipo::DownloadMedia ? f.FileMultimediaSize : 0;
  for (std::size_t i = 1; i < f.Richieste.size(); ++i)
    status.queue.push_back({f.Richieste[i].Tipo, f.Richieste[i].Parametro});
  status.awaitingReply = f.tmrTimeOut && f.tmrTimeOut->enabled();
  status.storing = f.StoreInFlight;
  status.replyWithinMs = status.awaitingReply ? f.tmrTimeOut->interval() : 0;
  status.attempts = f.TentativiTimeOut;
  status.timeoutLongMs = f.TimeOutLungo;
  status.timeoutShortMs = f.TimeOutBreve;
  status.retryLimit = f.TentativiTimeOutMax;
  status.recordsNew = f.RecordsNew;
  status.requestsEnded += f.RequestsEnded;
  if (f.lastOutcome != RequestOutcome::None) status.lastOutcome = f.lastOutcome;
  if (status.lastOutcome != RequestOutcome::Completed) status.lastOutcomeText = f.StringaErroreConnessione;
  status.requestsRefused = f.RichiesteRifiutate;
  return status;
}

panel::PanelModel clsClient::Panel() const { return frm_ ? frm_->Panel : panel::PanelModel{}; }

void clsClient::SendTypedString(const std::string& text) {
  if (!frm_) return;
  frm_->Panel.TxtSendStr = text;
  frm_->CmdSendStr_Click();
}

void clsClient::ImpostaTempiRisposta(int timeoutLongMs, int timeoutShortMs, int retries) {
  timeoutLong_ = std::max(0, timeoutLongMs);
  timeoutShort_ = std::max(0, timeoutShortMs);
  retries_ = std::max(0, retries);
}

void clsClient::UsaFileImpostazioni(bool usa) { usaFileImpostazioni_ = usa; }

void clsClient::PortaLocaleLibera(bool libera) { portaLocaleLibera_ = libera; }

void clsClient::RunStoresWith(StoreRunner runner) { storeRunner_ = std::move(runner); }

// ---- The rebuild of the link. ------------------------------------------------------

// Tears the link down and builds it again on the same settings, keeping what
// the host set on the old one. The requests still queued are handed to the new
// link too, so that a reset connection resumes the work in hand rather than
// dropping it.
void clsClient::ReconnectSequence(sckProtocol protocol) {
  const bool panelVisible = panelVisible_;
  const bool viewRunTimeError = viewRunTimeError_;
  const int videoCicle = frm_ ? frm_->VideoCiclePreview : 0;
  const std::string code = frm_ ? frm_->sStringaPassword : std::string();
  const std::string newCode = frm_ ? frm_->NewStringaPassWord : std::string();
  const std::string currDir = frm_ ? frm_->CurrDir() : std::string();
  std::vector<link::Richiesta> queue = frm_ ? frm_->Richieste : std::vector<link::Richiesta>{{}};
  ChiudiDB();
  Disconnetti();
  Connetti(remoteHost_, remotePort_, localPort_, viewRunTimeError, protocol);
  if (!frm_) return;
  frm_->sStringaPassword = code;
  frm_->NewStringaPassWord = newCode;
  frm_->CurrDir(currDir);
  frm_->StringaConnDB(stringaConnDB_);
  ApriDB();
  if (panelVisible) Show();
  frm_->Richieste = std::move(queue);
  frm_->ReadRichiesta();
  // Through the property, as the host would set it: a cycle queues its next
  // image, no cycle (0) queues a stop, so the unit is never left sending a
  // preview the new link does not ask for.
  VideoCicle(videoCicle);
}

}  // namespace camrelay
