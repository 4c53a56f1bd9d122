#include "server_tcp.h"

#include <boost/asio/socket_base.hpp>
#include <boost/asio/write.hpp>

namespace camrelay::unit {

using boost::asio::ip::tcp;

TcpConnection::TcpConnection(boost::asio::io_context& io, tcp::socket socket, UnitContext& unit)
    : socket_(std::move(socket)),
      unit_(unit),
      session_(unit.content, unit.codes, unit.faults, true, unit.log),
      outbox_(io, [this](const std::string& message) { Write(Frame(message)); }, [this] { Reset(); }) {}

void TcpConnection::Read() {
  socket_.async_read_some(boost::asio::buffer(buffer_), [self = shared_from_this()](
                                                             const boost::system::error_code& error, std::size_t size) {
    if (error) return;  // closed by the peer or reset: the connection ends here
    const int dropped = self->reader_.Dropped();
    for (const auto& message : self->reader_.Feed(std::string_view(self->buffer_.data(), size)))
      self->outbox_.Post(self->session_.Receive(message));
    if (self->reader_.Dropped() != dropped) self->unit_.log.Info("an oversized frame was dropped");
    if (self->socket_.is_open()) self->Read();
  });
}

void TcpConnection::Write(const std::string& message) {
  writes_.push_back(message);
  if (writes_.size() == 1) WriteNext();
}

void TcpConnection::WriteNext() {
  boost::asio::async_write(socket_, boost::asio::buffer(writes_.front()),
                           [self = shared_from_this()](const boost::system::error_code& error, std::size_t) {
                             if (error) return;
                             self->writes_.pop_front();
                             if (!self->writes_.empty())
                               self->WriteNext();
                             else if (self->resetPending_)
                               self->ResetNow();
                           });
}

void TcpConnection::Reset() {
  if (writes_.empty())
    ResetNow();
  else
    resetPending_ = true;
}

// A linger time of zero makes the close send a reset instead of a goodbye.
void TcpConnection::ResetNow() {
  boost::system::error_code ignored;
  socket_.set_option(boost::asio::socket_base::linger(true, 0), ignored);
  socket_.close(ignored);
}

TcpServer::TcpServer(boost::asio::io_context& io, const tcp::endpoint& where, UnitContext& unit)
    : io_(io), unit_(unit), acceptor_(io, where) {
  Accept();
}

void TcpServer::Accept() {
  acceptor_.async_accept([this](const boost::system::error_code& error, tcp::socket socket) {
    if (error == boost::asio::error::operation_aborted) return;
    if (!error) std::make_shared<TcpConnection>(io_, std::move(socket), unit_)->Start();
    Accept();
  });
}

}  // namespace camrelay::unit
