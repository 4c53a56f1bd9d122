// One or many simulated units in one process. Each unit has its own folder of
// content, its own codes, its own fault generators and its own servers, so
// that a fleet of units costs one process rather than hundreds.
#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/address.hpp>
#include <filesystem>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "faults.h"
#include "folder_content.h"
#include "log.h"
#include "server_tcp.h"
#include "server_udp.h"
#include "unit_context.h"

namespace camrelay::unit {

struct UnitsPlan {
  std::filesystem::path dir;  // one unit: its folder; many: unit-<n>/ below it
  int count = 1;
  int firstPort = 0;  // unit n listens on firstPort + n - 1; 0: each picks a free port
  bool udp = true, tcp = false;
  bool empty = false;  // a new folder gets the standard tables only
  Codes codes;
  FaultSettings faults;       // for the units in `faulty` (all when empty)
  std::set<int> faulty;       // unit numbers, from 1
  std::set<int> silent;       // units that ignore everything they receive
};

class Unit {
 public:
  // Opens (or makes) the content and starts listening. `demoCopy` is a
  // folder of fresh demo content to copy instead of writing it again; set
  // to this unit's folder when it wrote fresh demo content itself.
  Unit(boost::asio::io_context& io, const boost::asio::ip::address& address, const UnitsPlan& plan, int number,
       std::optional<std::filesystem::path>& demoCopy, const Log& log);

  int number() const { return number_; }
  const std::filesystem::path& dir() const { return dir_; }
  // The ports it listens on, nullopt for a transport it does not serve.
  std::optional<unsigned short> UdpPort() const;
  std::optional<unsigned short> TcpPort() const;

 private:
  int number_;
  std::filesystem::path dir_;
  std::unique_ptr<FolderContent> content_;
  Codes codes_;
  Faults udpFaults_, tcpFaults_;
  UnitContext udpUnit_, tcpUnit_;
  std::optional<UdpServer> udpServer_;
  std::optional<TcpServer> tcpServer_;
};

// Every unit of the plan, listening. Throws when one cannot be set up.
std::vector<std::unique_ptr<Unit>> StartUnits(boost::asio::io_context& io, const boost::asio::ip::address& address,
                                              const UnitsPlan& plan, const Log& log);

// "1,4-6" as {1, 4, 5, 6}. Throws std::invalid_argument.
std::set<int> UnitNumbers(const std::string& list);

}  // namespace camrelay::unit
