#include "frames.h"

#include <algorithm>

#include "protocol.h"

namespace camrelay::unit {

std::string Frame(std::string_view message) {
  return std::string(kFrameMarker) + std::to_string(message.size()) + std::string(kSep) + std::string(message);
}

namespace {

// The decimal value of the digits at the start of the text; a field that is
// not a number reads as 0, as the component reads it.
std::size_t LengthField(std::string_view text) {
  std::size_t value = 0;
  for (char c : text) {
    if (c < '0' || c > '9') break;
    value = value * 10 + static_cast<std::size_t>(c - '0');
    if (value > FrameReader::kMaxPending) return value;
  }
  return value;
}

}  // namespace

std::vector<std::string> FrameReader::Feed(std::string_view bytes) {
  pending_.append(bytes);
  std::vector<std::string> messages;
  for (;;) {
    const auto marker = pending_.find(kFrameMarker);
    if (marker == std::string::npos) {
      // Keep a tail that may be the start of a marker split over reads.
      const std::size_t keep = std::min(pending_.size(), kFrameMarker.size() - 1);
      pending_.erase(0, pending_.size() - keep);
      break;
    }
    pending_.erase(0, marker);
    const std::size_t lengthStart = kFrameMarker.size();
    const auto sep = pending_.find(kSep, lengthStart);
    if (sep == std::string::npos) break;
    const std::size_t length = LengthField(std::string_view(pending_).substr(lengthStart, sep - lengthStart));
    if (length > kMaxPending) {
      pending_.clear();
      ++dropped_;
      break;
    }
    const std::size_t body = sep + kSep.size();
    if (pending_.size() - body < length) break;
    messages.push_back(pending_.substr(body, length));
    pending_.erase(0, body + length);
  }
  if (pending_.size() > kMaxPending + 64) {
    pending_.clear();
    ++dropped_;
  }
  return messages;
}

}  // namespace camrelay::unit
