// The device operations: each turns the request at the head of the queue into
// the opening packet of an exchange with the unit, "AA{}<count>{}<code>{}"
// and the access code, and sends it. The unit's answers carry the exchange on
// (receive dispatcher, reply timer).
#include <algorithm>
#include <filesystem>
#include <optional>

#include "files/firmware.h"
#include "files/safe_name.h"
#include "files/voice.h"
#include "link/codes.h"
#include "link/frmClient.h"
#include "link/guard.h"
#include "requests/crypt.h"
#include "requests/opening.h"
#include "store/payload.h"

namespace camrelay::link {

std::string AccessCode(const frmClient& f) {
  return f.PwdCrypted ? requests::CryptData(f.sStringaPassword) : f.sStringaPassword;
}

std::string Opening(const frmClient& f, std::size_t count, std::string_view code) {
  return std::string(code::Request) + std::string(kSep) + std::to_string(count) + std::string(kSep) +
         std::string(code) + std::string(kSep) + AccessCode(f);
}

namespace {

// Command strings travel in chunks small enough for one packet of the
// transport.
constexpr std::size_t kCommandChunkTCP = 51197;
constexpr std::size_t kCommandChunkUDP = 3069;

// Once StringaPar holds the packets: enter the operation's state, send the
// opening packet with the reply timer at the given interval.
void Send(frmClient& f, int stato, int interval) {
  f.SetStatoAndRaise(stato);
  f.tmrTimeOut->setEnabled(false);
  f.tmrTimeOut->setInterval(interval);
  // An accepted upload goes on with element 1.
  f.StringaInviata = 1;
  f.TrasmettiStringa(f.StringaPar[0]);
}

// As above, in the state and with the reply interval of the type's row.
void Send(frmClient& f, std::string_view tipo) {
  const TransferType& type = TypeOf(tipo);
  Send(f, type.accepted, type.reply == Interval::Short ? f.TimeOutBreve : f.TimeOutLungo);
}

// The operations that are a single packet with nothing after the code but
// `tail`.
void SendSingle(frmClient& f, std::string_view code, int stato, const std::string& tail = {}) {
  f.StringaPar.assign(1, Opening(f, 0, code) + tail);
  Send(f, stato, f.TimeOutLungo);
}

void SendSingle(frmClient& f, std::string_view tipo, const std::string& tail = {}) {
  f.StringaPar.assign(1, Opening(f, 0, tipo) + tail);
  Send(f, tipo);
}

// Each chunk travels as "{}" chunk CR LF: the separator and the line end are
// what the receiving side strips when it joins the chunks again. On TCP the
// first chunk rides in the opening packet, right after the access code; on
// UDP the opening packet carries only the code, the chunks follow one per
// packet and a lone "{}" closes the run.
void SendCommand(frmClient& f, std::string_view code, const std::string& command) {
  const bool tcp = f.IsTCP();
  const std::size_t size = tcp ? kCommandChunkTCP : kCommandChunkUDP;
  const std::size_t n = std::max<std::size_t>(1, (command.size() + size - 1) / size);
  auto chunk = [&](std::size_t i) {
    return std::string(kSep) + command.substr(std::min(i * size, command.size()), size) + std::string(kCrLf);
  };
  if (tcp) {
    f.StringaPar.assign(n, std::string());
    f.StringaPar[0] = Opening(f, n - 1, code) + chunk(0);
    for (std::size_t i = 1; i < n; ++i) f.StringaPar[i] = chunk(i);
  } else {
    f.StringaPar.assign(n + 2, std::string());
    f.StringaPar[0] = Opening(f, n + 1, code);
    for (std::size_t i = 1; i <= n; ++i) f.StringaPar[i] = chunk(i - 1);
    f.StringaPar[n + 1] = std::string(kSep);
  }
  Send(f, code);
}

// A request that cannot be served is dropped, so that the queue goes on.
void DropRequest(frmClient& f, const std::string& report) {
  f.CreateEventOnDebug(report);
  f.EndRequest(RequestOutcome::NotSent);
}

// The new code travels as element 1, "{}" code CR LF, and a lone "{}" closes
// the run as it closes every other multi-packet upload.
void SendNewCode(frmClient& f, std::string_view code, const std::string& procedure) {
  if (f.NewStringaPassWord.empty()) {
    DropRequest(f, procedure + ": no new code to send; request dropped");
    return;
  }
  f.StringaPar = {Opening(f, 2, code), std::string(kSep) + f.NewStringaPassWord + std::string(kCrLf),
                  std::string(kSep)};
  Send(f, code);
}

}  // namespace

// The login opens with the type of its answer, "00", and has no state of its
// own.
void frmClient::RichiestaDiConnessione() {
  Guarded(*this, "RichiestaDiConnessione", [&] { SendSingle(*this, tipo::LoginAnswer, cNoOperation); });
}

void frmClient::DownLoadProgrammazione() {
  Guarded(*this, "DownLoadProgrammazione", [&] { SendSingle(*this, tipo::DownloadProg); });
}

void frmClient::DownloadLog(const std::string& codice) {
  Guarded(*this, "DownloadLog", [&] { SendSingle(*this, codice, cRichiestaLog); });
}

// "03" erases the log; anything else downloads it. The host's log requests
// carry no code at all, and those are downloads: "04".
void frmClient::CancellazioneDelLog(const std::string& codice) {
  Guarded(*this, "CancellazioneDelLog", [&] {
    const std::string code = codice.empty() ? std::string(tipo::DownloadLog) : codice;
    SendSingle(*this, code, code == tipo::EraseLog ? cRichiestaCancellaLog : cRichiestaLog);
  });
}

void frmClient::CancellaPrimaIlLog() {
  Guarded(*this, "CancellaPrimaIlLog", [&] { SendSingle(*this, tipo::EraseFirstLog); });
}

void frmClient::DownloadCamEvents() {
  Guarded(*this, "DownloadCamEvents", [&] { SendSingle(*this, tipo::DownloadCamEvents); });
}

void frmClient::DownloadProgCamEvents() {
  Guarded(*this, "DownloadProgCamEvents", [&] { SendSingle(*this, tipo::DownloadProgCamEvents); });
}

// The file is written below the working folder under the name asked for, so
// only a plain file name is asked for.
void frmClient::DownloadMultimediaFile(const std::string& fileName) {
  Guarded(*this, "DownloadMultimediaFile", [&] {
    if (!store::IsPlainFileName(fileName)) {
      DropRequest(*this, "DownloadMultimediaFile: \"" + fileName + "\" is not a plain file name; request dropped");
      return;
    }
    NomeFileMultimedia = fileName;
    SendSingle(*this, tipo::DownloadMedia, std::string(kSep) + fileName);
  });
}

void frmClient::DownLoadMessaggiWave() {
  Guarded(*this, "DownLoadMessaggiWave", [&] {
    StringaPar.assign(1, Opening(*this, 0, tipo::DownloadWave));
    if (ShowCamRelay) {
      panel::AppendLogLine(Panel.txtTxData, StringaPar[0]);
      panel::AppendLogLine(Panel.txtRxData, StringaPar[0]);
    }
    Send(*this, tipo::DownloadWave);
  });
}

// The stream image is asked for and forgotten: its request leaves the queue
// at once, so the link serves other requests while the image travels.
void frmClient::DownLoadStreamImage(const std::string& camera) {
  Guarded(*this, "DownLoadStreamImage", [&] {
    StringaPar.assign(1, Opening(*this, 0, tipo::StreamImageRequest) + std::string(kSep) + camera + std::string(kCrLf));
    // In the new state the removal does not serve the next request yet.
    SetStatoAndRaise(TypeOf(tipo::StreamImageRequest).accepted);
    EndRequest(RequestOutcome::Completed);
    Send(*this, tipo::StreamImageRequest);
  });
}

void frmClient::DownLoadStrCommand(const std::string& command) {
  Guarded(*this, "DownLoadStrCommand", [&] { SendCommand(*this, tipo::RequestCommand, command); });
}

void frmClient::UploadStrCommand(const std::string& command) {
  Guarded(*this, "UploadStrCommand", [&] { SendCommand(*this, tipo::SendCommand, command); });
}

namespace {

// A payload built from tables that could not be read (no database) is not
// sent: the builder has reported why, and the queue goes on.
// The camera-event programming is opened with the short interval.
void SendTables(frmClient& f, std::string_view tipo, std::optional<int> interval = std::nullopt) {
  if (f.UboundStringaPar() < 1) {
    f.Stato = cNoOperation;
    f.EndRequest(RequestOutcome::NotSent);
    return;
  }
  if (interval)
    Send(f, TypeOf(tipo).accepted, *interval);
  else
    Send(f, tipo);
}

}  // namespace

void frmClient::UpLoadProgrammazione() {
  Guarded(*this, "UpLoadProgrammazione", [&] {
    store::LoadDataFromDB(StringaPar, Database(), this, AccessCode(*this));
    SendTables(*this, tipo::UploadProg);
  });
}

void frmClient::UpLoadProgCamEvents() {
  Guarded(*this, "UpLoadProgCamEvents", [&] {
    store::LoadProgCamEventsFromDB(StringaPar, Database(), this, AccessCode(*this));
    SendTables(*this, tipo::UploadProgCamEvents, TimeOutBreve);
  });
}

// The messages are read from the Audio folder of the working folder, or from
// the folder of that name below it: never from anywhere else.
void frmClient::UpLoadMessaggiWave(const std::string& fileName) {
  Guarded(*this, "UpLoadMessaggiWave", [&] {
    if (!fileName.empty() && !store::IsPlainFileName(fileName)) {
      DropRequest(*this, "UpLoadMessaggiWave: \"" + fileName + "\" is not a plain file name; request dropped");
      return;
    }
    std::filesystem::path folder = std::filesystem::path(BaseDir()) / "Audio";
    if (!fileName.empty()) folder /= fileName;
    store::LoadMessaggiWave(StringaPar, Database(), this, AccessCode(*this), folder);
    Send(*this, tipo::UploadWave);
  });
}

// The update file is the host's own, given by its path.
void frmClient::UpLoadAggiornamento(const std::string& fileName) {
  Guarded(*this, "UpLoadAggiornamento", [&] {
    store::LoadFileAgg(StringaPar, this, AccessCode(*this), fileName);
    if (ShowCamRelay) panel::AppendLogLine(Panel.txtTxData, StringaPar[0]);
    Send(*this, tipo::UploadFirmware);
  });
}

void frmClient::UploadCodInstallatore() {
  Guarded(*this, "UploadCodInstallatore",
          [&] { SendNewCode(*this, tipo::UploadInstallerCode, "UploadCodInstallatore"); });
}

void frmClient::UploadCodUtente() {
  Guarded(*this, "UploadCodUtente", [&] { SendNewCode(*this, tipo::UploadUserCode, "UploadCodUtente"); });
}

}  // namespace camrelay::link
