// Where procedures that are not members of the link report their failures:
// the link itself, which raises them as OnDebug lines.
#pragma once

#include <string>

namespace camrelay {

class DebugSink {
 public:
  virtual ~DebugSink() = default;
  virtual void CreateEventOnDebug(const std::string& Message) = 0;
};

}  // namespace camrelay
