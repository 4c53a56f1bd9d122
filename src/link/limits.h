// What the link holds for the peer at most. A unit's packets are tens of KiB
// and its largest transfers (a full programming, the voice messages) a few
// MiB, so a peer that goes past these is broken or hostile: its bytes are
// dropped or its transfer ended, never held.
#pragma once

#include <cstddef>

namespace camrelay::link {

// The largest message a TCP frame may announce, and the most text kept while
// a frame's header is still incomplete.
inline constexpr std::size_t kMaxFrameBytes = 4 * 1024 * 1024;

// The most packets an acceptance may announce: the download array is sized
// from the count before any packet arrives.
inline constexpr long long kMaxAnnouncedPackets = 1 << 20;

// The most bytes of packets one download may hold in memory. Multimedia files
// go to disk packet by packet and are not bounded by it.
inline constexpr std::size_t kMaxTransferBytes = 64 * 1024 * 1024;

// Datagrams from anyone but the unit are dropped; one report in this many
// says how many so far.
inline constexpr long kForeignDatagramReportEvery = 1000;

}  // namespace camrelay::link
