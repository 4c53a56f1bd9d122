// The panel's own behaviour: its logs and the hand-typed send row.
#include "link/frmClient.h"
#include "link/guard.h"
#include "panel/panel_model.h"

namespace camrelay::panel {

namespace {
constexpr std::size_t kLogKeep = 64 * 1024;
}

void AppendLogLine(std::string& box, const std::string& line) {
  box += "\r\n";
  box += line;
  if (box.size() > kLogKeep) {
    // Drop whole lines from the front.
    auto cut = box.find("\r\n", box.size() - kLogKeep);
    box.erase(0, cut == std::string::npos ? box.size() - kLogKeep : cut);
  }
}

}  // namespace camrelay::panel

namespace camrelay::link {

void frmClient::CmdSendStr_Click() {
  Guarded(*this, "CmdSendStr_Click", [&] {
    if (Winsock1->protocol() == sckUDPProtocol && !Panel.TxtSendStr.empty()) TrasmettiStringa(Panel.TxtSendStr);
  });
}

}  // namespace camrelay::link
