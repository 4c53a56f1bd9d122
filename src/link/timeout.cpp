// The reply timer and the unit's two flow-control replies: silence is met
// with a resend up to the retry limit and then a give-up; "BS" stretches the
// wait; "OK" releases the next packet of an upload.
#include <algorithm>

#include "link/codes.h"
#include "link/frmClient.h"
#include "link/guard.h"
#include "link/reception.h"

namespace camrelay::link {

namespace {

// Media and preview images go on much longer than the transport's limit.
constexpr int kMediaAttempts = 25;
// How long a busy unit is given, on either transport.
constexpr int kBusyInterval = 60000;

// What "BS" means in a state. A preview image being reported counts as a
// request the unit is still working on.
Busy BusyIn(int stato) {
  if (stato == cRicezionePreViewOK) return {cNoOperation, cRichiestaOKAndBusy, BusyWait::AMinute};
  return TypeInState(stato).busy;
}

bool UploadWaitsBriefly(int stato) {
  const TransferType& type = TypeInState(stato);
  return type.direction == Direction::Upload && type.reply == Interval::Short;
}

// The preview, the command strings and the stream image are not reported as
// a finished upload: what matters to the host is the unit's answer, or the
// string itself. The preview's own download states count as the preview.
bool EndsWithAnswer(int stato) {
  const TransferType& type = TypeInState(stato);
  return (type.direction == Direction::Upload && type.completed == cNoOperation) ||
         stato == cRichiestaPreView || stato == cRicezionePreViewOK;
}

// The counter climbs one by one to the limit. A login starts it three short
// of the transport's limit while sTipoArrivo still names the transfer before
// it; with a limit above the media one that start would lie beyond the media
// limit and an equality test would never be met. The limit is therefore a
// bound, the larger of the two for media: for the transports' own limits
// (10, 15) this is the same as testing for equality.
bool ShouldRetry(const frmClient& f) {
  const bool media = TypeOf(f.sTipoArrivo).attempts == Attempts::Media;
  const int limit = media ? std::max(kMediaAttempts, f.TentativiTimeOutMax) : f.TentativiTimeOutMax;
  return f.TentativiTimeOut < limit;
}

std::string EndProbe(const std::string& tipo, int count) {
  return std::string(code::End) + std::string(kSep) + tipo + std::string(kSep) + std::to_string(count) +
         std::string(kSep);
}

void Retry(frmClient& f) {
  ++f.TentativiTimeOut;
  if (f.QueueLength() < 1) {
    f.Stato = cNoOperation;
    return;
  }
  if (IsUploadType(f.sTipoArrivo)) {
    // Send the last packet again, numbered, so the unit can tell a repeat.
    f.StringaInviata = std::min(std::max(f.StringaInviata - 1, 0), f.UboundStringaPar() + 1);
    if (f.StringaInviata > f.UboundStringaPar())
      f.CreateEventOnDebug("tmrTimeOut_Timer: there is no element " + std::to_string(f.StringaInviata) +
                           " to send again; the probe goes without one");
    f.TrasmettiStringa(EndProbe(f.sTipoArrivo, f.StringaInviata) + f.GetStringaPar(f.StringaInviata));
    ++f.StringaInviata;
    f.RaiseStato(cTimeOutConnessione);
    f.bAttesaFine = true;
  } else if (f.Stato != cNoOperation) {
    // Tell the unit how far the download got; only its "13" is taken next.
    f.TrasmettiStringa(EndProbe(f.sTipoArrivo, f.nPacchetti));
    f.RaiseStato(cTimeOutConnessione);
    f.bAttesaFine = true;
  } else {
    // Not accepted yet: ask the unit to repeat its last answer.
    f.TrasmettiStringa(std::string(code::ResendAll));
    f.RaiseStato(cTimeOutConnessione);
  }
}

void GiveUp(frmClient& f) {
  f.bAttesaFine = false;
  f.Stato = cNoOperation;
  // A lost preview image is not worth an error: the next one is on its way.
  const TransferType& type = TypeOf(f.sTipoArrivo);
  if (type.reportsGiveUp) {
    f.lastOutcome = RequestOutcome::RetriesExhausted;  // already when the error is raised
    f.StringaErroreConnessione = "Raggiunto il numero massimo di tentativi.";
    f.RaiseStato(cErroreConnessione);
  }
  const std::string tipo = f.sTipoArrivo;
  if (type.payload == Payload::MediaFile) DiscardPartialMediaFile(f);
  f.EndRequest(RequestOutcome::RetriesExhausted);
  if (type.preview) f.ResumePreviewAfterGiveUp();
  f.PannelloConnetti("Non connesso", panel::kRed);
}

}  // namespace

void frmClient::GiveUpRequest() { GiveUp(*this); }

void frmClient::tmrTimeOut_Timer() {
  Guarded(*this, "tmrTimeOut_Timer", [&] {
    tmrTimeOut->setEnabled(false);
    if (ShowCamRelay)
      panel::AppendLogLine(Panel.Label4, LogStamp() + " - Avvenuto un tmrTimeOut di intervallo: " +
                                             std::to_string(tmrTimeOut->interval()) +
                                             "; Stato = " + std::to_string(Stato));
    if (ShouldRetry(*this))
      Retry(*this);
    else
      GiveUp(*this);
  });
}

void frmClient::Winsock_RicevutoAttendi(const std::string&) {
  GuardedWithState(*this, "Winsock_RicevutoAttendi", [&] {
    if (IsTCP()) TrasmettiStringa(std::string(code::Busy) + std::string(kSep) + sTipoArrivo);
    // A preview, a command request or a stream request that the unit is busy
    // with has been taken: its answer is what is awaited now.
    const Busy busy = BusyIn(Stato);
    if (busy.becomes != cNoOperation)
      Stato = busy.becomes;
    else if (Stato != cNoOperation)
      RaiseStato(busy.reported);

    // While the unit stores a firmware update or voice messages it may take
    // any time: wait for its next message without a limit; the echo above
    // armed the timer.
    const BusyWait wait = BusyIn(Stato).wait;
    if (wait == BusyWait::NoLimit) {
      tmrTimeOut->setEnabled(false);
      return;
    }
    tmrTimeOut->setInterval(wait == BusyWait::Briefly ? TimeOutBreve : kBusyInterval);
    if (ShowCamRelay) {
      Panel.LblTimeOut = "Durata TimeOut BS: " + std::to_string(tmrTimeOut->interval()) + "ms";
      Panel.LblStato = "Stato corrente: " + std::to_string(Stato);
    }
    tmrTimeOut->setEnabled(true);
  });
}

void frmClient::Winsock_RicevutoPacchetto(const std::string& Stringa) {
  GuardedWithState(*this, "Winsock_RicevutoPacchetto", [&] {
    if (ShowCamRelay) panel::AppendLogLine(Panel.txtRxData, Stringa + " ---> " + sTipoRichiesta);
    if (!StringaPar.empty() && StringaInviata >= 0 && UboundStringaPar() >= StringaInviata) {
      tmrTimeOut->setInterval(UploadWaitsBriefly(Stato) ? TimeOutBreve : TimeOutLungo);
      TrasmettiStringa(StringaPar[StringaInviata]);
      ++StringaInviata;
      return;
    }
    // Only the acknowledgement of the last packet ends the upload; a repeat
    // of it finds StringaInviata already past the end.
    if (StringaInviata != UboundStringaPar() + 1) {
      CreateEventOnDebug("Winsock_RicevutoPacchetto: acknowledgement with no element left to send ignored\r\n" +
                         StateReport(*this));
      return;
    }
    ++StringaInviata;
    if (Stato == cTrasmettiInstallCode || Stato == cTrasmettiUserCode) sStringaPassword = NewStringaPassWord;
    if (!EndsWithAnswer(Stato)) {
      Stato = cTrasmissioneOK;
      RaiseStato(cTrasmissioneOK);
    }
    Stato = cNoOperation;
    EndRequest(RequestOutcome::Completed);
  });
}

}  // namespace camrelay::link
