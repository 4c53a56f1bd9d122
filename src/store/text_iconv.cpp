// Text conversion between Windows-1252 and UTF-8 through the C library's iconv.
#include <iconv.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <stdexcept>

#include "store/text.h"

namespace camrelay::store {
namespace {

bool IsAscii(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

// Windows-1252 leaves five byte values without a character; Windows maps
// them to the control characters of the same number, and so do we, so that
// every byte goes to the database and back unchanged.
bool IsUnassignedCp1252(unsigned char byte) {
  return byte == 0x81 || byte == 0x8D || byte == 0x8F || byte == 0x90 || byte == 0x9D;
}

// Length of the (possibly broken) UTF-8 sequence at the start of text: its
// lead byte and the continuation bytes that follow, as many as the lead
// announces; 1 for a stray byte.
std::size_t Utf8SequenceLength(std::string_view text) {
  auto lead = static_cast<unsigned char>(text.front());
  std::size_t expected = lead >= 0xF8 ? 1 : lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : lead >= 0xC0 ? 2 : 1;
  std::size_t length = 1;
  while (length < expected && length < text.size() && (static_cast<unsigned char>(text[length]) & 0xC0) == 0x80)
    ++length;
  return length;
}

// One iconv descriptor per direction and thread, reused: opening one costs
// far more than converting a field.
class Converter {
 public:
  Converter(const char* to, const char* from) : cd_(iconv_open(to, from)) {
    if (cd_ == reinterpret_cast<iconv_t>(-1)) throw std::runtime_error("iconv has no Windows-1252 converter");
  }
  ~Converter() { iconv_close(cd_); }
  Converter(const Converter&) = delete;
  Converter& operator=(const Converter&) = delete;

  // Converts text; at a sequence iconv refuses, calls fallback(in, out),
  // which appends its own output and returns how many input bytes it used.
  template <class Fallback>
  std::string Run(std::string_view text, Fallback&& fallback) {
    std::string out;
    out.reserve(text.size() * 2);
    std::array<char, 512> chunk;
    char* in = const_cast<char*>(text.data());
    std::size_t inLeft = text.size();
    iconv(cd_, nullptr, nullptr, nullptr, nullptr);
    while (inLeft > 0) {
      char* dst = chunk.data();
      std::size_t dstLeft = chunk.size();
      std::size_t result = iconv(cd_, &in, &inLeft, &dst, &dstLeft);
      int error = errno;
      out.append(chunk.data(), dst);
      if (result != static_cast<std::size_t>(-1) || error == E2BIG) continue;
      std::size_t used = std::min(inLeft, fallback(std::string_view(in, inLeft), out));
      in += used;
      inLeft -= used;
    }
    return out;
  }

 private:
  iconv_t cd_;
};


}  // namespace

std::string Cp1252ToUtf8(std::string_view bytes) {
  if (IsAscii(bytes)) return std::string(bytes);
  thread_local Converter converter("UTF-8", "CP1252");
  return converter.Run(bytes, [](std::string_view rest, std::string& out) {
    auto byte = static_cast<unsigned char>(rest.front());
    if (IsUnassignedCp1252(byte)) {
      out += static_cast<char>(0xC2);
      out += static_cast<char>(byte);
    } else {
      out += '?';
    }
    return std::size_t{1};
  });
}

std::string Utf8ToCp1252(std::string_view utf8) {
  if (IsAscii(utf8)) return std::string(utf8);
  thread_local Converter converter("CP1252", "UTF-8");
  return converter.Run(utf8, [](std::string_view rest, std::string& out) {
    auto lead = static_cast<unsigned char>(rest.front());
    if (lead == 0xC2 && rest.size() > 1 && IsUnassignedCp1252(static_cast<unsigned char>(rest[1]))) {
      out += rest[1];
      return std::size_t{2};
    }
    out += '?';
    return Utf8SequenceLength(rest);
  });
}

}  // namespace camrelay::store
