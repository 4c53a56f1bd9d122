// Conversions between the unit's text and the database's: the character set,
// the Italian date form, and the transfer type of a column.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace camrelay::store {

// The unit speaks Windows-1252, one byte per character; the database holds
// UTF-8. Every byte 0..255 survives Cp1252ToUtf8 then Utf8ToCp1252; a
// character that Windows-1252 cannot show leaves UTF-8 as "?".
std::string Cp1252ToUtf8(std::string_view bytes);
std::string Utf8ToCp1252(std::string_view utf8);

// A calendar date and a time of day, without a time zone.
struct DateTime {
  int year = 1899, month = 12, day = 30;  // the zero date
  int hour = 0, minute = 0, second = 0;
  bool operator==(const DateTime&) const = default;
  bool IsZeroDate() const { return year == 1899 && month == 12 && day == 30; }
  bool IsMidnight() const { return hour == 0 && minute == 0 && second == 0; }
};

// The Italian desktop form: "dd/mm/yyyy hh:mm:ss", the date alone at
// midnight, the time alone on the zero date 30/12/1899.
std::string FormatItalianDate(const DateTime& value);
// Reads that form back, also with a one-digit day, month or hour, a two-digit
// year, no seconds or no time at all; nullopt when the text is not a date.
std::optional<DateTime> ParseItalianDate(std::string_view text);

// The database's form, which sorts in time order: "yyyy-mm-dd", with
// " hh:mm:ss" unless the time is midnight.
std::string FormatIsoDate(const DateTime& value);
// Reads "yyyy-mm-dd", "yyyy-mm-dd hh:mm[:ss[.fff]]" (or with "T"), or a
// time alone on the zero date.
std::optional<DateTime> ParseIsoDate(std::string_view text);

// The transfer type number of a column from its declared type, read with the
// desktop-database DDL names (LONG 3, DATETIME 7, BIT 11, TEXT(n) 202, ...).
// A type it does not know travels as text: 202.
int AdoTypeFromDeclared(std::string_view declared);

// The ADO type numbers that the store treats apart.
inline constexpr int kAdoInteger = 3;
inline constexpr int kAdoSingle = 4;
inline constexpr int kAdoDouble = 5;
inline constexpr int kAdoCurrency = 6;
inline constexpr int kAdoDate = 7;
inline constexpr int kAdoBoolean = 11;
inline constexpr int kAdoText = 202;

// Text without the spaces at either end (tabs and other blanks are kept).
std::string_view TrimSpaces(std::string_view text);

}  // namespace camrelay::store
