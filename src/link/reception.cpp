// Reception of the unit's transfers. Every data packet is acknowledged and
// collected into StringaPar; a complete transfer goes to its consumer (the
// database, the voice-message folder, the received command string, the
// preview). Multimedia files are written to disk as their packets arrive.
#include <cmath>
#include <filesystem>
#include <fstream>
#include <optional>
#include <stdexcept>

#include "files/safe_name.h"
#include "files/voice.h"
#include "link/frmClient.h"
#include "link/guard.h"
#include "link/reception.h"
#include "store/download.h"

namespace camrelay::link {
namespace {

namespace fs = std::filesystem;

bool IsDataPacket(const std::string& message) { return message.compare(0, 2, kSep) == 0; }

bool IsImageType(const std::string& tipo) { return tipo == "09" || tipo == "58"; }

// The state a completed download reports; none for the types that report
// nothing (the erase of the first log, or a type no download uses).
std::optional<int> CompletionState(const std::string& tipo) {
  if (tipo == "02") return cRicezioneProgOK;
  if (tipo == "03" || tipo == "04") return cRicezioneLogOK;
  if (tipo == "06") return cRicezioneWaveOK;
  if (tipo == "51") return cRicezioneStringaOK;
  if (tipo == "53") return cRicezioneCamEventsOK;
  if (tipo == "54") return cRicezioneProgCamEventsOK;
  return std::nullopt;
}

}  // namespace

// The log and camera-event packets stay in StringaPar for the host to read
// until the next acceptance resizes it.
void CompleteTransfer(frmClient& form, const std::string& tipo) {
  form.tmrTimeOut->setEnabled(false);
  if (IsImageType(tipo)) {
    form.CompletePreviewImage();
    return;
  }
  if (tipo == "02") {
    store::SaveVideoSentrovaDB(form.StringaPar, form.Database(), &form);
  } else if (tipo == "06") {
    store::SaveMessaggiWave(form.StringaPar, fs::path(form.BaseDir()) / "Audio", &form);
  } else if (tipo == "51") {
    form.StringaRicevuta =
        CreaStringaComando(form.StringaPar, form.IsTCP() ? sckTCPProtocol : sckUDPProtocol, &form);
  }
  if (const auto stato = CompletionState(tipo)) {
    form.Stato = *stato;
    form.RaiseStato(*stato);
  }
  form.Stato = cNoOperation;
  form.RemoveRichiesta(1);
}

namespace {

// UDP has no end message: the packet that fills the count ends the transfer.
// TCP waits for the unit's "12".
void CompleteOnUdp(frmClient& form) {
  if (!form.IsTCP()) CompleteTransfer(form, form.sTipoArrivo);
}

bool SlotFree(const frmClient& form) {
  return form.nPacchetti >= 0 && form.nPacchetti < static_cast<int>(form.StringaPar.size());
}

// Voice messages and command strings: whole messages, in arrival order. A
// packet beyond the announced count has no slot and is dropped.
void CollectWhole(frmClient& form, const std::string& packet) {
  if (!SlotFree(form)) return;
  form.StringaPar[form.nPacchetti++] = packet;
  if (form.nPacchetti == static_cast<int>(form.StringaPar.size())) CompleteOnUdp(form);
}

// Image pieces "{}" index "{}" ...: only the piece the count expects
// advances it; any other is parked in that slot until the expected one
// overwrites it, so the pieces end up in order whatever order they came in.
void CollectImagePiece(frmClient& form, const std::string& packet) {
  if (!SlotFree(form)) return;
  const auto second = packet.find(kSep, 2);
  const auto indexText = second == std::string::npos ? packet.substr(2) : packet.substr(2, second - 2);
  form.StringaPar[form.nPacchetti] = packet;
  if (LeadingNumber(indexText) != form.nPacchetti) return;
  ++form.nPacchetti;
  if (form.nPacchetti == static_cast<int>(form.StringaPar.size())) CompleteOnUdp(form);
}

struct IndexedPacket {
  long long index;
  std::string body;
};

// "{}" index "{}" length CR LF body; nothing when a separator or the line
// end is missing or the body is not as long as announced.
std::optional<IndexedPacket> ParseIndexed(const std::string& packet) {
  const auto second = packet.find(kSep, 2);
  if (second == std::string::npos) return std::nullopt;
  const auto eol = packet.find(kCrLf, second + 2);
  if (eol == std::string::npos) return std::nullopt;
  const long long length = LeadingNumber(packet.substr(second + 2, eol - second - 2));
  std::string body = packet.substr(eol + 2);
  if (static_cast<long long>(body.size()) != length) return std::nullopt;
  return IndexedPacket{LeadingNumber(packet.substr(2, second - 2)), std::move(body)};
}

// Programming, log and camera-event packets: each placed by its own index.
// The unit asks again for whatever is dropped here.
void CollectIndexed(frmClient& form, const std::string& message) {
  auto packet = ParseIndexed(message);
  const int last = form.UboundStringaPar();
  if (!packet || packet->index < 1 || packet->index > last) return;
  form.StringaPar[packet->index] = std::move(packet->body);
  // A last packet repeated after the transfer ended (its acknowledgement was
  // lost) finds Stato moved on and must not end the transfer a second time,
  // which would drop the request now at the head.
  if (packet->index == last && StatoForTipo(form.sTipoArrivo) == form.Stato) CompleteOnUdp(form);
}

bool EndsWith(const std::string& text, std::string_view tail) {
  return text.size() >= tail.size() && text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

// Appends one packet's data to the multimedia file being fetched: snapshots
// (an exact ".jpg" ending) below Snapshot/, anything else below VideoAvi/.
void AppendMediaData(frmClient& form, std::string_view data) {
  const std::string& name = form.NomeFileMultimedia;
  if (!store::IsPlainFileName(name)) {
    // Said once, at the first data packet; the rest of the run is still
    // acknowledged so that the unit ends the exchange normally.
    if (form.nPacchetti == 2)
      form.CreateEventOnDebug("WinSock_DownloadMedia: the file name \"" + name +
                              "\" is refused: a multimedia file is named without a folder");
    return;
  }
  const fs::path folder = fs::path(form.BaseDir()) / (EndsWith(name, ".jpg") ? "Snapshot" : "VideoAvi");
  fs::create_directories(folder);
  const fs::path target = folder / name;
  std::ofstream out(target, std::ios::binary | std::ios::app);
  out.write(data.data(), static_cast<std::streamsize>(data.size()));
  out.close();
  if (!out) throw std::runtime_error("cannot write " + target.string());
  form.FileMultimediaSize = static_cast<int>(fs::file_size(target));
  form.RaiseStato(cRicezioneMultimedia);
}

}  // namespace

void frmClient::WinSock_Download(const std::string& Stringa) {
  GuardedWithState(*this, "WinSock_Download", [&] {
    if (!IsDataPacket(Stringa)) return;
    // Every packet is acknowledged, even one about to be dropped: the unit
    // waits for the acknowledgement before it sends anything else.
    TrasmettiStringa(std::string(code::Ack));
    if (sTipoArrivo == "06" || sTipoArrivo == "51")
      CollectWhole(*this, Stringa);
    else if (IsImageType(sTipoArrivo))
      CollectImagePiece(*this, Stringa);
    else
      CollectIndexed(*this, Stringa);
  });
}

void frmClient::Winsock_ResendAll(const std::string& Stringa) {
  GuardedWithState(*this, "Winsock_ResendAll", [&] {
    tmrTimeOut->setEnabled(false);
    const auto sep = Stringa.find(kSep);
    CompleteTransfer(*this, sep == std::string::npos ? std::string() : Stringa.substr(sep + 2, 2));
  });
}

// N packets bring N - 1 packets of data: the last one only closes the run.
void frmClient::WinSock_DownloadMedia(const std::string& Stringa) {
  GuardedWithState(*this, "WinSock_DownloadMedia", [&] {
    if (!IsDataPacket(Stringa) || sTipoArrivo != "56" || nPacchetti <= 0) return;
    const int last = UboundStringaPar();
    if (nPacchetti <= last) TrasmettiStringa(std::string(code::Ack));
    ++nPacchetti;
    if (nPacchetti == last + 1) {
      tmrTimeOut->setEnabled(false);
      Stato = cRicezioneMultimediaOK;
      RaiseStato(Stato);
      Stato = cNoOperation;
      RemoveRichiesta(1);
      return;
    }
    if (nPacchetti > last) return;
    // Rounded half to even, as the percentage has always been shown.
    ProgressoMultimedia =
        last >= 2 ? static_cast<int>(std::nearbyint(static_cast<double>(nPacchetti - 1) / (last - 1) * 100.0))
                  : 0;
    AppendMediaData(*this, std::string_view(Stringa).substr(2));
  });
}

}  // namespace camrelay::link
