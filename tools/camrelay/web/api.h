// What each request of the page does: the page's files, the commands, the
// send row, the database and the files that arrived.
#pragma once

#include <boost/beast/http.hpp>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include "web/access.h"

namespace camrelay::web {

class HttpServer;

// A request whose body is not read yet.
using RequestHead = boost::beast::http::request<boost::beast::http::empty_body>;
using Request = boost::beast::http::request<boost::beast::http::string_body>;
using Response = boost::beast::http::response<boost::beast::http::string_body>;

// How many bytes of body a route takes; nullopt when there is no such route,
// so that a request is refused before its body is read.
std::optional<std::uint64_t> BodyLimit(boost::beast::http::verb method, const std::string& path);
// Whether the route's body is a file the user picked, kept on disk.
bool TakesFile(const std::string& path);
// Where a picked file named by the target goes: a new folder of its own;
// nullopt when its name is not a plain file name.
std::optional<std::filesystem::path> UploadDestination(HttpServer& server, const Target& target);

// The answer to one request, the token already checked.
Response Answer(HttpServer& server, const Request& request);
// The answer to a picked file, already kept at `file`.
Response AnswerUpload(HttpServer& server, const Request& request, const std::filesystem::path& file);

// 403 and the reason, for a request without the right token; version is
// the request's HTTP version.
Response Forbidden(unsigned version);
// An error answered before the body was read: the connection ends with it.
Response Refusal(unsigned version, boost::beast::http::status status, const std::string& reason);

}  // namespace camrelay::web
