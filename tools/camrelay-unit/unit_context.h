// What every peer's session shares: the unit's content, its codes, the
// fault generator of its transport and the log.
#pragma once

#include "content.h"
#include "faults.h"
#include "log.h"
#include "session.h"

namespace camrelay::unit {

struct UnitContext {
  Content& content;
  Codes& codes;
  Faults& faults;
  const Log& log;
};

}  // namespace camrelay::unit
