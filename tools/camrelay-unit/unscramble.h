// Recovering the access code from the 25-character scrambled form, and
// deciding which of the unit's codes a request carries.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace camrelay::unit {

inline constexpr std::size_t kScrambledLength = 25;
inline constexpr std::size_t kCodeLength = 6;

// The six code characters hidden in a scrambled string. The layout number is
// the low two bits of the first character; each group of four characters
// after it holds one code character XORed with some of its neighbours.
// Empty when the text does not have the scrambled length.
std::string Unscramble(std::string_view scrambled);

// A code as the unit compares it: its first six characters, padded with NUL.
std::string Normalized(std::string_view code);

// Which code a request carries: the installer's, the user's, or neither.
enum class CodeKind { None = 0, Installer = 1, User = 2 };

// The received text is tried both unscrambled and as typed, so a component
// that falls back to the plain code after a refusal still gets in.
CodeKind CheckCode(std::string_view received, std::string_view installer, std::string_view user);

}  // namespace camrelay::unit
