// Placeholder until this subsystem lands; replaced wholesale by its owner.
#include "link/frmClient.h"
namespace camrelay::link {
void frmClient::WinSock_Download(const std::string&) {}
void frmClient::WinSock_DownloadMedia(const std::string&) {}
void frmClient::Winsock_ResendAll(const std::string&) {}
}  // namespace camrelay::link
