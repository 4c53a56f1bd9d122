// What the link needs from the world around it: sockets, timers, and a way to
// run work later on the host's loop (handlers must never destroy the object
// whose handler is on the stack, so such work is posted instead).
#pragma once

#include <functional>
#include <memory>

#include "link/socket.h"
#include "link/timer.h"

namespace boost::asio {
class io_context;
}
namespace boost::system {
class error_code;
}

namespace camrelay::link {

class Platform {
 public:
  virtual ~Platform() = default;
  virtual std::unique_ptr<Socket> makeSocket() = 0;
  virtual std::unique_ptr<Timer> makeTimer() = 0;
  virtual void post(std::function<void()> work) = 0;
};

// Real sockets and timers on the host's io_context.
std::shared_ptr<Platform> makeAsioPlatform(boost::asio::io_context& io);
// The number and text the real sockets report a system error with.
SocketError Translate(const boost::system::error_code& ec);

}  // namespace camrelay::link
