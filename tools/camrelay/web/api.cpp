#include "web/api.h"

#include <filesystem>
#include <fstream>
#include <functional>
#include <map>

#include <nlohmann/json.hpp>

#include "cli.h"
#include "files/safe_name.h"
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

Response Reply(const Request& request, http::status status, std::string body, const char* type) {
  Response response{status, request.version()};
  response.set(http::field::content_type, type);
  response.set(http::field::cache_control, "no-store");
  response.keep_alive(request.keep_alive());
  response.body() = std::move(body);
  return response;
}

Response Json(const Request& request, const json& body, http::status status = http::status::ok) {
  return Reply(request, status, body.dump(-1, ' ', false, json::error_handler_t::replace), "application/json");
}

Response Error(const Request& request, http::status status, const std::string& reason) {
  return Json(request, json{{"error", reason}}, status);
}

const char* ContentType(const std::string& name) {
  const std::string extension = fs::path(name).extension().string();
  if (extension == ".html") return "text/html; charset=utf-8";
  if (extension == ".js") return "text/javascript; charset=utf-8";
  if (extension == ".css") return "text/css; charset=utf-8";
  if (extension == ".jpg" || extension == ".jpeg") return "image/jpeg";
  if (extension == ".avi") return "video/x-msvideo";
  return "application/octet-stream";
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
  return Reply(call.request, http::status::ok, std::move(body), ContentType(name));
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

// The file the user picked, put in the console's private folder under its
// own name, then sent as the command line sends a firmware file.
Response UploadFirmware(const Call& call) {
  const std::string name = call.target.Param("name");
  if (!store::IsPlainFileName(name))
    return Error(call.request, http::status::bad_request, "'" + name + "' is not a plain file name");
  const fs::path file = call.server.uploadDir() / name;
  std::ofstream out(file, std::ios::binary | std::ios::trunc);
  out.write(call.request.body().data(), static_cast<std::streamsize>(call.request.body().size()));
  if (!out.flush()) return Error(call.request, http::status::internal_server_error, "cannot keep the file picked");
  host::Command command{host::Op::UploadFirmware, "upload-firmware", file.string()};
  return Json(call.request, json{{"id", call.link().Run(std::move(command))}});
}

Response Table(const Call& call) {
  TableQuery query;
  query.table = call.target.Param("name");
  query.sort = call.target.Param("sort");
  query.descending = call.target.Param("desc") == "1";
  query.filter = call.target.Param("filter");
  const std::string offset = call.target.Param("offset"), limit = call.target.Param("limit");
  if (!offset.empty()) query.offset = std::stol(offset);
  if (!limit.empty()) query.limit = std::stoi(limit);
  return Json(call.request, TablePage(call.link().database(), query));
}

Response Csv(const Call& call) {
  const std::string table = call.target.Param("name");
  Response response = Reply(call.request, http::status::ok, TableCsv(call.link().database(), table), "text/csv");
  response.set(http::field::content_disposition, "attachment; filename=\"" + table + ".csv\"");
  return response;
}

Response MediaList(const Call& call) {
  json folders = json::object();
  for (const char* folder : kMediaFolders) {
    json files = json::array();
    std::error_code ec;
    for (const auto& entry : fs::directory_iterator(call.link().dir() / folder, ec))
      if (entry.is_regular_file(ec))
        files.push_back(json{{"name", call.link().ForPage(entry.path().filename().string())},
                             {"size", entry.file_size(ec)}});
    std::sort(files.begin(), files.end(), [](const json& a, const json& b) { return a["name"] < b["name"]; });
    folders[folder] = files;
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
  std::ifstream in(call.link().dir() / folder / name, std::ios::binary);
  if (!in) return Error(call.request, http::status::not_found, "no such file: " + folder + "/" + name);
  std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  Response response = Reply(call.request, http::status::ok, std::move(bytes), ContentType(name));
  if (call.target.Param("download") == "1")
    response.set(http::field::content_disposition, "attachment; filename=\"" + name + "\"");
  return response;
}

Response Route(const Call& call) {
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
  if (path == "/api/firmware") return UploadFirmware(call);
  if (path == "/api/preview/stop") {
    call.link().StopPreview();
    return Json(call.request, json::object());
  }
  if (path == "/api/send-row") {
    if (!call.link().SendRow(json::parse(call.request.body()).value("text", "")))
      return Error(call.request, http::status::conflict, "the send row works on UDP only");
    return Json(call.request, json::object());
  }
  return Error(call.request, http::status::not_found, "no such action");
}

}  // namespace

Response Forbidden(const Request& request) {
  return Reply(request, http::status::forbidden, "403: this address needs the console's token\n",
               "text/plain; charset=utf-8");
}

Response Answer(HttpServer& server, const Request& request) {
  const auto target = ParseTarget(std::string(request.target()));
  if (!target) return Error(request, http::status::bad_request, "malformed address");
  try {
    return Route(Call{server, request, *target});
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

}  // namespace camrelay::web
