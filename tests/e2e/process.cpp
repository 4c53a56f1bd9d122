#include "process.h"

#include <fcntl.h>
#include <signal.h>
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
  // env(1) sets the variables, so that the child has only to exec: between
  // fork and exec a threaded test may not allocate.
  std::vector<std::string> argv{"/usr/bin/env"};
  argv.insert(argv.end(), env.begin(), env.end());
  argv.push_back(program.string());
  argv.insert(argv.end(), args.begin(), args.end());
  std::vector<char*> pointers;
  for (auto& arg : argv) pointers.push_back(arg.data());
  pointers.push_back(nullptr);
  const std::string out = out_.string(), err = err_.string();
  pid_ = fork();
  if (pid_ < 0) throw std::runtime_error("fork failed");
  if (pid_ == 0) {
    const int outFd = open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    const int errFd = open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (outFd < 0 || errFd < 0) _exit(127);
    dup2(outFd, STDOUT_FILENO);
    dup2(errFd, STDERR_FILENO);
    execv(pointers[0], pointers.data());
    _exit(127);
  }
}

Process::~Process() { Stop(); }

std::optional<int> Process::Wait(std::chrono::milliseconds timeout, const std::function<void()>& meanwhile) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  while (!reaped_) {
    // The high-water mark of the program's own memory. The kernel's count
    // for a child that has ended would include the copy of the test's memory
    // that fork made before exec, so it is read from the running program.
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
