// The reply timer. It behaves as a window timer: enabling an enabled timer
// changes nothing, disabling stops it, and a new interval on an enabled timer
// starts the count again. onTick fires once per elapsed interval until
// disabled.
#pragma once

#include <functional>

namespace camrelay::link {

class Timer {
 public:
  virtual ~Timer() = default;
  virtual void setEnabled(bool enabled) = 0;
  virtual bool enabled() const = 0;
  virtual void setInterval(int milliseconds) = 0;
  virtual int interval() const = 0;

  std::function<void()> onTick;
};

}  // namespace camrelay::link
