// A condition the commits to one server schema must meet, set by the code
// that runs the links for the time it owns that schema's unit. The fleet
// shared between machines uses it so that a unit's rows are kept only while
// this machine still holds the unit's claim, checked in the transaction
// that keeps them: a machine whose claim lapsed and was taken over by
// another never stores a unit a second time.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "store/backend.h"

namespace camrelay::store {

// Runs inside the transaction, just before it commits, on its connection.
// Throwing std::runtime_error refuses the commit: nothing of the
// transaction is kept and the message is the commit's failure.
using CommitCheck = std::function<void(Backend&)>;

// From now on every outermost commit to schema runs check first.
void SetCommitCheck(const std::string& schema, CommitCheck check);
void ClearCommitCheck(const std::string& schema);
std::optional<CommitCheck> CommitCheckOf(const std::string& schema);

}  // namespace camrelay::store
