// The message codes and transfer types of the wire protocol, as data.
#pragma once

#include <optional>
#include <string_view>

#include "camrelay/enums.h"

namespace camrelay::link {

// Field separator of every message; never escaped.
inline constexpr std::string_view kSep = "{}";
// TCP frame marker: "LN{}" length "{}" message.
inline constexpr std::string_view kFrameMarker = "LN{}";
inline constexpr std::string_view kCrLf = "\r\n";

// Control codes: the first two characters of a message.
namespace code {
inline constexpr std::string_view Request = "AA";   // request / acceptance
inline constexpr std::string_view Password = "PW";  // access code refused
inline constexpr std::string_view Ack = "OK";       // one packet acknowledged
inline constexpr std::string_view Busy = "BS";      // the unit is busy
inline constexpr std::string_view ResendAll = "12"; // send the whole transfer again / TCP end
inline constexpr std::string_view End = "13";       // end of a transfer
inline constexpr std::string_view Login = "00";     // type of the login answer
}  // namespace code

// Transfer types and the state their acceptance sets, in the fixed order in
// which the acceptance tests them.
struct TipoStato {
  std::string_view tipo;
  StatoConnessioneEnum stato;
  bool upload;  // data run from the component to the unit
};

inline constexpr TipoStato kTipiInOrdine[] = {
    {"05", cTrasmettiWave, true},
    {"10", cTrasmettiAggiornamento, true},
    {"01", cTrasmettiProg, true},
    {"55", cTrasmettiProgCamEvents, true},
    {"07", cTrasmettiInstallCode, true},
    {"14", cTrasmettiUserCode, true},
    {"08", cTrasmettiPreviewEnable, true},
    {"50", cTrasmettiStringa, true},
    {"52", cTrasmettiStringaReq, true},
    {"57", cTrasmettiStreamImageReq, true},
    {"02", cRichiestaProg, false},
    {"06", cRichiestaWave, false},
    {"51", cRichiestaStringa, false},
    {"04", cRichiestaLog, false},
    {"03", cRichiestaCancellaLog, false},
    {"11", cRichiestaCancellaPrimaLog, false},
    {"09", cRichiestaPreView, false},
    {"53", cRichiestaCamEvents, false},
    {"58", cRichiestaStreamImage, false},
    {"54", cRichiestaProgCamEvents, false},
    {"56", cRichiestaMultimedia, false},
};

// The state the acceptance of a type sets; nullopt for a type in no row.
constexpr std::optional<StatoConnessioneEnum> StatoForTipo(std::string_view tipo) {
  for (const auto& row : kTipiInOrdine)
    if (row.tipo == tipo) return row.stato;
  return std::nullopt;
}

// The upload types: "01", "05", "07", "14", "08", "10", "50", "52", "55", "57".
constexpr bool IsUploadType(std::string_view tipo) {
  for (const auto& row : kTipiInOrdine)
    if (row.tipo == tipo) return row.upload;
  return false;
}

}  // namespace camrelay::link
