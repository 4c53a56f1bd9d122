// The request queue: the host's operations wait here and are served one at a
// time on the one link. Element 0 of the array is an empty slot; the head, the
// request being served, is element 1.
#include <algorithm>
#include <iterator>

#include "link/codes.h"
#include "link/frmClient.h"
#include "link/guard.h"

namespace camrelay::link {

namespace {

// Preview requests differ only in their camera or command: one waiting is
// enough, whatever its argument.
bool IsDuplicate(const Richiesta& waiting, const std::string& Tipo, const std::string& Parametro) {
  return waiting.Tipo == Tipo && (waiting.Parametro == Parametro || TypeOf(Tipo).onePending);
}

// The states in which a new request may be served at once: idle, or a stream
// image exchange that does not hold the link.
bool ServesOnAdd(int stato) {
  return stato == cNoOperation || stato == cRichiestaStreamImage || stato == cRicezioneStreamImageOK;
}

std::string QueueLine(int count, const std::string& Tipo, const std::string& Parametro, int stato) {
  return std::to_string(count) + " - " + Tipo + " - " + Parametro + " - " + std::to_string(stato);
}

}  // namespace

void frmClient::AddRichiesta(const std::string& Tipo, const std::string& Parametro, bool ForceAdd) {
  try {
    if (Richieste.empty()) Richieste.emplace_back();
    const bool refused =
        !ForceAdd && std::any_of(Richieste.begin() + std::min<std::ptrdiff_t>(2, Richieste.size()),
                                 Richieste.end(),
                                 [&](const Richiesta& waiting) { return IsDuplicate(waiting, Tipo, Parametro); });
    if (refused)
      ++RichiesteRifiutate;
    else
      Richieste.push_back(Richiesta{Tipo, Parametro});
    if (ShowCamRelay)
      panel::AppendLogLine(Panel.LblRichiesta,
                           (refused ? "No: " : "") + QueueLine(QueueLength(), Tipo, Parametro, Stato));
    if (ServesOnAdd(Stato)) ReadRichiesta();
  } catch (...) {
    CreateEventOnDebug("AddRichiesta: " + Describe(std::current_exception()) + "\r\nsTipoArrivo: " + Tipo);
  }
}

void frmClient::EndRequest(RequestOutcome outcome) {
  lastOutcome = outcome;
  ++RequestsEnded;
  RemoveRichiesta(1);
}

bool frmClient::WithdrawRequest(int position) {
  if (position < 1 || position > QueueLength()) return false;
  if (position > 1) {
    RemoveRichiesta(position);
    return true;
  }
  // The head is in hand unless the link is idle: after AnnullaRichiesta, or
  // while a TCP connection is still being made. Idle, the queue itself would
  // serve it again at the next request; taken out, what the unit still sends
  // of it finds no exchange, and its reply timer must not fire for it.
  if (Stato != cNoOperation) return false;
  tmrTimeOut->setEnabled(false);
  bAttesaFine = false;
  EndRequest(RequestOutcome::Cancelled);
  return true;
}

void frmClient::RemoveRichiesta(int Indice) {
  Guarded(*this, "RemoveRichiesta", [&] {
    const int n = QueueLength();
    if (n >= 2) {
      // An index outside the queue drops the last request instead.
      const int drop = Indice >= 1 && Indice <= n ? Indice : n;
      Richieste.erase(Richieste.begin() + drop);
    } else if (n == 1) {
      Richieste.assign(1, Richiesta{});
      // The queue ran dry: the preview cycle, if one is on, takes the link
      // again, unless the request just served was itself a preview.
      if (!TypeOf(sTipoRichiesta).preview && VideoCiclePreview >= 1) AcquisisciNextPreview();
    }
    if (Stato == cNoOperation) ReadRichiesta();
  });
}

void frmClient::ReadRichiesta() {
  Guarded(*this, "ReadRichiesta", [&] {
    TentativiTimeOut = 1;
    TentativiRicezione = 0;
    if (QueueLength() < 1) return;
    const Richiesta head = Richieste[1];
    if (ShowCamRelay) {
      Panel.LblRichiesta = QueueLine(QueueLength(), head.Tipo, head.Parametro, Stato);
      Panel.LblStatoTCP = "Stato rete: " + std::to_string(Winsock1->state());
    }
    if (IsTCP() && Winsock1->state() != sckConnected) {
      if (Winsock1->state() == sckConnecting) return;
      // The connect handler serves the head once the link is up. A frame cut
      // short by the old connection would swallow the start of the new one.
      if (Winsock1->state() > sckClosed) Winsock1->close();
      sBufferRicezione.clear();
      Stato = cNoOperation;
      tmrTimeOut->setEnabled(false);
      Winsock1->connect();
      if (ShowCamRelay)
        panel::AppendLogLine(Panel.LblRichiesta, LogStamp() + " - Richiesta di connessione in corso...");
      return;
    }
    sTipoRichiesta = head.Tipo;
    const TransferType& type = TypeOf(head.Tipo);
    if (!type.serve) return;  // no operation serves it: it stays at the head
    // The login and the code changes start with only three retries left.
    if (type.attempts == Attempts::ThreeLeft) TentativiTimeOut = static_cast<std::int16_t>(TentativiTimeOutMax - 3);
    type.serve(*this, head.Parametro);
  });
}

}  // namespace camrelay::link
