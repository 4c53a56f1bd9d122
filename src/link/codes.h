// The message codes and transfer types of the wire protocol, as data.
//
// Every decision the link takes by transfer type reads kTransferTypes: which
// operation serves a request, the state its acceptance sets, what it reports
// when it ends, how its packets are collected, how long the reply timer
// waits, what a busy unit means for it, how often it is tried, and whether the
// queue keeps more than one of it. Adding a type is adding a row, and the
// operation the row names.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>

#include "camrelay/enums.h"
#include "link/frmClient.h"

namespace camrelay::link {

// Field separator of every message; never escaped.
inline constexpr std::string_view kSep = "{}";
// TCP frame marker: "LN{}" length "{}" message.
inline constexpr std::string_view kFrameMarker = "LN{}";
inline constexpr std::string_view kCrLf = "\r\n";

// Control codes: the first two characters of a message.
namespace code {
inline constexpr std::string_view Request = "AA";   // request / acceptance
inline constexpr std::string_view Password = "PW";  // access code refused
inline constexpr std::string_view Ack = "OK";       // one packet acknowledged
inline constexpr std::string_view Busy = "BS";      // the unit is busy
inline constexpr std::string_view ResendAll = "12"; // send the whole transfer again / TCP end
inline constexpr std::string_view End = "13";       // end of a transfer
inline constexpr std::string_view Login = "00";     // type of the login answer
}  // namespace code

// Transfer types: the two characters that name a request in the queue, the
// accepted transfer in the unit's "AA", sTipoArrivo and "13".
namespace tipo {
inline constexpr std::string_view Login = code::Request;  // the login request
inline constexpr std::string_view LoginAnswer = code::Login;
inline constexpr std::string_view UploadProg = "01";
inline constexpr std::string_view DownloadProg = "02";
inline constexpr std::string_view EraseLog = "03";
inline constexpr std::string_view DownloadLog = "04";
inline constexpr std::string_view UploadWave = "05";
inline constexpr std::string_view DownloadWave = "06";
inline constexpr std::string_view UploadInstallerCode = "07";
inline constexpr std::string_view Preview = "08";       // camera, video file or playback command
inline constexpr std::string_view PreviewImage = "09";  // the unit's answer to a preview request
inline constexpr std::string_view UploadFirmware = "10";
inline constexpr std::string_view EraseFirstLog = "11";
inline constexpr std::string_view UploadUserCode = "14";
inline constexpr std::string_view SendCommand = "50";
inline constexpr std::string_view UnitCommand = "51";  // the unit's answer to a command request
inline constexpr std::string_view RequestCommand = "52";
inline constexpr std::string_view DownloadCamEvents = "53";
inline constexpr std::string_view DownloadProgCamEvents = "54";
inline constexpr std::string_view UploadProgCamEvents = "55";
inline constexpr std::string_view DownloadMedia = "56";
inline constexpr std::string_view StreamImageRequest = "57";
inline constexpr std::string_view StreamImage = "58";  // the unit's answer to a stream request
}  // namespace tipo

enum class Direction { Neither, Upload, Download };

// What a download carries: how its packets are collected and who gets the
// whole.
enum class Payload {
  NoData,       // an upload, or the login
  Programming,  // indexed packets, saved to the database
  Records,      // indexed packets, left in StringaPar for the host
  Voice,        // whole packets in arrival order, saved to Audio/
  Command,      // whole packets, joined into StringaRicevuta
  Image,        // numbered image pieces, the acceptance is piece 0
  MediaFile,    // written to a file packet by packet
};

// Which of the transport's two reply intervals the timer is given.
enum class Interval { Long, Short };  // TimeOutLungo, TimeOutBreve

// How long the reply timer gives a unit that answered "BS".
enum class BusyWait { AMinute, Briefly, NoLimit };

// What the unit's "BS" does in the state a type's acceptance set.
struct Busy {
  StatoConnessioneEnum becomes;   // the exchange moves on to this state; cNoOperation: it stays
  StatoConnessioneEnum reported;  // raised to the host; cNoOperation: nothing
  BusyWait wait;                  // read in the state "BS" leaves the exchange in
};

// How many attempts the reply timer makes before it gives up.
enum class Attempts {
  Transport,  // the transport's limit
  ThreeLeft,  // the login and the code changes start three short of it
  Media,      // at least 25, whatever the transport: images and files are long
};

// The queue's call of the operation that serves a request of the type.
using Operation = void (*)(frmClient&, const std::string& parametro);

struct TransferType {
  std::string_view tipo;
  Operation serve;  // nullptr: the unit sends it, nobody queues it
  Direction direction;
  StatoConnessioneEnum accepted;   // Stato once the unit accepts it
  StatoConnessioneEnum completed;  // raised when it ends well; cNoOperation: nothing
  Payload payload;
  Interval reply;   // after the acceptance and after each "OK" of the unit
  Interval packet;  // after each data packet of a download
  Busy busy;
  Attempts attempts;
  bool reportsGiveUp;  // a give-up is raised as an error (a lost preview image is not)
  bool onePending;     // the queue keeps one waiting, whatever its argument
  bool preview;        // part of the preview cycle, which resumes itself
};

namespace detail {
// "BS" is reported to the host and the unit given the time said.
constexpr Busy Reports(StatoConnessioneEnum reported, BusyWait wait) { return {cNoOperation, reported, wait}; }
// "BS" moves the exchange on silently; the wait is then the one of the state
// it becomes.
constexpr Busy Becomes(StatoConnessioneEnum stato) { return {stato, cNoOperation, BusyWait::AMinute}; }
}  // namespace detail

// clang-format off
inline constexpr auto kTransferTypes = [] {
  using namespace detail;
  using enum Direction;
  using enum Payload;
  using enum Interval;
  using enum Attempts;
  using enum BusyWait;
  return std::to_array<TransferType>({
    // tipo, serve, direction, accepted, completed, payload, reply, packet, busy, attempts,
    //   reportsGiveUp, onePending, preview
    {tipo::Login, [](frmClient& f, const std::string&) { f.RichiestaDiConnessione(); },
     Neither, cNoOperation, cNoOperation, NoData, Long, Long,
     Reports(cTrasmissioneOKAndBusy, AMinute), ThreeLeft, true, false, false},
    {tipo::UploadProg, [](frmClient& f, const std::string&) { f.UpLoadProgrammazione(); },
     Upload, cTrasmettiProg, cTrasmissioneOK, NoData, Long, Long,
     Reports(cTrasmissioneOKAndBusy, AMinute), Transport, true, false, false},
    {tipo::DownloadProg, [](frmClient& f, const std::string&) { f.DownLoadProgrammazione(); },
     Download, cRichiestaProg, cRicezioneProgOK, Programming, Long, Long,
     Reports(cRichiestaOKAndBusy, AMinute), Transport, true, false, false},
    {tipo::EraseLog, nullptr,
     Download, cRichiestaCancellaLog, cRicezioneLogOK, Records, Long, Long,
     Reports(cRichiestaOKAndBusy, AMinute), Transport, true, false, false},
    {tipo::DownloadLog, [](frmClient& f, const std::string& p) { f.CancellazioneDelLog(p); },
     Download, cRichiestaLog, cRicezioneLogOK, Records, Long, Long,
     Reports(cRichiestaOKAndBusy, AMinute), Transport, true, false, false},
    {tipo::UploadWave, [](frmClient& f, const std::string& p) { f.UpLoadMessaggiWave(p); },
     Upload, cTrasmettiWave, cTrasmissioneOK, NoData, Long, Long,
     Reports(cTrasmissioneOKAndBusy, NoLimit), Transport, true, false, false},
    {tipo::DownloadWave, [](frmClient& f, const std::string&) { f.DownLoadMessaggiWave(); },
     Download, cRichiestaWave, cRicezioneWaveOK, Voice, Long, Long,
     Reports(cRichiestaOKAndBusy, NoLimit), Transport, true, false, false},
    {tipo::UploadInstallerCode, [](frmClient& f, const std::string&) { f.UploadCodInstallatore(); },
     Upload, cTrasmettiInstallCode, cTrasmissioneOK, NoData, Long, Long,
     Reports(cTrasmissioneOKAndBusy, AMinute), ThreeLeft, true, false, false},
    {tipo::Preview, [](frmClient& f, const std::string& p) { f.AttivaPreview(p); },
     Upload, cTrasmettiPreviewEnable, cNoOperation, NoData, Short, Long,
     Becomes(cRichiestaPreView), Transport, true, true, true},
    {tipo::PreviewImage, nullptr,
     Download, cRichiestaPreView, cRicezionePreViewOK, Image, Short, Short,
     Reports(cNoOperation, Briefly), Media, false, true, true},
    {tipo::UploadFirmware, [](frmClient& f, const std::string& p) { f.UpLoadAggiornamento(p); },
     Upload, cTrasmettiAggiornamento, cTrasmissioneOK, NoData, Long, Long,
     Reports(cTrasmissioneOKAndBusy, NoLimit), Transport, true, false, false},
    {tipo::EraseFirstLog, [](frmClient& f, const std::string&) { f.CancellaPrimaIlLog(); },
     Download, cRichiestaCancellaPrimaLog, cNoOperation, Records, Long, Long,
     Reports(cRichiestaOKAndBusy, AMinute), Transport, true, false, false},
    {tipo::UploadUserCode, [](frmClient& f, const std::string&) { f.UploadCodUtente(); },
     Upload, cTrasmettiUserCode, cTrasmissioneOK, NoData, Long, Long,
     Reports(cTrasmissioneOKAndBusy, AMinute), ThreeLeft, true, false, false},
    {tipo::SendCommand, [](frmClient& f, const std::string& p) { f.UploadStrCommand(p); },
     Upload, cTrasmettiStringa, cNoOperation, NoData, Short, Short,
     Reports(cRichiestaOKAndBusy, Briefly), Transport, true, false, false},
    {tipo::UnitCommand, nullptr,
     Download, cRichiestaStringa, cRicezioneStringaOK, Command, Short, Short,
     Reports(cTrasmissioneOKAndBusy, Briefly), Transport, true, false, false},
    {tipo::RequestCommand, [](frmClient& f, const std::string& p) { f.DownLoadStrCommand(p); },
     Upload, cTrasmettiStringaReq, cNoOperation, NoData, Short, Long,
     Becomes(cRichiestaStringa), Transport, true, false, false},
    {tipo::DownloadCamEvents, [](frmClient& f, const std::string&) { f.DownloadCamEvents(); },
     Download, cRichiestaCamEvents, cRicezioneCamEventsOK, Records, Long, Long,
     Reports(cRichiestaOKAndBusy, AMinute), Transport, true, false, false},
    {tipo::DownloadProgCamEvents, [](frmClient& f, const std::string&) { f.DownloadProgCamEvents(); },
     Download, cRichiestaProgCamEvents, cRicezioneProgCamEventsOK, Records, Long,
     Long, Reports(cRichiestaOKAndBusy, AMinute), Transport, true, false, false},
    {tipo::UploadProgCamEvents, [](frmClient& f, const std::string&) { f.UpLoadProgCamEvents(); },
     Upload, cTrasmettiProgCamEvents, cTrasmissioneOK, NoData, Long, Long,
     Reports(cTrasmissioneOKAndBusy, AMinute), Transport, true, false, false},
    {tipo::DownloadMedia, [](frmClient& f, const std::string& p) { f.DownloadMultimediaFile(p); },
     Download, cRichiestaMultimedia, cRicezioneMultimediaOK, MediaFile, Long, Long,
     Reports(cTrasmissioneOKAndBusy, AMinute), Media, true, false, false},
    {tipo::StreamImageRequest, [](frmClient& f, const std::string& p) { f.DownLoadStreamImage(p); },
     Upload, cTrasmettiStreamImageReq, cNoOperation, NoData, Short, Short,
     Becomes(cRichiestaStreamImage), Transport, true, false, false},
    {tipo::StreamImage, nullptr,
     Download, cRichiestaStreamImage, cRicezioneStreamImageOK, Image, Short, Long,
     Reports(cTrasmissioneOKAndBusy, Briefly), Transport, true, false, false},
  });
}();
// clang-format on

// What a type the table does not know gets: nothing served, nothing
// reported, the long interval, the transport's attempts.
inline constexpr TransferType kUnknownType{
    {}, nullptr, Direction::Neither, cNoOperation, cNoOperation, Payload::NoData, Interval::Long, Interval::Long,
    detail::Reports(cTrasmissioneOKAndBusy, BusyWait::AMinute), Attempts::Transport, true, false, false};

// The row of a type; kUnknownType for a type in no row.
constexpr const TransferType& TypeOf(std::string_view tipo) {
  for (const auto& row : kTransferTypes)
    if (row.tipo == tipo) return row;
  return kUnknownType;
}

// The row whose acceptance sets this state; kUnknownType for idle and for a
// state no acceptance sets.
constexpr const TransferType& TypeInState(int stato) {
  for (const auto& row : kTransferTypes)
    if (row.accepted == stato && row.direction != Direction::Neither) return row;
  return kUnknownType;
}

// The state the acceptance of a type sets; nullopt for a type in no row.
constexpr std::optional<StatoConnessioneEnum> StatoForTipo(std::string_view tipo) {
  const auto& row = TypeOf(tipo);
  if (row.direction == Direction::Neither) return std::nullopt;
  return row.accepted;
}

// The upload types: "01", "05", "07", "14", "08", "10", "50", "52", "55", "57".
constexpr bool IsUploadType(std::string_view tipo) { return TypeOf(tipo).direction == Direction::Upload; }

}  // namespace camrelay::link
