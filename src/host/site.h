// The unit a working folder (a site) talks to. A site remembers the unit its
// last successful run reached, so that "--dir siteA" reaches siteA's unit
// whoever ran last, and a command that changes a unit goes only to the unit
// named on the command line or remembered by the site, never to the one the
// per-user settings file happens to hold from someone's last run.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "host/commands.h"

namespace camrelay::host {

// The file in the working folder that remembers the site's unit.
inline constexpr const char* kSiteFile = "camrelay-site.ini";

struct SiteUnit {
  std::string host;
  int port = 0;
  int localPort = 0;
  bool tcp = false;
};

// What the site remembers; nullopt when it remembers nothing. A file that
// is not as RememberSite writes it throws UsageError naming it.
std::optional<SiteUnit> ReadSite(const std::filesystem::path& dir);

// Remembers the unit of a run that reached it. Throws std::runtime_error
// when the file cannot be written.
void RememberSite(const std::filesystem::path& dir, const SiteUnit& unit);

// Which link options the command line gave.
struct GivenOptions {
  bool host = false, port = false, localPort = false, transport = false;
};

// Fills the link options left out from what the site remembers. When the
// site remembers no unit and the host is not given, a command that changes
// a unit is refused (UsageError) and the others take the per-user settings
// as before; a changing command with a host but no port goes to the first-run
// port 19201, never to the port of someone's last run.
void ApplySite(LinkOptions& link, const GivenOptions& given, const std::vector<Command>& commands);

// Whether the command changes what the unit holds or does.
bool ChangesUnit(Op op);

// The line a changing command prints before anything is sent, naming the
// site and the unit: "upload-prog: sending the programming of siteA to
// 10.0.0.7:19201 udp".
std::string TargetLine(const Command& command, const std::filesystem::path& dir, const std::string& unit);

}  // namespace camrelay::host
