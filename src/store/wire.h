// Reading the texts that travel in transfers: items separated by "{}",
// lines ended by CR LF.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace camrelay::store {

inline constexpr std::string_view kSeparator = "{}";
inline constexpr std::string_view kLineEnd = "\r\n";

// The text before the next separator, and rest moves past that separator;
// nullopt (rest unchanged) when no separator follows.
std::optional<std::string_view> TakeItem(std::string_view& rest);

// The whole text as a decimal number (a sign allowed, nothing else around
// it); nullopt otherwise.
std::optional<long> WholeNumber(std::string_view text);

// The start of a wire text, quoted and in UTF-8, for a report.
std::string Excerpt(std::string_view wire);

}  // namespace camrelay::store
