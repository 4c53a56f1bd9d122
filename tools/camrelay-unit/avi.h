// Motion-JPEG clips in a RIFF AVI container: the unit's recorded clips, and
// the frames its playback steps through.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace camrelay::unit {

struct Clip {
  std::vector<std::string> frames;  // each a whole JPEG image
  int width = 0;
  int height = 0;
  int fps = 1;
};

std::string WriteMjpegAvi(const Clip& clip);
// The frames of a clip; nullopt when the bytes are not an AVI with frames.
std::optional<Clip> ReadMjpegAvi(std::string_view avi);

}  // namespace camrelay::unit
