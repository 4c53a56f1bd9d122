// How fast a large transfer goes against the physical limit of loopback:
//   - a 64 MiB firmware upload and a 64 MiB clip download between camrelay
//     and camrelay-unit, over UDP and TCP, in packets per second;
//   - beside each, a raw stop-and-wait ping-pong written here: the same
//     message sizes, each answered with "OK" before the next goes, with no
//     protocol work at all. Aim: the transfers reach 0.9 of the raw rate.
//   - a TCP stream handed to the link one byte per read: the time to cut N
//     and 2N bytes into frames (aim: at most 2.2 times, i.e. linear).
//
//   cmake --build build --target bench_transfer_bench && build/bench/bench_transfer_bench
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <boost/asio.hpp>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "files/firmware.h"
#include "link_fixture.h"

namespace fs = std::filesystem;
namespace asio = boost::asio;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

namespace {

constexpr std::size_t kFileBytes = 64u << 20;
constexpr std::size_t kMediaPacketBytes = 3072;  // what the unit puts in one media packet
constexpr const char* kAck = "OK";

double Since(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

fs::path Program(const std::string& name) { return fs::path(CAMRELAY_BINARY_DIR) / "tools" / name; }

std::string Slurp(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

std::string Frame(const std::string& message) { return "LN{}" + std::to_string(message.size()) + "{}" + message; }

// ---- The raw ping-pong. ---------------------------------------------------------

// Sends each message, waits for its "OK", sends the next. Returns packets/s.
double RawUdp(const std::vector<std::size_t>& sizes) {
  asio::io_context io;
  const auto loopback = asio::ip::make_address("127.0.0.1");
  asio::ip::udp::socket peer(io, {loopback, 0}), sender(io, {loopback, 0});
  const auto peerAt = peer.local_endpoint(), senderAt = sender.local_endpoint();
  std::thread answering([&] {
    std::vector<char> buffer(65536);
    asio::ip::udp::endpoint from;
    for (std::size_t i = 0; i < sizes.size(); ++i) {
      peer.receive_from(asio::buffer(buffer), from);
      peer.send_to(asio::buffer(std::string(kAck)), senderAt);
    }
  });
  std::vector<char> ack(64);
  const auto start = Clock::now();
  for (const std::size_t size : sizes) {
    sender.send_to(asio::buffer(std::string(size, 'x')), peerAt);
    sender.receive(asio::buffer(ack));
  }
  const double seconds = Since(start);
  answering.join();
  return sizes.size() / seconds;
}

double RawTcp(const std::vector<std::size_t>& sizes) {
  asio::io_context io;
  asio::ip::tcp::acceptor acceptor(io, {asio::ip::make_address("127.0.0.1"), 0});
  asio::ip::tcp::socket sender(io), peer(io);
  sender.connect(acceptor.local_endpoint());
  acceptor.accept(peer);
  sender.set_option(asio::ip::tcp::no_delay(true));
  peer.set_option(asio::ip::tcp::no_delay(true));
  const std::string ack = Frame(kAck);
  std::thread answering([&] {
    std::vector<char> buffer(65536 + 64);
    for (const std::size_t size : sizes) {
      asio::read(peer, asio::buffer(buffer, Frame(std::string(size, 'x')).size()));
      asio::write(peer, asio::buffer(ack));
    }
  });
  std::vector<char> in(ack.size());
  const auto start = Clock::now();
  for (const std::size_t size : sizes) {
    asio::write(sender, asio::buffer(Frame(std::string(size, 'x'))));
    asio::read(sender, asio::buffer(in));
  }
  const double seconds = Since(start);
  answering.join();
  return sizes.size() / seconds;
}

// ---- The real transfers. ----------------------------------------------------------

class Unit {
 public:
  explicit Unit(const fs::path& dir) : dir_(dir) {
    pid_ = fork();
    if (pid_ == 0) {
      const int out = open((dir.parent_path() / "unit.out").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
      dup2(out, 1);
      execl(Program("camrelay-unit").c_str(), "camrelay-unit", "--dir", dir.c_str(), "--udp", "--tcp", "--port", "0",
            "--exit-after", "3600", "-q", nullptr);
      _exit(127);
    }
    std::string text;
    for (const auto deadline = Clock::now() + 60s; std::count(text.begin(), text.end(), '\n') < 2;
         std::this_thread::sleep_for(50ms)) {
      if (Clock::now() > deadline) throw std::runtime_error("camrelay-unit did not start");
      text = Slurp(dir.parent_path() / "unit.out");
    }
    port_ = std::stoi(text.substr(text.find(':') + 1));
  }
  ~Unit() {
    kill(pid_, SIGTERM);
    waitpid(pid_, nullptr, 0);
  }
  int port() const { return port_; }
  const fs::path& dir() const { return dir_; }

 private:
  fs::path dir_;
  pid_t pid_ = -1;
  int port_ = 0;
};

int FreeUdpPort() {
  asio::io_context io;
  asio::ip::udp::socket socket(io, {asio::ip::make_address("127.0.0.1"), 0});
  return socket.local_endpoint().port();
}

// Runs camrelay with the link options for the unit; returns its wall time.
double Camrelay(const Unit& unit, const fs::path& hostDir, bool tcp, const std::vector<std::string>& command) {
  std::vector<std::string> args{"camrelay", "--host", "127.0.0.1", "--port", std::to_string(unit.port()),
                                tcp ? "--tcp" : "--udp", "--code", "123456", "--dir", hostDir.string(), "-q"};
  if (!tcp) args.insert(args.end(), {"--local-port", std::to_string(FreeUdpPort())});
  args.insert(args.end(), command.begin(), command.end());
  const auto start = Clock::now();
  const pid_t pid = fork();
  if (pid == 0) {
    std::vector<char*> argv;
    for (auto& a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    execv(Program("camrelay").c_str(), argv.data());
    _exit(127);
  }
  int status = 0;
  waitpid(pid, &status, 0);
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) throw std::runtime_error("camrelay failed");
  return Since(start);
}

// ---- Cutting a stream read one byte at a time. --------------------------------------

// A TCP multimedia download of `packets` packets, its frames handed to the
// link one byte per read. Returns the seconds and the bytes of the stream.
std::pair<double, std::size_t> OneByteReads(std::size_t packets) {
  camrelay::test::LinkFixture f(0);
  f.form().AddRichiesta("56", "stream.avi");
  f.connect();
  f.unitSends("AA{}" + std::to_string(packets + 1) + "{}56");
  std::string stream;
  const std::string payload(kMediaPacketBytes, 'v');
  for (std::size_t i = 0; i < packets; ++i) stream += Frame("{}" + payload);
  stream += Frame("{}");
  const auto start = Clock::now();
  for (const char byte : stream) f.socket().deliver(std::string(1, byte));
  const double seconds = Since(start);
  if (fs::file_size(f.dir() / "VideoAvi" / "stream.avi") != packets * kMediaPacketBytes)
    throw std::runtime_error("the one-byte stream was not cut right");
  return {seconds, stream.size()};
}

}  // namespace

int main() {
  const fs::path work = fs::temp_directory_path() / ("camrelay-transfer-bench-" + std::to_string(getpid()));
  fs::create_directories(work / "host");
  setenv("XDG_CONFIG_HOME", (work / "config").c_str(), 1);
  try {
    std::mt19937 random(7);
    std::string bytes(kFileBytes, '\0');
    for (char& c : bytes) c = static_cast<char>(random());
    std::ofstream(work / "firmware.bin", std::ios::binary).write(bytes.data(), bytes.size());

    // The message sizes each transfer puts on the wire, packet after packet.
    std::vector<std::string> firmware;
    camrelay::store::LoadFileAgg(firmware, nullptr, "123456", (work / "firmware.bin").string());
    std::vector<std::size_t> uploadSizes, downloadSizes;
    for (std::size_t i = 1; i < firmware.size(); ++i) uploadSizes.push_back(firmware[i].size());
    firmware.clear();
    for (std::size_t left = kFileBytes; left > 0; left -= std::min(left, kMediaPacketBytes))
      downloadSizes.push_back(2 + std::min(left, kMediaPacketBytes));
    downloadSizes.push_back(2);

    const Unit unit(work / "unit");
    fs::create_directories(unit.dir() / "VideoAvi");
    std::ofstream(unit.dir() / "VideoAvi" / "clip.avi", std::ios::binary).write(bytes.data(), bytes.size());

    std::printf("%-4s %-26s %9s %12s %12s %8s %s\n", "", "transfer (64 MiB)", "packets", "seconds", "packets/s",
                "of raw", "raw packets/s");
    std::fflush(stdout);
    for (const bool tcp : {false, true}) {
      const char* transport = tcp ? "TCP" : "UDP";
      const double rawUp = tcp ? RawTcp(uploadSizes) : RawUdp(uploadSizes);
      const double up = Camrelay(unit, work / "host", tcp, {"upload-firmware", (work / "firmware.bin").string()});
      const bool upExact = Slurp(unit.dir() / "Firmware" / "firmware.bin") == bytes;
      std::printf("%-4s %-26s %9zu %12.2f %12.0f %8.2f %.0f%s\n", transport, "firmware upload", uploadSizes.size(),
                  up, uploadSizes.size() / up, uploadSizes.size() / up / rawUp, rawUp,
                  upExact ? "" : "  (the unit's copy DIFFERS)");
      fs::remove(work / "host" / "VideoAvi" / "clip.avi");
      const double rawDown = tcp ? RawTcp(downloadSizes) : RawUdp(downloadSizes);
      const double down = Camrelay(unit, work / "host", tcp, {"download-media", "clip.avi"});
      const bool downExact = Slurp(work / "host" / "VideoAvi" / "clip.avi") == bytes;
      std::printf("%-4s %-26s %9zu %12.2f %12.0f %8.2f %.0f%s\n", transport, "clip download", downloadSizes.size(),
                  down, downloadSizes.size() / down, downloadSizes.size() / down / rawDown, rawDown,
                  downExact ? "" : "  (the host's copy DIFFERS)");
      std::fflush(stdout);
    }

    // The best of five of each: the time of a busy machine only ever adds.
    auto best = [](std::size_t packets) {
      auto result = OneByteReads(packets);
      for (int run = 1; run < 5; ++run) result.first = std::min(result.first, OneByteReads(packets).first);
      return result;
    };
    const auto [small, smallBytes] = best(256);
    const auto [large, largeBytes] = best(512);
    std::printf("TCP stream in 1-byte reads: %zu bytes %.3f s, %zu bytes %.3f s: %.2f times (aim <= 2.2)\n",
                smallBytes, small, largeBytes, large, large / small);
  } catch (const std::exception& e) {
    std::fprintf(stderr, "bench_transfer_bench: %s\n", e.what());
    fs::remove_all(work);
    return 1;
  }
  fs::remove_all(work);
  return 0;
}
