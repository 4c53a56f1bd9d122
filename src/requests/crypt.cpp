// Scrambling of the access code. The unit reads the layout from the low two
// bits of the first character and undoes the XORs of each group of four.
#include "requests/crypt.h"

#include <array>
#include <atomic>
#include <chrono>
#include <cmath>
#include <random>

namespace camrelay::requests {

namespace {

constexpr std::size_t kCodeLength = 6;
constexpr std::size_t kScrambledLength = 25;

// R is kept 1-based, as the unit numbers it: R[1] is the key character.
using Scrambled = std::array<unsigned char, kScrambledLength + 1>;

// A generator seeded afresh for each call: the clock alone would give two
// calls in the same tick the same text, so the system's entropy source and a
// call counter are mixed in.
std::mt19937 FreshGenerator() {
  static std::atomic<unsigned> calls{0};
  std::random_device entropy;
  const auto now = std::chrono::high_resolution_clock::now().time_since_epoch().count();
  std::seed_seq seed{entropy(), entropy(), static_cast<unsigned>(now), static_cast<unsigned>(now >> 32),
                     ++calls};
  return std::mt19937(seed);
}

// A single-precision value uniform in [0, 1): 24 random bits, exactly
// representable, so 1 is never reached.
float Rnd(std::mt19937& generator) { return static_cast<float>(generator() >> 8) / 16777216.0f; }

// The key takes the nearest integer, halves to even; the fill characters take
// the integer part and so never reach 255.
unsigned char KeyByte(std::mt19937& g) { return static_cast<unsigned char>(std::nearbyint(255.0f * Rnd(g))); }
unsigned char FillByte(std::mt19937& g) { return static_cast<unsigned char>(std::floor(255.0f * Rnd(g))); }

std::string Normalised(const std::string& code) {
  std::string p = code.substr(0, kCodeLength);
  p.resize(kCodeLength, '\0');
  return p;
}

// Writes code character a into group j (positions 4j+2 .. 4j+5) for layout m.
// Each layout mixes a different set of the group's random characters.
void HideInGroup(Scrambled& r, int m, int j, unsigned char a) {
  const int g = 4 * j + 2;
  switch (m) {
    case 0: r[g] = a ^ r[g + 1] ^ r[g + 2] ^ r[g + 3]; break;
    case 1: r[g + 1] = a ^ r[g] ^ r[g + 2]; break;
    case 2: r[g + 2] = a ^ r[g]; break;
    default: r[g + 3] = a ^ r[1] ^ r[g]; break;
  }
}

std::string ScrambleOnce(const std::string& p) {
  auto generator = FreshGenerator();
  Scrambled r{};
  r[1] = KeyByte(generator);
  const int m = r[1] & 3;
  for (int i = 2; i <= static_cast<int>(kScrambledLength); ++i)
    r[i] = (i - 2) % 4 == m ? 0 : FillByte(generator);  // slots hold a placeholder until filled
  for (int j = 0; j < static_cast<int>(kCodeLength); ++j)
    HideInGroup(r, m, j, static_cast<unsigned char>(p[j]));
  return std::string(r.begin() + 1, r.end());
}

}  // namespace

std::string CryptData(const std::string& code) {
  const std::string p = Normalised(code);
  // The separator must never appear inside a field: draw again until it does not.
  for (;;) {
    std::string r = ScrambleOnce(p);
    if (r.find("{}") == std::string::npos) return r;
  }
}

}  // namespace camrelay::requests
