// DataVideo: the one database connection of the component and its named
// commands. It lives as long as the clsClient that made it; every link the
// client builds shares it.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "camrelay/enums.h"

namespace camrelay {
class DebugSink;
}

namespace camrelay::store {

class DataVideo {
 public:
  // The connection string the connection holds until the first OpenDB.
  static constexpr std::string_view kDesignTimeConnection =
      "Provider=SQLite;Data Source=VideoSentrova.db";

  DataVideo();
  ~DataVideo();
  DataVideo(const DataVideo&) = delete;
  DataVideo& operator=(const DataVideo&) = delete;

  // 0 closed, 1 open.
  int ConnectionState() const;
  const std::string& ConnectionString() const;
  void SetConnectionString(const std::string& connection);
  // Opens with the connection string held; a database file that does not
  // exist is created with the standard tables. Throws std::runtime_error with
  // a description a user can act on.
  void Open();
  void Close();

  // Whether the component considers the database open.
  StatoDBEnum StatoDB = cDbChiuso;

  // The automatic opening every data procedure starts with: when closed,
  // report "<procedure>: Attenzione il DB era chiuso ed è stato aperto"
  // through the form (when given), open, and set StatoDB without an event.
  void EnsureOpen(DebugSink* form, std::string_view procedure);

  // ... further members: the store's own (commands, recordsets, SQLite).
 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace camrelay::store
