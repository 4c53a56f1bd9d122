// The unit on TCP: one session per connection, messages framed in the byte
// stream.
#pragma once

#include <array>
#include <deque>
#include <memory>
#include <string>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>

#include "frames.h"
#include "outbox.h"
#include "session.h"
#include "unit_context.h"

namespace camrelay::unit {

class TcpConnection : public std::enable_shared_from_this<TcpConnection> {
 public:
  TcpConnection(boost::asio::io_context& io, boost::asio::ip::tcp::socket socket, UnitContext& unit);
  void Start() { Read(); }

 private:
  void Read();
  void Write(const std::string& message);
  void WriteNext();
  // Resets once everything handed to the socket before has been written.
  void Reset();
  void ResetNow();

  boost::asio::ip::tcp::socket socket_;
  UnitContext& unit_;
  FrameReader reader_;
  Session session_;
  Outbox outbox_;
  std::deque<std::string> writes_;
  bool resetPending_ = false;
  std::array<char, 65536> buffer_{};
};

class TcpServer {
 public:
  // Listens at once; throws boost::system::system_error when it cannot.
  TcpServer(boost::asio::io_context& io, const boost::asio::ip::tcp::endpoint& where, UnitContext& unit);

  boost::asio::ip::tcp::endpoint Local() const { return acceptor_.local_endpoint(); }

 private:
  void Accept();

  boost::asio::io_context& io_;
  UnitContext& unit_;
  boost::asio::ip::tcp::acceptor acceptor_;
};

}  // namespace camrelay::unit
