#include "web/http_server.h"

#include <boost/asio/strand.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/websocket.hpp>
#include <deque>

#include "web/api.h"
#include "web/live_link.h"

namespace camrelay::web {

namespace beast = boost::beast;
namespace http = beast::http;
namespace websocket = beast::websocket;
using tcp = boost::asio::ip::tcp;

namespace {

// A firmware file is the largest thing a page sends.
constexpr std::uint64_t kBodyLimit = 256ull * 1024 * 1024;

}  // namespace

// One page's live channel: messages are written one after the other, in the
// order they were published.
class WebSocketSession : public std::enable_shared_from_this<WebSocketSession> {
 public:
  explicit WebSocketSession(tcp::socket socket) : ws_(std::move(socket)) {}

  // What is published before the handshake ends waits behind the welcome.
  void Start(const Request& request, const std::vector<nlohmann::json>& welcome) {
    for (const auto& message : welcome) outbox_.push_back(Text(message));
    ws_.async_accept(request, [self = shared_from_this()](beast::error_code ec) {
      if (ec) return;
      self->open_ = true;
      if (!self->outbox_.empty()) self->Write();
      self->Read();
    });
  }

  void Send(std::string text) {
    outbox_.push_back(std::move(text));
    if (open_ && outbox_.size() == 1) Write();
  }

  static std::string Text(const nlohmann::json& message) {
    return message.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
  }

 private:
  // The page says nothing on this channel; reading notices when it goes.
  void Read() {
    ws_.async_read(incoming_, [self = shared_from_this()](beast::error_code ec, std::size_t) {
      if (ec) return;
      self->incoming_.consume(self->incoming_.size());
      self->Read();
    });
  }

  void Write() {
    ws_.text(true);
    ws_.async_write(boost::asio::buffer(outbox_.front()), [self = shared_from_this()](beast::error_code ec, std::size_t) {
      if (ec) {
        self->outbox_.clear();
        self->open_ = false;
        return;
      }
      self->outbox_.pop_front();
      if (!self->outbox_.empty()) self->Write();
    });
  }

  websocket::stream<tcp::socket> ws_;
  bool open_ = false;
  beast::flat_buffer incoming_;
  std::deque<std::string> outbox_;
};

// One HTTP connection: requests in turn, until the page closes it or asks
// for the WebSocket.
class HttpSession : public std::enable_shared_from_this<HttpSession> {
 public:
  HttpSession(tcp::socket socket, HttpServer& server) : socket_(std::move(socket)), server_(server) {}

  void Read() {
    parser_.emplace();
    parser_->body_limit(kBodyLimit);
    http::async_read(socket_, buffer_, *parser_, [self = shared_from_this()](beast::error_code ec, std::size_t) {
      if (!ec) self->Handle(self->parser_->release());
    });
  }

 private:
  void Handle(Request request) {
    const auto target = ParseTarget(std::string(request.target()));
    const bool authorised = target && Authorised(*target, server_.token());
    if (authorised && websocket::is_upgrade(request) && target->path == "/ws") {
      auto socket = std::make_shared<WebSocketSession>(std::move(socket_));
      server_.Adopt(socket);
      socket->Start(request, server_.link().Welcome());
      return;
    }
    auto response = std::make_shared<Response>(authorised ? Answer(server_, request) : Forbidden(request));
    response->prepare_payload();
    http::async_write(socket_, *response, [self = shared_from_this(), response](beast::error_code ec, std::size_t) {
      if (ec || response->need_eof()) {
        beast::error_code ignored;
        self->socket_.shutdown(tcp::socket::shutdown_send, ignored);
        return;
      }
      self->Read();
    });
  }

  tcp::socket socket_;
  HttpServer& server_;
  beast::flat_buffer buffer_;
  std::optional<http::request_parser<http::string_body>> parser_;
};

HttpServer::HttpServer(boost::asio::io_context& io, std::string token, LiveLink& link,
                       std::filesystem::path uploadDir)
    : token_(std::move(token)), link_(link), uploadDir_(std::move(uploadDir)), acceptor_(io) {}

HttpServer::~HttpServer() = default;

tcp::endpoint HttpServer::Listen(const ListenAddress& address) {
  const tcp::endpoint endpoint(boost::asio::ip::make_address(address.host), address.port);
  acceptor_.open(endpoint.protocol());
  acceptor_.set_option(tcp::acceptor::reuse_address(true));
  acceptor_.bind(endpoint);
  acceptor_.listen();
  Accept();
  return acceptor_.local_endpoint();
}

void HttpServer::Accept() {
  acceptor_.async_accept([this](beast::error_code ec, tcp::socket socket) {
    if (ec) return;
    std::make_shared<HttpSession>(std::move(socket), *this)->Read();
    Accept();
  });
}

void HttpServer::Adopt(const std::shared_ptr<WebSocketSession>& socket) {
  std::erase_if(sockets_, [](const auto& weak) { return weak.expired(); });
  sockets_.push_back(socket);
}

void HttpServer::Broadcast(const nlohmann::json& message) {
  const std::string text = WebSocketSession::Text(message);
  for (const auto& weak : sockets_)
    if (auto socket = weak.lock()) socket->Send(text);
}

}  // namespace camrelay::web
