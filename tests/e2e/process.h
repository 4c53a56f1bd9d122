// A child process for the end-to-end tests: started with its own
// environment, its standard output and error written to files, waited for
// with a bound, and ended when the test lets go of it.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace camrelay::e2e {

class Process {
 public:
  // env: "NAME=value" entries that replace or add to the test's own
  // environment. The output goes to <logs>/<tag>.out and <tag>.err.
  Process(const std::filesystem::path& program, const std::vector<std::string>& args,
          const std::vector<std::string>& env, const std::filesystem::path& logs, const std::string& tag);
  ~Process();
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  // The exit status once the process has ended within the time given;
  // nullopt if it is still running (or was killed by a signal). `meanwhile`
  // is called every 10 ms while it runs.
  std::optional<int> Wait(std::chrono::milliseconds timeout, const std::function<void()>& meanwhile = {});
  // SIGTERM, then SIGKILL if it does not end within a second.
  void Stop();
  // SIGKILL as a crash or a power cut, SIGINT as Ctrl-C, SIGSTOP and SIGCONT
  // as a machine that hangs for a while and goes on.
  void Signal(int number);

  // The most memory it held at once, in KiB, as last seen while waiting for
  // it (every 10 ms).
  long PeakRssKiB() const { return peakRssKiB_; }

  std::string Stdout() const;
  std::string Stderr() const;

 private:
  pid_t pid_ = -1;
  bool reaped_ = false;
  std::optional<int> status_;
  long peakRssKiB_ = 0;
  std::filesystem::path out_, err_;
};

}  // namespace camrelay::e2e
