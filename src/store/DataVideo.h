// DataVideo: the one database connection of the component and its named
// commands. It lives as long as the clsClient that made it; every link the
// client builds shares it.
#pragma once

#include <array>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

#include "camrelay/enums.h"
#include "store/Recordset.h"
#include "store/backend.h"
#include "store/connection.h"

namespace camrelay {
class DebugSink;
}

namespace camrelay::store {

// What a named command does: a whole table, a query returning rows, or a
// statement returning none.
enum class CommandKind { Table, Query, Action };

struct Command {
  std::string_view Name;
  CommandKind Kind;
  // A table command's text is the quoted table name; the others are SQL.
  std::string_view Text;
  // The table the command's recordset reads and adds records to ("" for an
  // Action).
  std::string_view Table;
};

// The commands in the order the connection holds them. The download store
// finds a record's table among them by name, taking no "Del_" command, so the
// list names every table, even those the component never reads. The texts
// that are SQL are written so that both engines read them alike (identifiers
// in double quotes, no "*" after DELETE, FALSE for False); events of one
// moment keep the order they arrived in. "Del_alimentazione" keeps its
// lower-case "a": hosts name the command so.
inline constexpr std::array<Command, 19> kCommands{{
    {"Ingressi", CommandKind::Table, "`Ingressi`", "Ingressi"},
    {"CanaliVideo", CommandKind::Table, "`CanaliVideo`", "CanaliVideo"},
    {"NumTel", CommandKind::Table, "`NumTel`", "NumTel"},
    {"Registro_eventi", CommandKind::Query,
     "SELECT * FROM \"Registro_eventi\" ORDER BY \"DataOra\", \"IdRegistro\"", "Registro_eventi"},
    {"MMS", CommandKind::Table, "`MMS`", "MMS"},
    {"Alimentazione", CommandKind::Table, "`Alimentazione`", "Alimentazione"},
    {"ImpostazioniVideo", CommandKind::Table, "`ImpostazioniVideo`", "ImpostazioniVideo"},
    {"Del_NumTel", CommandKind::Action, "DELETE FROM \"NumTel\"", ""},
    {"Del_MMS", CommandKind::Action, "DELETE FROM \"MMS\"", ""},
    {"Del_alimentazione", CommandKind::Action, "DELETE FROM \"Alimentazione\"", ""},
    {"Del_Ingressi", CommandKind::Action, "DELETE FROM \"Ingressi\"", ""},
    {"Del_Registro_eventi", CommandKind::Action, "DELETE FROM \"Registro_eventi\"", ""},
    {"Del_CanaliVideo", CommandKind::Action, "DELETE FROM \"CanaliVideo\"", ""},
    {"Del_ImpostazioniVideo", CommandKind::Action, "DELETE FROM \"ImpostazioniVideo\"", ""},
    {"CamEvents", CommandKind::Table, "`CamEvents`", "CamEvents"},
    {"ProgCamEvents", CommandKind::Table, "`ProgCamEvents`", "ProgCamEvents"},
    {"Festivita", CommandKind::Table, "`Festivita`", "Festivita"},
    {"Del_ProgCamEvents", CommandKind::Action, "DELETE FROM \"ProgCamEvents\"", ""},
    {"NoShowInListEvents", CommandKind::Action, "UPDATE \"CamEvents\" SET \"ShowInListEvents\" = FALSE", ""},
}};

// The command of that exact name, or nullptr.
const Command* FindCommand(std::string_view name);

// The six tables of the unit's programming with the commands that empty
// them, in the order a programming is sent and stored.
struct ProgrammingTable {
  std::string_view Table;
  std::string_view DeleteCommand;
};
inline constexpr std::array<ProgrammingTable, 6> kProgrammingTables{{
    {"Ingressi", "Del_Ingressi"},
    {"MMS", "Del_MMS"},
    {"NumTel", "Del_NumTel"},
    {"CanaliVideo", "Del_CanaliVideo"},
    {"Alimentazione", "Del_alimentazione"},
    {"ImpostazioniVideo", "Del_ImpostazioniVideo"},
}};

// Creates the standard tables where the connection string points (a new
// file, or a schema of a server), unless a database is there already.
// Returns whether it created them. Throws std::runtime_error.
bool InitDatabase(std::string_view connection);

// Creates a database file with the standard tables; refuses a file that
// exists. Throws std::runtime_error.
void CreateDatabase(const std::filesystem::path& file);

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
  // Opens with the connection string held; a database that does not exist
  // (a file, or a server schema without tables) is created with the
  // standard tables, one that exists is used as it is. Throws std::runtime_error with a description a user can act on. Does
  // nothing when already open.
  void Open();
  void Close();

  // Whether the component considers the database open.
  StatoDBEnum StatoDB = cDbChiuso;

  // The automatic opening every data procedure starts with: when closed,
  // report "<procedure>: Attenzione il DB era chiuso ed è stato aperto"
  // through the form (when given), open, and set StatoDB without an event.
  // Never creates a database: a missing file throws std::runtime_error.
  void EnsureOpen(DebugSink* form, std::string_view procedure);

  // Runs a command that returns no rows (a "Del_" command, the update).
  void Execute(std::string_view command);
  // Runs a table command or the log query and returns its recordset.
  Recordset OpenRecordset(std::string_view command);
  // Every row of any table, in the order the rows were added.
  Recordset OpenTable(std::string_view table);

  // The open connection, for the store's own transactions and statements;
  // throws std::runtime_error when closed.
  Backend& Handle() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace camrelay::store
