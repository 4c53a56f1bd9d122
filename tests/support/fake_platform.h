// Test doubles for the link's seams: a socket that records what is sent and
// lets the test play the unit, a timer the test fires by hand, and a platform
// whose posted work runs when the test says so. No real socket, no real time.
#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "link/platform.h"

namespace camrelay::test {

class FakeSocket : public link::Socket {
 public:
  // ---- What the link did. ----
  std::vector<std::string> sent;  // every sendData payload, in order
  int connects = 0, closes = 0;

  // ---- Playing the unit. ----
  // TCP: the bytes join the receive stream; UDP: they are one datagram.
  // Either way onDataArrival fires once.
  void deliver(const std::string& bytes);
  // UDP: a datagram from another sender than the unit.
  void deliverFrom(const std::string& host, int port, const std::string& bytes);
  void acceptConnect();                                    // state 7, onConnect
  void peerClose();                                        // state 8, onClose
  void fail(int number, const std::string& description);   // state 9, onError

  // ---- link::Socket ----
  void setProtocol(int protocol) override;
  int protocol() const override { return protocol_; }
  void setRemoteHost(const std::string& host) override { remoteHost_ = host; }
  std::string remoteHost() const override { return remoteHost_; }
  void setRemotePort(int port) override { remotePort_ = port; }
  int remotePort() const override { return remotePort_; }
  void setLocalPort(int port) override { localPort_ = port; }
  int localPort() const override { return localPort_; }
  std::string localIP() const override { return "127.0.0.1"; }
  std::string peerIP() const override { return senderHost_; }
  int peerPort() const override { return senderPort_; }
  bool fromRemote() const override { return senderHost_ == remoteHost_ && senderPort_ == remotePort_; }
  std::string remoteHostIP() const override { return remoteHost_; }
  int state() const override { return state_; }
  void bind(int localPort) override;
  void connect() override;
  void close() override;
  void sendData(const std::string& data) override;
  std::string getData() override;

  int state_ = link::sckClosed;

 private:
  int protocol_ = 0;
  std::string remoteHost_;
  int remotePort_ = 0;
  int localPort_ = 0;
  std::string senderHost_;  // the peer of the last delivery
  int senderPort_ = 0;
  std::string stream_;                 // TCP bytes not yet read
  std::deque<std::string> datagrams_;  // UDP datagrams not yet read
};

class ManualTimer : public link::Timer {
 public:
  void setEnabled(bool enabled) override { enabled_ = enabled; }
  bool enabled() const override { return enabled_; }
  void setInterval(int milliseconds) override { interval_ = milliseconds; }
  int interval() const override { return interval_; }
  // The interval elapses: onTick runs if the timer is enabled. Returns whether
  // it ran.
  bool fire();

 private:
  bool enabled_ = false;
  int interval_ = 0;
};

class FakePlatform : public link::Platform {
 public:
  std::unique_ptr<link::Socket> makeSocket() override;
  std::unique_ptr<link::Timer> makeTimer() override;
  void post(std::function<void()> work) override { posted.push_back(std::move(work)); }
  // Runs posted work, including work that it posts, up to a bound.
  void runPosted(int maxSteps = 1000);

  // The last socket and timer made (owned by the link that asked for them).
  FakeSocket* socket = nullptr;
  ManualTimer* timer = nullptr;
  std::deque<std::function<void()>> posted;
};

}  // namespace camrelay::test
