// How the data procedures report: one line "<procedure>: <description>"
// through the form they were handed, when they were handed one.
#pragma once

#include <exception>
#include <string>
#include <string_view>

#include "common/debug_sink.h"

namespace camrelay::store {

inline void Report(DebugSink* form, std::string_view procedure, std::string_view description) {
  if (form) form->CreateEventOnDebug(std::string(procedure) + ": " + std::string(description));
}

// Runs body; a failure is reported and the caller goes on. Returns whether
// the body ran to its end.
template <class Body>
bool Attempt(DebugSink* form, std::string_view procedure, Body&& body) {
  try {
    body();
    return true;
  } catch (const std::exception& e) {
    Report(form, procedure, e.what());
    return false;
  }
}

}  // namespace camrelay::store
