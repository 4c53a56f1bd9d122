#include "store/backend.h"

namespace camrelay::store {

std::string QuoteIdentifier(std::string_view name) {
  std::string quoted = "\"";
  for (char c : name) {
    if (c == '"') quoted += '"';
    quoted += c;
  }
  return quoted + '"';
}

Transaction::~Transaction() {
  if (done_) return;
  try {
    backend_.Rollback();
  } catch (const std::exception&) {
    // A connection that is gone has rolled back by itself.
  }
}

void Transaction::Commit() {
  backend_.Commit();
  done_ = true;
}

}  // namespace camrelay::store
