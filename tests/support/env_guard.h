// Points the per-user settings at a temporary folder for one test and puts
// the environment back afterwards.
#pragma once

#include <cstdlib>
#include <optional>
#include <string>

#include "temp_dir.h"

namespace camrelay::test {

class ConfigHomeGuard {
 public:
  ConfigHomeGuard() {
    if (const char* old = std::getenv("XDG_CONFIG_HOME")) previous_ = old;
    setenv("XDG_CONFIG_HOME", dir_.str().c_str(), 1);
  }
  ~ConfigHomeGuard() {
    if (previous_)
      setenv("XDG_CONFIG_HOME", previous_->c_str(), 1);
    else
      unsetenv("XDG_CONFIG_HOME");
  }
  std::filesystem::path settingsFile() const { return dir_ / "CamRelay/settings.ini"; }

 private:
  TempDir dir_;
  std::optional<std::string> previous_;
};

}  // namespace camrelay::test
