#include "host/console.h"

#include <unistd.h>
#if __has_include(<sys/ioctl.h>)
#include <sys/ioctl.h>
#endif

#include <algorithm>
#include <cstdio>

#include "camrelay/enums.h"
#include "store/text.h"

namespace camrelay::host {

namespace {

constexpr int kBarWidth = 30;

// Diagnostic lines carry packets as they travel: scrambled codes and file
// bytes would drive a terminal mad, so control characters are shown as
// escapes. Line breaks stay, since reports span lines.
std::string Printable(const std::string& text) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    const unsigned char c = static_cast<unsigned char>(text[i]);
    // The C1 controls, U+0080 to U+009F in UTF-8, drive terminals as ESC does.
    if (c == 0xc2 && i + 1 < text.size() && static_cast<unsigned char>(text[i + 1]) < 0xa0 &&
        static_cast<unsigned char>(text[i + 1]) >= 0x80) {
      char escape[12];
      std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned char>(text[++i]));
      out += escape;
    } else if (c == '\n' || c == '\t' || (c >= 0x20 && c != 0x7f)) {
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

// An answer stays on its one line: a line break in it is shown as "\n".
std::string OneLine(const std::string& text) {
  std::string out;
  for (const char c : Printable(text)) out += c == '\n' ? std::string("\\n") : c == '\t' ? std::string("\\t") : std::string(1, c);
  return out;
}

}  // namespace

namespace {

// Where the continuation lines of a help line start.
std::size_t DescriptionColumn(const std::string& line) {
  const std::size_t text = line.find_first_not_of(' ');
  if (text == std::string::npos) return 0;
  const std::size_t gap = line.find("  ", text);
  if (gap == std::string::npos) return text;
  const std::size_t description = line.find_first_not_of(' ', gap);
  return description == std::string::npos ? text : description;
}

void WrapLine(const std::string& line, std::size_t width, std::string& out) {
  std::size_t indent = DescriptionColumn(line);
  // A description that starts too far right is continued under the name.
  if (indent + 20 > width) indent = std::min<std::size_t>(line.find_first_not_of(' ') + 4, width / 2);
  std::string rest = line;
  bool first = true;
  while (rest.size() > width) {
    const std::size_t from = first ? DescriptionColumn(line) : indent;
    std::size_t cut = rest.rfind(' ', width);
    if (cut == std::string::npos || cut <= from) cut = rest.find(' ', width);
    if (cut == std::string::npos) break;
    std::size_t end = cut;
    while (end > 0 && rest[end - 1] == ' ') --end;
    out += rest.substr(0, end) + "\n";
    const std::size_t next = rest.find_first_not_of(' ', cut);
    if (next == std::string::npos) {
      rest.clear();
      return;
    }
    rest = std::string(indent, ' ') + rest.substr(next);
    first = false;
  }
  out += rest + "\n";
}

}  // namespace

std::string WrapHelp(const std::string& text, std::size_t width) {
  if (width == 0) return text;
  std::string out;
  std::size_t start = 0;
  while (start < text.size()) {
    std::size_t end = text.find('\n', start);
    const bool last = end == std::string::npos;
    if (last) end = text.size();
    const std::string line = text.substr(start, end - start);
    if (line.size() <= width) {
      out += line + (last ? "" : "\n");
    } else {
      WrapLine(line, width, out);
      if (last) out.pop_back();
    }
    start = end + 1;
  }
  return out;
}

std::size_t HelpWidth() {
#ifdef TIOCGWINSZ
  winsize size{};
  if (isatty(STDOUT_FILENO) == 1 && ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col >= 20)
    return size.ws_col;
#endif
  return 0;
}

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

// An answer is the unit's own text, in its single-byte character set: shown
// in UTF-8, its control characters escaped.
void Console::Answer(const std::string& text) {
  const std::string shown = OneLine(store::Cp1252ToUtf8(Scrub(text)));
  if (captured_) return captured_->notes.push_back(shown);
  PrintLine(stdout, shown);
  if (onLine) onLine(Scrub(text));
}

void Console::Debug(const std::string& line) {
  if (options_.verbose) PrintLine(stderr, "debug: " + label_ + Printable(Scrub(line)));
}

void Console::Note(const std::string& line) {
  if (captured_) return captured_->notes.push_back(Printable(Scrub(line)));
  PrintLine(stderr, Printable(Scrub(line)));
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
