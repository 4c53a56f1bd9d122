// The TCP frame: "LN{}" + decimal length + "{}" + message, frames back to back.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace camrelay::unit {

std::string Frame(std::string_view message);

// Cuts a byte stream into messages. Bytes before a frame marker are garbage
// and dropped; a frame split over reads waits for its last byte.
class FrameReader {
 public:
  // A peer that never completes a frame must not make the unit hoard memory.
  static constexpr std::size_t kMaxPending = 4u << 20;

  // Appends bytes and returns every message completed by them, in order.
  std::vector<std::string> Feed(std::string_view bytes);
  // How many times an oversized or endless frame made the reader drop what
  // it held.
  int Dropped() const { return dropped_; }

 private:
  std::string pending_;
  int dropped_ = 0;
};

}  // namespace camrelay::unit
