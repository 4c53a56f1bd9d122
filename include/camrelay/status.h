// What a host may know of the link while it runs, without reaching into it:
// the transfer in hand, the queue, the reply awaited, the limits in force and
// why the last request ended. A snapshot: read it again to see it move.
#pragma once

#include <string>
#include <vector>

#include "camrelay/enums.h"

namespace camrelay {

// Why the last request left the queue.
enum class RequestOutcome {
  None,              // no request has ended on this link yet
  Completed,         // the exchange ended as it should
  CodeRefused,       // the unit refused the access code
  RetriesExhausted,  // no answer after every attempt
  LinkError,         // the connection failed or was lost
  Cancelled,         // the host abandoned it (AnnullaRichiesta)
  UnitError,         // the unit answered "Reg Error": it cannot do what was asked
  NotSent,           // nothing to send (no database, no file): dropped before any exchange
};

// A queued request: its two-character type and its argument.
struct QueuedRequest {
  std::string type;
  std::string argument;
};

struct LinkStatus {
  bool linked = false;                     // Connetti has set up a link
  bool connecting = false;                 // a TCP connection is being made
  bool connected = false;                  // the socket is connected (TCP) or bound (UDP)
  StatoDBEnum database = cDbChiuso;       // the database's state
  StatoConnessioneEnum operation = cNoOperation;
  std::string transferType;                // the type of the transfer in hand ("00" when none)
  bool upload = false;                     // the transfer in hand goes to the unit
  // The transfer in hand: packets sent or received, of how many.
  int packetsDone = 0;
  int packetsExpected = 0;
  // A multimedia file being received: its bytes written so far (the unit
  // announces packets, not bytes).
  long long mediaBytes = 0;
  std::vector<QueuedRequest> queue;        // the head, being served, first
  bool awaitingReply = false;              // the reply timer runs
  bool storing = false;                    // a download is being stored; the link waits for it
  int replyWithinMs = 0;                   // the interval the reply timer counts
  int attempts = 0;                        // attempts of the request in hand so far
  int timeoutLongMs = 0;
  int timeoutShortMs = 0;
  int retryLimit = 0;
  RequestOutcome lastOutcome = RequestOutcome::None;
  std::string lastOutcomeText;             // the unit's or the link's own words, when it said any
  // How many requests have ended on this client, links rebuilt or replaced
  // included: a host that notes it when it queues a request knows that
  // lastOutcome is about that request, or a later one, once the count has
  // moved.
  int requestsEnded = 0;
  // How many requests the queue has refused as the same as one already
  // waiting: a host compares it before and after queuing one.
  int requestsRefused = 0;
  // The last download of the event log or of the camera events: how many of
  // its records were new and added to the table (the unit sends every record
  // it holds each time; those already in the table are not added again).
  // Read it when the download's completion state is raised.
  int recordsNew = 0;
};

// Plain English for an outcome, for a face to show beside the unit's text.
const char* Describe(RequestOutcome outcome);

}  // namespace camrelay
