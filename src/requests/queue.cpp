// Placeholder until this subsystem lands; replaced wholesale by its owner.
#include "link/frmClient.h"
namespace camrelay::link {
void frmClient::AddRichiesta(const std::string&, const std::string&, bool) {}
void frmClient::RemoveRichiesta(int) {}
void frmClient::ReadRichiesta() {}
}  // namespace camrelay::link
