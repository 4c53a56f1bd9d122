// A field's value as the database holds it, and its text on the wire.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <variant>

namespace camrelay::store {

// Null, a whole number, a real number, or UTF-8 text (blobs read as text).
using DbValue = std::variant<std::monostate, std::int64_t, double, std::string>;

// The marker that stands for a Null on the wire, both ways.
inline constexpr std::string_view kNullText = "{NULL}";

// The value as text in the database's own form: numbers in decimal (reals in
// their shortest exact form), text as it is; "" for Null.
std::string DbText(const DbValue& value);

// A text converted to a whole number as the system converts one: a decimal
// number (comma or point) rounded half to even, in 32 bits ("2,5" is 2,
// "2.6" is 3). Throws std::invalid_argument with a description otherwise.
std::int64_t ParseLong(std::string_view wire);

// The wire text (Windows-1252) of a field of the given transfer type:
// "{NULL}", dates in the Italian form, Booleans "Vero"/"Falso", reals (types
// 4, 5, 6) with a decimal comma, whole numbers in decimal, text converted
// from UTF-8.
std::string ToWireText(int adoType, const DbValue& value);

// The value to store for a wire text of the given type (compared as text):
// "3" a 4-byte integer, "4", "5", "6" a real with a decimal comma or point,
// "7" a date in the Italian form, "11" False only for "Falso", anything else
// the text itself. Throws std::invalid_argument with a
// description when the text is not of the type.
DbValue FromWireText(std::string_view type, std::string_view text);

}  // namespace camrelay::store
