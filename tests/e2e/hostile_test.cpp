// A hostile peer in the unit's place sends a frame announcing 2^40 bytes,
// then 100 MiB with no frame marker: camrelay's peak memory stays under its
// bound and it ends, failed, saying so. (An acceptance announcing more
// packets than a download may hold, and datagrams from anyone but the unit,
// are the reception tests'; that the link serves the next request after
// such input is theirs and the conversation tests'.)
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "e2e_fixture.h"

namespace camrelay::e2e {
namespace {

// camrelay's own few MiB, one frame of the largest size and the reading of
// the socket; far below what the peer sends.
constexpr long kPeakBoundKiB = 96 * 1024;

class Hostile : public EndToEnd {};

TEST_F(Hostile, HugeFrameAndEndlessGarbageOverTcp) {
  StartUnit(Transport::Tcp);
  // A listening socket on a free loopback port, whose waits end within
  // 100 ms so that the peer's thread sees the test let go.
  const int listener = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  bind(listener, reinterpret_cast<sockaddr*>(&address), length);
  getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length);
  const timeval tick{0, 100000};
  setsockopt(listener, SOL_SOCKET, SO_RCVTIMEO, &tick, sizeof tick);
  listen(listener, 1);
  std::atomic<bool> running{true};
  std::thread peer([&] {
    int host = -1;
    while (running && (host = accept(listener, nullptr, nullptr)) < 0) {
    }
    std::string bytes = "LN{}1099511627776{}" + std::string(1000, 'A');
    for (int i = 0; i <= 100 && running; ++i, bytes.assign(1 << 20, 'x'))
      for (std::size_t at = 0; at < bytes.size() && running;) {
        const ssize_t n = send(host, bytes.data() + at, bytes.size() - at, MSG_NOSIGNAL);
        if (n <= 0) break;
        at += static_cast<std::size_t>(n);
      }
    close(host);
  });

  // Sent to the peer, camrelay gives up within its retries.
  peerPort = ntohs(address.sin_port);
  timing = {"--timeout-long", "2000", "--timeout-short", "2000", "--retries", "5"};
  const Outcome run = Host({"download-prog"});
  running = false;
  shutdown(listener, SHUT_RDWR);
  peer.join();
  close(listener);
  EXPECT_EQ(run.exit, 1) << run.err;
  EXPECT_TRUE(Failed(run, "download-prog")) << run.err;
  EXPECT_LT(run.peakRssKiB, kPeakBoundKiB);
}

}  // namespace
}  // namespace camrelay::e2e
