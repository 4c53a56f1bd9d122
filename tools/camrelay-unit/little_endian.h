// Little-endian integers as RIFF files (WAV, AVI) write them.
#pragma once

#include <cstdint>
#include <string>

namespace camrelay::unit {

inline void Put32(std::string& out, std::uint32_t v) {
  for (int i = 0; i < 4; ++i) out.push_back(static_cast<char>((v >> (8 * i)) & 0xff));
}

inline void Put16(std::string& out, std::uint16_t v) {
  out.push_back(static_cast<char>(v & 0xff));
  out.push_back(static_cast<char>(v >> 8));
}

}  // namespace camrelay::unit
