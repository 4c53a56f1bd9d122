#include "message.h"

#include "protocol.h"

namespace camrelay::unit {

std::string_view TakeField(std::string_view& text) {
  const auto sep = text.find(kSep);
  const std::string_view field = text.substr(0, sep);
  text.remove_prefix(sep == std::string_view::npos ? text.size() : sep + kSep.size());
  return field;
}

std::optional<long long> ParseNumber(std::string_view field) {
  if (field.empty() || field.size() > 12) return std::nullopt;
  long long value = 0;
  for (char c : field) {
    if (c < '0' || c > '9') return std::nullopt;
    value = value * 10 + (c - '0');
  }
  return value;
}

std::optional<Opening> ParseOpening(std::string_view message) {
  if (message.substr(0, 4) != "AA{}") return std::nullopt;
  message.remove_prefix(4);
  const auto count = ParseNumber(TakeField(message));
  if (!count) return std::nullopt;
  Opening opening;
  opening.count = static_cast<int>(*count);
  opening.tipo = std::string(TakeField(message));
  // A scrambled code never holds the separator, so the code ends at the
  // first one.
  const auto sep = message.find(kSep);
  opening.code = std::string(message.substr(0, sep));
  if (sep != std::string_view::npos) opening.rest = std::string(message.substr(sep));
  return opening;
}

std::optional<Probe> ParseProbe(std::string_view message) {
  if (message.substr(0, 4) != "13{}") return std::nullopt;
  message.remove_prefix(4);
  Probe probe;
  probe.tipo = std::string(TakeField(message));
  const auto count = ParseNumber(TakeField(message));
  if (!count) return std::nullopt;
  probe.count = static_cast<int>(*count);
  probe.rest = std::string(message);
  return probe;
}

std::string ChunkText(std::string_view element) {
  if (element.substr(0, kSep.size()) == kSep) element.remove_prefix(kSep.size());
  if (element.size() >= kCrLf.size() && element.substr(element.size() - kCrLf.size()) == kCrLf)
    element.remove_suffix(kCrLf.size());
  return std::string(element);
}

}  // namespace camrelay::unit
