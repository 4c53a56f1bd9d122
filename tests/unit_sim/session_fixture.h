// A session with in-memory content, fed one message at a time.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "../../tools/camrelay-unit/session.h"
#include "fake_content.h"
#include "requests/crypt.h"

namespace camrelay::unit::test {

using Messages = std::vector<std::string>;

class SessionTest : public ::testing::Test {
 protected:
  void Start(bool tcp) {
    faults_ = std::make_unique<Faults>(settings);
    session_ = std::make_unique<Session>(content, codes, *faults_, tcp, log_);
  }
  // What the unit sends back, delays and resets aside.
  Messages Send(const std::string& message) {
    last = session_->Receive(message);
    Messages texts;
    for (const auto& out : last)
      if (!out.reset) texts.push_back(out.message);
    return texts;
  }
  // The opening of a request with the installer code scrambled.
  static std::string Request(const std::string& tipo, int count = 0) {
    return "AA{}" + std::to_string(count) + "{}" + tipo + "{}" + requests::CryptData("123456");
  }

  FakeContent content;
  Codes codes{"123456", "654321"};
  FaultSettings settings;
  std::vector<Outgoing> last;

 private:
  Log log_{Log::Quiet};
  std::unique_ptr<Faults> faults_;
  std::unique_ptr<Session> session_;
};

}  // namespace camrelay::unit::test
