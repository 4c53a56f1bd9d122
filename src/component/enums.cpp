#include "camrelay/enums.h"

#include <array>

namespace camrelay {

std::string_view StatoConnessioneName(std::int32_t value) {
  static constexpr std::array<std::string_view, 58> kNames = {
      "cNoOperation", "cRichiestaProg", "cConnessioneRifiutata", "cTrasmettiProg", "cRichiestaWave",
      "cRichiestaLog", "cRichiestaCancellaLog", "cTrasmettiWave", "cTimeOutConnessione",
      "cErroreConnessione", "cTrasmissioneOK", "cRicezioneWaveOK", "cRicezioneProgOK", "cRicezioneWave",
      "cRicezioneInstallCodeOK", "cTrasmettiPreviewEnable", "cRichiestaPreView", "cRicezionePreViewOK",
      "cConnessioneOK", "cTrasmettiAggiornamento", "cRicezioneAggiornamento", "cRicezioneAggiornamentoOK",
      "cTrasmissioneOKAndBusy", "cRicezioneWaveNotOK", "cRicezioneAggiornamentoNotOK", "cRicezioneProg",
      "cRichiestaOKAndBusy", "cRicezioneInstallCode", "cRicezionePreviewReq", "cTrasmettiInstallCode",
      "cRicezioneLogOK", "cTrasmettiStringa", "cRichiestaStringa", "cRicezioneStringa",
      "cRicezioneStringaOK", "cTrasmettiStringaReq", "cRicezioneStringaReq", "cRicezioneStringaReqOK",
      "cRichiestaCamEvents", "cRicezioneCamEvents", "cRicezioneCamEventsOK", "cTrasmettiProgCamEvents",
      "cRichiestaProgCamEvents", "cRicezioneProgCamEvents", "cRicezioneProgCamEventsOK",
      "cRichiestaCancellaPrimaLog", "cRichiestaMultimedia", "cRicezioneMultimedia",
      "cRicezioneMultimediaOK", "cRicezioneMultimediaNotOK", "cTrasmettiUserCode", "cRicezioneUserCode",
      "cRicezioneUserCodeOK", "cTrasmettiStreamImageReq", "cRicezioneStreamImageReq",
      "cRicezioneStreamImageReqOK", "cRichiestaStreamImage", "cRicezioneStreamImageOK"};
  if (value < 0 || value >= static_cast<std::int32_t>(kNames.size())) return {};
  return kNames[static_cast<std::size_t>(value)];
}

}  // namespace camrelay
