#include "web/http_server.h"

#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/websocket.hpp>
#include <array>
#include <deque>
#include <limits>

#include "web/api.h"
#include "web/live_link.h"

namespace camrelay::web {

namespace beast = boost::beast;
namespace http = beast::http;
namespace websocket = beast::websocket;
using tcp = boost::asio::ip::tcp;

namespace {

// A page's requests are small; a client that takes longer than this to say
// what it wants, or says nothing, is let go so that it holds no descriptor.
constexpr auto kHeaderTimeout = std::chrono::seconds(10);
constexpr std::uint32_t kHeaderLimit = 16 * 1024;
// A picked file may take a while on a slow machine, but not for ever.
constexpr auto kBodyTimeout = std::chrono::minutes(5);
constexpr auto kLinger = std::chrono::seconds(1);
// Well below the usual limit of 1024 descriptors, so that the link, the
// database and the files it writes always find one.
constexpr int kMaxConnections = 200;
// After an accept fails (out of descriptors) connections must end before
// another can be taken: wait a little rather than spin.
constexpr auto kAcceptPause = std::chrono::milliseconds(100);
// What may wait for a page that does not read: beyond this it is dropped,
// and catches up when it connects again.
constexpr std::size_t kOutboxLimit = 4 * 1024 * 1024;

}  // namespace

// One page's live channel: messages are written one after the other, in the
// order they were published. A newer image replaces one still waiting, and a
// page that lets more than kOutboxLimit pile up is closed.
class WebSocketSession : public std::enable_shared_from_this<WebSocketSession> {
 public:
  WebSocketSession(beast::tcp_stream stream, std::shared_ptr<int> connections)
      : ws_(std::move(stream)), slot_(std::move(connections)) {}

  // What is published before the handshake ends waits behind the welcome.
  void Start(RequestHead request, const std::vector<nlohmann::json>& welcome) {
    for (const auto& message : welcome) Queue(Kind(message), Text(message));
    beast::get_lowest_layer(ws_).expires_never();
    ws_.set_option(websocket::stream_base::timeout::suggested(beast::role_type::server));
    request_ = std::move(request);
    ws_.async_accept(request_, [self = shared_from_this()](beast::error_code ec) {
      if (ec) return;
      self->open_ = true;
      if (!self->outbox_.empty()) self->Write();
      self->Read();
    });
  }

  void Send(const std::string& kind, const std::string& text) {
    if (closed_) return;
    const bool idle = outbox_.empty();
    Queue(kind, text);
    if (queuedBytes_ > kOutboxLimit) return Drop();
    if (open_ && idle) Write();
  }

  static std::string Text(const nlohmann::json& message) {
    return message.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
  }
  static std::string Kind(const nlohmann::json& message) { return message.value("type", ""); }

 private:
  struct Outgoing {
    std::string kind;
    std::string text;
  };

  // Only the latest image matters to a page that is behind: the one still
  // waiting (not the one being written) is replaced.
  void Queue(const std::string& kind, const std::string& text) {
    const std::size_t firstWaiting = open_ && !outbox_.empty() ? 1 : 0;
    if (kind == "image") {
      for (std::size_t i = outbox_.size(); i-- > firstWaiting;)
        if (outbox_[i].kind == "image") {
          queuedBytes_ -= outbox_[i].text.size();
          outbox_.erase(outbox_.begin() + static_cast<std::ptrdiff_t>(i));
          break;
        }
    }
    queuedBytes_ += text.size();
    outbox_.push_back({kind, text});
  }

  void Drop() {
    closed_ = true;
    outbox_.clear();
    queuedBytes_ = 0;
    beast::get_lowest_layer(ws_).socket().close();
  }

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
    ws_.async_write(boost::asio::buffer(outbox_.front().text), [self = shared_from_this()](beast::error_code ec,
                                                                                          std::size_t) {
      if (ec || self->closed_) {
        self->closed_ = true;
        self->outbox_.clear();
        self->queuedBytes_ = 0;
        return;
      }
      self->queuedBytes_ -= self->outbox_.front().text.size();
      self->outbox_.pop_front();
      if (!self->outbox_.empty()) self->Write();
    });
  }

  websocket::stream<beast::tcp_stream> ws_;
  RequestHead request_;  // the upgrade asked for, until it is answered
  HttpServer::Slot slot_;
  bool open_ = false;
  bool closed_ = false;
  beast::flat_buffer incoming_;
  std::deque<Outgoing> outbox_;
  std::size_t queuedBytes_ = 0;
};

// One HTTP connection: requests in turn, until the page closes it or asks
// for the WebSocket. The headers are read first: the token, the route and
// the announced size are checked before a byte of the body is read.
class HttpSession : public std::enable_shared_from_this<HttpSession> {
 public:
  HttpSession(tcp::socket socket, HttpServer& server, std::shared_ptr<int> connections)
      : stream_(std::move(socket)), server_(server), slot_(std::move(connections)) {}

  void Read() {
    header_.emplace();
    header_->header_limit(kHeaderLimit);
    // The size announced is judged with the route, once the headers are in.
    // (No limit is the largest one: Beast's "none" compares below any size.)
    header_->body_limit(std::numeric_limits<std::uint64_t>::max());
    stream_.expires_after(kHeaderTimeout);
    http::async_read_header(stream_, buffer_, *header_, [self = shared_from_this()](beast::error_code ec, std::size_t) {
      if (!ec) self->OnHeader();
    });
  }

 private:
  void OnHeader() {
    const RequestHead& request = header_->get();
    const unsigned version = request.version();
    const auto target = ParseTarget(std::string(request.target()));
    if (!target || !Authorised(*target, server_.token())) return Write(Forbidden(version));
    if (websocket::is_upgrade(header_->get()) && target->path == "/ws") return Upgrade();
    const auto limit = BodyLimit(request.method(), target->path);
    if (!limit) return Write(Refusal(version, http::status::not_found, "no such page or action"));
    const auto announced = header_->content_length();
    if (announced && *announced > *limit)
      return Write(Refusal(version, http::status::payload_too_large,
                           "the request's body is larger than " + std::to_string(*limit) + " bytes"));
    if (TakesFile(target->path)) return ReadFile(*target, *limit);
    ReadBody(*limit);
  }

  void Upgrade() {
    auto socket = std::make_shared<WebSocketSession>(std::move(stream_), slot_.Share());
    server_.Adopt(socket);
    socket->Start(header_->release(), server_.link().Welcome());
  }

  void ReadBody(std::uint64_t limit) {
    body_.emplace(std::move(*header_));
    body_->body_limit(limit);
    stream_.expires_after(kBodyTimeout);
    http::async_read(stream_, buffer_, *body_, [self = shared_from_this()](beast::error_code ec, std::size_t) {
      if (ec == http::error::body_limit) return self->Write(Refusal(self->body_->get().version(), http::status::payload_too_large, "the request's body is too large"));
      if (!ec) self->Write(Answer(self->server_, self->body_->release()));
    });
  }

  // A picked file goes straight to disk, in a folder of its own.
  void ReadFile(const Target& target, std::uint64_t limit) {
    const auto destination = UploadDestination(server_, target);
    if (!destination) return Write(Refusal(header_->get().version(), http::status::bad_request,
                                           "'" + target.Param("name") + "' is not a plain file name"));
    file_.emplace(std::move(*header_));
    file_->body_limit(limit);
    beast::error_code ec;
    // Beast's file body opens narrow names; on Windows the path is wide.
    file_->get().body().open(destination->string().c_str(), beast::file_mode::write_new, ec);
    if (ec) return Write(Refusal(file_->get().version(), http::status::internal_server_error, "cannot keep the file picked"));
    stream_.expires_after(kBodyTimeout);
    http::async_read(stream_, buffer_, *file_, [self = shared_from_this(), path = *destination](beast::error_code ec,
                                                                                             std::size_t) {
      auto message = self->file_->release();
      message.body().close();
      if (ec) {
        std::error_code ignored;
        std::filesystem::remove_all(path.parent_path(), ignored);
        if (ec == http::error::body_limit)
          self->Write(Refusal(message.version(), http::status::payload_too_large, "the file picked is too large"));
        return;
      }
      self->Write(AnswerUpload(self->server_, Request(std::move(message.base())), path));
    });
  }

  void Write(Response answer) {
    auto response = std::make_shared<Response>(std::move(answer));
    response->prepare_payload();
    stream_.expires_after(kBodyTimeout);
    http::async_write(stream_, *response, [self = shared_from_this(), response](beast::error_code ec, std::size_t) {
      if (ec) return;
      if (!response->need_eof()) return self->Read();
      beast::error_code ignored;
      self->stream_.socket().shutdown(tcp::socket::shutdown_send, ignored);
      self->stream_.expires_after(kLinger);
      self->Discard();
    });
  }

  // A refused client may still be sending the body it announced: what it
  // sends is read and thrown away for a moment, so that closing does not
  // reset the connection before the client has read why it was refused.
  void Discard() {
    stream_.async_read_some(boost::asio::buffer(sink_), [self = shared_from_this()](beast::error_code ec, std::size_t) {
      if (!ec) self->Discard();
    });
  }

  beast::tcp_stream stream_;
  HttpServer& server_;
  HttpServer::Slot slot_;
  beast::flat_buffer buffer_;
  std::array<char, 16 * 1024> sink_;
  std::optional<http::request_parser<http::empty_body>> header_;
  std::optional<http::request_parser<http::string_body>> body_;
  std::optional<http::request_parser<http::file_body>> file_;
};

HttpServer::HttpServer(boost::asio::io_context& io, std::string token, LiveLink& link,
                       std::filesystem::path uploadDir)
    : token_(std::move(token)),
      link_(link),
      uploadDir_(std::move(uploadDir)),
      connections_(std::make_shared<int>(0)),
      acceptor_(io),
      acceptPause_(io) {}

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
    if (ec == boost::asio::error::operation_aborted) return;
    if (ec) {
      // Out of descriptors, most likely: accepting again at once would fail
      // again at once. Connections that time out make room.
      acceptPause_.expires_after(kAcceptPause);
      acceptPause_.async_wait([this](beast::error_code waited) {
        if (!waited) Accept();
      });
      return;
    }
    if (*connections_ < kMaxConnections)
      std::make_shared<HttpSession>(std::move(socket), *this, connections_)->Read();
    Accept();
  });
}

std::filesystem::path HttpServer::NewUploadFolder() {
  const std::filesystem::path folder = uploadDir_ / std::to_string(++uploads_);
  std::filesystem::create_directory(folder);
  return folder;
}

void HttpServer::Adopt(const std::shared_ptr<WebSocketSession>& socket) {
  std::erase_if(sockets_, [](const auto& weak) { return weak.expired(); });
  sockets_.push_back(socket);
}

void HttpServer::Broadcast(const nlohmann::json& message) {
  const std::string text = WebSocketSession::Text(message), kind = WebSocketSession::Kind(message);
  for (const auto& weak : sockets_)
    if (auto socket = weak.lock()) socket->Send(kind, text);
}

}  // namespace camrelay::web
