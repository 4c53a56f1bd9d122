// A minimal host: connect over UDP, follow the events, log in, and stop when
// the login has been answered (or after ten seconds).
//
//   example_host HOST PORT LOCAL_PORT CODE
//
// PORT is the unit's; LOCAL_PORT is this host's UDP socket, 0 for one the
// system picks. Exit status 0 when the code was accepted, 1 otherwise, 2 for
// bad arguments.
#include <boost/asio.hpp>
#include <charconv>
#include <iostream>
#include <optional>
#include <string_view>

#include "camrelay/clsClient.h"

namespace {

std::optional<int> PortArgument(std::string_view text, int lowest) {
  int port = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
  if (error != std::errc() || end != text.data() + text.size() || port < lowest || port > 65535) return std::nullopt;
  return port;
}

}  // namespace

int main(int argc, char** argv) {
  const auto port = argc == 5 ? PortArgument(argv[2], 1) : std::nullopt;
  const auto localPort = argc == 5 ? PortArgument(argv[3], 0) : std::nullopt;
  if (!port || !localPort) {
    std::cerr << "usage: example_host HOST PORT LOCAL_PORT CODE  (LOCAL_PORT 0: one the system picks)\n";
    return 2;
  }
  boost::asio::io_context io;
  camrelay::clsClient client(io);
  bool accepted = false;
  client.OnDebug = [](const std::string& line) { std::cerr << "debug: " << line << "\n"; };
  client.CambioStatoConnessione = [&](camrelay::StatoConnessioneEnum stato) {
    std::cout << "STATE " << stato << " " << camrelay::StatoConnessioneName(stato) << "\n";
    accepted = accepted || stato == camrelay::cConnessioneOK;
    if (stato == camrelay::cConnessioneOK || stato == camrelay::cConnessioneRifiutata ||
        stato == camrelay::cErroreConnessione)
      io.stop();
  };
  // The ports are the ones given: the per-user settings file is neither read
  // nor written.
  client.UsaFileImpostazioni(false);
  client.Connetti(argv[1], *port, *localPort, false, camrelay::sckUDPProtocol);
  client.StringaCodiceAccesso(argv[4]);  // the link holds the code
  client.RichiestaDiConnessione();
  io.run_for(std::chrono::seconds(10));
  return accepted ? 0 : 1;
}
