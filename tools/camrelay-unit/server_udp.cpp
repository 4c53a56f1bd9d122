#include "server_udp.h"

#include <string>

namespace camrelay::unit {

using boost::asio::ip::udp;

UdpServer::UdpServer(boost::asio::io_context& io, const udp::endpoint& where, UnitContext& unit)
    : io_(io), unit_(unit), socket_(io, where) {
  Receive();
}

UdpServer::Peer& UdpServer::PeerAt(const udp::endpoint& from) {
  auto& peer = peers_[from];
  if (!peer) {
    auto send = [this, from](const std::string& message) {
      boost::system::error_code error;
      socket_.send_to(boost::asio::buffer(message), from, 0, error);
      if (error) unit_.log.Error("sending to " + from.address().to_string() + ": " + error.message());
    };
    // A datagram socket has no connection to reset.
    peer.reset(new Peer{Session(unit_.content, unit_.codes, unit_.faults, false, unit_.log),
                        Outbox(io_, send, [] {})});
  }
  return *peer;
}

void UdpServer::Receive() {
  socket_.async_receive_from(boost::asio::buffer(buffer_), from_,
                             [this](const boost::system::error_code& error, std::size_t size) {
                               if (error == boost::asio::error::operation_aborted) return;
                               if (!error) {
                                 Peer& peer = PeerAt(from_);
                                 peer.outbox.Post(peer.session.Receive(std::string_view(buffer_.data(), size)));
                               }
                               Receive();
                             });
}

}  // namespace camrelay::unit
