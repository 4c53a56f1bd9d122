// The settings store on POSIX systems: an INI file below the user's
// configuration folder.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <system_error>
#include <vector>

#include "component/settings.h"

namespace camrelay::component {

namespace {

struct IniLine {
  std::string text;     // the line as stored
  std::string section;  // the section it belongs to
  std::string key;      // empty for headers, comments and blank lines
};

std::vector<IniLine> ReadIni(const std::filesystem::path& file) {
  std::vector<IniLine> lines;
  std::ifstream in(file);
  std::string text, section;
  while (std::getline(in, text)) {
    IniLine line{text, section, {}};
    const std::string trimmed = Trim(text);
    if (trimmed.size() >= 2 && trimmed.front() == '[' && trimmed.back() == ']') {
      section = trimmed.substr(1, trimmed.size() - 2);
      line.section = section;
    } else if (!trimmed.empty() && trimmed.front() != ';' && trimmed.front() != '#') {
      const auto eq = trimmed.find('=');
      if (eq != std::string::npos) line.key = Trim(trimmed.substr(0, eq));
    }
    lines.push_back(std::move(line));
  }
  return lines;
}

std::string ValueOf(const IniLine& line) {
  return Trim(line.text.substr(line.text.find('=') + 1));
}

// ${XDG_CONFIG_HOME:-$HOME/.config}/<application>/settings.ini
std::filesystem::path IniFile(const std::string& application) {
  std::filesystem::path base;
  if (const char* xdg = std::getenv("XDG_CONFIG_HOME"); xdg && *xdg)
    base = xdg;
  else if (const char* home = std::getenv("HOME"); home && *home)
    base = std::filesystem::path(home) / ".config";
  else
    base = std::filesystem::current_path();
  return base / application / "settings.ini";
}

}  // namespace

std::string SettingsStore::GetSetting(const std::string& Section, const std::string& Key,
                                      const std::string& Default) const {
  for (const auto& line : ReadIni(IniFile(application_)))
    if (line.section == Section && line.key == Key) return ValueOf(line);
  return Default;
}

void SettingsStore::SaveSetting(const std::string& Section, const std::string& Key,
                                const std::string& Setting) const {
  const auto file = IniFile(application_);
  auto lines = ReadIni(file);
  const std::string entry = Key + "=" + Setting;
  bool done = false;
  std::size_t lastOfSection = lines.size();
  for (std::size_t i = 0; i < lines.size() && !done; ++i) {
    if (lines[i].section != Section) continue;
    lastOfSection = i;
    if (lines[i].key == Key) {
      lines[i].text = entry;
      done = true;
    }
  }
  if (!done) {
    if (lastOfSection == lines.size()) {
      lines.push_back({"[" + Section + "]", Section, {}});
      lines.push_back({entry, Section, Key});
    } else {
      lines.insert(lines.begin() + static_cast<long>(lastOfSection) + 1, {entry, Section, Key});
    }
  }
  std::error_code ec;
  std::filesystem::create_directories(file.parent_path(), ec);
  // Written beside and renamed over, so that a crash never leaves half a file.
  const auto temporary = file.string() + ".tmp";
  {
    std::ofstream out(temporary, std::ios::trunc);
    for (const auto& line : lines) out << line.text << '\n';
    if (!out.flush()) throw std::runtime_error("cannot write the settings file " + file.string());
  }
  std::filesystem::rename(temporary, file, ec);
  if (ec) throw std::runtime_error("cannot write the settings file " + file.string() + ": " + ec.message());
}

}  // namespace camrelay::component
