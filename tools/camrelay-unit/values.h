// A field's value as the unit's database holds it and as it travels in a
// record line. The database holds UTF-8 text, whole numbers, reals, dates as
// ISO text ("2025-06-12 08:15:30") and Booleans as 0 and 1; the wire carries
// Windows-1252 text, Italian dates and Booleans, and reals with a decimal
// comma.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <variant>

namespace camrelay::unit {

// Null, a whole number, a real, or text.
using Value = std::variant<std::monostate, std::int64_t, double, std::string>;

// What a Null is written as in a record line.
inline constexpr std::string_view kNullText = "{NULL}";

// The ADO type number that travels with a column's values, from the type the
// schema declares for it: LONG 3, SHORT 2, BYTE 17, SINGLE 4, DOUBLE 5,
// CURRENCY 6, DATETIME 7, BIT 11, TEXT(n) 202, LONGTEXT 203; text (202) for
// a name it does not know.
int AdoType(std::string_view declared);

// Every byte 0..255 goes to UTF-8 and back unchanged, the five bytes
// Windows-1252 leaves unassigned included; a character Windows-1252 cannot
// show goes out as "?".
std::string Cp1252ToUtf8(std::string_view bytes);
std::string Utf8ToCp1252(std::string_view utf8);

// The ISO text of a moment, the date alone at midnight: the form the
// database holds dates in.
std::string IsoDate(int year, int month, int day, int hour = 0, int minute = 0, int second = 0);

// The text of a value in a record line, for a column of that type.
std::string WireText(int adoType, const Value& value);

// The value to store for a record line's text and type (the type compared
// as text): "3" a whole number, "4" "5" "6" a real, "7" an Italian date,
// "11" False only for "Falso", anything else the text. Throws
// std::invalid_argument, saying why, for a text that is not of its type.
Value StoredValue(std::string_view type, std::string_view text);

}  // namespace camrelay::unit
