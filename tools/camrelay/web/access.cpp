#include "web/access.h"

#include <boost/asio/ip/address.hpp>
#include <cctype>
#include <charconv>
#include <random>
#include <stdexcept>

namespace camrelay::web {

std::string MakeToken() {
  std::random_device entropy;  // the kernel's generator on the platforms built for
  static constexpr char kHex[] = "0123456789abcdef";
  std::string token;
  for (int i = 0; i < 8; ++i) {
    const unsigned int word = entropy();
    for (int shift = 28; shift >= 0; shift -= 4) token += kHex[(word >> shift) & 0xf];
  }
  return token;
}

bool SameToken(std::string_view given, std::string_view expected) {
  if (given.size() != expected.size() || expected.empty()) return false;
  unsigned char difference = 0;
  for (std::size_t i = 0; i < expected.size(); ++i)
    difference |= static_cast<unsigned char>(given[i] ^ expected[i]);
  return difference == 0;
}

std::string Target::Param(const std::string& name) const {
  const auto found = query.find(name);
  return found == query.end() ? std::string() : found->second;
}

std::optional<std::string> UrlDecode(std::string_view text) {
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '+') {
      out += ' ';
    } else if (text[i] == '%') {
      unsigned int value = 0;
      if (i + 2 >= text.size()) return std::nullopt;
      const auto [end, error] = std::from_chars(text.data() + i + 1, text.data() + i + 3, value, 16);
      if (error != std::errc() || end != text.data() + i + 3) return std::nullopt;
      out += static_cast<char>(value);
      i += 2;
    } else {
      out += text[i];
    }
  }
  return out;
}

std::optional<Target> ParseTarget(std::string_view target) {
  Target result;
  const auto mark = target.find('?');
  const auto path = UrlDecode(target.substr(0, mark));
  if (!path) return std::nullopt;
  result.path = *path;
  if (mark == std::string_view::npos) return result;
  std::string_view rest = target.substr(mark + 1);
  while (!rest.empty()) {
    const auto amp = rest.find('&');
    const std::string_view pair = rest.substr(0, amp);
    const auto equals = pair.find('=');
    const auto name = UrlDecode(pair.substr(0, equals));
    const auto value = UrlDecode(equals == std::string_view::npos ? "" : pair.substr(equals + 1));
    if (!name || !value) return std::nullopt;
    // A repeated name is suspicious rather than useful: the first one counts.
    result.query.emplace(*name, *value);
    if (amp == std::string_view::npos) break;
    rest.remove_prefix(amp + 1);
  }
  return result;
}

bool Authorised(const Target& target, std::string_view token) { return SameToken(target.Param("token"), token); }

ListenAddress ParseListen(const std::string& text) {
  if (text.empty()) return {"127.0.0.1", 0};
  const auto colon = text.rfind(':');
  if (colon == std::string::npos || colon == 0) throw std::invalid_argument("--listen: give ADDR:PORT, e.g. 127.0.0.1:8080");
  std::string host = text.substr(0, colon);
  if (host.front() == '[' && host.back() == ']') host = host.substr(1, host.size() - 2);
  const std::string portText = text.substr(colon + 1);
  unsigned int port = 0;
  const auto [end, error] = std::from_chars(portText.data(), portText.data() + portText.size(), port);
  if (portText.empty() || error != std::errc() || end != portText.data() + portText.size() || port > 65535)
    throw std::invalid_argument("--listen: '" + portText + "' is not a port from 0 to 65535");
  boost::system::error_code ec;
  boost::asio::ip::make_address(host, ec);
  if (ec) throw std::invalid_argument("--listen: '" + host + "' is not an IP address");
  return {host, static_cast<unsigned short>(port)};
}

bool IsLoopback(const std::string& host) {
  boost::system::error_code ec;
  const auto address = boost::asio::ip::make_address(host, ec);
  return !ec && address.is_loopback();
}

namespace {

// The unit's answers carry its own words where the code would be: one digit
// (the kind of code it took) ending the message, or "Reg Error". They stay.
bool IsUnitAcceptance(std::string_view field) {
  if (field.starts_with("Reg Error")) return true;
  if (field.empty() || !std::isdigit(static_cast<unsigned char>(field[0]))) return false;
  const std::string_view rest = field.substr(1);
  return rest.empty() || rest.starts_with("\r\n") || rest.starts_with("{}");
}

}  // namespace

std::string HideScrambledCodes(std::string text) {
  constexpr std::string_view kOpening = "AA{}";
  // A scrambled code is this long, and any byte value may be in it: a CR,
  // an LF or a separator inside it ends nothing. A plain code is shorter,
  // and the few bytes after it hidden with it are no loss.
  constexpr std::size_t kScrambledCodeLength = 25;
  for (auto at = text.find(kOpening); at != std::string::npos; at = text.find(kOpening, at + 1)) {
    // The code is the fourth field: after the third separator.
    std::size_t field = at;
    for (int separator = 0; separator < 3 && field != std::string::npos; ++separator)
      field = text.find("{}", field + 2);
    if (field == std::string::npos) break;
    field += 2;
    if (IsUnitAcceptance(std::string_view(text).substr(field))) continue;
    text.replace(field, std::min(kScrambledCodeLength, text.size() - field), "******");
  }
  return text;
}

}  // namespace camrelay::web
