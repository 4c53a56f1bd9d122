// Text conversion between Windows-1252 and UTF-8 through Windows' code pages.
// Windows maps the five byte values Windows-1252 leaves unassigned to the
// control characters of the same number, both ways, so every byte survives a
// round trip through the database; a sequence that is not UTF-8 arrives as
// U+FFFD and leaves as "?".
#include "platform/windows/codepage.h"
#include "store/text.h"

namespace camrelay::store {

std::string Cp1252ToUtf8(std::string_view bytes) {
  using namespace platform::windows;
  return FromWide(ToWide(bytes, kCp1252), kUtf8);
}

std::string Utf8ToCp1252(std::string_view utf8) {
  using namespace platform::windows;
  return FromWide(ToWide(utf8, kUtf8), kCp1252);
}

}  // namespace camrelay::store
