// Who may use the console's server and what it may see: the token that
// every request carries, the address it listens on, the parts of a request
// target it reads, and the codes kept from the page.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace camrelay::web {

// 32 random bytes as 64 hex digits.
std::string MakeToken();

// Compares in a time that does not depend on where the two first differ.
bool SameToken(std::string_view given, std::string_view expected);

// A request target split into its path and its decoded query parameters.
struct Target {
  std::string path;
  std::map<std::string, std::string> query;
  std::string Param(const std::string& name) const;
};

// Percent-decoding, with '+' as a blank; nullopt for a malformed escape.
std::optional<std::string> UrlDecode(std::string_view text);
std::optional<Target> ParseTarget(std::string_view target);
// Whether the target carries the token, as ?token=... .
bool Authorised(const Target& target, std::string_view token);

struct ListenAddress {
  std::string host;
  unsigned short port = 0;
};

// "ADDR:PORT" ("[v6]:PORT" for IPv6); "" means 127.0.0.1 on a free port.
// Throws std::invalid_argument with a one-line reason.
ListenAddress ParseListen(const std::string& text);
bool IsLoopback(const std::string& host);

// The opening message of every exchange ("AA{}n{}type{}code") carries the
// access code scrambled, which the unit can undo and so can anyone: the
// code field becomes "******", whatever bytes it holds. Plain codes are
// hidden where every secret is.
std::string HideScrambledCodes(std::string text);

}  // namespace camrelay::web
