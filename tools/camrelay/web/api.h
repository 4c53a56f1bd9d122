// What each request of the page does: the page's files, the commands, the
// send row, the database and the files that arrived.
#pragma once

#include <boost/beast/http.hpp>

namespace camrelay::web {

class HttpServer;

using Request = boost::beast::http::request<boost::beast::http::string_body>;
using Response = boost::beast::http::response<boost::beast::http::string_body>;

// The answer to one request, the token already checked.
Response Answer(HttpServer& server, const Request& request);

// 403 and the reason, for a request without the right token.
Response Forbidden(const Request& request);

}  // namespace camrelay::web
