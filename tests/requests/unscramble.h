// Undoes the access-code scrambling as the unit does: the layout is the low
// two bits of the first character, and each group of four hides one code
// character.
#pragma once

#include <string>

namespace camrelay::test {

inline int Layout(const std::string& r) { return static_cast<unsigned char>(r[0]) & 3; }

inline std::string Unscramble(const std::string& r) {
  auto at = [&](int position) { return static_cast<unsigned char>(r[position - 1]); };  // 1-based
  std::string code;
  for (int j = 0; j < 6; ++j) {
    const int g = 4 * j + 2;
    switch (Layout(r)) {
      case 0: code += static_cast<char>(at(g) ^ at(g + 1) ^ at(g + 2) ^ at(g + 3)); break;
      case 1: code += static_cast<char>(at(g + 1) ^ at(g) ^ at(g + 2)); break;
      case 2: code += static_cast<char>(at(g + 2) ^ at(g)); break;
      default: code += static_cast<char>(at(g + 3) ^ at(1) ^ at(g)); break;
    }
  }
  return code;
}

}  // namespace camrelay::test
