// What the fleet benchmarks share: starting the programs, and one
// camrelay-unit process playing many units.
#pragma once

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace bench {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

// Hundreds of units mean hundreds of sockets: take every descriptor the
// system allows this process.
inline void RaiseDescriptorLimit() {
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
}

inline fs::path Program(const std::string& name) { return fs::path(CAMRELAY_BINARY_DIR) / "tools" / name; }

inline std::string Slurp(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

inline pid_t Spawn(const fs::path& program, const std::vector<std::string>& args, const fs::path& out) {
  const pid_t pid = fork();
  if (pid != 0) return pid;
  const int fd = open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  dup2(fd, 1);
  const int null = open("/dev/null", O_WRONLY);
  dup2(null, 2);
  std::vector<char*> argv{const_cast<char*>(program.c_str())};
  for (const auto& a : args) argv.push_back(const_cast<char*>(a.c_str()));
  argv.push_back(nullptr);
  execv(program.c_str(), argv.data());
  _exit(127);
}

struct Ports {
  int udp = 0, tcp = 0;
};

// camrelay-unit playing `count` units; stopped with the object.
class Units {
 public:
  Units(const fs::path& dir, int count) : out_(dir / "units.out") {
    pid_ = Spawn(Program("camrelay-unit"),
                 {"--dir", (dir / "units").string(), "--udp", "--tcp", "--port", "0", "--units", std::to_string(count),
                  "--exit-after", "3600", "-q"},
                 out_);
    std::string text;
    for (const auto deadline = std::chrono::steady_clock::now() + 600s;
         std::count(text.begin(), text.end(), '\n') < 2 * count; std::this_thread::sleep_for(100ms)) {
      if (std::chrono::steady_clock::now() > deadline) throw std::runtime_error("the units did not start");
      text = Slurp(out_);
    }
    std::istringstream lines(text);
    std::string word, unit, number, listening, on, transport, where;
    while (lines >> word >> unit >> number >> listening >> on >> transport >> where) {
      const int port = std::stoi(where.substr(where.rfind(':') + 1));
      (transport == "udp" ? ports_[std::stoi(number)].udp : ports_[std::stoi(number)].tcp) = port;
    }
  }
  ~Units() {
    kill(pid_, SIGTERM);
    waitpid(pid_, nullptr, 0);
  }
  const Ports& operator[](int number) const { return ports_.at(number); }
  // CPU seconds the units' process has used so far.
  double CpuSeconds() const {
    std::ifstream stat("/proc/" + std::to_string(pid_) + "/stat");
    std::string text((std::istreambuf_iterator<char>(stat)), std::istreambuf_iterator<char>());
    std::istringstream fields(text.substr(text.rfind(')') + 2));
    std::string field;
    long ticks = 0;
    for (int k = 3; k <= 15 && fields >> field; ++k)
      if (k == 14 || k == 15) ticks += std::stol(field);
    return double(ticks) / sysconf(_SC_CLK_TCK);
  }

 private:
  fs::path out_;
  pid_t pid_;
  std::map<int, Ports> ports_;
};

}  // namespace bench
