// The answer to a preview request ("08"): a camera's current image, a stop,
// or the playback of a recorded clip, which opens paused on its first frame
// and steps frame by frame.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "avi.h"
#include "content.h"
#include "transfers.h"

namespace camrelay::unit {

class Playback {
 public:
  // request: a camera number (0 stops), a clip's file name, or a playback
  // command ("NEXTFRAME:", "CurrentTimeFileVideo:12.5", ...).
  Transfer Answer(const std::string& request, Content& content);

 private:
  Transfer Command(const std::string& request);
  Transfer Frame() const;

  std::optional<Clip> clip_;
  std::size_t frame_ = 0;
};

}  // namespace camrelay::unit
