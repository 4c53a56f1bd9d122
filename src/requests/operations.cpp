// Placeholder until this subsystem lands; replaced wholesale by its owner.
#include "link/frmClient.h"
namespace camrelay::link {
void frmClient::RichiestaDiConnessione() {}
void frmClient::DownLoadProgrammazione() {}
void frmClient::DownloadLog(const std::string&) {}
void frmClient::CancellazioneDelLog(const std::string&) {}
void frmClient::CancellaPrimaIlLog() {}
void frmClient::DownloadCamEvents() {}
void frmClient::DownloadProgCamEvents() {}
void frmClient::DownloadMultimediaFile(const std::string&) {}
void frmClient::DownLoadMessaggiWave() {}
void frmClient::DownLoadStreamImage(const std::string&) {}
void frmClient::DownLoadStrCommand(const std::string&) {}
void frmClient::UploadStrCommand(const std::string&) {}
void frmClient::UpLoadProgrammazione() {}
void frmClient::UpLoadProgCamEvents() {}
void frmClient::UpLoadMessaggiWave(const std::string&) {}
void frmClient::UpLoadAggiornamento(const std::string&) {}
void frmClient::UploadCodInstallatore() {}
void frmClient::UploadCodUtente() {}
}  // namespace camrelay::link
