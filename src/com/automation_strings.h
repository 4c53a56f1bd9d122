// Strings between automation (BSTR, VARIANT) and the library (bytes in
// Windows-1252, the unit's character set).
#pragma once

#include <oaidl.h>

#include <optional>
#include <string>

namespace camrelay::com {

std::string FromBstr(BSTR text);
// A new BSTR the caller owns.
BSTR ToBstr(const std::string& text);
// The argument as text, or nothing when the caller left it out.
std::optional<std::string> OptionalText(const VARIANT* argument);

}  // namespace camrelay::com
