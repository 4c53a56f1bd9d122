// A hostile peer in the unit's place sends a frame announcing 2^40 bytes,
// then 100 MiB with no frame marker: camrelay's peak memory stays under its
// bound and it ends, failed, saying so. (An acceptance announcing more
// packets than a download may hold, and datagrams from anyone but the unit,
// are the reception tests'; that the link serves the next request after
// such input is theirs and the conversation tests'.)
#include <sys/socket.h>

#include <boost/asio.hpp>
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
  namespace asio = boost::asio;
  asio::io_context io;
  asio::ip::tcp::acceptor listener(io, {asio::ip::make_address("127.0.0.1"), 0});
  // The peer sends until camrelay has gone and its connection with it.
  std::thread peer([&] {
    boost::system::error_code gone;
    asio::ip::tcp::socket host = listener.accept(gone);
    std::string bytes = "LN{}1099511627776{}" + std::string(1000, 'A');
    for (int i = 0; i <= 100 && !gone; ++i, bytes.assign(1 << 20, 'x')) asio::write(host, asio::buffer(bytes), gone);
  });

  // Sent to the peer, camrelay gives up within its retries.
  peerPort = listener.local_endpoint().port();
  timing = {"--timeout-long", "2000", "--timeout-short", "2000", "--retries", "5"};
  const Outcome run = Host({"download-prog"});
  // A peer that camrelay never reached stops waiting for it.
  shutdown(listener.native_handle(), SHUT_RDWR);
  peer.join();
  EXPECT_EQ(run.exit, 1) << run.err;
  EXPECT_TRUE(Failed(run, "download-prog")) << run.err;
  EXPECT_LT(run.peakRssKiB, kPeakBoundKiB);
}

}  // namespace
}  // namespace camrelay::e2e
