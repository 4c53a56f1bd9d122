// The console's web server: the page, its requests and the WebSocket that
// carries the live updates. It runs on the loop the link runs on, so a
// request acts on the link directly. Every request and the WebSocket must
// carry the token; without it the answer is 403, given on the headers alone,
// and nothing acts. Whatever a client does (stalls, floods, never reads),
// the server's memory and descriptors stay bounded and it keeps accepting.
#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>
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
  // A fresh private folder for one file picked on the page, so that two
  // files of the same name never share a path while their jobs run.
  std::filesystem::path NewUploadFolder();
  void Adopt(const std::shared_ptr<WebSocketSession>& socket);

  // One open connection, HTTP or WebSocket, counted while it lives. The
  // count outlives the server: a connection's handler may be destroyed
  // with the loop, after the server.
  class Slot {
   public:
    explicit Slot(std::shared_ptr<int> count) : count_(std::move(count)) { ++*count_; }
    ~Slot() { --*count_; }
    Slot(const Slot&) = delete;
    Slot& operator=(const Slot&) = delete;
    // The same count, for a connection that takes over from this one.
    std::shared_ptr<int> Share() const { return count_; }

   private:
    std::shared_ptr<int> count_;
  };

 private:
  void Accept();

  std::string token_;
  LiveLink& link_;
  std::filesystem::path uploadDir_;
  int uploads_ = 0;
  std::shared_ptr<int> connections_;
  boost::asio::ip::tcp::acceptor acceptor_;
  boost::asio::steady_timer acceptPause_;
  std::vector<std::weak_ptr<WebSocketSession>> sockets_;
};

}  // namespace camrelay::web
