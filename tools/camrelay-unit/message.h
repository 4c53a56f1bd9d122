// Reading the fields of the messages the component sends.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace camrelay::unit {

// The text before the next separator, which is consumed with it; the whole
// text when no separator follows.
std::string_view TakeField(std::string_view& text);
// A field made only of decimal digits; nullopt otherwise.
std::optional<long long> ParseNumber(std::string_view field);

// "AA{}count{}type{}code", then whatever the request adds ("{}" + argument,
// or the first chunk of a command on TCP).
struct Opening {
  int count = 0;
  std::string tipo;
  std::string code;
  std::string rest;  // empty, or beginning with the separator
};
std::optional<Opening> ParseOpening(std::string_view message);

// "13{}type{}n{}" + text: a silence probe when the text is empty, else the
// resend of element n of an upload.
struct Probe {
  std::string tipo;
  int count = 0;
  std::string rest;
};
std::optional<Probe> ParseProbe(std::string_view message);

// The text an element carries: without its leading separator and the line
// break that closes it.
std::string ChunkText(std::string_view element);

}  // namespace camrelay::unit
