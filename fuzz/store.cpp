// The download store as a hostile unit feeds it: the input's pieces are the
// packets of a transfer (element 0 empty, as the link leaves it), stored
// either as a programming download (which replaces the six programming
// tables in one transaction) or as log lines appended to their tables; the
// first input byte chooses. Each input gets a fresh database made from the
// standard tables, copied from a template so that a run stays fast.
//
// Whatever the packets hold, nothing is thrown, and the database stays sound
// ("PRAGMA integrity_check" answers "ok").
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "input.h"
#include "common/debug_sink.h"
#include "store/DataVideo.h"
#include "store/download.h"
#include "store/values.h"
#include "temp_dir.h"

namespace {

namespace fs = std::filesystem;
using namespace camrelay;

const fs::path& Template() {
  static test::TempDir dir;
  static const fs::path file = [] {
    const fs::path made = dir / "template.db";
    store::CreateDatabase(made);
    return made;
  }();
  return file;
}

bool IntegrityOk(store::DataVideo& db) {
  auto rows = db.Handle().Query("PRAGMA integrity_check");
  return rows->Next() && store::DbText(rows->Value(0)) == "ok";
}

void Run(std::string_view input) {
  if (input.empty()) return;
  test::TempDir dir;
  const fs::path file = dir / "VideoSentrova.db";
  fs::copy_file(Template(), file);
  store::DataVideo db;
  db.SetConnectionString("Provider=SQLite;Data Source=" + file.string());
  db.Open();
  std::vector<std::string> packets{std::string()};
  for (auto& piece : fuzz::Pieces(input.substr(1), 64)) packets.push_back(std::move(piece));
  fuzz::QuietSink sink;
  if (input[0] & 1)
    store::SaveVideoSentrovaDB(packets, db, &sink);
  else
    store::AppendRecordLines(packets, db, &sink);
  if (!IntegrityOk(db)) {
    std::fprintf(stderr, "the database is damaged\n");
    std::abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  return camrelay::fuzz::RunInput(data, size, Run);
}
