#include <gtest/gtest.h>

#include "component/settings.h"
#include "env_guard.h"

using camrelay::component::SettingsStore;
using camrelay::test::ConfigHomeGuard;
using camrelay::test::ReadFileBytes;
using camrelay::test::WriteFileBytes;

// A write adds a new key at the end of its section, replaces a key in place,
// and keeps other sections and comments as they were. (A missing file, read
// as the defaults and then written, is the client's first run.)
TEST(Settings, AWriteChangesOnlyItsKeyAndKeepsEverythingElse) {
  ConfigHomeGuard home;
  std::filesystem::create_directories(home.settingsFile().parent_path());
  WriteFileBytes(home.settingsFile(), "; kept\n[Other]\nRemoteHost=elsewhere\n\n[AppSetting]\nLocalPort = 1500\n");
  SettingsStore store("CamRelay");
  EXPECT_EQ(store.GetSetting("AppSetting", "LocalPort", "0"), "1500");
  EXPECT_EQ(store.GetSetting("AppSetting", "RemoteHost", "default"), "default");
  store.SaveSetting("AppSetting", "RemoteHost", "h");
  store.SaveSetting("AppSetting", "RemotePort", "19201");
  store.SaveSetting("AppSetting", "RemoteHost", "10.9.9.9");
  EXPECT_EQ(store.GetSetting("AppSetting", "RemoteHost", "x"), "10.9.9.9");
  EXPECT_EQ(ReadFileBytes(home.settingsFile()),
            "; kept\n[Other]\nRemoteHost=elsewhere\n\n"
            "[AppSetting]\nLocalPort = 1500\nRemoteHost=10.9.9.9\nRemotePort=19201\n");
}
