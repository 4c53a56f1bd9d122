// frmClient: the link to one unit. It owns the socket, the reply timer, the
// diagnostic panel's state, the packet array and the request queue, and it
// keeps the link state record that every procedure of the protocol shares.
//
// The class is one object because its procedures share that record; its
// member functions are defined in the file of the subsystem they belong to:
//   link/lifecycle.cpp    load, unload, transport set-up, socket handlers
//   link/transmit.cpp     framing and sending, the packet array accessors
//   link/receive.cpp      receive dispatcher and login (Winsock_Cisei)
//   link/timeout.cpp      reply timer, "BS" and "OK" from the unit
//   link/reception.cpp    data packets, media files, "12"
//   link/frm_database.cpp OpenDB, CloseDB, StringaConnDB
//   requests/queue.cpp    AddRichiesta, RemoveRichiesta, ReadRichiesta
//   requests/operations.cpp  the device operations
//   requests/preview.cpp  live preview and playback
//   panel/panel.cpp       the hand-typed send row
// What each transfer type means (its operation, states, intervals, busy
// policy, attempts) is one row of kTransferTypes in link/codes.h.
//
// Every handler may run inside another (a socket handler serves the next
// request, which sends, ...). Nothing here ever destroys the frmClient: the
// owner does that from a fresh turn of the loop.
//
// STATE MAP. Stato is cNoOperation (idle) or the state of the exchange in
// flight. Every change, and the function that makes it:
//
//   idle -> the type's `accepted` state     an operation sends its opening:
//                                           Send (requests/operations.cpp),
//                                           AttivaPreview for "08" (silently)
//   idle -> idle                            RichiestaDiConnessione: the login
//                                           has no state of its own
//   any  -> the accepted type's state       Winsock_Cisei / AdoptType, on the
//                                           unit's "AA" (receive.cpp)
//   "08"/"09" state -> cRichiestaPreView    Winsock_RicevutoAttendi on "BS"
//   "52" state -> cRichiestaStringa         (timeout.cpp), by the row's
//   "57" state -> cRichiestaStreamImage     busy.becomes
//   download state -> its `completed`       CompleteTransfer (reception.cpp),
//                    -> idle                WinSock_DownloadMedia,
//                                           CompletePreviewImage (preview.cpp);
//                                           the completed state is raised and
//                                           left at once
//   upload state -> cTrasmissioneOK -> idle Winsock_RicevutoPacchetto on the
//                                           last "OK" (not for the uploads
//                                           whose row completes nothing)
//   any -> cConnessioneRifiutata -> idle    PasswordRefused on the second "PW"
//   any -> idle                             PasswordRefused on the first "PW"
//                                           of a scrambled code; CheckEndOfTransfer
//                                           on "13" type "00" or an empty rest;
//                                           EndLogin; GiveUp at the retry limit
//                                           (timeout.cpp); Retry on an empty
//                                           queue; SendTables with nothing to
//                                           send; ReadRichiesta before a TCP
//                                           connect; Winsock1_Close; Winsock1_Error
//                                           10053/10054 (lifecycle.cpp); clsClient
//                                           on Connetti and AnnullaRichiesta
//   any -> cTrasmettiStreamImageReq         DownLoadStreamImage, which leaves the
//                                           queue at once; the link serves other
//                                           requests meanwhile
//
// Whoever leaves a state for idle calls EndRequest or ReadRichiesta, so the
// next request is served; AddRichiesta serves at once when idle or in the two
// stream-image states, RemoveRichiesta only when idle.
//
// THE LINK RECORD, field by field (below, after the public variables):
//   sBufferRicezione  TCP bytes after the last whole frame; emptied on connect
//   bAttesaFine       after a timer probe: only the unit's "13" gets through
//   sTipoArrivo       type of the transfer in hand ("00": none, or the login)
//   nPacchetti        download: packets collected (the next slot for whole
//                     packets); media: packets seen, from 1
//   StringaInviata    upload: index of the next element of StringaPar to send
//   StringaPar        upload: the messages to send, 0 the opening; download:
//                     slots 0..N for the packets the acceptance announced
//   bytesInTransfer   bytes held in StringaPar by the download, bounded
//   foreignDatagrams  datagrams dropped for not coming from the unit
//   sTipoRichiesta    type of the request being served (the head's Tipo)
//   TentativiRicezione the second retry counter: reset per request, unused
//   Richieste         the queue; element 0 is empty, the head is element 1
//   RichiesteRifiutate duplicates refused so far
//   lastOutcome       why the last request left the queue (Status())
//   bPwdCryptedAccettata  the unit took the scrambled code: a "PW" is final
//   bReportPwdCrypted report the scrambled code's fate on OnDebug
//   sStringaConnDB, sCurrDir  database and working folder
//   NomeFileMultimedia, ComandoPlayback, ImagePreview, ProgressoMultimedia
//                     the media file or video played, the playback command in
//                     force, the last preview image, the media percentage
//   TimeOutLungo, TimeOutBreve, Timing  the reply intervals of the transport,
//                     and the host's overrides WskProtocol applies
// and among the public variables: TentativiTimeOut (attempts of the exchange
// in flight), TentativiTimeOutMax (the transport's limit), Stato (above),
// StringaErroreConnessione (last link error), StringaRicevuta (the last
// command string from the unit).
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "camrelay/enums.h"
#include "camrelay/status.h"
#include "common/debug_sink.h"
#include "link/platform.h"
#include "panel/panel_model.h"

namespace camrelay::store {
class DataVideo;
}

namespace camrelay::link {

// One request of the queue: its two-character type and its argument as the
// caller gave it (numbers travel as their decimal text).
struct Richiesta {
  std::string Tipo;
  std::string Parametro;
  bool operator==(const Richiesta&) const = default;
};

// Reply time-outs and retry limit that a host or a test wants instead of the
// transport's own; 0 keeps the transport's value.
struct ReplyTiming {
  int timeoutLong = 0;
  int timeoutShort = 0;
  int retries = 0;
};

class frmClient : public DebugSink {
 public:
  frmClient(std::shared_ptr<Platform> platform, std::shared_ptr<store::DataVideo> db);
  ~frmClient() override;
  frmClient(const frmClient&) = delete;
  frmClient& operator=(const frmClient&) = delete;

  // ---- Events, in their order; the owner subscribes. -----------------------
  std::function<void(StatoConnessioneEnum)> CambioStatoConnessione;
  std::function<void(StatoDBEnum)> CambioStatoDB;
  std::function<void()> ErroreConnessione;
  std::function<void()> ErroreTimeOutConnessioneTCP;
  std::function<void(const std::string&)> OnDebug;

  // ---- Public variables, in declaration order. ------------------------------
  bool AttivaRichiestaPreview = false;
  int NCamPreviewDownloaded = 0;
  double CurrentTimeFileVideo = 0;
  int VideoCiclePreview = 0;
  std::int16_t TentativiTimeOut = 0;
  std::string StringaRicevuta;
  int FileMultimediaSize = 0;
  bool TrasmissioneInCorso = false;
  std::string StringaErroreConnessione;
  std::int16_t RemotePasswordType = 0;
  bool PwdCrypted = false;
  int Stato = cNoOperation;
  std::string IpAddressRemote;
  int RemoteAddrPort = 0;
  int LocalAddrPort = 0;
  int DelayLoadDataFromDB = 0;
  std::string sStringaPassword;
  std::string NewStringaPassWord;
  int TentativiTimeOutMax = 0;
  bool ShowCamRelay = false;
  bool ViewLibraryErr = false;

  // ---- The link state record: the form's own variables. ---------------------
  // Kept public so that the procedures spread over several files, and the
  // tests that drive them, read and write one record.
  std::string sBufferRicezione;  // TCP bytes not yet cut into messages
  bool bAttesaFine = false;      // an end-of-transfer "13" is awaited
  std::string sTipoArrivo = "00";
  int nPacchetti = 0;
  int StringaInviata = 0;
  std::vector<std::string> StringaPar;  // empty = never dimensioned
  std::size_t bytesInTransfer = 0;  // bytes of the download's packets held
  long foreignDatagrams = 0;         // datagrams dropped: not from the unit
  std::string sTipoRichiesta;
  std::int16_t TentativiRicezione = 0;  // the second retry counter
  // The request queue: element 0 is an empty slot, the head is element 1.
  std::vector<Richiesta> Richieste{Richiesta{}};
  // How many requests the queue has refused as duplicates: a host compares
  // it before and after a call to tell its user the request was not queued.
  int RichiesteRifiutate = 0;
  // Why the last request left the queue, for the host's status view.
  RequestOutcome lastOutcome = RequestOutcome::None;
  int RequestsEnded = 0;  // requests that left the queue through EndRequest
  // Records the last log or camera-event download added to its table.
  int RecordsNew = 0;
  // Where a completed download is stored: `work` touches only the database
  // and what it was handed, `then` goes on with the link and must run on
  // the link's loop. Unset, both run at once, one after the other; a host
  // whose database is a distant server runs `work` on threads of its own,
  // so that no link on the loop waits for another's rows.
  std::function<void(std::function<void()> work, std::function<void()> then)> RunStore;
  // A store handed to RunStore has not come back yet: the link waits.
  bool StoreInFlight = false;
  // Form_Unload has run: a store coming back finds nothing to go on with.
  bool Unloaded = false;
  bool bPwdCryptedAccettata = false;  // the scrambled code has been accepted
  bool bReportPwdCrypted = true;      // report its acceptance or refusal
  std::string sStringaConnDB;
  std::string sCurrDir;
  std::string NomeFileMultimedia;  // multimedia file asked for, or video file played
  std::string ComandoPlayback;     // last playback command ("PAUSE:" while a file is open)
  std::string ImagePreview;        // last preview image, one character per byte
  int ProgressoMultimedia = 0;     // percent of the multimedia download received
  // Component-wide reply-timer intervals, set per transport by WskProtocol.
  int TimeOutLungo = 60000;
  int TimeOutBreve = 60000;
  ReplyTiming Timing;  // the owner's overrides, applied by WskProtocol

  // ---- Controls. ------------------------------------------------------------
  std::unique_ptr<Socket> Winsock1;
  std::unique_ptr<Timer> tmrTimeOut;
  panel::PanelModel Panel;

  // ---- Life of the link (link/lifecycle.cpp). -------------------------------
  void Form_Load();
  void Form_Unload();
  void WskProtocol(int vProtocol);
  void PannelloConnetti(const std::string& sVar, long cl);
  void CreateEventOnDebug(const std::string& Message) override;
  std::string CurrDir() const;
  void CurrDir(const std::string& CurrentDir);
  void Winsock1_Connect();
  void Winsock1_Close();
  void Winsock1_ConnectionRequest();
  void Winsock1_SendComplete();
  void Winsock1_Error(int Number, const std::string& Description);
  // Raises CambioStatoConnessione with the value given.
  void RaiseStato(int value);
  // Sets Stato and raises the change, only when it is a change.
  void SetStatoAndRaise(int value);
  // The time-of-day stamp that begins every log line: "hh:mm:ss.<ms>".
  static std::string LogStamp();
  // CurrDir, filled with the process's folder when empty.
  std::string BaseDir();

  // ---- Framing and sending (link/transmit.cpp). -----------------------------
  void TrasmettiStringa(const std::string& Stringa);
  std::string GetStringaPar(int Indice) const;
  int UboundStringaPar() const;
  bool IsTCP() const;

  // ---- Receive dispatcher and login (link/receive.cpp). ---------------------
  void Winsock1_DataArrival(long bytesTotal);
  void Winsock_Cisei(const std::string& Stringa);

  // ---- Reply timer and flow control (link/timeout.cpp). ---------------------
  void tmrTimeOut_Timer();
  void Winsock_RicevutoAttendi(const std::string& Stringa);
  void Winsock_RicevutoPacchetto(const std::string& Stringa);
  // Ends the request at the head as the reply timer does at the retry limit.
  void GiveUpRequest();

  // ---- Transfer reception (link/reception.cpp). -----------------------------
  void WinSock_Download(const std::string& Stringa);
  void WinSock_DownloadMedia(const std::string& Stringa);
  void Winsock_ResendAll(const std::string& Stringa);

  // ---- Request queue (requests/queue.cpp). ----------------------------------
  void AddRichiesta(const std::string& Tipo, const std::string& Parametro, bool ForceAdd = false);
  void RemoveRichiesta(int Indice);
  void ReadRichiesta();
  // Drops the head request, noting why it ended.
  void EndRequest(RequestOutcome outcome);
  // Takes out the request at `position` (1 = the head) unless it is being
  // served; false, and nothing changes, otherwise.
  bool WithdrawRequest(int position);
  int QueueLength() const { return static_cast<int>(Richieste.size()) - 1; }

  // ---- Device operations (requests/operations.cpp). -------------------------
  void RichiestaDiConnessione();
  void DownLoadProgrammazione();
  void DownloadLog(const std::string& codice);
  void CancellazioneDelLog(const std::string& codice);
  void CancellaPrimaIlLog();
  void DownloadCamEvents();
  void DownloadProgCamEvents();
  void DownloadMultimediaFile(const std::string& fileName);
  void DownLoadMessaggiWave();
  void DownLoadStreamImage(const std::string& camera);
  void DownLoadStrCommand(const std::string& command);
  void UploadStrCommand(const std::string& command);
  void UpLoadProgrammazione();
  void UpLoadProgCamEvents();
  void UpLoadMessaggiWave(const std::string& fileName);
  void UpLoadAggiornamento(const std::string& fileName);
  void UploadCodInstallatore();
  void UploadCodUtente();

  // ---- Live preview and playback (requests/preview.cpp). --------------------
  void AttivaPreview(const std::string& arg);
  void AcquisisciNextPreview();
  void CreaStrPreview(long& size);
  // A preview ("09") or stream ("58") image transfer has completed: build the
  // image, report it, drop the head request and go on with the cycle.
  void CompletePreviewImage();
  // The reply timer gave up on a preview request ("08" or "09").
  void ResumePreviewAfterGiveUp();

  // ---- Local database (link/frm_database.cpp). ------------------------------
  void OpenDB();
  void CloseDB();
  std::string StringaConnDB() const;
  void StringaConnDB(const std::string& value);
  store::DataVideo& Database() { return *db_; }
  std::shared_ptr<store::DataVideo> SharedDatabase() const { return db_; }

  // ---- Diagnostic panel (panel/panel.cpp). ----------------------------------
  void CmdSendStr_Click();

  Platform& platform() { return *platform_; }
  // Lives as long as the form: what comes back to it later checks it first.
  std::weak_ptr<void> Alive() const { return alive_; }

 private:
  std::shared_ptr<int> alive_ = std::make_shared<int>(0);
  std::shared_ptr<Platform> platform_;
  std::shared_ptr<store::DataVideo> db_;
};

// The data carried by the collected packets, joined (the elements may be
// rewritten). Protocollo: 0 TCP, 1 UDP.
std::string CreaStringaComando(std::vector<std::string>& StringaPar, int Protocollo,
                               DebugSink* form = nullptr);

// The packets of the download in hand that have arrived (element 0, the
// opening, left out).
int PacketsHeld(const frmClient& form);

// The transfer in hand: packets done and packets it has, {0, 0} for none.
std::pair<int, int> TransferProgress(const frmClient& form);

// Leading-number parse: the decimal value of the digits at the start of the
// text (after blanks and a sign), 0 when there are none.
long long LeadingNumber(const std::string& text);

// "Stato: ..., sTipoArrivo: ..." lines that the receive handlers add to their
// error reports.
std::string StateReport(const frmClient& form);

}  // namespace camrelay::link
