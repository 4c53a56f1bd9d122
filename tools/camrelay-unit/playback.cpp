#include "playback.h"

#include <algorithm>
#include <cstdlib>

#include "protocol.h"

namespace camrelay::unit {

namespace {

constexpr std::string_view kImage = type::PreviewImage;

bool StartsWith(const std::string& text, const char* prefix) { return text.rfind(prefix, 0) == 0; }

Transfer RegError() { return ImageReply(kImage, "Reg Error"); }

}  // namespace

Transfer Playback::Answer(const std::string& request, Content& content) {
  if (request.find(".avi") != std::string::npos) {
    const auto bytes = content.MediaFile(request);
    clip_ = bytes ? ReadMjpegAvi(*bytes) : std::nullopt;
    frame_ = 0;
    return clip_ ? Frame() : RegError();
  }
  if (request.find(':') != std::string::npos) return Command(request);
  const int camera = std::atoi(request.c_str());
  if (camera == 0) return ImageReply(kImage, "OK");
  const auto image = content.PreviewImage(camera);
  return image ? ImageTransfer(kImage, *image) : RegError();
}

Transfer Playback::Command(const std::string& request) {
  if (StartsWith(request, "CLOSE:")) {
    clip_.reset();
    return ImageReply(kImage, "OK");
  }
  if (StartsWith(request, "PAUSE:") || StartsWith(request, "STOP:") || StartsWith(request, "SetQualityImages:"))
    return ImageReply(kImage, "OK");
  if (!clip_) return RegError();
  const std::size_t last = clip_->frames.size() - 1;
  if (StartsWith(request, "NEXTFRAME:")) {
    frame_ = std::min(frame_ + 1, last);
  } else if (StartsWith(request, "PREVFRAME:")) {
    frame_ = frame_ > 0 ? frame_ - 1 : 0;
  } else if (StartsWith(request, "CurrentTimeFileVideo:")) {
    const double seconds = std::atof(request.c_str() + std::string("CurrentTimeFileVideo:").size());
    frame_ = std::min(static_cast<std::size_t>(std::max(0.0, seconds) * clip_->fps), last);
  } else {
    return RegError();
  }
  return Frame();
}

Transfer Playback::Frame() const { return ImageTransfer(kImage, clip_->frames[frame_]); }

}  // namespace camrelay::unit
