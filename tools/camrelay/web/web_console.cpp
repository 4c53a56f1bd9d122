#include "web/web_console.h"

#include <boost/asio/signal_set.hpp>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <optional>

#include "system.h"
#include "web/access.h"
#include "web/http_server.h"
#include "web/live_link.h"

namespace camrelay::web {

namespace fs = std::filesystem;

namespace {

ListenAddress CheckedListen(const cli::WebConsoleOptions& options, host::Console& console) {
  ListenAddress address;
  try {
    address = ParseListen(options.listen);
  } catch (const std::invalid_argument& e) {
    throw host::UsageError(e.what());
  }
  if (IsLoopback(address.host)) return address;
  if (!options.allowRemote)
    throw host::UsageError("--listen: " + address.host +
                          " is not a loopback address; add --allow-remote to serve the page to other machines");
  console.Error("warning: the page is served on " + address.host +
                " to every machine that can reach it; whoever has its address and token can drive the unit");
  return address;
}

std::string HostInUrl(const boost::asio::ip::address& address) {
  return address.is_v6() ? "[" + address.to_string() + "]" : address.to_string();
}

// A page, readable by this user only, that forwards to the console: the
// browser is given its path, and the token never appears on a command line,
// where every local user could read it.
std::optional<fs::path> WriteOpener(const fs::path& folder, const std::string& url) {
  const fs::path file = folder / "open.html";
  std::ofstream out(file, std::ios::binary);
  std::error_code ec;
  fs::permissions(file, fs::perms::owner_read | fs::perms::owner_write, ec);
  out << "<!doctype html><meta charset=\"utf-8\"><meta http-equiv=\"refresh\" content=\"0;url=" << url
      << "\"><title>CamRelay console</title><a href=\"" << url << "\">CamRelay console</a>\n";
  out.close();
  if (!out || ec) return std::nullopt;
  return file;
}

void OpenBrowser(const fs::path& privateDir, const std::string& url, host::Console& console) {
  const auto opener = WriteOpener(privateDir, url);
  if (!opener) {
    console.Error("cannot write the page that opens the console; open the address above yourself");
    return;
  }
  if (!cli::OpenInBrowser(opener->string())) console.Error("cannot open a browser; open the address above yourself");
}

}  // namespace

int RunWebConsole(const cli::Invocation& invocation, host::Console& console) {
  const cli::WebConsoleOptions& options = *invocation.webConsole;
  const ListenAddress listen = CheckedListen(options, console);
  boost::asio::io_context io;
  std::unique_ptr<HttpServer> server;
  LiveLink link(io, invocation, console, [&server](const nlohmann::json& message) {
    if (server) server->Broadcast(message);
  });
  // A private folder for the files the user picks on the page and the page
  // that opens the console.
  const fs::path privateDir = cli::MakePrivateFolder("camrelay-console-");
  server = std::make_unique<HttpServer>(io, MakeToken(), link, privateDir);
  int status = 0;
  try {
    const auto endpoint = server->Listen(listen);
    if (const auto failure = link.Open()) {
      console.Error(*failure);
      status = 1;
    } else {
      const std::string url = "http://" + HostInUrl(endpoint.address()) + ":" + std::to_string(endpoint.port()) +
                              "/?token=" + server->token();
      std::cout << url << std::endl;
      if (options.open) OpenBrowser(privateDir, url, console);
      boost::asio::signal_set signals(io, SIGINT, SIGTERM);
      signals.async_wait([&io](const boost::system::error_code&, int) { io.stop(); });
      io.run();
    }
  } catch (const boost::system::system_error& e) {
    console.Error("cannot serve the page on " + listen.host + ":" + std::to_string(listen.port) + ": " + e.what());
    status = 1;
  }
  std::error_code ec;
  fs::remove_all(privateDir, ec);
  return status;
}

}  // namespace camrelay::web
