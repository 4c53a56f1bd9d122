#include "store/wire.h"

#include <charconv>

#include "store/text.h"

namespace camrelay::store {

std::optional<std::string_view> TakeItem(std::string_view& rest) {
  std::size_t end = rest.find(kSeparator);
  if (end == std::string_view::npos) return std::nullopt;
  std::string_view item = rest.substr(0, end);
  rest.remove_prefix(end + kSeparator.size());
  return item;
}

std::optional<long> WholeNumber(std::string_view text) {
  long value = 0;
  auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (text.empty() || error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}

std::string Excerpt(std::string_view wire) {
  constexpr std::size_t kShown = 60;
  return "\"" + Cp1252ToUtf8(wire.substr(0, kShown)) + (wire.size() > kShown ? "...\"" : "\"");
}

}  // namespace camrelay::store
