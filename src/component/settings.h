// The per-user settings store, read and written key by key, one section per
// settings group. On POSIX systems an INI file
// ${XDG_CONFIG_HOME:-$HOME/.config}/<application>/settings.ini
// (settings_ini.cpp); on Windows the registry key that desktop programs share,
// HKEY_CURRENT_USER\Software\VB and VBA Program Settings\<application>.
#pragma once

#include <string>

namespace camrelay::component {

class SettingsStore {
 public:
  explicit SettingsStore(std::string application) : application_(std::move(application)) {}

  // The stored text, or Default when the key (or the file) is absent.
  std::string GetSetting(const std::string& Section, const std::string& Key, const std::string& Default) const;
  // Creates the folder and file when missing. Throws std::runtime_error when
  // the file cannot be written.
  void SaveSetting(const std::string& Section, const std::string& Key, const std::string& Setting) const;

 private:
  std::string application_;
};

// A setting read as a number: the leading decimal number of the text (0 when
// there is none), rounded half to even and kept within 32 bits.
int SettingAsInteger(const std::string& text);

// The text without leading and trailing blanks, tabs and carriage returns.
std::string Trim(const std::string& s);

}  // namespace camrelay::component
