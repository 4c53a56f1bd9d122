// The unit on UDP: one socket, one session per peer address. A datagram is
// one message.
#pragma once

#include <array>
#include <map>
#include <memory>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/udp.hpp>

#include "outbox.h"
#include "session.h"
#include "unit_context.h"

namespace camrelay::unit {

class UdpServer {
 public:
  // Binds at once; throws boost::system::system_error when it cannot.
  UdpServer(boost::asio::io_context& io, const boost::asio::ip::udp::endpoint& where, UnitContext& unit);

  boost::asio::ip::udp::endpoint Local() const { return socket_.local_endpoint(); }

 private:
  struct Peer {
    Session session;
    Outbox outbox;
  };

  void Receive();
  Peer& PeerAt(const boost::asio::ip::udp::endpoint& from);

  boost::asio::io_context& io_;
  UnitContext& unit_;
  boost::asio::ip::udp::socket socket_;
  boost::asio::ip::udp::endpoint from_;
  std::array<char, 65536> buffer_{};
  std::map<boost::asio::ip::udp::endpoint, std::unique_ptr<Peer>> peers_;
};

}  // namespace camrelay::unit
