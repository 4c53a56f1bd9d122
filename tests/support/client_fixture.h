// A clsClient on the fake platform, with per-user settings and a working
// folder of the test's own: where the component and host tests start.
#pragma once

#include <gtest/gtest.h>

#include <memory>

#include "camrelay/clsClient.h"
#include "env_guard.h"
#include "fake_platform.h"
#include "temp_dir.h"

namespace camrelay::test {

struct ClientOnFakePlatform : ::testing::Test {
  ConfigHomeGuard home;
  TempDir dir;
  std::shared_ptr<FakePlatform> platform = std::make_shared<FakePlatform>();
  clsClient client{platform};
};

}  // namespace camrelay::test
