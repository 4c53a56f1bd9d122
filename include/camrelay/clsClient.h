// clsClient: the one class a host program uses to talk to a unit.
//
// Create it on the io_context the host runs, subscribe to the three events,
// call Connetti, then queue operations. Every call returns at once; progress
// and results arrive through the events while the host runs its loop. All
// calls and all events happen on the thread that runs the io_context. No
// member ever throws: failures are reported as OnDebug lines
// "<member>: <description>".
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "camrelay/enums.h"
#include "camrelay/panel.h"
#include "camrelay/status.h"

namespace boost::asio {
class io_context;
}

namespace camrelay {

namespace link {
class frmClient;
class Platform;
struct Richiesta;
}  // namespace link
namespace store {
class DataVideo;
}

class clsClient {
 public:
  explicit clsClient(boost::asio::io_context& io);
  // For tests and embedders that bring their own sockets and timers.
  explicit clsClient(std::shared_ptr<link::Platform> platform);
  ~clsClient();
  clsClient(const clsClient&) = delete;
  clsClient& operator=(const clsClient&) = delete;

  // ---- Events. --------------------------------------------------------------
  std::function<void(StatoConnessioneEnum Stato)> CambioStatoConnessione;
  std::function<void(StatoDBEnum Statodb)> CambioStatoDB;
  std::function<void(const std::string& Message)> OnDebug;

  // ---- Properties, in interface order. --------------------------------------
  std::string StringaConnDB();
  void StringaConnDB(const std::string& value);
  void VideoCicle(int mask);
  int VideoCicle();
  int CameraPreview();
  double CurrentTimeFileVideo();
  void CurrentTimeFileVideo(double value);
  std::string RemoteHost();
  int RemotePort();
  int LocalPort();
  bool Connesso();
  std::string ImagePreview();
  std::string StringaErroreConnessione();
  bool PwdCrypted();
  sckProtocol Protocol();
  void Protocol(sckProtocol value);
  std::string StringaRicevuta();
  std::vector<std::string> VettoreStringaRicevuta();
  std::string StringaCodiceAccesso();
  void StringaCodiceAccesso(const std::string& value);
  int RemotePasswordType();
  std::string p_NewStringaPassWord();
  void p_NewStringaPassWord(const std::string& value);
  int FileMultimediaSize();
  int TentativiTimeOut();

  // ---- Methods, in interface order. -----------------------------------------
  void Show();
  void Hide();
  void AttivaPreview(const std::string& strCommand);
  void FermaPreview();
  void UpLoadProgrammazione();
  void UpLoadProgCamEvents();
  void DownLoadProgrammazione();
  void ScaricaLog();
  void CaricaLog();
  void CancellaLog();
  void DownLoadStrCommand(const std::string& strCommand = "");
  void DownLoadStreamImage(const std::string& strCommand);
  void DownloadCamEvents();
  void DownloadProgCamEvents();
  void DownloadMultimediaFile(const std::string& strFileName);
  void UploadStrCommand(const std::string& strCommand);
  void UpLoadMessaggiWave(const std::string& strDirName);
  void UpLoadAggiornamento(const std::string& strFileName);
  void DownLoadMessaggiWave();
  void RichiestaDiConnessione();
  void Connetti(const std::string& RemoteHost, int RemotePort, int LocalPort,
                bool ViewRunTimeError = false, sckProtocol WinsockProtocol = sckUDPProtocol,
                std::optional<std::string> CurrDir = std::nullopt);
  void Disconnetti();
  void ApriDB();
  void ChiudiDB();
  void UploadCodInstallatore();
  void UploadCodUtente();
  void AnnullaRichiesta();

  // ---- Additions for hosts beyond the automation interface. -----------------
  // Percent (0..100) of the multimedia file being received.
  int ProgressoMultimedia();
  // The packets of the last transfer: a log or camera-event download leaves
  // its record text there, elements 1..UboundStringaPar.
  int UboundStringaPar();
  std::string GetStringaPar(int Indice);
  // Requests still queued, the one being served included.
  int RichiesteInCoda();
  // The operation in progress (cNoOperation when idle).
  StatoConnessioneEnum StatoCorrente();
  // Takes a request out of the queue, by its position as Status().queue
  // lists it from 1 (the head). One waiting behind the head always may go;
  // the head only once it is no longer in hand: after AnnullaRichiesta (its
  // outcome is then Cancelled and it counts as ended), or while a TCP
  // connection is still being made for it. False, and nothing changes, for a
  // head in hand or a position outside the queue.
  bool WithdrawRequest(int position);
  // Reply time-outs in ms and the retry limit to use instead of the
  // transport's (60000/60000 ms and 10 on TCP, 1000/750 ms and 15 on UDP);
  // 0 keeps the transport's value. Takes effect at the next Connetti and
  // survives link rebuilds.
  void ImpostaTempiRisposta(int timeoutLongMs, int timeoutShortMs, int retries);
  // Whether Connetti takes the arguments left out from the per-user settings
  // file and writes the values used back to it (the default). A host that
  // drives many units at once turns it off for each client, so that one
  // shared file is neither rewritten per unit nor made to hand every unit the
  // same ports: without it a RemoteHost or RemotePort left out is the first-run
  // default (192.168.0.1, 19201), a LocalPort left out (0) is a free port the
  // system picks, and DelayLoadDataFromDB is 50. Takes effect at the next
  // Connetti and survives link rebuilds.
  void UsaFileImpostazioni(bool usa);
  // Whether Connetti binds a local port the system picks (LocalPort then
  // reads it back) instead of LocalPort; the settings file keeps the port it
  // holds. Takes effect at the next Connetti and survives link rebuilds.
  void PortaLocaleLibera(bool libera);
  // Where the store of a completed download runs: by default on the loop,
  // before the link goes on. A host whose database is a distant server
  // hands `work` to threads of its own, so that the links on its loop do not
  // wait for one another's rows, and posts `then` back to the loop once
  // `work` has run; the link waits for it. Takes effect at the next Connetti
  // and survives link rebuilds.
  using StoreRunner = std::function<void(std::function<void()> work, std::function<void()> then)>;
  void RunStoresWith(StoreRunner runner);

  // What the link is doing and how its last request ended.
  LinkStatus Status() const;
  // A copy of the diagnostic panel as the link keeps it: hidden and empty
  // before Connetti and after Disconnetti.
  panel::PanelModel Panel() const;
  // The panel's "Invia": sends text as typed, unframed, on a UDP link; on TCP,
  // or when text is empty, nothing happens.
  void SendTypedString(const std::string& text);

  // The link itself, for tests only; null before Connetti. Hosts read
  // Status() instead.
  link::frmClient* Form() { return frm_.get(); }
  store::DataVideo& Database() { return *db_; }

 private:
  struct Reconnect;
  void Subscribe();
  bool Guard(bool raiseNoOperation = true);
  void Raise(StatoConnessioneEnum stato);
  void Debug(const std::string& member, const std::string& description);
  // Runs body; a failure becomes the OnDebug line "<member>: <description>".
  void Report(const char* member, const std::function<void()>& body);
  void Queue(const char* member, const std::string& tipo, const std::string& parametro = "",
             bool forceAdd = false);
  void ReconnectSequence(sckProtocol protocol);
  void RetireForm();

  std::shared_ptr<link::Platform> platform_;
  std::shared_ptr<store::DataVideo> db_;
  std::unique_ptr<link::frmClient> frm_;
  // Links taken down while one of their handlers may still be running; freed
  // from a later turn of the loop, or with the client.
  std::vector<std::unique_ptr<link::frmClient>> retired_;
  sckProtocol protocol_ = sckProtocolError;
  std::string remoteHost_;
  int remotePort_ = 0;
  int localPort_ = 0;
  int delayLoadDataFromDB_ = 0;
  bool panelVisible_ = false;
  bool viewRunTimeError_ = false;
  std::string stringaConnDB_;
  int timeoutLong_ = 0, timeoutShort_ = 0, retries_ = 0;
  bool usaFileImpostazioni_ = true;
  bool portaLocaleLibera_ = false;
  StoreRunner storeRunner_;
  // How the last request of a link that was taken down ended.
  RequestOutcome retiredOutcome_ = RequestOutcome::None;
  int retiredRequestsEnded_ = 0;
  // Set while this object lives; posted work checks it before touching us.
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace camrelay
