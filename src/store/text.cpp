#include "store/text.h"

#include <iconv.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <stdexcept>
#include <utility>

namespace camrelay::store {
namespace {

bool IsAscii(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

// Windows-1252 leaves five byte values without a character; Windows maps
// them to the control characters of the same number, and so do we, so that
// every byte goes to the database and back unchanged.
bool IsUnassignedCp1252(unsigned char byte) {
  return byte == 0x81 || byte == 0x8D || byte == 0x8F || byte == 0x90 || byte == 0x9D;
}

// Length of the (possibly broken) UTF-8 sequence at the start of text: its
// lead byte and the continuation bytes that follow, as many as the lead
// announces; 1 for a stray byte.
std::size_t Utf8SequenceLength(std::string_view text) {
  auto lead = static_cast<unsigned char>(text.front());
  std::size_t expected = lead >= 0xF8 ? 1 : lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : lead >= 0xC0 ? 2 : 1;
  std::size_t length = 1;
  while (length < expected && length < text.size() && (static_cast<unsigned char>(text[length]) & 0xC0) == 0x80)
    ++length;
  return length;
}

// One iconv descriptor per direction and thread, reused: opening one costs
// far more than converting a field.
class Converter {
 public:
  Converter(const char* to, const char* from) : cd_(iconv_open(to, from)) {
    if (cd_ == reinterpret_cast<iconv_t>(-1)) throw std::runtime_error("iconv has no Windows-1252 converter");
  }
  ~Converter() { iconv_close(cd_); }
  Converter(const Converter&) = delete;
  Converter& operator=(const Converter&) = delete;

  // Converts text; at a sequence iconv refuses, calls fallback(in, out),
  // which appends its own output and returns how many input bytes it used.
  template <class Fallback>
  std::string Run(std::string_view text, Fallback&& fallback) {
    std::string out;
    out.reserve(text.size() * 2);
    std::array<char, 512> chunk;
    char* in = const_cast<char*>(text.data());
    std::size_t inLeft = text.size();
    iconv(cd_, nullptr, nullptr, nullptr, nullptr);
    while (inLeft > 0) {
      char* dst = chunk.data();
      std::size_t dstLeft = chunk.size();
      std::size_t result = iconv(cd_, &in, &inLeft, &dst, &dstLeft);
      int error = errno;
      out.append(chunk.data(), dst);
      if (result != static_cast<std::size_t>(-1) || error == E2BIG) continue;
      std::size_t used = std::min(inLeft, fallback(std::string_view(in, inLeft), out));
      in += used;
      inLeft -= used;
    }
    return out;
  }

 private:
  iconv_t cd_;
};

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

std::string Cp1252ToUtf8(std::string_view bytes) {
  if (IsAscii(bytes)) return std::string(bytes);
  thread_local Converter converter("UTF-8", "CP1252");
  return converter.Run(bytes, [](std::string_view rest, std::string& out) {
    auto byte = static_cast<unsigned char>(rest.front());
    if (IsUnassignedCp1252(byte)) {
      out += static_cast<char>(0xC2);
      out += static_cast<char>(byte);
    } else {
      out += '?';
    }
    return std::size_t{1};
  });
}

std::string Utf8ToCp1252(std::string_view utf8) {
  if (IsAscii(utf8)) return std::string(utf8);
  thread_local Converter converter("CP1252", "UTF-8");
  return converter.Run(utf8, [](std::string_view rest, std::string& out) {
    auto lead = static_cast<unsigned char>(rest.front());
    if (lead == 0xC2 && rest.size() > 1 && IsUnassignedCp1252(static_cast<unsigned char>(rest[1]))) {
      out += rest[1];
      return std::size_t{2};
    }
    out += '?';
    return Utf8SequenceLength(rest);
  });
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
