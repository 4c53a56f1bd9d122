#include "store/text.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <stdexcept>
#include <utility>

namespace camrelay::store {
namespace {

bool ReadNumber(std::string_view& text, int minDigits, int maxDigits, int& value) {
  int digits = 0;
  value = 0;
  while (digits < maxDigits && digits < static_cast<int>(text.size()) &&
         std::isdigit(static_cast<unsigned char>(text[digits]))) {
    value = value * 10 + (text[digits] - '0');
    ++digits;
  }
  if (digits < minDigits) return false;
  text.remove_prefix(digits);
  return true;
}

bool ReadChar(std::string_view& text, char wanted) {
  if (text.empty() || text.front() != wanted) return false;
  text.remove_prefix(1);
  return true;
}

bool IsLeapYear(int year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }

bool IsValid(const DateTime& v) {
  static constexpr std::array<int, 12> kDays{31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  if (v.year < 100 || v.year > 9999 || v.month < 1 || v.month > 12 || v.day < 1) return false;
  int days = kDays[v.month - 1] + (v.month == 2 && IsLeapYear(v.year) ? 1 : 0);
  return v.day <= days && v.hour >= 0 && v.hour < 24 && v.minute >= 0 && v.minute < 60 && v.second >= 0 &&
         v.second < 60;
}

// "h:mm" or "h:mm:ss", hours and seconds of one or two digits.
bool ReadTime(std::string_view& text, DateTime& v) {
  if (!ReadNumber(text, 1, 2, v.hour) || !ReadChar(text, ':') || !ReadNumber(text, 1, 2, v.minute)) return false;
  if (ReadChar(text, ':') && !ReadNumber(text, 1, 2, v.second)) return false;
  return true;
}

// A two-digit year is read as Windows reads it: 30 to 99 in the 1900s.
int ExpandYear(int year, std::size_t digits) {
  if (digits > 2) return year;
  return year < 30 ? 2000 + year : 1900 + year;
}

std::optional<DateTime> Checked(const DateTime& v, std::string_view rest) {
  if (!TrimSpaces(rest).empty() || !IsValid(v)) return std::nullopt;
  return v;
}

// Three numbers of the given widths, zero-padded, with a separator between
// them. Written by hand: a log download formats a date per record, and
// printf costs more than the rest of the conversion.
std::string Joined(int a, int widthA, char separator, int b, int c, int widthC) {
  std::string text;
  auto append = [&text](int value, int width) {
    char digits[8];
    for (int i = width - 1; i >= 0; --i, value /= 10) digits[i] = static_cast<char>('0' + value % 10);
    text.append(digits, width);
  };
  append(a, widthA);
  text += separator;
  append(b, 2);
  text += separator;
  append(c, widthC);
  return text;
}

}  // namespace

std::string_view TrimSpaces(std::string_view text) {
  std::size_t first = text.find_first_not_of(' ');
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(' ') - first + 1);
}

std::string FormatItalianDate(const DateTime& v) {
  std::string time = Joined(v.hour, 2, ':', v.minute, v.second, 2);
  if (v.IsZeroDate()) return time;
  std::string date = Joined(v.day, 2, '/', v.month, v.year, 4);
  return v.IsMidnight() ? date : date + " " + time;
}

std::optional<DateTime> ParseItalianDate(std::string_view text) {
  text = TrimSpaces(text);
  DateTime v;
  std::string_view rest = text;
  if (ReadTime(rest, v) && TrimSpaces(rest).empty()) return Checked(v, rest);
  rest = text;
  v = DateTime{};
  if (!ReadNumber(rest, 1, 2, v.day) || !ReadChar(rest, '/') || !ReadNumber(rest, 1, 2, v.month) ||
      !ReadChar(rest, '/'))
    return std::nullopt;
  std::size_t before = rest.size();
  if (!ReadNumber(rest, 2, 4, v.year) || before - rest.size() == 3) return std::nullopt;
  v.year = ExpandYear(v.year, before - rest.size());
  std::string_view time = TrimSpaces(rest);
  if (!time.empty() && (time.size() == rest.size() || !ReadTime(time, v))) return std::nullopt;
  return Checked(v, time);
}

std::string FormatIsoDate(const DateTime& v) {
  std::string date = Joined(v.year, 4, '-', v.month, v.day, 2);
  return v.IsMidnight() ? date : date + ' ' + Joined(v.hour, 2, ':', v.minute, v.second, 2);
}

std::optional<DateTime> ParseIsoDate(std::string_view text) {
  DateTime v;
  std::string_view rest = text;
  if (ReadTime(rest, v) && rest.empty()) return Checked(v, rest);
  rest = text;
  v = DateTime{};
  if (!ReadNumber(rest, 4, 4, v.year) || !ReadChar(rest, '-') || !ReadNumber(rest, 2, 2, v.month) ||
      !ReadChar(rest, '-') || !ReadNumber(rest, 2, 2, v.day))
    return std::nullopt;
  if (ReadChar(rest, ' ') || ReadChar(rest, 'T')) {
    if (!ReadTime(rest, v)) return std::nullopt;
    // Fractions of a second have no place in the unit's form: dropped.
    if (ReadChar(rest, '.')) rest.remove_prefix(std::min(rest.find_first_not_of("0123456789"), rest.size()));
  }
  return Checked(v, rest);
}

int AdoTypeFromDeclared(std::string_view declared) {
  static constexpr std::pair<std::string_view, int> kTypes[] = {
      {"COUNTER", 3},   {"AUTOINCREMENT", 3}, {"LONG", 3},     {"INTEGER", 3},   {"INT", 3},
      {"SHORT", 2},     {"SMALLINT", 2},      {"BYTE", 17},    {"TINYINT", 17},  {"SINGLE", 4},
      {"REAL", 4},      {"DOUBLE", 5},        {"FLOAT", 5},    {"CURRENCY", 6},  {"MONEY", 6},
      {"DATETIME", 7},  {"DATE", 7},          {"TIME", 7},     {"TIMESTAMP", 7}, {"BIT", 11},
      {"YESNO", 11},    {"LOGICAL", 11},      {"BOOLEAN", 11}, {"TEXT", 202},    {"VARCHAR", 202},
      {"CHAR", 202},    {"NVARCHAR", 202},    {"MEMO", 203},   {"LONGTEXT", 203}, {"LONGCHAR", 203},
      {"NOTE", 203}};
  // The name is the first word, without a size in parentheses: "TEXT(50)".
  std::string name;
  for (char c : declared.substr(std::min(declared.find_first_not_of(' '), declared.size()))) {
    if (c == '(' || c == ' ') break;
    name += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  }
  for (auto [known, type] : kTypes)
    if (name == known) return type;
  return kAdoText;
}

}  // namespace camrelay::store
