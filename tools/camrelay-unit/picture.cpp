#include "picture.h"

#include <algorithm>
#include <array>
#include <string>

namespace camrelay::unit {

namespace {

// A 5 x 7 font for the few characters written: each row's five bits, the
// leftmost pixel in the highest bit.
using Glyph = std::array<unsigned char, 7>;

Glyph GlyphOf(char c) {
  static const Glyph digits[10] = {
      {0x0E, 0x11, 0x13, 0x15, 0x19, 0x11, 0x0E}, {0x04, 0x0C, 0x04, 0x04, 0x04, 0x04, 0x0E},
      {0x0E, 0x11, 0x01, 0x02, 0x04, 0x08, 0x1F}, {0x1F, 0x02, 0x04, 0x02, 0x01, 0x11, 0x0E},
      {0x02, 0x06, 0x0A, 0x12, 0x1F, 0x02, 0x02}, {0x1F, 0x10, 0x1E, 0x01, 0x01, 0x11, 0x0E},
      {0x06, 0x08, 0x10, 0x1E, 0x11, 0x11, 0x0E}, {0x1F, 0x01, 0x02, 0x04, 0x08, 0x08, 0x08},
      {0x0E, 0x11, 0x11, 0x0E, 0x11, 0x11, 0x0E}, {0x0E, 0x11, 0x11, 0x0F, 0x01, 0x02, 0x0C},
  };
  if (c >= '0' && c <= '9') return digits[c - '0'];
  if (c == 'C') return {0x0E, 0x11, 0x10, 0x10, 0x10, 0x11, 0x0E};
  if (c == 'A') return {0x0E, 0x11, 0x11, 0x1F, 0x11, 0x11, 0x11};
  if (c == 'M') return {0x11, 0x1B, 0x15, 0x15, 0x11, 0x11, 0x11};
  return {};
}

struct Colour {
  int r, g, b;
};

void Plot(Picture& p, int x, int y, Colour c) {
  if (x < 0 || y < 0 || x >= p.width || y >= p.height) return;
  const std::size_t at = (static_cast<std::size_t>(y) * p.width + x) * 3;
  p.rgb[at] = static_cast<unsigned char>(c.r);
  p.rgb[at + 1] = static_cast<unsigned char>(c.g);
  p.rgb[at + 2] = static_cast<unsigned char>(c.b);
}

void Write(Picture& p, const std::string& text, int x0, int y0, int scale, Colour c) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    const Glyph glyph = GlyphOf(text[i]);
    for (int row = 0; row < 7; ++row)
      for (int col = 0; col < 5; ++col)
        if (glyph[row] & (0x10 >> col))
          for (int dy = 0; dy < scale; ++dy)
            for (int dx = 0; dx < scale; ++dx)
              Plot(p, x0 + (static_cast<int>(i) * 6 + col) * scale + dx, y0 + row * scale + dy, c);
  }
}

}  // namespace

Picture CameraPicture(int camera, int frame, int width, int height) {
  Picture p{width, height, std::vector<unsigned char>(static_cast<std::size_t>(width) * height * 3)};
  // Each camera its own tint: the low three bits of its number pick which
  // channels follow the gradient.
  const int mask = (camera % 7) + 1;
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) {
      const int across = 40 + 180 * x / width;
      const int down = 40 + 180 * y / height;
      Plot(p, x, y, {mask & 1 ? across : down / 3, mask & 2 ? down : across / 3, mask & 4 ? (across + down) / 2 : 30});
    }
  const std::string label = "CAM " + std::to_string(camera);
  const int scale = std::max(1, width / 60);
  Write(p, label, width / 10, height / 3, scale, {255, 255, 255});
  const int barX = (frame * width / 8) % width;
  for (int y = height - height / 8; y < height; ++y)
    for (int x = barX; x < barX + width / 8; ++x) Plot(p, x, y, {250, 250, 40});
  return p;
}

}  // namespace camrelay::unit
