// Everything the program prints goes through here, so that no access code
// ever reaches the screen and the progress bar never garbles another line.
#pragma once

#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "host/commands.h"

namespace camrelay::host {

// What a console keeps instead of printing it (see Console::Capture).
struct Captured {
  std::vector<std::string> notes;   // answers and notes
  std::vector<std::string> errors;  // without the program's prefix
};

// Help text wrapped to `width` columns: a line too long is broken between
// words, and its continuation lines start under the column of its
// description (the text after the first run of two or more blanks), so that
// option lists stay lists. Width 0 leaves the text as it is.
std::string WrapHelp(const std::string& text, std::size_t width);

// The width of the terminal on standard output; 0 when it is no terminal
// (a pipe, a file: the text is left unwrapped there).
std::size_t HelpWidth();

class Console {
 public:
  explicit Console(const OutputOptions& options);

  // From now on answers, notes and errors go into `into` instead of the
  // screen, and there is no progress bar; diagnostic lines (-v) are still
  // printed, labelled. A fleet prints each unit's outcome on a line of its own.
  void Capture(Captured* into, std::string label);

  // A text never to be printed: every occurrence becomes "******".
  void AddSecret(const std::string& secret);
  std::string Scrub(std::string text) const;

  // Standard output.
  void State(int number);                  // only with --events
  // A line the user asked for, in the unit's text (Windows-1252): printed
  // and captured in UTF-8 with control characters escaped; onLine gets it
  // as the unit sent it.
  void Answer(const std::string& text);
  // Standard error.
  void Debug(const std::string& line);     // only with -v
  void Note(const std::string& line);      // what a command did
  void Error(const std::string& line);     // "camrelay: <line>"
  // A bar on standard error, only on a terminal and without -q.
  void Progress(const std::string& label, double fraction);
  void EndProgress();

  // Also given every answer and note, scrubbed, for a face that shows them
  // elsewhere (the console's page).
  std::function<void(const std::string& line)> onLine;

 private:
  void PrintLine(std::FILE* stream, const std::string& line);

  OutputOptions options_;
  bool bars_;
  int shownPercent_ = -1;
  std::vector<std::string> secrets_;
  Captured* captured_ = nullptr;
  std::string label_;
};

}  // namespace camrelay::host
