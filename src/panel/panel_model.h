// The panel's model (camrelay/panel.h) and what the link does with it.
#pragma once

#include <string>

#include "camrelay/panel.h"

namespace camrelay::panel {

// Appends CR LF and a line to a log box, keeping only its most recent part so
// that a panel left open for days does not grow without bound.
void AppendLogLine(std::string& box, const std::string& line);

}  // namespace camrelay::panel
