// The diagnostic panel as plain state: what its captions, log boxes and status
// bar show. The link writes it; a host reads a copy (clsClient::Panel) and
// renders it however it likes: a window, a page.
#pragma once

#include <string>

namespace camrelay::panel {

// Heights the panel takes per transport, in twips: the UDP panel is taller by
// the row for sending a hand-typed string.
inline constexpr int kHeightTCP = 8400;
inline constexpr int kHeightUDP = 8900;

// Colours as the link passes them: red, green, blue in the low three bytes.
inline constexpr long kRed = 255;
inline constexpr long kGreen = 128L << 8;  // red 0, green 128, blue 0

struct PanelModel {
  bool visible = false;
  int height = 0;
  std::string caption = "CAMRELAY by SENTROVA";

  std::string LblLocal = "Dati di rete locale";
  std::string lblLocalIp;
  std::string lblLocalPort;
  std::string LblTypeCon;
  std::string LblRemote = "Dati PC remoto in ricezione";
  std::string lblRemoteIp;
  std::string lblRemotePort;
  std::string LblRemoteOut = "Dati PC remoto in trasmissione";
  std::string lblRemoteIpOut;
  std::string lblRemotePortOut;
  std::string LblStato;
  std::string LblStatoTCP;
  std::string LblTimeOut;
  std::string LblTentativiRicezione;
  std::string LblRichiesta;  // the request being served and the queue's lines

  std::string txtTxData;  // transmit log
  std::string txtRxData;  // receive log
  std::string Label3;     // socket event log (connect, close, connection request)
  std::string Label4;     // further diagnostic text

  // The send row, shown on UDP only.
  bool sendRowVisible = false;
  std::string LblSendStr = "Invia una stringa al VideoSentrova:";
  std::string TxtSendStr;
  std::string CmdSendStr = "Invia";

  // Status drawing and the status bar's two panels.
  std::string pct;
  long pctColour = 0;
  std::string sbarVuoto;
  std::string sbarConnesso;
};

}  // namespace camrelay::panel
