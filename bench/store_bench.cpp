// How the local store and the firmware payload compare with the plain work
// under them:
//   - storing 100 000 log lines with SaveVideoSentrovaDB, beside a prepared
//     SQLite insert of the same rows, already converted, in one transaction;
//   - building the payload of a 64 MiB firmware file with LoadFileAgg,
//     beside reading the file into memory.
//
//   cmake --build build --target bench_store_bench && build/bench/bench_store_bench
//
// Every measurement runs in a process of its own, so that the peak memory
// shown (the process's largest resident set) is that measurement's alone;
// the time is the best of five runs, taken in turn with the other side's.
#include <sqlite3.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "files/firmware.h"
#include "store/DataVideo.h"
#include "store/download.h"
#include "store/sqlite_util.h"

namespace fs = std::filesystem;
using namespace camrelay;

namespace {

constexpr int kLogLines = 100000;
constexpr std::uintmax_t kFirmwareBytes = 64u << 20;
constexpr int kRuns = 5;

struct Result {
  double seconds = 1e9;
  double peakMiB = 0;
};

// Runs work once in a child process; work returns the seconds of the part
// it times.
Result MeasureOnce(const std::function<double()>& work) {
  int channel[2];
  if (pipe(channel) != 0) std::exit(1);
  pid_t child = fork();
  if (child == 0) {
    try {
      double seconds = work();
      _exit(write(channel[1], &seconds, sizeof seconds) == sizeof seconds ? 0 : 1);
    } catch (const std::exception& e) {
      std::fprintf(stderr, "%s\n", e.what());
      _exit(1);
    }
  }
  close(channel[1]);
  Result result;
  bool got = read(channel[0], &result.seconds, sizeof result.seconds) == sizeof result.seconds;
  close(channel[0]);
  int status = 0;
  rusage usage{};
  wait4(child, &status, 0, &usage);
  if (!got || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
    std::fprintf(stderr, "a measurement failed\n");
    std::exit(1);
  }
  result.peakMiB = usage.ru_maxrss / 1024.0;
  return result;
}

// Runs the two measurements in turn, kRuns times each, so that both meet the
// same load of the machine; keeps each one's best time and largest peak.
std::pair<Result, Result> Compare(const std::function<double()>& first, const std::function<double()>& second) {
  std::pair<Result, Result> best;
  for (int run = 0; run < kRuns; ++run) {
    for (auto [work, kept] : {std::pair{&first, &best.first}, std::pair{&second, &best.second}}) {
      Result result = MeasureOnce(*work);
      kept->seconds = std::min(kept->seconds, result.seconds);
      kept->peakMiB = std::max(kept->peakMiB, result.peakMiB);
    }
  }
  return best;
}

// Ends a measurement whose result is not what it should be.
void Check(bool ok, const char* what) {
  if (ok) return;
  std::fprintf(stderr, "wrong result: %s\n", what);
  _exit(2);
}

template <class Body>
double Timed(Body&& body) {
  auto start = std::chrono::steady_clock::now();
  body();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

struct LogRow {
  std::string when;  // as the database holds it
  int code, input, camera;
  std::string text, user;
};

LogRow Row(int i) {
  char when[32];
  std::snprintf(when, sizeof when, "2024-%02d-%02d %02d:%02d:%02d", i % 12 + 1, i % 28 + 1, i % 24, i % 60,
                (i * 7) % 60);
  return {when, i % 40, i % 16, i % 8, "Allarme ingresso " + std::to_string(i % 16) + " – zona giorno", "installatore"};
}

// The log as the unit sends it: record lines in elements of a little over
// 3 KB, Windows-1252 text and Italian dates.
std::vector<std::string> LogDownload() {
  std::vector<std::string> Dati{"", ""};
  for (int i = 0; i < kLogLines; ++i) {
    LogRow row = Row(i);
    char when[32];
    std::snprintf(when, sizeof when, "%.2s/%.2s/%.4s %s", row.when.c_str() + 8, row.when.c_str() + 5,
                  row.when.c_str(), row.when.c_str() + 11);
    Dati.back() += "{}Registro_eventi{}6{}0{}3{}" + std::string(when) + "{}7{}" + std::to_string(row.code) +
                   "{}3{}Allarme ingresso " + std::to_string(i % 16) + " \x96 zona giorno{}202{}" +
                   std::to_string(row.input) + "{}3{}" + std::to_string(row.camera) + "{}3{}" + row.user +
                   "{}202\r\n";
    if (Dati.back().size() > 3072) Dati.emplace_back();
  }
  return Dati;
}

void OpenFresh(store::DataVideo& db, const fs::path& file) {
  fs::remove(file);
  db.SetConnectionString(file.string());
  db.Open();
}

double StoreLog(const fs::path& file) {
  std::vector<std::string> Dati = LogDownload();
  store::DataVideo db;
  OpenFresh(db, file);
  double seconds = Timed([&] { store::SaveVideoSentrovaDB(Dati, db, nullptr); });
  Check(db.OpenTable("Registro_eventi").RecordCount() == kLogLines, "rows stored");
  return seconds;
}

double RawInsert(const fs::path& file) {
  std::vector<LogRow> rows;
  for (int i = 0; i < kLogLines; ++i) rows.push_back(Row(i));
  {
    store::DataVideo db;
    OpenFresh(db, file);
  }
  sqlite3* handle = nullptr;
  Check(sqlite3_open(file.c_str(), &handle) == SQLITE_OK, "database opened");
  return Timed([&] {
    store::Exec(handle, "BEGIN");
    store::Statement insert = store::Prepare(
        handle,
        "INSERT INTO Registro_eventi (DataOra, CodiceEvento, Descrizione, Ingresso, Telecamera, Utente) "
        "VALUES (?, ?, ?, ?, ?, ?)");
    for (const LogRow& row : rows) {
      sqlite3_bind_text(insert.get(), 1, row.when.data(), static_cast<int>(row.when.size()), SQLITE_STATIC);
      sqlite3_bind_int(insert.get(), 2, row.code);
      sqlite3_bind_text(insert.get(), 3, row.text.data(), static_cast<int>(row.text.size()), SQLITE_STATIC);
      sqlite3_bind_int(insert.get(), 4, row.input);
      sqlite3_bind_int(insert.get(), 5, row.camera);
      sqlite3_bind_text(insert.get(), 6, row.user.data(), static_cast<int>(row.user.size()), SQLITE_STATIC);
      if (sqlite3_step(insert.get()) != SQLITE_DONE) store::ThrowSqliteError(handle);
      sqlite3_reset(insert.get());
    }
    store::Exec(handle, "COMMIT");
  });
}

void WriteFirmware(const fs::path& file) {
  std::ofstream out(file, std::ios::binary);
  std::string block(1 << 20, '\0');
  unsigned state = 12345;
  for (std::uintmax_t written = 0; written < kFirmwareBytes; written += block.size()) {
    for (char& c : block) c = static_cast<char>((state = state * 1103515245u + 12345u) >> 24);
    out.write(block.data(), static_cast<std::streamsize>(block.size()));
  }
}

double PlainRead(const fs::path& file) {
  std::string bytes;
  double seconds = Timed([&] {
    std::ifstream in(file, std::ios::binary);
    bytes.resize(fs::file_size(file));
    in.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  });
  Check(bytes.size() == kFirmwareBytes, "bytes read");
  return seconds;
}

double FirmwarePayload(const fs::path& file) {
  std::vector<std::string> Dati;
  double seconds = Timed([&] { store::LoadFileAgg(Dati, nullptr, "123456", file.string()); });
  // The opening, the header, the chunks and the terminator.
  Check(Dati.size() == 1 + 1 + (kFirmwareBytes + 3071) / 3072 + 1, "payload elements");
  return seconds;
}

void Line(const char* label, const Result& result, const std::string& extra) {
  std::printf("  %-24s %8.3f s  %s peak %7.1f MiB\n", label, result.seconds, extra.c_str(), result.peakMiB);
}

std::string Rate(const Result& result) {
  char text[48];
  std::snprintf(text, sizeof text, "%9.0f rows/s ", kLogLines / result.seconds);
  return text;
}

}  // namespace

int main() {
  std::string pattern = (fs::temp_directory_path() / "camrelay-bench-XXXXXX").string();
  if (!mkdtemp(pattern.data())) return 1;
  fs::path dir = pattern;
  std::printf("CamRelay store benchmark: best of %d runs in turn, each in a process of its own\n", kRuns);
  std::printf("  %-24s %8s     %s peak %7.1f MiB\n", "(an idle process)", "", "", MeasureOnce([] { return 0.0; }).peakMiB);

  std::printf("\nStoring %d log lines into Registro_eventi\n", kLogLines);
  auto [store, raw] = Compare([&] { return StoreLog(dir / "store.db"); }, [&] { return RawInsert(dir / "raw.db"); });
  Line("SaveVideoSentrovaDB", store, Rate(store));
  Line("raw prepared insert", raw, Rate(raw));
  std::printf("  store rate / raw rate: %.2f (aim: at least 0.50)\n", raw.seconds / store.seconds);

  std::printf("\nBuilding the payload of a %ju MiB firmware file\n", kFirmwareBytes >> 20);
  fs::path firmware = dir / "firmware.bin";
  WriteFirmware(firmware);
  MeasureOnce([&] { return PlainRead(firmware); });  // brings the file into the page cache
  auto [payload, read] = Compare([&] { return FirmwarePayload(firmware); }, [&] { return PlainRead(firmware); });
  Line("LoadFileAgg", payload, "");
  Line("plain read of the file", read, "");
  std::printf("  payload / read: %.2fx the time, %.2fx the memory (aim: within 2x)\n", payload.seconds / read.seconds,
              payload.peakMiB / read.peakMiB);

  fs::remove_all(dir);
  return 0;
}
