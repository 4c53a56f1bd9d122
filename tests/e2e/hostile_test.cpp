// Hostile peers between camrelay and the unit: a frame announcing 2^40
// bytes, 100 MiB with no frame marker, an acceptance announcing 2^31
// packets, and a flood of 10 000 tiny datagrams a second for 10 seconds.
// camrelay's peak memory stays under its bound, and once the peer lets the
// unit through, the request still completes.
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <thread>

#include "e2e_fixture.h"

namespace camrelay::e2e {
namespace {

using Clock = std::chrono::steady_clock;

// camrelay's own few MiB, one frame of the largest size and the reading of
// the socket; far below what the peer sends.
constexpr long kPeakBoundKiB = 96 * 1024;

class Fd {
 public:
  explicit Fd(int fd = -1) : fd_(fd) {}
  ~Fd() {
    if (fd_ >= 0) close(fd_);
  }
  Fd(const Fd&) = delete;
  Fd& operator=(const Fd&) = delete;
  int get() const { return fd_; }

 private:
  int fd_;
};

sockaddr_in Loopback(int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<uint16_t>(port));
  return address;
}

int BoundSocket(int type) {
  const int fd = socket(AF_INET, type, 0);
  sockaddr_in address = Loopback(0);
  bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address);
  return fd;
}

int PortOf(int fd) {
  sockaddr_in address{};
  socklen_t length = sizeof address;
  getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
  return ntohs(address.sin_port);
}

bool SendAll(int fd, const std::string& bytes) {
  for (std::size_t sent = 0; sent < bytes.size();) {
    const ssize_t n = send(fd, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
    if (n <= 0) return false;
    sent += static_cast<std::size_t>(n);
  }
  return true;
}

// A peer in front of the unit: what camrelay sends goes on to the unit, what
// the unit answers comes back, after the peer's own bytes. It runs on a
// thread of its own until the test ends, bounded in time either way.
class HostilePeer {
 public:
  virtual ~HostilePeer() {
    stop_ = true;
    if (thread_.joinable()) thread_.join();
  }
  int port() const { return PortOf(front_.get()); }

 protected:
  HostilePeer(int type, int unitPort) : front_(BoundSocket(type)), unitPort_(unitPort) {}
  void Start() {
    thread_ = std::thread([this] { Run(); });
  }
  virtual void Run() = 0;
  bool Running(Clock::time_point since) const {
    return !stop_ && Clock::now() - since < std::chrono::seconds(90);
  }

  Fd front_;
  const int unitPort_;
  std::atomic<bool> stop_{false};
  std::thread thread_;
};

// TCP: on connection, a frame header announcing 2^40 bytes with a little of
// its body, then 100 MiB without a marker; then the unit's stream.
class TcpGarbage : public HostilePeer {
 public:
  explicit TcpGarbage(int unitPort) : HostilePeer(SOCK_STREAM, unitPort) {
    listen(front_.get(), 1);
    Start();
  }

 private:
  void Run() override {
    const auto start = Clock::now();
    pollfd waiting{front_.get(), POLLIN, 0};
    while (Running(start) && poll(&waiting, 1, 100) == 0) {
    }
    if (!Running(start)) return;
    Fd host(accept(front_.get(), nullptr, nullptr));
    Fd unit(socket(AF_INET, SOCK_STREAM, 0));
    const sockaddr_in address = Loopback(unitPort_);
    if (connect(unit.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) return;
    SendAll(host.get(), "LN{}1099511627776{}" + std::string(1000, 'A'));
    const std::string mebibyte(1 << 20, 'x');
    for (int i = 0; i < 100 && Running(start); ++i)
      if (!SendAll(host.get(), mebibyte)) return;
    Relay(host.get(), unit.get(), start);
  }

  void Relay(int host, int unit, Clock::time_point start) {
    pollfd both[2] = {{host, POLLIN, 0}, {unit, POLLIN, 0}};
    char buffer[65536];
    while (Running(start)) {
      if (poll(both, 2, 100) <= 0) continue;
      for (int i = 0; i < 2; ++i) {
        if (!(both[i].revents & (POLLIN | POLLHUP))) continue;
        const ssize_t n = recv(both[i].fd, buffer, sizeof buffer, 0);
        if (n <= 0 || !SendAll(both[1 - i].fd, std::string(buffer, static_cast<std::size_t>(n)))) return;
      }
    }
  }
};

// UDP: an acceptance announcing 2^31 packets just before the unit's own,
// or 10 000 tiny datagrams a second for 10 seconds while camrelay's first
// datagrams go nowhere. (A peer that floods with the unit's own codes can
// end the request in progress, which the protocol cannot tell from the
// unit; the flood here is of bytes that make no message.)
class UdpHostile : public HostilePeer {
 public:
  enum class Mode { HugeAcceptance, Flood };
  UdpHostile(int unitPort, Mode mode) : HostilePeer(SOCK_DGRAM, unitPort), back_(BoundSocket(SOCK_DGRAM)), mode_(mode) {
    Start();
  }
  long flooded = 0;

 private:
  void Run() override {
    const auto start = Clock::now();
    std::optional<Clock::time_point> floodStart;
    sockaddr_in host{};
    const sockaddr_in unit = Loopback(unitPort_);
    pollfd both[2] = {{front_.get(), POLLIN, 0}, {back_.get(), POLLIN, 0}};
    char buffer[65536];
    while (Running(start)) {
      const bool flooding = floodStart && Clock::now() - *floodStart < std::chrono::seconds(10);
      if (flooding) Flood(host);
      if (poll(both, 2, flooding ? 10 : 100) <= 0) continue;
      if (both[0].revents & POLLIN) {
        socklen_t length = sizeof host;
        const ssize_t n = recvfrom(front_.get(), buffer, sizeof buffer, 0, reinterpret_cast<sockaddr*>(&host), &length);
        if (mode_ == Mode::Flood && !floodStart) floodStart = Clock::now();
        const bool held = floodStart && Clock::now() - *floodStart < std::chrono::seconds(10);
        if (n > 0 && !held) sendto(back_.get(), buffer, n, 0, reinterpret_cast<const sockaddr*>(&unit), sizeof unit);
      }
      if (both[1].revents & POLLIN) {
        const ssize_t n = recv(back_.get(), buffer, sizeof buffer, 0);
        if (n <= 0) continue;
        const std::string message(buffer, static_cast<std::size_t>(n));
        if (mode_ == Mode::HugeAcceptance && message.starts_with("AA{}") && message.ends_with("{}02"))
          SendTo(host, "AA{}2147483648{}02");
        SendTo(host, message);
      }
    }
  }

  // 100 datagrams every 10 ms, of one or two bytes that make no message.
  void Flood(const sockaddr_in& host) {
    static const std::string kJunk[] = {"Z", std::string(1, '\0'), "LN", "{", "\xff\xfe"};
    for (int i = 0; i < 100; ++i, ++flooded) SendTo(host, kJunk[i % std::size(kJunk)]);
  }

  void SendTo(const sockaddr_in& host, const std::string& message) {
    sendto(front_.get(), message.data(), message.size(), 0, reinterpret_cast<const sockaddr*>(&host), sizeof host);
  }

  Fd back_;
  const Mode mode_;
};

class Hostile : public EndToEnd {
 protected:
  void Expect(const char* what, const Outcome& run) {
    std::printf("%-34s exit %s, peak RSS %6.1f MiB\n", what, run.exit ? std::to_string(*run.exit).c_str() : "-",
                run.peakRssKiB / 1024.0);
    EXPECT_EQ(run.exit, 0) << what << "\n" << run.err;
    EXPECT_LT(run.peakRssKiB, kPeakBoundKiB) << what;
    EXPECT_EQ(Rows(hostDb(), "Ingressi"), Rows(unitDb(), "Ingressi")) << what;
  }
};

TEST_F(Hostile, HugeFrameAndEndlessGarbageOverTcp) {
  StartUnit(Transport::Tcp);
  timing = {"--timeout-long", "3000", "--timeout-short", "3000", "--retries", "10"};
  TcpGarbage peer(unitPort());
  peerPort = peer.port();
  Expect("2^40-byte frame, 100 MiB garbage", Host({"download-prog"}, std::chrono::seconds(90)));
}

TEST_F(Hostile, HugeAcceptanceAndFloodOverUdp) {
  StartUnit(Transport::Udp);
  timing = {"--timeout-long", "2000", "--timeout-short", "2000", "--retries", "10"};
  {
    UdpHostile peer(unitPort(), UdpHostile::Mode::HugeAcceptance);
    peerPort = peer.port();
    Expect("acceptance of 2^31 packets", Host({"download-prog"}, std::chrono::seconds(60)));
  }
  UdpHostile peer(unitPort(), UdpHostile::Mode::Flood);
  peerPort = peer.port();
  Execute(hostDb(), "DELETE FROM Ingressi");
  Expect("10 s of 10 000 datagrams/s", Host({"download-prog"}, std::chrono::seconds(60)));
  std::printf("%-34s %ld datagrams sent\n", "", peer.flooded);
  EXPECT_GE(peer.flooded, 50000) << "the flood fell short of its rate";
}

}  // namespace
}  // namespace camrelay::e2e
