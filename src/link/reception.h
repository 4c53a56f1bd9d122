// Completion of a download, shared by the acceptance that already carries a
// whole transfer and the reception of its last packet.
#pragma once

#include <filesystem>
#include <string>

#include "link/frmClient.h"

namespace camrelay::link {

// Hands a complete transfer of type `tipo` to its consumer, reports it and
// serves the next request.
void CompleteTransfer(frmClient& form, const std::string& tipo);

// The multimedia file asked for, and the partial file its data goes to until
// the run is complete.
std::filesystem::path MediaFile(frmClient& form);
std::filesystem::path PartialMediaFile(frmClient& form);
// Removes the partial file of a run given up or started again.
void DiscardPartialMediaFile(frmClient& form);

}  // namespace camrelay::link
