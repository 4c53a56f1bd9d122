// Hostile peers in the unit's place: a frame announcing 2^40 bytes, then
// 100 MiB with no frame marker; an acceptance announcing 2^31 packets; a
// flood of 10 000 tiny datagrams a second for 10 seconds. camrelay's peak
// memory stays under its bound and it ends, failed, saying so. (That the
// link serves the next request after such input is the reception and
// conversation tests'.)
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <thread>

#include "e2e_fixture.h"

namespace camrelay::e2e {
namespace {

using Clock = std::chrono::steady_clock;

// camrelay's own few MiB, one frame of the largest size and the reading of
// the socket; far below what the peer sends.
constexpr long kPeakBoundKiB = 96 * 1024;

// A socket on a free loopback port, served on a thread of its own by
// `serve` until the test lets go of it; every wait on it ends within 100 ms.
struct Peer {
  Peer(int type, std::function<void(Peer&)> serve) : fd(socket(AF_INET, type, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    bind(fd, reinterpret_cast<sockaddr*>(&address), length);
    getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
    port = ntohs(address.sin_port);
    const timeval tick{0, 100000};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tick, sizeof tick);
    if (type == SOCK_STREAM) listen(fd, 1);
    thread = std::thread([this, serve] { serve(*this); });
  }
  ~Peer() {
    running = false;
    shutdown(fd, SHUT_RDWR);
    thread.join();
    close(fd);
  }

  int fd, port = 0;
  long sent = 0;
  std::atomic<bool> running{true};
  std::thread thread;
};

class Hostile : public EndToEnd {
 protected:
  // camrelay sent to the peer gives up within its retries, never holding
  // much of what the peer sends.
  void Expect(const char* what, int port) {
    peerPort = port;
    timing = {"--timeout-long", "2000", "--timeout-short", "2000", "--retries", "5"};
    const Outcome run = Host({"download-prog"}, std::chrono::seconds(60));
    EXPECT_EQ(run.exit, 1) << what << "\n" << run.err;
    EXPECT_TRUE(Failed(run, "download-prog")) << run.err;
    EXPECT_LT(run.peakRssKiB, kPeakBoundKiB) << what;
  }
};

TEST_F(Hostile, HugeFrameAndEndlessGarbageOverTcp) {
  StartUnit(Transport::Tcp);
  Peer peer(SOCK_STREAM, [](Peer& peer) {
    int host = -1;
    while (peer.running && (host = accept(peer.fd, nullptr, nullptr)) < 0) {
    }
    std::string bytes = "LN{}1099511627776{}" + std::string(1000, 'A');
    for (int i = 0; i <= 100 && peer.running; ++i, bytes.assign(1 << 20, 'x'))
      for (std::size_t at = 0; at < bytes.size() && peer.running;) {
        const ssize_t n = send(host, bytes.data() + at, bytes.size() - at, MSG_NOSIGNAL);
        if (n <= 0) break;
        at += static_cast<std::size_t>(n);
      }
    close(host);
  });
  Expect("2^40-byte frame, 100 MiB garbage", peer.port);
}

// The peer answers each of camrelay's datagrams with an acceptance of 2^31
// packets, or floods it with bytes that make no message. (A flood of the
// unit's own codes could end the request in progress, which the protocol
// cannot tell from the unit.)
TEST_F(Hostile, HugeAcceptanceAndFloodOverUdp) {
  StartUnit(Transport::Udp);
  auto answer = [](bool flood) {
    return [flood](Peer& peer) {
      char buffer[65536];
      sockaddr_in host{};
      socklen_t length = sizeof host;
      while (peer.running) {
        if (recvfrom(peer.fd, buffer, sizeof buffer, 0, reinterpret_cast<sockaddr*>(&host), &length) <= 0) continue;
        static const std::string kJunk[] = {"Z", std::string(1, '\0'), "LN", "{", "\xff\xfe"};
        const auto start = Clock::now();
        // 100 datagrams every 10 ms, for 10 seconds.
        for (int i = 0; flood && peer.running && Clock::now() - start < std::chrono::seconds(10); ++i, ++peer.sent) {
          const std::string& junk = kJunk[i % std::size(kJunk)];
          sendto(peer.fd, junk.data(), junk.size(), 0, reinterpret_cast<sockaddr*>(&host), length);
          if (i % 100 == 99) std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        const std::string huge = "AA{}2147483648{}02";
        if (!flood) sendto(peer.fd, huge.data(), huge.size(), 0, reinterpret_cast<sockaddr*>(&host), length);
      }
    };
  };
  {
    Peer peer(SOCK_DGRAM, answer(false));
    Expect("acceptance of 2^31 packets", peer.port);
  }
  Peer peer(SOCK_DGRAM, answer(true));
  Expect("10 s of 10 000 datagrams/s", peer.port);
  EXPECT_GE(peer.sent, 50000) << "the flood fell short of its rate";
}

}  // namespace
}  // namespace camrelay::e2e
