// Shared set-up of the reception tests: the link as the unit's acceptance of
// a download leaves it, and the unit's data packets.
#pragma once

#include <string>

#include "link/codes.h"
#include "link/frmClient.h"

namespace camrelay::test {

// The request `request` at the head of the queue, accepted as a transfer of
// type `tipo` announcing `packets` data packets.
inline void Accepted(link::frmClient& form, const std::string& tipo, int packets,
                     const std::string& request) {
  form.Richieste.push_back({request, ""});
  form.sTipoRichiesta = request;
  form.sTipoArrivo = tipo;
  form.Stato = *link::StatoForTipo(tipo);
  form.StringaPar.assign(packets + 1, "");
  form.nPacchetti = 0;
}

// An indexed data packet: "{}" index "{}" length CR LF body.
inline std::string Packet(int index, const std::string& body) {
  return "{}" + std::to_string(index) + "{}" + std::to_string(body.size()) + "\r\n" + body;
}

// Every byte value once, so that files and images prove byte-exact.
inline std::string AllBytes() {
  std::string bytes;
  for (int b = 0; b < 256; ++b) bytes += static_cast<char>(b);
  return bytes;
}

}  // namespace camrelay::test
