// Real sockets and timers on Boost.Asio. Every event reaches the link from a
// completion handler run by the host's io_context, never from inside one of
// the link's own calls, as the link expects of a socket control.
#include <boost/asio.hpp>
#include <deque>
#include <utility>
#include <optional>

#include "link/platform.h"

namespace camrelay::link {

namespace asio = boost::asio;
using boost::system::error_code;

// The socket error numbers and texts the link and its hosts know.
SocketError Translate(const error_code& ec) {
  namespace err = asio::error;
  if (ec == err::connection_reset) return {sckConnectionReset, "Connection is reset by remote side"};
  if (ec == err::connection_aborted || ec == err::broken_pipe)
    return {sckConnectionAborted, "Connection is aborted due to timeout or other failure"};
  if (ec == err::connection_refused) return {sckConnectionRefused, "Connection is forcefully rejected"};
  if (ec == err::timed_out) return {sckTimedOut, "Attempt to connect timed out"};
  if (ec == err::address_in_use) return {sckAddressInUse, "Address in use"};
  if (ec == err::host_unreachable) return {sckHostUnreachable, "No route to host"};
  if (ec == err::network_unreachable) return {sckNetworkUnreachable, "Network is unreachable"};
  if (ec == err::not_connected) return {sckNotConnected, "Socket is not connected"};
  if (ec == err::host_not_found || ec == err::host_not_found_try_again)
    return {11001, "Authoritative answer: Host not found"};
  // Windows numbers its socket errors as hosts know them (10013 access
  // denied, 10049 address not available): its own number is the one to
  // give. Elsewhere the system's number is moved above 10000, clear of them.
  const bool socketNumbersAreHosts =
      error_code(asio::error::connection_reset).value() == sckConnectionReset;
  if (socketNumbersAreHosts && ec.category() == boost::system::system_category()) return {ec.value(), ec.message()};
  return {10000 + ec.value(), ec.message()};
}

namespace {

// Where every socket of the thread reads into before it keeps the bytes it
// got: large enough for any datagram, and used only inside one handler.
std::array<char, 65536>& ScratchBuffer() {
  thread_local std::array<char, 65536> buffer;
  return buffer;
}

class AsioSocket : public Socket {
  // Wraps a completion handler so that it does nothing once the socket has
  // been destroyed or closed since the operation started.
  template <class Handler>
  auto Guard(Handler handler) {
    return [alive = std::weak_ptr<bool>(alive_), generation = generation_, this, handler](auto&&... args) mutable {
      auto live = alive.lock();
      if (!live || !*live || generation != generation_) return;
      handler(std::forward<decltype(args)>(args)...);
    };
  }

 public:
  explicit AsioSocket(asio::io_context& io) : io_(io), tcp_(io), udp_(io) {}
  ~AsioSocket() override {
    *alive_ = false;
    CloseQuietly();
  }

  void setProtocol(int protocol) override {
    close();
    protocol_ = protocol;
  }
  int protocol() const override { return protocol_; }
  void setRemoteHost(const std::string& host) override { remoteHost_ = host; }
  std::string remoteHost() const override { return remoteHost_; }
  void setRemotePort(int port) override { remotePort_ = port; }
  int remotePort() const override { return remotePort_; }
  void setLocalPort(int port) override { localPort_ = port; }
  int localPort() const override {
    error_code ec;
    if (protocol_ == 0 && tcp_.is_open()) {
      auto ep = tcp_.local_endpoint(ec);
      if (!ec) return ep.port();
    }
    if (protocol_ == 1 && udp_.is_open()) {
      auto ep = udp_.local_endpoint(ec);
      if (!ec) return ep.port();
    }
    return state_ == sckClosed ? localPort_ : 0;
  }
  // The address this machine uses towards the unit: a UDP socket bound to
  // every interface has none of its own, so the route to the unit tells.
  std::string localIP() const override {
    error_code ec;
    if (protocol_ == 0 && tcp_.is_open()) {
      auto ep = tcp_.local_endpoint(ec);
      if (!ec) return ep.address().to_string();
    }
    asio::ip::udp::socket probe(io_);
    // A unit given by name is looked up like the sends look it up.
    asio::ip::udp::resolver resolver(io_);
    const auto remote = resolver.resolve(asio::ip::udp::v4(), remoteHost_, std::to_string(remotePort_), ec);
    if (!ec && !remote.empty()) probe.connect(*remote.begin(), ec);
    if (!ec) {
      auto ep = probe.local_endpoint(ec);
      if (!ec) return ep.address().to_string();
    }
    return "0.0.0.0";
  }
  std::string peerIP() const override { return peer_.address().to_string(); }
  std::string remoteHostIP() const override {
    error_code ec;
    if (protocol_ == 0 && tcp_.is_open()) {
      auto ep = tcp_.remote_endpoint(ec);
      if (!ec) return ep.address().to_string();
    }
    if (protocol_ == 1 && resolvedHost_ == remoteHost_) return remoteEndpoint_.address().to_string();
    return remoteHost_;
  }
  int peerPort() const override { return peer_.port(); }
  bool fromRemote() const override {
    return resolvedHost_ == remoteHost_ && resolvedPort_ == remotePort_ && datagramSender_ == remoteEndpoint_;
  }
  int state() const override { return state_; }

  void bind(int localPort) override {
    close();
    error_code ec;
    udp_.open(asio::ip::udp::v4(), ec);
    if (!ec) udp_.bind({asio::ip::udp::v4(), static_cast<unsigned short>(localPort)}, ec);
    if (ec) {
      // A socket that could not bind has no local port: that is how its
      // owner learns that the bind failed.
      CloseQuietly();
      localPort_ = 0;
      throw Translate(ec);
    }
    localPort_ = udp_.local_endpoint().port();
    state_ = sckOpen;
    ReceiveDatagram();
  }

  void connect() override {
    close();
    state_ = sckConnecting;
    auto resolver = std::make_shared<asio::ip::tcp::resolver>(io_);
    resolver->async_resolve(remoteHost_, std::to_string(remotePort_),
                            Guard([this, resolver](const error_code& ec, asio::ip::tcp::resolver::results_type results) {
                              if (ec) return Fail(ec);
                              asio::async_connect(tcp_, results, Guard([this](const error_code& ec2, const auto&) {
                                                    if (ec2) return Fail(ec2);
                                                    state_ = sckConnected;
                                                    ReadStream();
                                                    if (onConnect) onConnect();
                                                  }));
                            }));
  }

  void close() override {
    ++generation_;
    CloseQuietly();
    state_ = sckClosed;
    stream_.clear();
    datagrams_.clear();
    writes_.clear();
  }

  void sendData(const std::string& data) override {
    if (protocol_ == 0) {
      if (state_ != sckConnected)
        throw SocketError(sckInvalidOperation,
                          "Wrong protocol or connection state for the requested transaction or request");
      writes_.push_back(data);
      if (writes_.size() == 1) WriteNext();
      return;
    }
    if (state_ != sckOpen)
      throw SocketError(sckInvalidOperation,
                        "Wrong protocol or connection state for the requested transaction or request");
    error_code ec;
    udp_.send_to(asio::buffer(data), RemoteUdpEndpoint(), 0, ec);
    if (ec) throw Translate(ec);
    asio::post(io_, Guard([this] {
                 if (onSendComplete) onSendComplete();
               }));
  }

  std::string getData() override {
    if (protocol_ == 0) return std::exchange(stream_, std::string());
    if (datagrams_.empty()) return {};
    auto [from, datagram] = std::move(datagrams_.front());
    datagrams_.pop_front();
    datagramSender_ = from;
    peer_ = {from.address(), from.port()};
    return datagram;
  }

 private:
  void CloseQuietly() {
    error_code ignored;
    if (tcp_.is_open()) {
      tcp_.shutdown(asio::ip::tcp::socket::shutdown_both, ignored);
      tcp_.close(ignored);
    }
    if (udp_.is_open()) udp_.close(ignored);
  }

  void Fail(const error_code& ec) {
    if (ec == asio::error::operation_aborted) return;
    const SocketError error = Translate(ec);
    state_ = sckError;
    if (onError) onError(error.number(), error.what());
  }

  // A read waits for the socket to be readable and only then takes the bytes,
  // through a buffer the whole thread shares: an idle link holds no receive
  // buffer of its own, which matters to a host with a thousand links open.
  void ReadStream() {
    tcp_.async_wait(asio::ip::tcp::socket::wait_read, Guard([this](const error_code& waited) {
                      if (waited) return Fail(waited);
                      error_code ec;
                      const std::size_t n = tcp_.read_some(asio::buffer(ScratchBuffer()), ec);
                      if (ec == asio::error::eof) {
                        state_ = sckClosing;
                        if (onClose) onClose();
                        return;
                      }
                      if (ec) return Fail(ec);
                      error_code ignored;
                      peer_ = {tcp_.remote_endpoint(ignored).address(), tcp_.remote_endpoint(ignored).port()};
                      stream_.append(ScratchBuffer().data(), n);
                      ReadStream();
                      if (onDataArrival) onDataArrival(static_cast<long>(stream_.size()));
                    }));
  }

  void WriteNext() {
    asio::async_write(tcp_, asio::buffer(writes_.front()), Guard([this](const error_code& ec, std::size_t) {
                        if (ec) return Fail(ec);
                        writes_.pop_front();
                        if (!writes_.empty()) WriteNext();
                        if (onSendComplete) onSendComplete();
                      }));
  }

  void ReceiveDatagram() {
    udp_.async_wait(asio::ip::udp::socket::wait_read, Guard([this](const error_code& waited) {
                      if (waited == asio::error::operation_aborted) return;
                      error_code ec = waited;
                      std::size_t n = 0;
                      if (!ec) n = udp_.receive_from(asio::buffer(ScratchBuffer()), sender_, 0, ec);
                      // A refused datagram of ours comes back as an error on the
                      // next receive; the link cares only about what arrives.
                      if (!ec) {
                        datagrams_.emplace_back(sender_, std::string(ScratchBuffer().data(), n));
                      }
                      ReceiveDatagram();
                      if (!ec && onDataArrival) onDataArrival(static_cast<long>(n));
                    }));
  }

  asio::ip::udp::endpoint RemoteUdpEndpoint() {
    if (resolvedHost_ != remoteHost_ || resolvedPort_ != remotePort_) {
      asio::ip::udp::resolver resolver(io_);
      error_code ec;
      auto results = resolver.resolve(asio::ip::udp::v4(), remoteHost_, std::to_string(remotePort_), ec);
      if (ec || results.empty()) throw Translate(ec ? ec : asio::error::host_not_found);
      remoteEndpoint_ = *results.begin();
      resolvedHost_ = remoteHost_;
      resolvedPort_ = remotePort_;
    }
    return remoteEndpoint_;
  }

  asio::io_context& io_;
  asio::ip::tcp::socket tcp_;
  asio::ip::udp::socket udp_;
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
  unsigned generation_ = 0;
  int protocol_ = 0;
  int state_ = sckClosed;
  std::string remoteHost_;
  int remotePort_ = 0;
  int localPort_ = 0;
  std::string stream_;
  std::deque<std::pair<asio::ip::udp::endpoint, std::string>> datagrams_;  // with their senders
  std::deque<std::string> writes_;
  asio::ip::udp::endpoint sender_;
  asio::ip::tcp::endpoint peer_;
  asio::ip::udp::endpoint datagramSender_;  // the sender of the datagram read last
  asio::ip::udp::endpoint remoteEndpoint_;
  std::string resolvedHost_;
  int resolvedPort_ = -1;
};

// A window timer on a steady clock: periodic until disabled. Every change
// starts the countdown anew. The link does that at every packet it sends or
// receives, so a restart only moves the deadline: the wait under way is kept
// and, when it ends early, waits on for the rest. Only a deadline earlier
// than the wait's end starts a new wait.
class AsioTimer : public Timer {
 public:
  explicit AsioTimer(asio::io_context& io) : timer_(io) {}
  ~AsioTimer() override { *alive_ = false; }

  void setEnabled(bool enabled) override {
    if (enabled == enabled_) return;
    enabled_ = enabled;
    Restart();
  }
  bool enabled() const override { return enabled_; }
  void setInterval(int milliseconds) override {
    interval_ = milliseconds;
    Restart();
  }
  int interval() const override { return interval_; }

 private:
  using Clock = asio::steady_timer::clock_type;

  void Restart() {
    if (!enabled_ || interval_ <= 0) {
      deadline_.reset();
      return;
    }
    deadline_ = Clock::now() + std::chrono::milliseconds(interval_);
    if (!waiting_ || *deadline_ < timer_.expiry()) Wait();
  }

  void Wait() {
    ++generation_;
    waiting_ = true;
    timer_.expires_at(*deadline_);  // ends the wait under way, if any
    timer_.async_wait([alive = std::weak_ptr<bool>(alive_), generation = generation_, this](const error_code& ec) {
      auto live = alive.lock();
      if (!live || !*live || generation != generation_) return;
      waiting_ = false;
      if (ec || !deadline_) return;
      if (Clock::now() < *deadline_) return Wait();
      Restart();  // periodic, as a window timer is
      if (onTick) onTick();
    });
  }

  asio::steady_timer timer_;
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
  unsigned generation_ = 0;
  bool enabled_ = false;
  int interval_ = 0;
  bool waiting_ = false;
  std::optional<Clock::time_point> deadline_;  // when the next tick is due; none while disabled
};

class AsioPlatform : public Platform {
 public:
  explicit AsioPlatform(asio::io_context& io) : io_(io) {}
  std::unique_ptr<Socket> makeSocket() override { return std::make_unique<AsioSocket>(io_); }
  std::unique_ptr<Timer> makeTimer() override { return std::make_unique<AsioTimer>(io_); }
  void post(std::function<void()> work) override { asio::post(io_, std::move(work)); }

 private:
  asio::io_context& io_;
};

}  // namespace

std::shared_ptr<Platform> makeAsioPlatform(asio::io_context& io) { return std::make_shared<AsioPlatform>(io); }

}  // namespace camrelay::link
