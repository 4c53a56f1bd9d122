#include "store/commit_check.h"

#include <map>
#include <mutex>

namespace camrelay::store {
namespace {

// The schemas' checks are set by the thread that claims the units and read
// by whichever thread commits.
struct Checks {
  std::mutex mutex;
  std::map<std::string, CommitCheck> bySchema;
};

Checks& TheChecks() {
  static Checks checks;
  return checks;
}

}  // namespace

void SetCommitCheck(const std::string& schema, CommitCheck check) {
  Checks& checks = TheChecks();
  std::lock_guard lock(checks.mutex);
  checks.bySchema[schema] = std::move(check);
}

void ClearCommitCheck(const std::string& schema) {
  Checks& checks = TheChecks();
  std::lock_guard lock(checks.mutex);
  checks.bySchema.erase(schema);
}

std::optional<CommitCheck> CommitCheckOf(const std::string& schema) {
  Checks& checks = TheChecks();
  std::lock_guard lock(checks.mutex);
  auto it = checks.bySchema.find(schema);
  if (it == checks.bySchema.end()) return std::nullopt;
  return it->second;
}

}  // namespace camrelay::store
