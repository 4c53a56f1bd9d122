// Text between Windows' UTF-16 and the byte strings the library works with,
// through Windows' own code-page functions.
#pragma once

#include <string>
#include <string_view>

namespace camrelay::platform::windows {

// Windows-1252, the unit's character set and the one the library's byte
// strings hold on Windows.
inline constexpr unsigned kCp1252 = 1252;
inline constexpr unsigned kUtf8 = 65001;

std::wstring ToWide(std::string_view text, unsigned codePage = kCp1252);
// A character the code page cannot show becomes "?".
std::string FromWide(std::wstring_view text, unsigned codePage = kCp1252);

}  // namespace camrelay::platform::windows
