#include "fake_platform.h"

#include <utility>

namespace camrelay::test {

void FakeSocket::deliver(const std::string& bytes) { deliverFrom(remoteHost_, remotePort_, bytes); }

void FakeSocket::deliverFrom(const std::string& host, int port, const std::string& bytes) {
  senderHost_ = host;
  senderPort_ = port;
  if (protocol_ == 0)
    stream_ += bytes;
  else
    datagrams_.push_back(bytes);
  if (onDataArrival) onDataArrival(static_cast<long>(bytes.size()));
}

void FakeSocket::acceptConnect() {
  state_ = link::sckConnected;
  if (onConnect) onConnect();
}

void FakeSocket::peerClose() {
  state_ = link::sckClosing;
  if (onClose) onClose();
}

void FakeSocket::fail(int number, const std::string& description) {
  state_ = link::sckError;
  if (onError) onError(number, description);
}

void FakeSocket::setProtocol(int protocol) {
  close();
  protocol_ = protocol;
}

void FakeSocket::bind(int localPort) {
  localPort_ = localPort > 0 ? localPort : 50000;
  state_ = link::sckOpen;
}

void FakeSocket::connect() {
  ++connects;
  state_ = link::sckConnecting;
}

void FakeSocket::close() {
  ++closes;
  state_ = link::sckClosed;
  stream_.clear();
  datagrams_.clear();
}

void FakeSocket::sendData(const std::string& data) {
  if (protocol_ == 0 && state_ != link::sckConnected)
    throw link::SocketError(link::sckNotConnected, "Wrong protocol or connection state for the requested transaction or request");
  if (protocol_ == 1 && state_ != link::sckOpen)
    throw link::SocketError(link::sckInvalidOperation, "Wrong protocol or connection state for the requested transaction or request");
  sent.push_back(data);
}

std::string FakeSocket::getData() {
  if (protocol_ == 0) return std::exchange(stream_, std::string());
  if (datagrams_.empty()) return {};
  std::string datagram = std::move(datagrams_.front());
  datagrams_.pop_front();
  return datagram;
}

bool ManualTimer::fire() {
  if (!enabled_ || !onTick) return false;
  onTick();
  return true;
}

std::unique_ptr<link::Socket> FakePlatform::makeSocket() {
  auto made = std::make_unique<FakeSocket>();
  socket = made.get();
  return made;
}

std::unique_ptr<link::Timer> FakePlatform::makeTimer() {
  auto made = std::make_unique<ManualTimer>();
  timer = made.get();
  return made;
}

void FakePlatform::runPosted(int maxSteps) {
  for (int step = 0; step < maxSteps && !posted.empty(); ++step) {
    auto work = std::move(posted.front());
    posted.pop_front();
    work();
  }
}

}  // namespace camrelay::test
