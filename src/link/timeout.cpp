// Placeholder until this subsystem lands; replaced wholesale by its owner.
#include "link/frmClient.h"
namespace camrelay::link {
void frmClient::tmrTimeOut_Timer() {}
void frmClient::Winsock_RicevutoAttendi(const std::string&) {}
void frmClient::Winsock_RicevutoPacchetto(const std::string&) {}
}  // namespace camrelay::link
