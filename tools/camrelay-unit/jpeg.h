// JPEG images for the unit's cameras, through libjpeg.
#pragma once

#include <string>
#include <vector>

namespace camrelay::unit {

// An RGB picture, three bytes per pixel, rows from the top.
struct Picture {
  int width = 0;
  int height = 0;
  std::vector<unsigned char> rgb;
};

std::string EncodeJpeg(const Picture& picture, int quality = 85);

}  // namespace camrelay::unit
