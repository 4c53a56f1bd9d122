#include "component/settings.h"

#include <cctype>
#include <cmath>
#include <cstdlib>
#include <limits>

namespace camrelay::component {

std::string Trim(const std::string& s) {
  const auto first = s.find_first_not_of(" \t\r");
  if (first == std::string::npos) return {};
  return s.substr(first, s.find_last_not_of(" \t\r") - first + 1);
}

int SettingAsInteger(const std::string& text) {
  const std::string trimmed = Trim(text);
  std::size_t end = 0;
  while (end < trimmed.size() && (std::isdigit(static_cast<unsigned char>(trimmed[end])) ||
                                  trimmed[end] == '.' || (end == 0 && (trimmed[0] == '-' || trimmed[0] == '+'))))
    ++end;
  const double value = std::strtod(trimmed.substr(0, end).c_str(), nullptr);
  const double rounded = std::nearbyint(value);  // the default rounding mode rounds halves to even
  if (rounded > std::numeric_limits<int>::max()) return std::numeric_limits<int>::max();
  if (rounded < std::numeric_limits<int>::min()) return std::numeric_limits<int>::min();
  return static_cast<int>(rounded);
}

}  // namespace camrelay::component
