// Completion of a download, shared by the acceptance that already carries a
// whole transfer and the reception of its last packet.
#pragma once

#include <string>

#include "link/frmClient.h"

namespace camrelay::link {

// Hands a complete transfer of type `tipo` to its consumer, reports it and
// serves the next request.
void CompleteTransfer(frmClient& form, const std::string& tipo);

}  // namespace camrelay::link
