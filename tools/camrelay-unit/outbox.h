// The messages a peer's session hands over, sent in order, each no earlier
// than its own delay allows. A held-back message holds back the ones after
// it, so a delay never reorders what the unit sends.
#pragma once

#include <chrono>
#include <deque>
#include <functional>
#include <string>
#include <vector>

#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>

#include "session.h"

namespace camrelay::unit {

class Outbox {
 public:
  using Send = std::function<void(const std::string&)>;
  using Reset = std::function<void()>;

  Outbox(boost::asio::io_context& io, Send send, Reset reset);

  void Post(std::vector<Outgoing> items);

 private:
  using Clock = std::chrono::steady_clock;
  struct Entry {
    Clock::time_point due;
    Outgoing item;
  };

  void Flush();
  void Arm();

  boost::asio::steady_timer timer_;
  Send send_;
  Reset reset_;
  std::deque<Entry> queue_;
  Clock::time_point lastDue_{};
};

}  // namespace camrelay::unit
