// Placeholder until this subsystem lands; replaced wholesale by its owner.
#include "link/frmClient.h"
namespace camrelay::link {
void frmClient::AttivaPreview(const std::string&) {}
void frmClient::AcquisisciNextPreview() {}
void frmClient::CreaStrPreview(long&) {}
void frmClient::CompletePreviewImage() {}
void frmClient::ResumePreviewAfterGiveUp() {}
}  // namespace camrelay::link
