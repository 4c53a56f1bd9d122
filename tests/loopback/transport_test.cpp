// The link on real sockets over loopback, where the end-to-end tests cannot
// reach: a datagram from another port, the memory of an idle link, the real
// reply timer.
#include <gtest/gtest.h>

#include <boost/asio.hpp>
#include <malloc.h>

#include <chrono>
#include <filesystem>

#include "camrelay/clsClient.h"
#include "env_guard.h"
#include "link/frmClient.h"
#include "store/DataVideo.h"
#include "temp_dir.h"

using namespace camrelay;
namespace asio = boost::asio;
using asio::ip::udp;

namespace {

const asio::ip::address kLoopback = asio::ip::make_address("127.0.0.1");

// Runs the loop until done() or five seconds, whichever comes first.
template <class Done>
bool RunUntil(asio::io_context& io, Done done) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
  while (!done() && std::chrono::steady_clock::now() < deadline) {
    io.run_for(std::chrono::milliseconds(10));
    io.restart();
  }
  return done();
}

}  // namespace

// Another socket on the same machine is not the unit: its datagram is told
// apart by its port, before and after the unit's own, which arrives with
// every byte value intact.
TEST(Loopback, UdpTellsTheUnitsDatagramsFromAnyoneElses) {
  asio::io_context serverIo;
  udp::socket unit(serverIo, {kLoopback, 0});
  udp::socket stranger(serverIo, {kLoopback, 0});
  asio::io_context io;
  link::frmClient form(link::makeAsioPlatform(io), std::make_shared<store::DataVideo>());
  form.Form_Load();
  form.IpAddressRemote = "127.0.0.1";
  form.RemoteAddrPort = unit.local_endpoint().port();
  form.LocalAddrPort = 0;
  form.WskProtocol(sckUDPProtocol);
  ASSERT_EQ(form.Winsock1->state(), link::sckOpen);
  EXPECT_EQ(form.Panel.lblLocalIp, "Indirizzo IP locale: 127.0.0.1");  // the route to the unit

  // The link speaks first, as it does to a unit; the unit answers where it came from.
  std::array<char, 64> buffer{};
  udp::endpoint link;
  form.TrasmettiStringa("OK{}02");
  EXPECT_EQ(std::string(buffer.data(), unit.receive_from(asio::buffer(buffer), link)), "OK{}02");
  EXPECT_TRUE(RunUntil(io, [&] { return !form.TrasmissioneInCorso; })) << "the send completes";
  std::string bytes;
  for (int b = 0; b < 256; ++b) bytes.push_back(static_cast<char>(b));

  using Arrivals = std::vector<std::pair<std::string, bool>>;  // each datagram, and whether it is the unit's
  Arrivals got;
  form.Winsock1->onDataArrival = [&](long) {
    std::string data = form.Winsock1->getData();
    got.emplace_back(std::move(data), form.Winsock1->fromRemote());
  };
  stranger.send_to(asio::buffer(std::string("forged")), link);
  unit.send_to(asio::buffer(bytes), link);
  stranger.send_to(asio::buffer(std::string("forged again")), link);
  ASSERT_TRUE(RunUntil(io, [&] { return got.size() == 3; }));
  EXPECT_EQ(got, (Arrivals{{"forged", false}, {bytes, true}, {"forged again", false}}));
}

// A host may keep a thousand links open at once: a link set up and waiting
// (socket bound, database open) must not hold a receive buffer or a warm
// page cache of its own. Counted in heap bytes, which do not depend on the
// machine's load.
TEST(IdleLinks, HoldLittleMemoryEach) {
  test::ConfigHomeGuard home;
  test::TempDir dir;
  constexpr int kLinks = 20;
  constexpr std::size_t kMostBytesPerLink = 48 * 1024;
  asio::io_context io;
  std::vector<std::unique_ptr<clsClient>> links;
  auto heapInUse = [] {
    const auto info = mallinfo2();
    return info.uordblks + info.hblkhd;
  };
  const std::size_t before = heapInUse();
  for (int n = 0; n < kLinks; ++n) {
    const auto folder = dir / std::to_string(n);
    std::filesystem::create_directories(folder);
    auto client = std::make_unique<clsClient>(io);
    client->UsaFileImpostazioni(false);
    client->Connetti("127.0.0.1", 9, 0, false, n % 2 ? sckTCPProtocol : sckUDPProtocol, folder.string());
    client->StringaConnDB((folder / "VideoSentrova.db").string());
    client->ApriDB();
    ASSERT_EQ(client->Database().StatoDB, cDbAperto);
    links.push_back(std::move(client));
  }
  io.poll();
  EXPECT_LT((heapInUse() - before) / kLinks, kMostBytesPerLink);
}

// The real reply timer: a restart moves the tick on (the link restarts it at
// every packet), a shorter interval takes effect at once rather than after
// the wait already under way, and a timer disabled inside its own tick (as
// the link does) fires no more.
TEST(AsioTimer, RestartsMoveTheTickAndAShorterIntervalCountsAtOnce) {
  asio::io_context io;
  auto timer = link::makeAsioPlatform(io)->makeTimer();
  int ticks = 0;
  timer->onTick = [&] {
    ++ticks;
    timer->setEnabled(false);
  };
  timer->setInterval(300);
  timer->setEnabled(true);
  for (int i = 0; i < 15; ++i) {  // restarted every 30 ms for 450 ms: never due
    io.run_for(std::chrono::milliseconds(30));
    io.restart();
    timer->setInterval(300);
  }
  EXPECT_EQ(ticks, 0);
  timer->setInterval(60000);
  timer->setInterval(20);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_TRUE(RunUntil(io, [&] { return ticks > 0; }));
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(3));
  io.run_for(std::chrono::milliseconds(100));
  EXPECT_EQ(ticks, 1) << "a disabled timer does not tick";
}
