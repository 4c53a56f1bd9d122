#include "unscramble.h"

#include <vector>

namespace camrelay::unit {

std::string Unscramble(std::string_view scrambled) {
  if (scrambled.size() != kScrambledLength) return {};
  // R(i) with i counted from 1, as the layouts are described.
  auto r = [&](std::size_t i) { return static_cast<unsigned char>(scrambled[i - 1]); };
  const unsigned layout = r(1) & 3u;
  std::string code;
  for (std::size_t group = 0; group < kCodeLength; ++group) {
    const std::size_t b = 4 * group + 2;  // first position of the group
    unsigned value = 0;
    switch (layout) {
      case 0: value = r(b) ^ r(b + 1) ^ r(b + 2) ^ r(b + 3); break;
      case 1: value = r(b + 1) ^ r(b) ^ r(b + 2); break;
      case 2: value = r(b + 2) ^ r(b); break;
      default: value = r(b + 3) ^ r(1) ^ r(b); break;
    }
    code.push_back(static_cast<char>(value));
  }
  return code;
}

std::string Normalized(std::string_view code) {
  std::string six(code.substr(0, kCodeLength));
  six.resize(kCodeLength, '\0');
  return six;
}

CodeKind CheckCode(std::string_view received, std::string_view installer, std::string_view user) {
  std::vector<std::string> candidates{std::string(received)};
  if (received.size() == kScrambledLength) candidates.insert(candidates.begin(), Unscramble(received));
  for (const auto& candidate : candidates) {
    const std::string six = Normalized(candidate);
    if (six == Normalized(installer)) return CodeKind::Installer;
    if (six == Normalized(user)) return CodeKind::User;
  }
  return CodeKind::None;
}

}  // namespace camrelay::unit
