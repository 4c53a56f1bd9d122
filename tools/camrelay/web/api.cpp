#include "web/api.h"

#include <filesystem>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <functional>
#include <set>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "cli.h"
#include "files/safe_name.h"
#include "system.h"
#include "web/access.h"
#include "web/http_server.h"
#include "web/live_link.h"
#include "web/page_files.h"
#include "web/tables.h"

namespace camrelay::web {

namespace http = boost::beast::http;
namespace fs = std::filesystem;
using nlohmann::json;

namespace {

// Folders of the working folder the page may list and read from.
constexpr const char* kMediaFolders[] = {"Snapshot", "VideoAvi"};

// The routes' bodies: a picked firmware file, or a small JSON object.
constexpr std::uint64_t kFileLimit = 64ull * 1024 * 1024;
constexpr std::uint64_t kJsonLimit = 64 * 1024;

// The page runs its own script only, and talks to its own server only; what
// the server sends is never taken for something other than its type.
constexpr const char* kContentPolicy =
    "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' data:; connect-src 'self'; "
    "media-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'";

Response Reply(unsigned version, bool keepAlive, http::status status, std::string body, const char* type) {
  Response response{status, version};
  response.set(http::field::content_type, type);
  response.set(http::field::cache_control, "no-store");
  response.set("X-Content-Type-Options", "nosniff");
  response.set("Content-Security-Policy", kContentPolicy);
  response.set("Referrer-Policy", "no-referrer");
  response.keep_alive(keepAlive);
  response.body() = std::move(body);
  return response;
}

Response Reply(const Request& request, http::status status, std::string body, const char* type) {
  return Reply(request.version(), request.keep_alive(), status, std::move(body), type);
}

Response Json(const Request& request, const json& body, http::status status = http::status::ok) {
  return Reply(request, status, body.dump(-1, ' ', false, json::error_handler_t::replace), "application/json");
}

Response Error(const Request& request, http::status status, const std::string& reason) {
  return Json(request, json{{"error", reason}}, status);
}

std::string Lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
  return text;
}

const char* PageType(const std::string& name) {
  const std::string extension = fs::path(name).extension().string();
  if (extension == ".html") return "text/html; charset=utf-8";
  if (extension == ".js") return "text/javascript; charset=utf-8";
  return "text/css; charset=utf-8";
}

// Only the kinds of file a unit really sends keep their type; whatever else
// arrives under a name of the unit's choosing is bytes to save, never a
// page or a script of the console's origin.
std::optional<const char*> MediaType(const std::string& name) {
  const std::string extension = Lower(fs::path(name).extension().string());
  if (extension == ".jpg" || extension == ".jpeg") return "image/jpeg";
  if (extension == ".avi") return "video/x-msvideo";
  if (extension == ".wav") return "audio/wav";
  return std::nullopt;
}

// "attachment" with the name as RFC 6266 gives it: percent-encoded UTF-8 in
// filename*, so that no byte of the name can end the header or the field,
// and a plain ASCII fallback for the clients that know only filename.
std::string Attachment(const std::string& name) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string encoded, fallback;
  for (const unsigned char c : name) {
    const bool plain = std::isalnum(c) || std::string_view("!#$&+-.^_`|~").find(static_cast<char>(c)) != std::string_view::npos;
    if (plain) {
      encoded += static_cast<char>(c);
    } else {
      encoded += '%';
      encoded += kHex[c >> 4];
      encoded += kHex[c & 0xf];
    }
    fallback += plain ? static_cast<char>(c) : '_';
  }
  return "attachment; filename=\"" + fallback + "\"; filename*=UTF-8''" + encoded;
}

struct Call {
  HttpServer& server;
  const Request& request;
  const Target& target;
  LiveLink& link() const { return server.link(); }
};

Response Page(const Call& call, const std::string& name) {
  const auto content = PageFile(name);
  if (!content) return Error(call.request, http::status::not_found, "no such page file");
  std::string body(*content);
  // The page's own links carry the token like every other request.
  for (auto at = body.find("__TOKEN__"); at != std::string::npos; at = body.find("__TOKEN__", at))
    body.replace(at, 9, call.server.token());
  return Reply(call.request, http::status::ok, std::move(body), PageType(name));
}

json CommandTable() {
  json commands = json::array();
  for (const host::CommandInfo& info : host::Commands())
    commands.push_back(json{{"name", info.name},
                            {"argument", info.argument ? info.argument : ""},
                            {"help", info.help},
                            {"argumentHelp", info.argumentHelp}});
  return commands;
}

std::optional<host::Op> OpNamed(const std::string& name) {
  for (const host::CommandInfo& info : host::Commands())
    if (name == info.name) return info.op;
  return std::nullopt;
}

Response RunCommand(const Call& call, const json& body) {
  const std::string name = body.value("command", "");
  const auto op = OpNamed(name);
  if (!op) return Error(call.request, http::status::bad_request, "unknown command '" + name + "'");
  // A file to send only ever comes from the user's pick, through /api/firmware.
  if (*op == host::Op::UploadFirmware)
    return Error(call.request, http::status::bad_request, "upload-firmware: send the file picked to /api/firmware");
  host::Command command{*op, name, body.value("argument", ""), body.value("images", 5)};
  return Json(call.request, json{{"id", call.link().Run(std::move(command))}});
}

// The file the user picked, kept under its own name in a folder of its own,
// sent as the command line sends a firmware file: the job sends the very
// file it names, whatever is picked after it.
Response UploadFirmware(const Call& call, const fs::path& file) {
  host::Command command{host::Op::UploadFirmware, "upload-firmware", file.string()};
  return Json(call.request, json{{"id", call.link().Run(std::move(command))}});
}

// The connection bar: another unit, transport or code, with no restart. The
// code comes in here and is never sent back.
Response Connect(const Call& call, const json& body) {
  const std::string transport = body.value("transport", "UDP");
  const int port = body.value("port", 0);
  if (transport != "UDP" && transport != "TCP")
    return Error(call.request, http::status::bad_request, "transport: UDP or TCP");
  if (port < 0 || port > 65535) return Error(call.request, http::status::bad_request, "port: 1 to 65535");
  if (const auto failure = call.link().Connect(body.value("host", ""), port, transport == "TCP", body.value("code", "")))
    return Error(call.request, http::status::bad_gateway, *failure);
  return Json(call.request, json::object());
}

// The page's view of a table: which, in what order, filtered how.
TableQuery QueryOf(const Call& call) {
  TableQuery query;
  query.table = call.target.Param("name");
  query.sort = call.target.Param("sort");
  query.descending = call.target.Param("desc") == "1";
  query.filter = call.target.Param("filter");
  const std::string offset = call.target.Param("offset"), limit = call.target.Param("limit");
  if (!offset.empty()) query.offset = std::stol(offset);
  if (!limit.empty()) query.limit = std::stoi(limit);
  return query;
}

Response Table(const Call& call) { return Json(call.request, TablePage(call.link().database(), QueryOf(call))); }

// The export follows what the page shows: the same filter, the same order.
Response Csv(const Call& call) {
  const TableQuery query = QueryOf(call);
  Response response = Reply(call.request, http::status::ok, TableCsv(call.link().database(), query), "text/csv");
  response.set(http::field::content_disposition, Attachment(query.table + ".csv"));
  return response;
}

// One page of each folder's files, by name: a preview recorded for hours
// leaves more files than a page should list at once.
Response MediaList(const Call& call) {
  constexpr long kDefaultPage = 50, kMaxPage = 500;
  const std::string only = call.target.Param("folder"), offsetText = call.target.Param("offset"),
                    limitText = call.target.Param("limit");
  const long offset = offsetText.empty() ? 0 : std::max(0L, std::stol(offsetText));
  const long limit = limitText.empty() ? kDefaultPage : std::clamp(std::stol(limitText), 1L, kMaxPage);
  json folders = json::object();
  for (const char* folder : kMediaFolders) {
    if (!only.empty() && only != folder) continue;
    std::vector<std::pair<std::string, std::uintmax_t>> files;
    std::error_code ec;
    for (const auto& entry : fs::directory_iterator(call.link().dir() / folder, ec))
      if (fs::is_regular_file(entry.symlink_status(ec))) files.emplace_back(entry.path().filename().string(), entry.file_size(ec));
    std::sort(files.begin(), files.end());
    json page = json::array();
    for (long i = offset; i < static_cast<long>(files.size()) && i < offset + limit; ++i)
      page.push_back(json{{"name", call.link().ForPage(files[i].first)}, {"size", files[i].second}});
    folders[folder] = json{{"total", files.size()}, {"offset", offset}, {"files", page}};
  }
  return Json(call.request, folders);
}

// A file that arrived, by folder and name; the name goes through the same
// rule as every name the unit or the user gives.
Response MediaFile(const Call& call) {
  const std::string folder = call.target.Param("folder"), name = call.target.Param("name");
  const bool known = std::any_of(std::begin(kMediaFolders), std::end(kMediaFolders),
                                 [&](const char* f) { return folder == f; });
  if (!known || !store::IsPlainFileName(name))
    return Error(call.request, http::status::bad_request, "not a file of Snapshot/ or VideoAvi/");
  // A link planted in the folder would lead out of it: only files that are
  // really there are served, opened without following a link.
  const fs::path path = call.link().dir() / folder / name;
  std::optional<std::string> bytes = cli::ReadRegularFile(path);
  if (!bytes) return Error(call.request, http::status::not_found, "no such file: " + folder + "/" + name);
  const auto type = MediaType(name);
  Response response = Reply(call.request, http::status::ok, std::move(*bytes), type.value_or("application/octet-stream"));
  if (!type || call.target.Param("download") == "1")
    response.set(http::field::content_disposition, Attachment(name));
  return response;
}

// The player's buttons: the order, and the seek's seconds or the quality.
Response OrderClip(const Call& call, const json& body) {
  static const std::pair<const char*, host::PlaybackOrder> kOrders[] = {
      {"play", host::PlaybackOrder::Play},      {"pause", host::PlaybackOrder::Pause},
      {"next", host::PlaybackOrder::Next},      {"previous", host::PlaybackOrder::Previous},
      {"seek", host::PlaybackOrder::Seek},      {"quality", host::PlaybackOrder::Quality},
      {"close", host::PlaybackOrder::Close}};
  const std::string name = body.value("order", "");
  const auto it = std::find_if(std::begin(kOrders), std::end(kOrders), [&](const auto& o) { return name == o.first; });
  if (it == std::end(kOrders)) return Error(call.request, http::status::bad_request, "unknown order '" + name + "'");
  const double value = body.value("value", 0.0);
  // A time or a quality is a plain number: it becomes the text of a request.
  if (!std::isfinite(value) || value < 0 || value > 1e6)
    return Error(call.request, http::status::bad_request, "value: a number from 0 to 1000000");
  call.link().OrderClip(it->second, value);
  return Json(call.request, json::object());
}

Response Route(const Call& call, const fs::path* upload) {
  const std::string& path = call.target.path;
  const bool post = call.request.method() == http::verb::post;
  if (!post && call.request.method() != http::verb::get)
    return Error(call.request, http::status::method_not_allowed, "GET or POST only");
  if (!post) {
    if (path == "/" || path == "/index.html") return Page(call, "index.html");
    if (path == "/app.js" || path == "/style.css") return Page(call, path.substr(1));
    if (path == "/api/commands") return Json(call.request, CommandTable());
    if (path == "/api/tables") return Json(call.request, TableNames());
    if (path == "/api/table") return Table(call);
    if (path == "/api/csv") return Csv(call);
    if (path == "/api/media") return MediaList(call);
    if (path == "/api/media/file") return MediaFile(call);
    return Error(call.request, http::status::not_found, "no such page");
  }
  if (path == "/api/run") return RunCommand(call, json::parse(call.request.body()));
  if (path == "/api/firmware" && upload) return UploadFirmware(call, *upload);
  if (path == "/api/connect") return Connect(call, json::parse(call.request.body()));
  if (path == "/api/disconnect") {
    call.link().Disconnect();
    return Json(call.request, json::object());
  }
  if (path == "/api/preview/stop") {
    call.link().StopPreview();
    return Json(call.request, json::object());
  }
  if (path == "/api/playback") return OrderClip(call, json::parse(call.request.body()));
  if (path == "/api/record") {
    call.link().Record(json::parse(call.request.body()).at("on").get<bool>());
    return Json(call.request, json::object());
  }
  if (path == "/api/cancel") {
    const json body = json::parse(call.request.body());
    call.link().Cancel(body.at("id").get<int>());
    return Json(call.request, json::object());
  }
  if (path == "/api/send-row") {
    if (!call.link().SendRow(json::parse(call.request.body()).value("text", "")))
      return Error(call.request, http::status::conflict, "the send row works on UDP only");
    return Json(call.request, json::object());
  }
  return Error(call.request, http::status::not_found, "no such action");
}

// upload: where the picked file of the request was kept, if it carried one.
Response Dispatch(HttpServer& server, const Request& request, const fs::path* upload) {
  const auto target = ParseTarget(std::string(request.target()));
  if (!target) return Error(request, http::status::bad_request, "malformed address");
  try {
    return Route(Call{server, request, *target}, upload);
  } catch (const host::UsageError& e) {
    return Error(request, http::status::bad_request, e.what());
  } catch (const json::exception&) {
    return Error(request, http::status::bad_request, "the request's body is not the JSON expected");
  } catch (const std::logic_error& e) {  // an unknown table or column, a number that is not one
    return Error(request, http::status::bad_request, e.what());
  } catch (const std::exception& e) {
    return Error(request, http::status::internal_server_error, e.what());
  }
}

}  // namespace

std::optional<std::uint64_t> BodyLimit(http::verb method, const std::string& path) {
  static const std::set<std::string> kGets = {"/", "/index.html", "/app.js", "/style.css", "/api/commands",
                                              "/api/tables", "/api/table", "/api/csv", "/api/media", "/api/media/file"};
  static const std::set<std::string> kPosts = {"/api/run", "/api/preview/stop", "/api/send-row", "/api/connect",
                                               "/api/disconnect", "/api/cancel", "/api/playback",
                                               "/api/record"};
  if (method == http::verb::get && kGets.contains(path)) return 0;
  if (method == http::verb::post && kPosts.contains(path)) return kJsonLimit;
  if (method == http::verb::post && TakesFile(path)) return kFileLimit;
  return std::nullopt;
}

bool TakesFile(const std::string& path) { return path == "/api/firmware"; }

std::optional<fs::path> UploadDestination(HttpServer& server, const Target& target) {
  const std::string name = target.Param("name");
  if (!store::IsPlainFileName(name)) return std::nullopt;
  return server.NewUploadFolder() / name;
}

Response Forbidden(unsigned version) {
  return Refusal(version, http::status::forbidden, "this address needs the console's token");
}

Response Refusal(unsigned version, http::status status, const std::string& reason) {
  return Reply(version, false, status, std::to_string(static_cast<int>(status)) + ": " + reason + "\n",
               "text/plain; charset=utf-8");
}

Response AnswerUpload(HttpServer& server, const Request& request, const fs::path& file) {
  return Dispatch(server, request, &file);
}

Response Answer(HttpServer& server, const Request& request) { return Dispatch(server, request, nullptr); }


}  // namespace camrelay::web
