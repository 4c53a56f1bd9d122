// What the fuzz targets share. How they read their input: pieces separated by a three-byte
// token that real traffic practically never holds, so that a seed taken from
// an exchange with the simulated unit stays readable and the fuzzer can still
// cut, join and reorder its pieces.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <string_view>
#include <vector>

#include "common/debug_sink.h"

namespace camrelay::fuzz {

inline constexpr std::string_view kPieceSeparator = "\xff\xfe\xfd";

// At most `limit` pieces; the rest of the input is ignored, so that one input
// cannot make a run long.
inline std::vector<std::string> Pieces(std::string_view input, std::size_t limit = 256) {
  std::vector<std::string> pieces;
  while (pieces.size() < limit) {
    const auto at = input.find(kPieceSeparator);
    pieces.emplace_back(input.substr(0, at));
    if (at == std::string_view::npos) break;
    input.remove_prefix(at + kPieceSeparator.size());
  }
  return pieces;
}

// Runs one input: an exception that escapes is a finding, as the crash of a
// sanitizer or a broken invariant is.
template <class Body>
int RunInput(const std::uint8_t* data, std::size_t size, Body body) {
  try {
    body(std::string_view(reinterpret_cast<const char*>(data), size));
  } catch (const std::exception& e) {
    std::fprintf(stderr, "exception escaped: %s\n", e.what());
    std::abort();
  }
  return 0;
}

// An invariant of the code under test: broken, it is a finding.
inline void Require(bool condition, const char* what) {
  if (condition) return;
  std::fprintf(stderr, "invariant broken: %s\n", what);
  std::abort();
}

// The targets judge by invariants, not by the lines reported on the way.
class QuietSink : public DebugSink {
 public:
  void CreateEventOnDebug(const std::string&) override {}
};

}  // namespace camrelay::fuzz
