// A frmClient on the fake platform, set up as Connetti sets it up, with every
// event it raises recorded. Tests play the unit through `socket()` and fire
// the reply timer through `timer()`.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "fake_platform.h"
#include "link/frmClient.h"
#include "store/DataVideo.h"
#include "temp_dir.h"

namespace camrelay::test {

class LinkFixture {
 public:
  // protocol: 0 TCP, 1 UDP. The database lives in a temporary folder, which is
  // also the link's working folder.
  explicit LinkFixture(int protocol, const std::string& code = "123456");
  ~LinkFixture();

  link::frmClient& form() { return *form_; }
  FakeSocket& socket() { return *platform_->socket; }
  ManualTimer& timer() { return *platform_->timer; }
  FakePlatform& platform() { return *platform_; }
  store::DataVideo& db() { return *db_; }
  const TempDir& dir() const { return dir_; }

  // TCP only: the socket finishes connecting (the link asked for it when it
  // served a request on a closed socket).
  void connect() { socket().acceptConnect(); }
  // Plays the unit: on TCP the message travels in its "LN{}" frame.
  void unitSends(const std::string& message);
  // Every message sent, TCP frames removed; UDP messages travel bare.
  std::vector<std::string> messages() const;
  // Forgets what was sent and raised so far.
  void clearRecords();

  std::vector<int> states;           // CambioStatoConnessione values
  std::vector<int> dbStates;         // CambioStatoDB values
  std::vector<std::string> debug;    // OnDebug lines
  int connectionErrors = 0;          // ErroreConnessione
  int timeoutErrors = 0;             // ErroreTimeOutConnessioneTCP
  bool debugContains(const std::string& text) const { return debugLines(text) > 0; }
  int debugLines(const std::string& text) const;  // OnDebug lines holding the text
  int raised(int stato) const;                    // times the state was raised

 private:
  TempDir dir_;
  std::shared_ptr<FakePlatform> platform_;
  std::shared_ptr<store::DataVideo> db_;
  std::unique_ptr<link::frmClient> form_;
};

// The message inside a TCP frame ("LN{}7{}OK{}02x" gives "OK{}02x"); the text
// itself when it is not a frame whose length is that of its message.
std::string Unframe(const std::string& sent);
std::string Frame(const std::string& message);

}  // namespace camrelay::test
