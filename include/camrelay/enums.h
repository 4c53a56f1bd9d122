// The three enumerations of the automation interface. Hosts compare against the
// numbers, so every value is written out and must never change.
#pragma once

#include <cstdint>
#include <string_view>

namespace camrelay {

enum sckProtocol : std::int32_t {
  sckProtocolError = -1,
  sckTCPProtocol = 0,
  sckUDPProtocol = 1,
};

enum StatoDBEnum : std::int32_t {
  cDbChiuso = 0,
  cDbAperto = 1,
};

enum StatoConnessioneEnum : std::int32_t {
  cNoOperation = 0,
  cRichiestaProg = 1,
  cConnessioneRifiutata = 2,
  cTrasmettiProg = 3,
  cRichiestaWave = 4,
  cRichiestaLog = 5,
  cRichiestaCancellaLog = 6,
  cTrasmettiWave = 7,
  cTimeOutConnessione = 8,
  cErroreConnessione = 9,
  cTrasmissioneOK = 10,
  cRicezioneWaveOK = 11,
  cRicezioneProgOK = 12,
  cRicezioneWave = 13,
  cRicezioneInstallCodeOK = 14,
  cTrasmettiPreviewEnable = 15,
  cRichiestaPreView = 16,
  cRicezionePreViewOK = 17,
  cConnessioneOK = 18,
  cTrasmettiAggiornamento = 19,
  cRicezioneAggiornamento = 20,
  cRicezioneAggiornamentoOK = 21,
  cTrasmissioneOKAndBusy = 22,
  cRicezioneWaveNotOK = 23,
  cRicezioneAggiornamentoNotOK = 24,
  cRicezioneProg = 25,
  cRichiestaOKAndBusy = 26,
  cRicezioneInstallCode = 27,
  cRicezionePreviewReq = 28,
  cTrasmettiInstallCode = 29,
  cRicezioneLogOK = 30,
  cTrasmettiStringa = 31,
  cRichiestaStringa = 32,
  cRicezioneStringa = 33,
  cRicezioneStringaOK = 34,
  cTrasmettiStringaReq = 35,
  cRicezioneStringaReq = 36,
  cRicezioneStringaReqOK = 37,
  cRichiestaCamEvents = 38,
  cRicezioneCamEvents = 39,
  cRicezioneCamEventsOK = 40,
  cTrasmettiProgCamEvents = 41,
  cRichiestaProgCamEvents = 42,
  cRicezioneProgCamEvents = 43,
  cRicezioneProgCamEventsOK = 44,
  cRichiestaCancellaPrimaLog = 45,
  cRichiestaMultimedia = 46,
  cRicezioneMultimedia = 47,
  cRicezioneMultimediaOK = 48,
  cRicezioneMultimediaNotOK = 49,
  cTrasmettiUserCode = 50,
  cRicezioneUserCode = 51,
  cRicezioneUserCodeOK = 52,
  cTrasmettiStreamImageReq = 53,
  cRicezioneStreamImageReq = 54,
  cRicezioneStreamImageReqOK = 55,
  cRichiestaStreamImage = 56,
  cRicezioneStreamImageOK = 57,
};

// The enumerator's own name ("cConnessioneOK" for 18); empty for a number
// outside 0..57. Hosts use it to print readable state lines.
std::string_view StatoConnessioneName(std::int32_t value);

}  // namespace camrelay
