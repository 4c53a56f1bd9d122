#include "camrelay/status.h"

namespace camrelay {

const char* Describe(RequestOutcome outcome) {
  switch (outcome) {
    case RequestOutcome::None:
      return "nothing has ended yet";
    case RequestOutcome::Completed:
      return "completed";
    case RequestOutcome::CodeRefused:
      return "the unit refused the access code";
    case RequestOutcome::RetriesExhausted:
      return "the unit did not answer after every attempt";
    case RequestOutcome::LinkError:
      return "the connection to the unit failed";
    case RequestOutcome::Cancelled:
      return "cancelled";
    case RequestOutcome::UnitError:
      return "the unit could not do it";
    case RequestOutcome::NotSent:
      return "nothing was sent";
  }
  return "unknown";
}

}  // namespace camrelay
