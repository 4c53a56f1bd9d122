#include "values.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <limits>
#include <optional>
#include <stdexcept>

namespace camrelay::unit {

namespace {

// The characters of bytes 0x80..0x9F; the five bytes Windows-1252 leaves
// unassigned stand for the control characters of their own number.
constexpr std::array<char32_t, 32> kHighCharacters{
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};

void AppendUtf8(std::string& out, char32_t c) {
  if (c < 0x80) {
    out += static_cast<char>(c);
  } else if (c < 0x800) {
    out += static_cast<char>(0xC0 | (c >> 6));
    out += static_cast<char>(0x80 | (c & 0x3F));
  } else {
    out += static_cast<char>(0xE0 | (c >> 12));
    out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (c & 0x3F));
  }
}

// The character at the start of text, and how many bytes it takes; a byte
// that starts no well-formed sequence is a character no one can show.
std::pair<char32_t, std::size_t> NextCharacter(std::string_view text) {
  const auto lead = static_cast<unsigned char>(text[0]);
  const std::size_t length = lead < 0x80 ? 1 : lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : lead >= 0xC0 ? 2 : 0;
  if (length == 0 || length > text.size()) return {0xFFFD, 1};
  char32_t c = length == 1 ? lead : lead & (0x7F >> length);
  for (std::size_t i = 1; i < length; ++i) {
    const auto next = static_cast<unsigned char>(text[i]);
    if ((next & 0xC0) != 0x80) return {0xFFFD, i};
    c = (c << 6) | (next & 0x3F);
  }
  return {c, length};
}

char ToCp1252(char32_t c) {
  if (c < 0x80 || (c >= 0xA0 && c <= 0xFF)) return static_cast<char>(c);
  const auto found = std::find(kHighCharacters.begin(), kHighCharacters.end(), c);
  return found == kHighCharacters.end() ? '?' : static_cast<char>(0x80 + (found - kHighCharacters.begin()));
}

// Reads `least` to `most` digits of one field of a date.
bool Number(std::string_view& text, int least, int most, int& value) {
  int digits = 0;
  value = 0;
  while (digits < most && digits < static_cast<int>(text.size()) && text[digits] >= '0' && text[digits] <= '9')
    value = value * 10 + (text[digits++] - '0');
  text.remove_prefix(digits);
  return digits >= least;
}

bool Skip(std::string_view& text, char c) {
  if (text.empty() || text.front() != c) return false;
  text.remove_prefix(1);
  return true;
}

struct Moment {
  int year = 1899, month = 12, day = 30;  // the zero date: a time of day alone
  int hour = 0, minute = 0, second = 0;

  bool ZeroDate() const { return year == 1899 && month == 12 && day == 30; }
  bool Midnight() const { return hour == 0 && minute == 0 && second == 0; }
  bool Valid() const {
    constexpr int kDays[] = {31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    const bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
    return year >= 100 && month >= 1 && month <= 12 && day >= 1 &&
           day <= kDays[month - 1] - (month == 2 && !leap ? 1 : 0) && hour < 24 && minute < 60 && second < 60;
  }
};

// "h:mm[:ss]"
bool TimeOfDay(std::string_view& text, Moment& m) {
  if (!Number(text, 1, 2, m.hour) || !Skip(text, ':') || !Number(text, 1, 2, m.minute)) return false;
  return !Skip(text, ':') || Number(text, 1, 2, m.second);
}

std::string Format(const char* pattern, int a, int b, int c) {
  char text[16];
  std::snprintf(text, sizeof text, pattern, a, b, c);
  return text;
}

// "dd/mm/yyyy hh:mm:ss": the date alone at midnight, the time alone on the
// zero date.
std::string ItalianText(const Moment& m) {
  const std::string time = Format("%02d:%02d:%02d", m.hour, m.minute, m.second);
  if (m.ZeroDate()) return time;
  const std::string date = Format("%02d/%02d/%04d", m.day, m.month, m.year);
  return m.Midnight() ? date : date + " " + time;
}

std::string IsoText(const Moment& m) { return IsoDate(m.year, m.month, m.day, m.hour, m.minute, m.second); }

// "yyyy-mm-dd" with " hh:mm[:ss]" or "T..." after it.
std::optional<Moment> ReadIso(std::string_view text) {
  Moment m;
  if (!Number(text, 4, 4, m.year) || !Skip(text, '-') || !Number(text, 2, 2, m.month) || !Skip(text, '-') ||
      !Number(text, 2, 2, m.day))
    return std::nullopt;
  if ((Skip(text, ' ') || Skip(text, 'T')) && !TimeOfDay(text, m)) return std::nullopt;
  if (!text.empty() || !m.Valid()) return std::nullopt;
  return m;
}

// "d/m/yyyy[ h:mm[:ss]]", or a time of day alone.
std::optional<Moment> ReadItalian(std::string_view text) {
  Moment m;
  std::string_view rest = text;
  if (!(TimeOfDay(rest, m) && rest.empty())) {
    m = Moment{};
    rest = text;
    if (!Number(rest, 1, 2, m.day) || !Skip(rest, '/') || !Number(rest, 1, 2, m.month) || !Skip(rest, '/') ||
        !Number(rest, 4, 4, m.year))
      return std::nullopt;
    if (Skip(rest, ' ') && !TimeOfDay(rest, m)) return std::nullopt;
  }
  if (!rest.empty() || !m.Valid()) return std::nullopt;
  return m;
}

// A real with a decimal comma, as an Italian system writes it, or a point.
std::optional<double> ReadReal(std::string_view wire) {
  std::string text(wire);
  std::replace(text.begin(), text.end(), ',', '.');
  if (!text.empty() && text.front() == '+') text.erase(0, 1);
  double number = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  if (text.empty() || error != std::errc() || stop != end || !std::isfinite(number) ||
      std::count(wire.begin(), wire.end(), ',') + std::count(wire.begin(), wire.end(), '.') > 1)
    return std::nullopt;
  return number;
}

template <class Number>
std::string Decimal(Number number) {
  char text[32];
  return std::string(text, std::to_chars(text, text + sizeof text, number).ptr);
}

std::string Quoted(std::string_view wire) { return "\"" + Cp1252ToUtf8(wire) + "\""; }

bool IsFalse(const Value& value) {
  if (const auto* n = std::get_if<std::int64_t>(&value)) return *n == 0;
  if (const auto* r = std::get_if<double>(&value)) return *r == 0;
  const auto number = ReadReal(std::get<std::string>(value));
  return number && *number == 0;
}

constexpr int kAdoDate = 7;
constexpr int kAdoBoolean = 11;

}  // namespace

int AdoType(std::string_view declared) {
  static constexpr std::pair<std::string_view, int> kTypes[] = {
      {"LONG", 3},     {"INTEGER", 3},  {"COUNTER", 3}, {"SHORT", 2},      {"SMALLINT", 2}, {"BYTE", 17},
      {"SINGLE", 4},   {"DOUBLE", 5},   {"CURRENCY", 6}, {"DATETIME", 7},  {"BIT", 11},     {"YESNO", 11},
      {"TEXT", 202},   {"VARCHAR", 202}, {"MEMO", 203},  {"LONGTEXT", 203}};
  std::string name;
  for (char c : declared) {
    if (c == '(' || c == ' ') break;
    name += static_cast<char>(c >= 'a' && c <= 'z' ? c - 'a' + 'A' : c);
  }
  for (const auto& [known, type] : kTypes)
    if (name == known) return type;
  return 202;
}

std::string Cp1252ToUtf8(std::string_view bytes) {
  std::string out;
  out.reserve(bytes.size());
  for (char byte : bytes) {
    const auto b = static_cast<unsigned char>(byte);
    AppendUtf8(out, b >= 0x80 && b < 0xA0 ? kHighCharacters[b - 0x80] : b);
  }
  return out;
}

std::string Utf8ToCp1252(std::string_view utf8) {
  std::string out;
  out.reserve(utf8.size());
  while (!utf8.empty()) {
    const auto [c, length] = NextCharacter(utf8);
    out += ToCp1252(c);
    utf8.remove_prefix(length);
  }
  return out;
}

std::string IsoDate(int year, int month, int day, int hour, int minute, int second) {
  const std::string date = Format("%04d-%02d-%02d", year, month, day);
  return hour == 0 && minute == 0 && second == 0 ? date : date + " " + Format("%02d:%02d:%02d", hour, minute, second);
}

std::string WireText(int adoType, const Value& value) {
  if (std::holds_alternative<std::monostate>(value)) return std::string(kNullText);
  if (adoType == kAdoBoolean) return IsFalse(value) ? "Falso" : "Vero";
  if (const auto* n = std::get_if<std::int64_t>(&value)) return Decimal(*n);
  if (const auto* r = std::get_if<double>(&value)) {
    std::string text = Decimal(*r);
    // Reals travel the Italian way; a real in a whole-number column as it is.
    if (adoType >= 4 && adoType <= 6) {
      std::replace(text.begin(), text.end(), '.', ',');
      std::replace(text.begin(), text.end(), 'e', 'E');
    }
    return text;
  }
  const auto& text = std::get<std::string>(value);
  if (adoType == kAdoDate)
    if (const auto moment = ReadIso(text)) return ItalianText(*moment);
  return Utf8ToCp1252(text);
}

Value StoredValue(std::string_view type, std::string_view text) {
  if (type == "3") {
    const auto number = ReadReal(text);
    if (!number) throw std::invalid_argument(Quoted(text) + " is not a whole number");
    const double whole = std::nearbyint(*number);
    if (std::abs(whole) > std::numeric_limits<std::int32_t>::max())
      throw std::invalid_argument(Quoted(text) + " does not fit in a 4-byte integer");
    return static_cast<std::int64_t>(whole);
  }
  if (type == "4" || type == "5" || type == "6") {
    if (const auto number = ReadReal(text)) return *number;
    throw std::invalid_argument(Quoted(text) + " is not a number");
  }
  if (type == "7") {
    if (const auto moment = ReadItalian(text)) return IsoText(*moment);
    throw std::invalid_argument(Quoted(text) + " is not a date");
  }
  if (type == "11") return std::int64_t{text == "Falso" ? 0 : 1};
  return Cp1252ToUtf8(text);
}

}  // namespace camrelay::unit
