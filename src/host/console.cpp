#include "host/console.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "camrelay/enums.h"

namespace camrelay::host {

namespace {

constexpr int kBarWidth = 30;

// Diagnostic lines carry packets as they travel: scrambled codes and file
// bytes would drive a terminal mad, so control characters are shown as
// escapes. Line breaks stay, since reports span lines.
std::string Printable(const std::string& text) {
  std::string out;
  out.reserve(text.size());
  for (unsigned char c : text) {
    if (c == '\n' || c == '\t' || (c >= 0x20 && c != 0x7f)) {
      out += static_cast<char>(c);
    } else if (c == '\r') {
      out += "\\r";
    } else {
      char escape[8];
      std::snprintf(escape, sizeof escape, "\\x%02x", c);
      out += escape;
    }
  }
  return out;
}

}  // namespace

Console::Console(const OutputOptions& options)
    : options_(options), bars_(!options.quiet && isatty(STDERR_FILENO) == 1) {}

void Console::AddSecret(const std::string& secret) {
  if (!secret.empty()) secrets_.push_back(secret);
  // Longer secrets first, so that one containing another is hidden whole.
  std::sort(secrets_.begin(), secrets_.end(), [](const auto& a, const auto& b) { return a.size() > b.size(); });
}

std::string Console::Scrub(std::string text) const {
  for (const std::string& secret : secrets_) {
    for (auto at = text.find(secret); at != std::string::npos; at = text.find(secret, at + 6))
      text.replace(at, secret.size(), "******");
  }
  return text;
}

void Console::Capture(Captured* into, std::string label) {
  captured_ = into;
  label_ = std::move(label) + ": ";
  bars_ = false;
}

void Console::PrintLine(std::FILE* stream, const std::string& line) {
  EndProgress();
  std::fputs(line.c_str(), stream);
  std::fputc('\n', stream);
  std::fflush(stream);
}

void Console::State(int number) {
  if (!options_.events) return;
  PrintLine(stdout, "STATE " + std::to_string(number) + " " + std::string(StatoConnessioneName(number)));
}

void Console::Answer(const std::string& text) {
  if (captured_) return captured_->notes.push_back(Scrub(text));
  PrintLine(stdout, Scrub(text));
  if (onLine) onLine(Scrub(text));
}

void Console::Debug(const std::string& line) {
  if (options_.verbose) PrintLine(stderr, "debug: " + label_ + Printable(Scrub(line)));
}

void Console::Note(const std::string& line) {
  if (captured_) return captured_->notes.push_back(Scrub(line));
  PrintLine(stderr, Scrub(line));
  if (onLine) onLine(Scrub(line));
}

void Console::Error(const std::string& line) {
  if (captured_) return captured_->errors.push_back(Printable(Scrub(line)));
  PrintLine(stderr, "camrelay: " + Printable(Scrub(line)));
}

void Console::Progress(const std::string& label, double fraction) {
  if (!bars_) return;
  const int percent = static_cast<int>(std::clamp(fraction, 0.0, 1.0) * 100);
  if (percent == shownPercent_) return;
  shownPercent_ = percent;
  const int filled = percent * kBarWidth / 100;
  std::fprintf(stderr, "\r%s [%s%s] %3d%%", label.c_str(), std::string(filled, '#').c_str(),
               std::string(kBarWidth - filled, '.').c_str(), percent);
  std::fflush(stderr);
}

void Console::EndProgress() {
  if (shownPercent_ < 0) return;
  shownPercent_ = -1;
  std::fputs("\r\033[K", stderr);
  std::fflush(stderr);
}

}  // namespace camrelay::host
