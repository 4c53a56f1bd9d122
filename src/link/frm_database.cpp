// The link's side of the database: opening and closing on the host's request,
// with the state change reported.
#include "link/frmClient.h"
#include "link/guard.h"
#include "requests/crypt.h"
#include "store/DataVideo.h"

namespace camrelay::link {

void frmClient::OpenDB() {
  Guarded(*this, "OpenDB", [&] {
    if (db_->ConnectionState() != 0) return;
    db_->SetConnectionString(sStringaConnDB);
    db_->Open();
    db_->StatoDB = cDbAperto;
    if (CambioStatoDB) CambioStatoDB(cDbAperto);
    if (ShowCamRelay) Panel.sbarVuoto = PwdCrypted ? requests::CryptData(sStringaPassword) : sStringaPassword;
  });
}

void frmClient::CloseDB() {
  Guarded(*this, "CloseDB", [&] {
    if (db_->ConnectionState() == 0) return;
    db_->Close();
    db_->StatoDB = cDbChiuso;
    if (CambioStatoDB) CambioStatoDB(cDbChiuso);
  });
}

std::string frmClient::StringaConnDB() const { return sStringaConnDB; }

void frmClient::StringaConnDB(const std::string& value) { sStringaConnDB = value; }

}  // namespace camrelay::link
