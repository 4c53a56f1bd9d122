// A minimal host: connect over UDP, follow the events, log in, and stop when
// the login has been answered (or after ten seconds).
#include <boost/asio.hpp>
#include <iostream>

#include "camrelay/clsClient.h"

int main(int argc, char** argv) {
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
  const std::string host = argc > 1 ? argv[1] : "127.0.0.1";
  const int port = argc > 2 ? std::atoi(argv[2]) : 19201;
  client.Connetti(host, port, 0, false, camrelay::sckUDPProtocol);
  client.StringaCodiceAccesso(argc > 3 ? argv[3] : "123456");  // the link holds the code
  client.RichiestaDiConnessione();
  io.run_for(std::chrono::seconds(10));
  return accepted ? 0 : 1;
}
