// The unit's answers to command strings. A few status queries are answered
// from the unit's content; anything else is echoed, so a host can check that
// a string of any length and any bytes made the round trip.
#pragma once

#include <string>

#include "content.h"

namespace camrelay::unit {

inline constexpr const char* kUnitVersion = "camrelay-unit 1.0";

std::string AnswerCommand(const std::string& command, Content& content);

}  // namespace camrelay::unit
