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

extern char** environ;

namespace camrelay::e2e {

namespace {

using Clock = std::chrono::steady_clock;
constexpr std::chrono::milliseconds kStep{10};

// The test's environment with the given entries put in place of those of
// the same name; built before fork, so the child only has to exec.
std::vector<std::string> MergedEnvironment(const std::vector<std::string>& overrides) {
  std::vector<std::string> merged = overrides;
  for (char** entry = environ; *entry; ++entry) {
    const std::string text = *entry;
    const std::string name = text.substr(0, text.find('=') + 1);
    bool replaced = false;
    for (const auto& o : overrides) replaced = replaced || o.starts_with(name);
    if (!replaced) merged.push_back(text);
  }
  return merged;
}

std::vector<char*> Pointers(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  for (auto& t : texts) pointers.push_back(t.data());
  pointers.push_back(nullptr);
  return pointers;
}

}  // namespace

Process::Process(const std::filesystem::path& program, const std::vector<std::string>& args,
                 const std::vector<std::string>& env, const std::filesystem::path& logs, const std::string& tag)
    : out_(logs / (tag + ".out")), err_(logs / (tag + ".err")) {
  std::vector<std::string> argv{program.string()};
  argv.insert(argv.end(), args.begin(), args.end());
  std::vector<std::string> envp = MergedEnvironment(env);
  auto argPointers = Pointers(argv);
  auto envPointers = Pointers(envp);
  const std::string out = out_.string(), err = err_.string();
  pid_ = fork();
  if (pid_ < 0) throw std::runtime_error("fork failed");
  if (pid_ == 0) {
    const int outFd = open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    const int errFd = open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (outFd < 0 || errFd < 0) _exit(127);
    dup2(outFd, STDOUT_FILENO);
    dup2(errFd, STDERR_FILENO);
    execve(argPointers[0], argPointers.data(), envPointers.data());
    _exit(127);
  }
}

Process::~Process() { Stop(); }

std::optional<int> Process::Wait(std::chrono::milliseconds timeout, const std::function<void()>& meanwhile) {
  const auto deadline = Clock::now() + timeout;
  while (!reaped_) {
    SamplePeakRss();
    if (meanwhile) meanwhile();
    int status = 0;
    if (waitpid(pid_, &status, WNOHANG) == pid_) {
      reaped_ = true;
      if (WIFEXITED(status)) status_ = WEXITSTATUS(status);
      break;
    }
    if (Clock::now() >= deadline) break;
    std::this_thread::sleep_for(kStep);
  }
  return status_;
}

std::string Process::WaitFirstLine(std::chrono::milliseconds timeout) {
  const auto deadline = Clock::now() + timeout;
  do {
    const std::string out = Stdout();
    if (const auto end = out.find('\n'); end != std::string::npos) return out.substr(0, end);
    std::this_thread::sleep_for(kStep);
  } while (Clock::now() < deadline && !Wait(std::chrono::milliseconds(0)));
  return {};
}

void Process::Stop() {
  if (reaped_ || pid_ <= 0) return;
  kill(pid_, SIGTERM);
  if (!Wait(std::chrono::seconds(1)) && !reaped_) {
    kill(pid_, SIGKILL);
    Wait(std::chrono::seconds(5));
  }
}

// The high-water mark of the program's own memory. The kernel's count for a
// child that has ended would include the copy of the test's memory that fork
// made before exec, so it is read from the running program instead.
void Process::SamplePeakRss() {
  std::ifstream status("/proc/" + std::to_string(pid_) + "/status");
  for (std::string line; std::getline(status, line);)
    if (line.starts_with("VmHWM:")) peakRssKiB_ = std::max(peakRssKiB_, std::stol(line.substr(6)));
}

void Process::Signal(int number) {
  if (!reaped_ && pid_ > 0) kill(pid_, number);
}

void Process::Kill() {
  if (reaped_ || pid_ <= 0) return;
  kill(pid_, SIGKILL);
  Wait(std::chrono::seconds(5));
}

std::string Process::Stdout() const { return test::ReadFileBytes(out_); }
std::string Process::Stderr() const { return test::ReadFileBytes(err_); }

}  // namespace camrelay::e2e
