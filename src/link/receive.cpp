// Placeholder until this subsystem lands; replaced wholesale by its owner.
#include "link/frmClient.h"
namespace camrelay::link {
void frmClient::Winsock1_DataArrival(long) {}
void frmClient::Winsock_Cisei(const std::string&) {}
}  // namespace camrelay::link
