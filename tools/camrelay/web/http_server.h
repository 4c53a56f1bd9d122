// The console's web server: the page, its requests and the WebSocket that
// carries the live updates. It runs on the loop the link runs on, so a
// request acts on the link directly. Every request and the WebSocket must
// carry the token; without it the answer is 403 and nothing acts.
#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "web/access.h"

namespace camrelay::web {

class LiveLink;
class WebSocketSession;

class HttpServer {
 public:
  // uploadDir: a private folder where the files the user picks on the page
  // are put before they are sent.
  HttpServer(boost::asio::io_context& io, std::string token, LiveLink& link, std::filesystem::path uploadDir);
  ~HttpServer();

  // Binds and starts accepting; returns the address really bound. Throws
  // boost::system::system_error when the address cannot be bound.
  boost::asio::ip::tcp::endpoint Listen(const ListenAddress& address);
  // Sends a message to every page connected.
  void Broadcast(const nlohmann::json& message);

  const std::string& token() const { return token_; }
  LiveLink& link() { return link_; }
  const std::filesystem::path& uploadDir() const { return uploadDir_; }
  void Adopt(const std::shared_ptr<WebSocketSession>& socket);

 private:
  void Accept();

  std::string token_;
  LiveLink& link_;
  std::filesystem::path uploadDir_;
  boost::asio::ip::tcp::acceptor acceptor_;
  std::vector<std::weak_ptr<WebSocketSession>> sockets_;
};

}  // namespace camrelay::web
