#include "store/values.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <optional>
#include <stdexcept>

#include "store/text.h"

namespace camrelay::store {
namespace {

template <class Number>
std::string Decimal(Number number) {
  char text[32];
  auto end = std::to_chars(text, text + sizeof text, number).ptr;
  return std::string(text, end);
}

// A Boolean column holds 0 or 1 (an Access file may hold -1 for True); text
// that reads as the number 0 counts as False too.
bool IsFalse(const DbValue& value) {
  if (auto n = std::get_if<std::int64_t>(&value)) return *n == 0;
  if (auto r = std::get_if<double>(&value)) return *r == 0.0;
  const auto& text = std::get<std::string>(value);
  double number = 1;
  auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && end == text.data() + text.size() && number == 0.0;
}

std::string Quoted(std::string_view wire) { return "\"" + Cp1252ToUtf8(wire) + "\""; }

bool IsReal(int adoType) { return adoType == kAdoSingle || adoType == kAdoDouble || adoType == kAdoCurrency; }

// A finite number with its decimals after a comma, as an Italian system
// writes it, or after a point, as a unit on another locale does; an
// exponent is allowed. nullopt for anything else (thousands separators
// included: "1.234,5" is refused rather than misread).
std::optional<double> ParseReal(std::string_view wire) {
  std::string text(TrimSpaces(wire));
  if (!text.empty() && text.front() == '+') text.erase(0, 1);
  if (text.find(',') != std::string::npos) {
    if (text.find('.') != std::string::npos) return std::nullopt;
    std::replace(text.begin(), text.end(), ',', '.');
  }
  double number = 0;
  const char* end = text.data() + text.size();
  auto parsed = std::from_chars(text.data(), end, number);
  if (text.empty() || parsed.ec != std::errc() || parsed.ptr != end || !std::isfinite(number)) return std::nullopt;
  return number;
}

// The Italian form of a real: decimal comma, capital exponent.
std::string ItalianReal(double number) {
  std::string text = Decimal(number);
  std::replace(text.begin(), text.end(), '.', ',');
  std::replace(text.begin(), text.end(), 'e', 'E');
  return text;
}

}  // namespace

std::int64_t ParseLong(std::string_view wire) {
  std::optional<double> number = ParseReal(wire);
  if (!number) throw std::invalid_argument(Quoted(wire) + " is not a whole number");
  double whole = std::nearbyint(*number);
  if (whole < std::numeric_limits<std::int32_t>::min() || whole > std::numeric_limits<std::int32_t>::max())
    throw std::invalid_argument(Quoted(wire) + " does not fit in a 4-byte integer");
  return static_cast<std::int64_t>(whole);
}

std::string DbText(const DbValue& value) {
  if (auto n = std::get_if<std::int64_t>(&value)) return Decimal(*n);
  if (auto r = std::get_if<double>(&value)) return Decimal(*r);
  if (auto text = std::get_if<std::string>(&value)) return *text;
  return {};
}

std::string ToWireText(int adoType, const DbValue& value) {
  if (std::holds_alternative<std::monostate>(value)) return std::string(kNullText);
  if (adoType == kAdoBoolean) return IsFalse(value) ? "Falso" : "Vero";
  if (IsReal(adoType) && std::holds_alternative<double>(value)) return ItalianReal(std::get<double>(value));
  std::string text = DbText(value);
  if (adoType == kAdoDate && std::holds_alternative<std::string>(value)) {
    // A text the database does not hold as a date goes out as it is.
    if (auto date = ParseIsoDate(text)) return FormatItalianDate(*date);
  }
  return Utf8ToCp1252(text);
}

DbValue FromWireText(std::string_view type, std::string_view text) {
  if (type == "3") return ParseLong(text);
  if (type == "7") {
    auto date = ParseItalianDate(text);
    if (!date) throw std::invalid_argument(Quoted(text) + " is not a date");
    return FormatIsoDate(*date);
  }
  if (type == "11") return std::int64_t{text == "Falso" ? 0 : 1};
  if (type == "4" || type == "5" || type == "6") {
    if (auto number = ParseReal(text)) return *number;
    throw std::invalid_argument(Quoted(text) + " is not a number");
  }
  return Cp1252ToUtf8(text);
}

}  // namespace camrelay::store
