// Everything the program prints goes through here, so that no access code
// ever reaches the screen and the progress bar never garbles another line.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include "cli.h"

namespace camrelay::cli {

class Console {
 public:
  explicit Console(const OutputOptions& options);

  // A text never to be printed: every occurrence becomes "******".
  void AddSecret(const std::string& secret);
  std::string Scrub(std::string text) const;

  // Standard output.
  void State(int number);                  // only with --events
  void Answer(const std::string& text);    // a line the user asked for
  // Standard error.
  void Debug(const std::string& line);     // only with -v
  void Note(const std::string& line);      // what a command did
  void Error(const std::string& line);     // "camrelay: <line>"
  // A bar on standard error, only on a terminal and without -q.
  void Progress(const std::string& label, double fraction);
  void EndProgress();

 private:
  void PrintLine(std::FILE* stream, const std::string& line);

  OutputOptions options_;
  bool bars_;
  int shownPercent_ = -1;
  std::vector<std::string> secrets_;
};

}  // namespace camrelay::cli
