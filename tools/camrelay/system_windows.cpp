#include <windows.h>
#include <shellapi.h>

#include <fstream>
#include <iterator>
#include <random>
#include <stdexcept>

#include "platform/windows/codepage.h"
#include "system.h"

namespace camrelay::cli {

// The key the COM server keeps its settings in: both share the link used last.
const char* const kSettingsStoreHelp = "HKEY_CURRENT_USER\\Software\\VB and VBA Program Settings\\CamRelay";
const char* const kSettingsEnvironmentHelp = "";

using platform::windows::FromWide;
using platform::windows::kUtf8;
using platform::windows::ToWide;

bool OpenInBrowser(const std::string& url) {
  // ShellExecute answers a number above 32 when it started the handler.
  const auto result = reinterpret_cast<INT_PTR>(
      ShellExecuteW(nullptr, L"open", ToWide(url, kUtf8).c_str(), nullptr, nullptr, SW_SHOWNORMAL));
  return result > 32;
}

// The temporary folder is the user's own (below the profile), so a new folder
// there is private by inheritance; a random name that must not exist yet
// keeps another process from having made it first.
std::filesystem::path MakePrivateFolder(const std::string& prefix) {
  const std::filesystem::path base = std::filesystem::temp_directory_path();
  std::random_device random;
  for (int attempt = 0; attempt < 100; ++attempt) {
    const std::filesystem::path folder = base / (prefix + std::to_string(random() % 100000000u));
    if (CreateDirectoryW(folder.wstring().c_str(), nullptr)) return folder;
    if (GetLastError() != ERROR_ALREADY_EXISTS) break;
  }
  throw std::runtime_error("cannot make a folder in " + base.string());
}

// A link is refused by its status before the file is opened; Windows has no
// flag to refuse one at the open itself, and a folder that only this user
// writes to cannot have one swapped in between.
std::optional<std::string> ReadRegularFile(const std::filesystem::path& path) {
  std::error_code ec;
  if (!std::filesystem::is_regular_file(std::filesystem::symlink_status(path, ec))) return std::nullopt;
  std::ifstream in(path, std::ios::binary);
  if (!in) return std::nullopt;
  std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  if (in.bad()) return std::nullopt;
  return bytes;
}

std::string MachineAndProcess() {
  wchar_t name[MAX_COMPUTERNAME_LENGTH + 1] = {};
  DWORD size = MAX_COMPUTERNAME_LENGTH + 1;
  GetComputerNameW(name, &size);
  return FromWide(name, kUtf8) + ":" + std::to_string(GetCurrentProcessId());
}

// Windows has no such limit to raise for sockets and files.
void RaiseOpenFileLimit() {}

}  // namespace camrelay::cli
