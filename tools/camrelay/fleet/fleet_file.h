// The fleet file: the units a fleet run serves, one CSV line each.
//
//   name,host,port,transport,code,dir
//   north-gate,10.0.0.7,19201,udp,env:NORTH_CODE,sites/north-gate
//
// A header line names the six columns, in any order. Fields may be quoted
// ("a,b", "say ""hi"""). Blank lines and lines beginning with '#' are
// skipped. transport is udp or tcp; code is the access code itself or
// env:VAR, the environment variable holding it; dir is the unit's working
// folder (its database and files), relative to the fleet file's folder when
// not absolute, and created when missing. Names and folders are unique.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace camrelay::cli {

struct FleetUnit {
  std::string name;
  std::string host;
  int port = 0;
  bool tcp = false;
  std::string code;  // the code itself, env:VAR already looked up
  std::filesystem::path dir;  // absolute
};

// Reads and checks the whole file. Throws UsageError naming the file, the
// line and what is wrong with it.
std::vector<FleetUnit> ReadFleetFile(const std::filesystem::path& file);

// The access code a fleet's code field stands for: the text itself, or the
// value of the environment variable env:VAR names. Throws UsageError.
std::string FleetCode(const std::string& field);

// The fields of one CSV line, without its CR LF ending. Throws UsageError
// for an unterminated quote, and for a CR or NUL byte in a field.
std::vector<std::string> CsvFields(std::string line);

}  // namespace camrelay::cli
