#include "platform/windows/codepage.h"

#include <windows.h>

#include <stdexcept>

namespace camrelay::platform::windows {

std::wstring ToWide(std::string_view text, unsigned codePage) {
  if (text.empty()) return {};
  const int size = static_cast<int>(text.size());
  const int length = MultiByteToWideChar(codePage, 0, text.data(), size, nullptr, 0);
  if (length <= 0) throw std::runtime_error("text cannot be converted from code page " + std::to_string(codePage));
  std::wstring wide(static_cast<std::size_t>(length), L'\0');
  MultiByteToWideChar(codePage, 0, text.data(), size, wide.data(), length);
  return wide;
}

std::string FromWide(std::wstring_view text, unsigned codePage) {
  if (text.empty()) return {};
  const int size = static_cast<int>(text.size());
  // UTF-8 takes no default character: it can encode everything.
  const char* fallback = codePage == kUtf8 ? nullptr : "?";
  const int length = WideCharToMultiByte(codePage, 0, text.data(), size, nullptr, 0, fallback, nullptr);
  if (length <= 0) throw std::runtime_error("text cannot be converted to code page " + std::to_string(codePage));
  std::string bytes(static_cast<std::size_t>(length), '\0');
  WideCharToMultiByte(codePage, 0, text.data(), size, bytes.data(), length, fallback, nullptr);
  return bytes;
}

}  // namespace camrelay::platform::windows
