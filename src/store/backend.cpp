#include "store/backend.h"

namespace camrelay::store {

namespace {

// text between quote characters, the inner ones doubled.
std::string Quoted(std::string_view text, char quote) {
  std::string quoted(1, quote);
  for (char c : text) {
    if (c == quote) quoted += quote;
    quoted += c;
  }
  return quoted + quote;
}

}  // namespace

std::string QuoteIdentifier(std::string_view name) { return Quoted(name, '"'); }

std::string QuoteLiteral(std::string_view text) { return Quoted(text, '\''); }

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
