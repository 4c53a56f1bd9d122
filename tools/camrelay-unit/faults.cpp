#include "faults.h"

namespace camrelay::unit {

Faults::Faults(const FaultSettings& settings) : settings_(settings), rng_(settings.seed) {}

// The generator is drawn only when a fault is enabled, so turning one fault
// on does not change the decisions of a run that never uses it.
bool Faults::Chance(int pct) {
  if (pct <= 0) return false;
  return static_cast<int>(rng_() % 100u) < pct;
}

int Faults::Delay() {
  if (settings_.delayMs <= 0) return 0;
  return static_cast<int>(rng_() % static_cast<std::uint32_t>(settings_.delayMs + 1));
}

bool Faults::ResetNow(int sentInTransfer) {
  if (settings_.resetAfter <= 0 || resetDone_ || sentInTransfer < settings_.resetAfter) return false;
  resetDone_ = true;
  return true;
}

void Faults::NoteSent(int sentInTransfer) {
  if (settings_.silentAfter > 0 && sentInTransfer >= settings_.silentAfter) fallenSilent_ = true;
}

}  // namespace camrelay::unit
