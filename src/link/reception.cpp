// Reception of the unit's transfers. Every data packet is acknowledged and
// collected into StringaPar; a complete transfer goes to its consumer (the
// database, the voice-message folder, the received command string, the
// preview). Multimedia files are written to disk as their packets arrive.
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <optional>
#include <stdexcept>

#include "files/safe_name.h"
#include "files/voice.h"
#include "link/codes.h"
#include "link/frmClient.h"
#include "link/guard.h"
#include "link/limits.h"
#include "link/reception.h"
#include "store/download.h"

namespace camrelay::link {
namespace {

namespace fs = std::filesystem;

bool IsDataPacket(const std::string& message) { return message.compare(0, 2, kSep) == 0; }

bool IsImageType(const std::string& tipo) { return TypeOf(tipo).payload == Payload::Image; }

// The state a completed download reports; none for the types that report
// nothing (the erase of the first log, or a type no download uses). A media
// file reports its end itself, once the file is in place.
std::optional<int> CompletionState(const std::string& tipo) {
  const TransferType& type = TypeOf(tipo);
  if (type.direction != Direction::Download || type.payload == Payload::MediaFile) return std::nullopt;
  if (type.completed == cNoOperation) return std::nullopt;
  return type.completed;
}

// What a completed download leaves to do once it is stored: the state it
// reports, and the request it ends.
void AfterStore(frmClient& form, const std::string& tipo) {
  if (const auto stato = CompletionState(tipo)) {
    form.Stato = *stato;
    form.RaiseStato(*stato);
  }
  form.Stato = cNoOperation;
  form.EndRequest(RequestOutcome::Completed);
}

// A store that may run away from the link's loop: it has its own copy of
// the packets and of the database handle, and keeps the lines it reports
// until the link shows them.
struct StoreJob : DebugSink {
  StoreJob(const frmClient& form, std::string tipo)
      : Dati(form.StringaPar), db(form.SharedDatabase()), tipo(std::move(tipo)) {}
  void CreateEventOnDebug(const std::string& Message) override { lines.push_back(Message); }

  void Run() {
    if (TypeOf(tipo).payload == Payload::Programming) {
      store::SaveVideoSentrovaDB(Dati, *db, this);
    } else {
      const char* table = tipo == tipo::DownloadCamEvents ? "CamEvents" : "Registro_eventi";
      recordsNew = store::AddNewRecords(Dati, *db, table, this);
    }
  }

  std::vector<std::string> Dati;
  std::shared_ptr<store::DataVideo> db;
  std::string tipo;
  std::vector<std::string> lines;
  int recordsNew = 0;
};

bool GoesToTheDatabase(const std::string& tipo) {
  return TypeOf(tipo).payload == Payload::Programming || tipo == tipo::EraseLog || tipo == tipo::DownloadLog ||
         tipo == tipo::DownloadCamEvents;
}

// The link waits for the store, taking nothing more from the unit, and goes
// on once it is back; a link gone meanwhile hears nothing.
void StoreThenGoOn(frmClient& form, const std::string& tipo) {
  auto job = std::make_shared<StoreJob>(form, tipo);
  form.StoreInFlight = true;
  auto then = [&form, alive = form.Alive(), job] {
    if (alive.expired() || form.Unloaded) return;
    form.StoreInFlight = false;
    for (const std::string& line : job->lines) form.CreateEventOnDebug(line);
    if (TypeOf(job->tipo).payload != Payload::Programming) form.RecordsNew = job->recordsNew;
    AfterStore(form, job->tipo);
  };
  if (!form.RunStore) {
    job->Run();
    return then();
  }
  form.RunStore([job] { job->Run(); }, std::move(then));
}

}  // namespace

// The log and camera events are stored here, only what is new, and their
// packets stay in StringaPar too until the next acceptance resizes it.
void CompleteTransfer(frmClient& form, const std::string& tipo) {
  if (form.StoreInFlight) return;
  form.tmrTimeOut->setEnabled(false);
  if (IsImageType(tipo)) {
    form.CompletePreviewImage();
    return;
  }
  const Payload payload = TypeOf(tipo).payload;
  if (GoesToTheDatabase(tipo)) return StoreThenGoOn(form, tipo);
  if (payload == Payload::Voice) {
    store::SaveMessaggiWave(form.StringaPar, fs::path(form.BaseDir()) / "Audio", &form);
  } else if (payload == Payload::Command) {
    form.StringaRicevuta =
        CreaStringaComando(form.StringaPar, form.IsTCP() ? sckTCPProtocol : sckUDPProtocol, &form);
  }
  AfterStore(form, tipo);
}

namespace {

// UDP has no end message: the packet that fills the count ends the transfer.
// TCP waits for the unit's "12".
void CompleteOnUdp(frmClient& form) {
  if (!form.IsTCP()) CompleteTransfer(form, form.sTipoArrivo);
}

// Puts a packet in its slot unless the download would then hold more than
// its limit. A peer that goes past it has its transfer ended as if it had
// fallen silent, and the memory it took is given back at once.
bool Hold(frmClient& form, std::size_t index, std::string packet) {
  std::string& slot = form.StringaPar[index];
  const std::size_t held = form.bytesInTransfer - std::min(slot.size(), form.bytesInTransfer) + packet.size();
  if (held > kMaxTransferBytes) {
    form.CreateEventOnDebug("WinSock_Download: the transfer would hold " + std::to_string(held) +
                            " bytes, above the limit of " + std::to_string(kMaxTransferBytes) + "; ended");
    form.StringaPar = {};
    form.bytesInTransfer = 0;
    form.nPacchetti = 0;
    form.tmrTimeOut->setEnabled(false);
    form.GiveUpRequest();
    return false;
  }
  form.bytesInTransfer = held;
  slot = std::move(packet);
  return true;
}

bool SlotFree(const frmClient& form) {
  return form.nPacchetti >= 0 && form.nPacchetti < static_cast<int>(form.StringaPar.size());
}

// A packet that has no place in the transfer is dropped; the line says so,
// so that a unit sending more than it announced is seen.
void ReportDropped(frmClient& form, const std::string& what, const std::string& packet) {
  form.CreateEventOnDebug("WinSock_Download: " + what + "; packet dropped: " + packet.substr(0, 40) + "\r\n" +
                          StateReport(form));
}

// Voice messages and command strings: whole messages, in arrival order. A
// packet beyond the announced count has no slot and is dropped.
void CollectWhole(frmClient& form, const std::string& packet) {
  if (!SlotFree(form)) return ReportDropped(form, "beyond the packets announced", packet);
  if (!Hold(form, form.nPacchetti, packet)) return;
  ++form.nPacchetti;
  if (form.nPacchetti == static_cast<int>(form.StringaPar.size())) CompleteOnUdp(form);
}

// Image pieces "{}" index "{}" ...: only the piece the count expects
// advances it; any other is parked in that slot until the expected one
// overwrites it, so the pieces end up in order whatever order they came in.
void CollectImagePiece(frmClient& form, const std::string& packet) {
  if (!SlotFree(form)) return ReportDropped(form, "beyond the pieces announced", packet);
  const auto second = packet.find(kSep, 2);
  const auto indexText = second == std::string::npos ? packet.substr(2) : packet.substr(2, second - 2);
  if (!Hold(form, form.nPacchetti, packet)) return;
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

// Programming, log and camera-event packets: each placed by its own index,
// 0 included (a transfer of no packets ends with the packet of index 0).
// The unit is asked again for whatever is dropped here.
void CollectIndexed(frmClient& form, const std::string& message) {
  auto packet = ParseIndexed(message);
  const int last = form.UboundStringaPar();
  if (!packet) return ReportDropped(form, "not \"{}index{}length\" CR LF and a body of that length", message);
  // An idle link, or a transfer ended for holding too much, has no slots.
  if (packet->index < 0 || packet->index >= static_cast<long long>(form.StringaPar.size()))
    return ReportDropped(form, "index " + std::to_string(packet->index) + " outside 0.." + std::to_string(last),
                         message);
  if (!Hold(form, static_cast<std::size_t>(packet->index), std::move(packet->body))) return;
  // A last packet repeated after the transfer ended (its acknowledgement was
  // lost) finds Stato moved on and must not end the transfer a second time,
  // which would drop the request now at the head.
  if (packet->index == last && StatoForTipo(form.sTipoArrivo) == form.Stato) CompleteOnUdp(form);
}

bool EndsWith(const std::string& text, std::string_view tail) {
  return text.size() >= tail.size() && text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

// Appends one packet's data to the multimedia file being fetched.
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
  const fs::path target = PartialMediaFile(form);
  fs::create_directories(target.parent_path());
  std::ofstream out(target, std::ios::binary | std::ios::app);
  out.write(data.data(), static_cast<std::streamsize>(data.size()));
  out.flush();
  const auto size = out.tellp();
  out.close();
  if (!out || size < 0) throw std::runtime_error("cannot write " + target.string());
  form.FileMultimediaSize = static_cast<int>(size);
  form.RaiseStato(cRicezioneMultimedia);
}

// The partial file becomes the file asked for once the run is complete; a
// run without data leaves nothing.
void PublishMediaFile(frmClient& form) {
  if (!store::IsPlainFileName(form.NomeFileMultimedia)) return;
  const fs::path partial = PartialMediaFile(form);
  if (fs::exists(partial)) fs::rename(partial, MediaFile(form));
}

}  // namespace

// Snapshots (an exact ".jpg" ending) below Snapshot/, anything else below
// VideoAvi/.
fs::path MediaFile(frmClient& form) {
  const std::string& name = form.NomeFileMultimedia;
  return fs::path(form.BaseDir()) / (EndsWith(name, ".jpg") ? "Snapshot" : "VideoAvi") / name;
}

// A run that is started again (the link was rebuilt, the unit asked for the
// request anew) starts from its first packet: its data goes to a partial
// file, emptied at each acceptance, so that the file asked for never holds
// a failed attempt's bytes.
fs::path PartialMediaFile(frmClient& form) {
  fs::path partial = MediaFile(form);
  partial += ".part";
  return partial;
}

void DiscardPartialMediaFile(frmClient& form) {
  if (!store::IsPlainFileName(form.NomeFileMultimedia)) return;
  std::error_code ignored;
  fs::remove(PartialMediaFile(form), ignored);
}

void frmClient::WinSock_Download(const std::string& Stringa) {
  GuardedWithState(*this, "WinSock_Download", [&] {
    if (!IsDataPacket(Stringa)) return;
    // Every packet is acknowledged, even one about to be dropped: the unit
    // waits for the acknowledgement before it sends anything else.
    TrasmettiStringa(std::string(code::Ack));
    const Payload payload = TypeOf(sTipoArrivo).payload;
    if (payload == Payload::Voice || payload == Payload::Command)
      CollectWhole(*this, Stringa);
    else if (IsImageType(sTipoArrivo))
      CollectImagePiece(*this, Stringa);
    else
      CollectIndexed(*this, Stringa);
  });
}

void frmClient::Winsock_ResendAll(const std::string& Stringa) {
  GuardedWithState(*this, "Winsock_ResendAll", [&] {
    const auto sep = Stringa.find(kSep);
    const std::string tipo = sep == std::string::npos ? std::string() : Stringa.substr(sep + 2, 2);
    // A "12" repeated or late, for a transfer that has already ended, would
    // complete it a second time and remove the request now in flight. Only
    // the transfer in progress is completed, as the last packet does on UDP.
    if (tipo != sTipoArrivo || StatoForTipo(tipo) != Stato) {
      CreateEventOnDebug("Winsock_ResendAll: end of a transfer " + tipo + " that is not in progress ignored\r\n" +
                         StateReport(*this));
      return;
    }
    tmrTimeOut->setEnabled(false);
    CompleteTransfer(*this, tipo);
  });
}

// N packets bring N - 1 packets of data: the last one only closes the run.
void frmClient::WinSock_DownloadMedia(const std::string& Stringa) {
  GuardedWithState(*this, "WinSock_DownloadMedia", [&] {
    if (!IsDataPacket(Stringa) || TypeOf(sTipoArrivo).payload != Payload::MediaFile || nPacchetti <= 0) return;
    const int last = UboundStringaPar();
    if (nPacchetti <= last) TrasmettiStringa(std::string(code::Ack));
    ++nPacchetti;
    if (nPacchetti == last + 1) {
      tmrTimeOut->setEnabled(false);
      PublishMediaFile(*this);
      Stato = cRicezioneMultimediaOK;
      RaiseStato(Stato);
      Stato = cNoOperation;
      EndRequest(RequestOutcome::Completed);
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
