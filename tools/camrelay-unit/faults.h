// Seeded fault injection: every decision comes from one generator, so a run
// with the same seed and the same traffic makes the same decisions.
#pragma once

#include <cstdint>
#include <random>
#include <string>

namespace camrelay::unit {

struct FaultSettings {
  std::uint32_t seed = 1;
  int lossPct = 0;     // messages lost, either way
  int dupPct = 0;      // indexed data packets sent twice
  int reorderPct = 0;  // indexed data packets sent after their successor
  int delayMs = 0;     // every message sent is held back 0..delayMs
  int busyPct = 0;     // requests answered "BS" first
  int busyDelayMs = 300;  // how long the real answer follows a "BS"
  int resetAfter = 0;  // TCP: reset the connection after this many packets
  int silentAfter = 0;  // fall silent for good after this many packets of a download
  // Not a fault but a unit slow to read one kind of data from its store:
  // each data packet of a download of this type is held back slowMs more.
  std::string slowType;
  int slowMs = 0;
  // Not a fault but another order a unit may use: the last element of a
  // "52" is answered "OK", and the "51" answer follows on its own.
  bool okBeforeAnswer = false;
  bool silent = false;  // every message received is ignored, on either transport
};

class Faults {
 public:
  explicit Faults(const FaultSettings& settings);

  const FaultSettings& settings() const { return settings_; }

  bool LoseIncoming() { return settings_.silent || fallenSilent_ || Chance(settings_.lossPct); }
  bool LoseOutgoing() { return Chance(settings_.lossPct); }
  bool Duplicate() { return Chance(settings_.dupPct); }
  bool Reorder() { return Chance(settings_.reorderPct); }
  bool Busy() { return Chance(settings_.busyPct); }
  int Delay();

  // Told how many data packets the transfer in progress has sent so far;
  // true exactly once in the unit's life: in the first transfer that reaches
  // the reset threshold.
  bool ResetNow(int sentInTransfer);
  // Told the same: from the threshold on, everything received is ignored.
  void NoteSent(int sentInTransfer);

 private:
  bool Chance(int pct);

  FaultSettings settings_;
  std::mt19937 rng_;
  bool resetDone_ = false;
  bool fallenSilent_ = false;
};

}  // namespace camrelay::unit
