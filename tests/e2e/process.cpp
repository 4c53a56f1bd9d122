#include "process.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <stdexcept>
#include <thread>

#include "temp_dir.h"

namespace camrelay::e2e {

Process::Process(const std::filesystem::path& program, const std::vector<std::string>& args,
                 const std::vector<std::string>& env, const std::filesystem::path& logs, const std::string& tag)
    : out_(logs / (tag + ".out")), err_(logs / (tag + ".err")) {
  // env(1) sets the variables, so that the test's own environment is passed
  // on as it is.
  std::vector<std::string> argv{"/usr/bin/env"};
  argv.insert(argv.end(), env.begin(), env.end());
  argv.push_back(program.string());
  argv.insert(argv.end(), args.begin(), args.end());
  std::vector<char*> pointers;
  for (auto& arg : argv) pointers.push_back(arg.data());
  pointers.push_back(nullptr);
  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, out_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  posix_spawn_file_actions_addopen(&files, STDERR_FILENO, err_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  const int failed = posix_spawn(&pid_, pointers[0], &files, nullptr, pointers.data(), environ);
  posix_spawn_file_actions_destroy(&files);
  if (failed) throw std::runtime_error("cannot start " + program.string());
}

Process::~Process() { Stop(); }

std::optional<int> Process::Wait(std::chrono::milliseconds timeout, const std::function<void()>& meanwhile) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  while (!reaped_) {
    // The high-water mark of the program's own memory, read while it runs:
    // once a child has ended, the kernel counts only the largest of all the
    // test's children.
    std::ifstream status("/proc/" + std::to_string(pid_) + "/status");
    for (std::string line; std::getline(status, line);)
      if (line.starts_with("VmHWM:")) peakRssKiB_ = std::max(peakRssKiB_, std::stol(line.substr(6)));
    if (meanwhile) meanwhile();
    int code = 0;
    if (waitpid(pid_, &code, WNOHANG) == pid_) {
      reaped_ = true;
      if (WIFEXITED(code)) status_ = WEXITSTATUS(code);
      break;
    }
    if (std::chrono::steady_clock::now() >= deadline) break;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return status_;
}

void Process::Stop() {
  if (reaped_) return;
  Signal(SIGTERM);
  if (!Wait(std::chrono::seconds(1)) && !reaped_) {
    Signal(SIGKILL);
    Wait(std::chrono::seconds(5));
  }
}

void Process::Signal(int number) {
  if (!reaped_ && pid_ > 0) kill(pid_, number);
}

std::string Process::Stdout() const { return test::ReadFileBytes(out_); }
std::string Process::Stderr() const { return test::ReadFileBytes(err_); }

}  // namespace camrelay::e2e
