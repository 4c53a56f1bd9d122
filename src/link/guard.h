// Every procedure of the link catches its own failures and reports them as
// one OnDebug line "<procedure>: <description>"; nothing reaches the host.
#pragma once

#include <exception>
#include <string>
#include <string_view>

#include "link/frmClient.h"

namespace camrelay::link {

inline std::string Describe(std::exception_ptr error) {
  try {
    std::rethrow_exception(error);
  } catch (const std::exception& e) {
    return e.what();
  } catch (...) {
    return "unknown error";
  }
}

// Runs body; a failure becomes "<procedure>: <description>" on OnDebug.
template <class Body>
void Guarded(DebugSink& form, std::string_view procedure, Body&& body) {
  try {
    body();
  } catch (...) {
    form.CreateEventOnDebug(std::string(procedure) + ": " + Describe(std::current_exception()));
  }
}

// As Guarded, with the transfer's state lines added, as the receive handlers
// report.
template <class Body>
void GuardedWithState(frmClient& form, std::string_view procedure, Body&& body) {
  try {
    body();
  } catch (...) {
    form.CreateEventOnDebug(std::string(procedure) + ": " + Describe(std::current_exception()) +
                            StateReport(form));
  }
}

// For the handlers whose failures are of no interest to anyone.
template <class Body>
void IgnoringErrors(Body&& body) {
  try {
    body();
  } catch (...) {
  }
}

}  // namespace camrelay::link
