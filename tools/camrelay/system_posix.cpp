#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <stdexcept>

#include "system.h"

extern char** environ;

namespace camrelay::cli {

const char* const kSettingsStoreHelp = "${XDG_CONFIG_HOME:-~/.config}/CamRelay/settings.ini";
const char* const kSettingsEnvironmentHelp =
    "  XDG_CONFIG_HOME             The folder that holds CamRelay/settings.ini (default: ~/.config)\n";

bool OpenInBrowser(const std::string& url) {
  // The helper's own complaints would bury the address: its verdict is
  // enough.
  posix_spawn_file_actions_t quiet;
  posix_spawn_file_actions_init(&quiet);
  posix_spawn_file_actions_addopen(&quiet, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&quiet, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  pid_t pid = 0;
  const char* argv[] = {"xdg-open", url.c_str(), nullptr};
  const bool started = posix_spawnp(&pid, "xdg-open", &quiet, nullptr, const_cast<char* const*>(argv), environ) == 0;
  posix_spawn_file_actions_destroy(&quiet);
  int status = 0;
  // xdg-open hands the address to the browser and ends.
  return started && waitpid(pid, &status, 0) == pid && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

std::filesystem::path MakePrivateFolder(const std::string& prefix) {
  std::string pattern = (std::filesystem::temp_directory_path() / (prefix + "XXXXXX")).string();
  if (!mkdtemp(pattern.data())) throw std::runtime_error("cannot make a folder in " + pattern);
  return pattern;
}

std::optional<std::string> ReadRegularFile(const std::filesystem::path& path) {
  std::error_code ec;
  if (!std::filesystem::is_regular_file(std::filesystem::symlink_status(path, ec))) return std::nullopt;
  const int fd = ::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0) return std::nullopt;
  std::string bytes;
  char chunk[65536];
  ssize_t got = 0;
  while ((got = ::read(fd, chunk, sizeof chunk)) > 0) bytes.append(chunk, static_cast<std::size_t>(got));
  ::close(fd);
  if (got < 0) return std::nullopt;
  return bytes;
}

std::string MachineAndProcess() {
  char host[256] = {};
  gethostname(host, sizeof host - 1);
  return std::string(host) + ":" + std::to_string(getpid());
}

// Each link holds a socket and a database file open: a big fleet needs more
// descriptors than the usual soft limit, and the hard limit is ours to take.
void RaiseOpenFileLimit() {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur >= limit.rlim_max) return;
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
}

}  // namespace camrelay::cli
