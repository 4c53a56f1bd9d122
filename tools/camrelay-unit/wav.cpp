#include "wav.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "little_endian.h"

namespace camrelay::unit {

std::string EncodeWav(const std::vector<std::int16_t>& samples, int rate) {
  const auto dataBytes = static_cast<std::uint32_t>(samples.size() * 2);
  std::string out = "RIFF";
  Put32(out, 36 + dataBytes);
  out += "WAVEfmt ";
  Put32(out, 16);  // PCM format block
  Put16(out, 1);   // PCM
  Put16(out, 1);   // mono
  Put32(out, static_cast<std::uint32_t>(rate));
  Put32(out, static_cast<std::uint32_t>(rate * 2));  // bytes per second
  Put16(out, 2);   // bytes per frame
  Put16(out, 16);  // bits per sample
  out += "data";
  Put32(out, dataBytes);
  for (std::int16_t s : samples) Put16(out, static_cast<std::uint16_t>(s));
  return out;
}

std::vector<std::int16_t> Tones(const std::vector<Tone>& tones, int rate) {
  std::vector<std::int16_t> samples;
  const int fade = rate / 100;  // 10 ms
  for (const Tone& tone : tones) {
    const int n = tone.ms * rate / 1000;
    for (int i = 0; i < n; ++i) {
      const double envelope = std::min({1.0, static_cast<double>(i) / fade, static_cast<double>(n - i) / fade});
      const double value = std::sin(2 * std::numbers::pi * tone.hz * i / rate) * envelope * 12000;
      samples.push_back(static_cast<std::int16_t>(std::lround(value)));
    }
  }
  return samples;
}

}  // namespace camrelay::unit
