// Live preview and video playback. One request type, "08", carries all of
// it: a camera number (0 stops), a video file name, or a playback command.
// The unit answers with a "09" image transfer, which may carry no image at
// all when it only confirms a command; the preview then moves on to the next
// camera of the cycle.
#include <algorithm>
#include <array>
#include <climits>
#include <stdexcept>
#include <string_view>

#include "link/codes.h"
#include "link/frmClient.h"
#include "link/guard.h"
#include "requests/opening.h"

namespace camrelay::link {
namespace {

constexpr std::string_view kPausa = "PAUSE:";
constexpr std::string_view kChiudi = "CLOSE:";
constexpr std::string_view kErroreRegistrazione = "Reg Error";
// Cameras 1..31 are bits 0..30 of the cycle mask.
constexpr int kCameras = 31;

// Classifies what the preview asks for, updates the playback record, and
// returns the text the "08" request carries.
std::string SelectPreview(frmClient& form, const std::string& arg) {
  if (arg.find(".avi") != std::string::npos) {
    // A recorded file opens paused; the camera shown is none.
    form.NomeFileMultimedia = arg;
    form.ComandoPlayback = kPausa;
    form.NCamPreviewDownloaded = 0;
    return arg;
  }
  if (arg.find(':') == std::string::npos) {
    form.NomeFileMultimedia.clear();
    form.ComandoPlayback.clear();
    const long long camera = LeadingNumber(arg);
    if (camera < INT_MIN || camera > INT_MAX) throw std::overflow_error("Overflow");
    form.NCamPreviewDownloaded = static_cast<int>(camera);
    return std::to_string(form.NCamPreviewDownloaded);
  }
  form.NCamPreviewDownloaded = 0;
  form.ComandoPlayback = arg;
  return arg;
}

// The commands that are not sent again after a give-up, compared whole: a
// seek or a quality setting that carries its value is a different text and
// is asked for again, so that the position or quality the host set is not
// lost with the answer.
bool IsOneShotCommand(const std::string& command) {
  static constexpr std::array<std::string_view, 6> kOnce = {
      "STOP:", "PAUSE:", "NEXTFRAME:", "PREVFRAME:", "CurrentTimeFileVideo:", "SetQualityImages:"};
  return std::find(kOnce.begin(), kOnce.end(), command) != kOnce.end();
}

// One image piece "{}" index "{}" size "{}" data: appends its data and
// takes the image's size from the first piece. False when the piece is
// malformed, which ends the collection.
bool AppendPiece(const std::string& piece, long& size, std::string& image) {
  if (piece.compare(0, 2, kSep) != 0) return false;
  const auto sizeSep = piece.find(kSep, 2);
  if (sizeSep == std::string::npos || sizeSep + 2 >= piece.size()) return false;
  const auto dataSep = piece.find(kSep, sizeSep + 2);
  if (dataSep == std::string::npos || dataSep + 2 >= piece.size()) return false;
  if (size == 0) size = static_cast<long>(LeadingNumber(piece.substr(sizeSep + 2, dataSep - sizeSep - 2)));
  image.append(piece, dataSep + 2);
  return true;
}

// A "Reg Error" answer means the unit could not open or drive the file; the
// answer to "CLOSE:" means it closed it. Either way no file is played now.
// Returns how the request ended.
RequestOutcome EndPlaybackOnAnswer(frmClient& form) {
  const bool refused = form.GetStringaPar(0).find(kErroreRegistrazione) != std::string::npos;
  if (form.ComandoPlayback == kChiudi || refused) {
    form.NomeFileMultimedia.clear();
    form.ComandoPlayback.clear();
  }
  return refused ? RequestOutcome::UnitError : RequestOutcome::Completed;
}

// A camera the unit does not have is answered "Reg Error" every time: left
// in the cycle it would be asked for again at once, for ever, holding the
// link. It leaves the cycle; with no camera left the cycle is over.
void DropRefusedCamera(frmClient& form) {
  const int camera = form.NCamPreviewDownloaded;
  if (camera < 1 || camera > kCameras) return;
  form.VideoCiclePreview &= ~(1 << (camera - 1));
}

}  // namespace

void frmClient::AttivaPreview(const std::string& arg) {
  Guarded(*this, "AttivaPreview", [&] {
    const std::string what = SelectPreview(*this, arg);
    // TCP carries the request in the opening message; UDP sends it as an
    // element of its own, followed by the closing element.
    const std::string request = std::string(kSep) + what + std::string(kCrLf);
    if (IsTCP())
      StringaPar = {Opening(*this, 0, tipo::Preview) + request};
    else
      StringaPar = {Opening(*this, 2, tipo::Preview), request, std::string(kSep)};
    // The preview changes state silently: a cycle would otherwise raise an
    // event for every image.
    Stato = cTrasmettiPreviewEnable;
    tmrTimeOut->setEnabled(false);
    tmrTimeOut->setInterval(TimeOutBreve);
    TrasmettiStringa(StringaPar[0]);
    StringaInviata = 1;
  });
}

void frmClient::AcquisisciNextPreview() {
  Guarded(*this, "AcquisisciNextPreview", [&] {
    // The search starts at the camera after the current one and wraps from
    // 31 to 1. One round at most: a mask with none of bits 0..30 set (bit 31
    // names no camera) has nothing to show and must not hold the link.
    int k = NCamPreviewDownloaded - 1;
    for (int step = 0; step < kCameras; ++step) {
      k = k >= 0 ? k + 1 : 0;
      if (k >= kCameras) k = 0;
      if ((VideoCiclePreview & (1 << k)) == 0) continue;
      NCamPreviewDownloaded = k + 1;
      AddRichiesta(std::string(tipo::Preview), std::to_string(NCamPreviewDownloaded));
      return;
    }
  });
}

void frmClient::CreaStrPreview(long& size) {
  Guarded(*this, "CreaStrPreview", [&] {
    // Element 0 holds the acceptance; the pieces follow it.
    std::string image;
    for (int i = 1; i <= UboundStringaPar(); ++i)
      if (!AppendPiece(StringaPar[i], size, image)) break;
    ImagePreview = std::move(image);
  });
}

// Runs inside the dispatcher's handlers, whose guard reports its failures.
void frmClient::CompletePreviewImage() {
  tmrTimeOut->setEnabled(false);
  long size = 0;
  CreaStrPreview(size);
  const bool stream = sTipoArrivo == tipo::StreamImage;
  // Every image that resulted is reported; an answer that merely confirms a
  // command carries none. A size field that is not the byte count is the
  // unit's slip, not a reason to lose the picture.
  if (!ImagePreview.empty()) {
    if (static_cast<long>(ImagePreview.size()) != size)
      CreateEventOnDebug("CreaStrPreview: the image holds " + std::to_string(ImagePreview.size()) +
                         " bytes, its pieces announce " + std::to_string(size));
    const int reported = stream ? cRicezioneStreamImageOK : cRicezionePreViewOK;
    Stato = reported;
    RaiseStato(Stato);
    // A host may queue a request from inside the stream image's event, and
    // the link serves it at once in that state: it is then in flight, and
    // must be neither overwritten nor served a second time.
    if (stream && Stato != reported) return;
  }
  Stato = cNoOperation;
  if (stream) {
    // The "57" request left the queue when it was sent, so the head now is an
    // unrelated request: removing it would drop it. Serve it instead. A
    // stream image is a single picture and does not move the preview cycle.
    ReadRichiesta();
    return;
  }
  const RequestOutcome outcome = EndPlaybackOnAnswer(*this);
  if (outcome == RequestOutcome::UnitError) DropRefusedCamera(*this);
  EndRequest(outcome);
  // While a recorded file is open the unit shows its frames: the camera
  // cycle waits until the file is closed.
  if (NomeFileMultimedia.empty()) AcquisisciNextPreview();
}

// Called by the reply timer when it gave up on a preview request.
void frmClient::ResumePreviewAfterGiveUp() {
  if (NomeFileMultimedia.empty()) {
    AcquisisciNextPreview();
    return;
  }
  // A file is open: ask again for what was lost, unless it acts only once.
  if (!ComandoPlayback.empty() && !IsOneShotCommand(ComandoPlayback)) AddRichiesta(std::string(tipo::Preview), ComandoPlayback);
}

}  // namespace camrelay::link
