// Voice messages as PCM WAV files: generated tones stand in for recordings.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace camrelay::unit {

// 16-bit mono PCM at the given rate.
std::string EncodeWav(const std::vector<std::int16_t>& samples, int rate);

// Tones one after the other: each {frequency in Hz, length in ms}, a short
// fade at both ends so they do not click.
struct Tone {
  double hz;
  int ms;
};
std::vector<std::int16_t> Tones(const std::vector<Tone>& tones, int rate);

}  // namespace camrelay::unit
