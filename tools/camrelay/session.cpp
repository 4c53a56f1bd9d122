#include "session.h"

#include <algorithm>
#include <boost/asio/post.hpp>
#include <csignal>

#include "link/frmClient.h"
#include "store/DataVideo.h"

namespace camrelay::cli {

namespace {

using std::chrono::milliseconds;

constexpr const char* kGiveUp = "Raggiunto il numero massimo di tentativi.";
constexpr milliseconds kPollInterval{50};
// A TCP link that is down with nothing under way is rebuilt by the library
// in the same turn of the loop when it was reset; still down after this, it
// is not coming back by itself (a refused connection, say).
constexpr milliseconds kLinkDownGrace{1000};
// After a busy reply the link waits this long whatever the time-outs.
constexpr milliseconds kBusyWait{60000};
// Multimedia files and preview images are retried up to this many times.
constexpr int kMediaAttempts = 25;

struct Timing {
  int timeoutLong, timeoutShort, retries;
};

// The values in force: the options, else the transport's own.
Timing Effective(const LinkOptions& link) {
  const Timing own = link.tcp ? Timing{60000, 60000, 10} : Timing{1000, 750, 15};
  return {link.timeoutLong ? link.timeoutLong : own.timeoutLong,
          link.timeoutShort ? link.timeoutShort : own.timeoutShort, link.retries ? link.retries : own.retries};
}

// States that mark a step forward of a transfer, for the progress watchdog.
bool IsMilestone(StatoConnessioneEnum stato) {
  switch (stato) {
    case cConnessioneOK:
    case cTrasmissioneOK:
    case cRicezioneWaveOK:
    case cRicezioneProgOK:
    case cRicezionePreViewOK:
    case cRicezioneLogOK:
    case cRicezioneStringaOK:
    case cRicezioneCamEventsOK:
    case cRicezioneProgCamEventsOK:
    case cRicezioneMultimedia:
    case cRicezioneMultimediaOK:
    case cRicezioneStreamImageOK:
      return true;
    default:
      return false;
  }
}

std::string OrElse(const std::string& text, const std::string& fallback) { return text.empty() ? fallback : text; }

}  // namespace

Session::Session(const Invocation& invocation, Console& console)
    : invocation_(invocation),
      console_(console),
      client_(io_),
      context_{client_, console_, invocation.link.dir},
      poll_(io_),
      signals_(io_, SIGINT, SIGTERM),
      code_(invocation.link.code) {
  const Timing timing = Effective(invocation.link);
  const milliseconds longest{std::max(timing.timeoutLong, timing.timeoutShort)};
  stallLimit_ = std::max(kBusyWait, longest * timing.retries);
  progressLimit_ = longest * (std::max(timing.retries, kMediaAttempts) + 2) + kBusyWait;
}

Session::~Session() = default;

int Session::Run() {
  client_.OnDebug = [this](const std::string& line) {
    lastDebug_ = line;
    console_.Debug(line);
  };
  client_.CambioStatoConnessione = [this](StatoConnessioneEnum stato) { OnState(stato); };
  signals_.async_wait([this](const boost::system::error_code& ec, int) {
    if (!ec) OnSignal();
  });
  if (!Open()) return 1;
  boost::asio::post(io_, [this] { StartNext(); });
  SchedulePoll();
  io_.run();

  console_.EndProgress();
  // Let the link go while the loop can still run what its end posts.
  poll_.cancel();
  signals_.cancel();
  client_.Disconnetti();
  io_.restart();
  io_.poll();
  return failures_ > 0 ? 1 : 0;
}

bool Session::Open() {
  const LinkOptions& link = invocation_.link;
  lastDebug_.clear();
  client_.ImpostaTempiRisposta(link.timeoutLong, link.timeoutShort, link.retries);
  client_.Connetti(link.host, link.port, link.localPort, false, link.tcp ? sckTCPProtocol : sckUDPProtocol,
                   link.dir);
  if (!client_.Form() || client_.Protocol() == sckProtocolError) {
    console_.Error("cannot set up the link: " + OrElse(lastDebug_, "no usable transport"));
    return false;
  }
  client_.StringaConnDB(link.database);
  client_.ApriDB();
  if (client_.Database().StatoDB != cDbAperto) {
    console_.Error("cannot open the database: " + OrElse(lastDebug_, link.database));
    return false;
  }
  client_.StringaCodiceAccesso(code_);
  return true;
}

void Session::OnState(StatoConnessioneEnum stato) {
  console_.State(stato);
  if (!current_) return;
  if (stato == cConnessioneRifiutata && !error_) {
    error_ = OrElse(client_.StringaErroreConnessione(), "the unit refused the request");
  } else if (stato == cErroreConnessione && !error_ && client_.StringaErroreConnessione() == kGiveUp) {
    // Any other link error (a reset, an abort) makes the library rebuild the
    // link and serve the request again: the watchdogs judge whether it does.
    error_ = kGiveUp;
  }
  if (IsMilestone(stato)) ++events_;
  current_->OnState(context_, stato);
  boost::asio::post(io_, [this] { CheckIdle(); });
}

void Session::StartNext() {
  if (finished_ || current_) return;
  if (next_ >= invocation_.commands.size() || (!client_.Form() && !Open())) {
    if (next_ < invocation_.commands.size()) ++failures_;
    finished_ = true;
    io_.stop();
    return;
  }
  current_ = MakeAction(invocation_.commands[next_++]);
  error_.reset();
  bestMark_ = 0;
  events_ = 0;
  lastProgress_ = Clock::now();
  stalledSince_.reset();
  current_->Start(context_);
  boost::asio::post(io_, [this] { CheckIdle(); });
}

void Session::CheckIdle() {
  if (!current_ || finished_) return;
  if (!client_.Form()) {
    EndCommand(error_.value_or("the link was lost: " + OrElse(lastDebug_, "it could not be rebuilt")));
    return;
  }
  if (client_.RichiesteInCoda() == 0 && client_.StatoCorrente() == cNoOperation) EndCommand(error_);
}

void Session::EndCommand(const std::optional<std::string>& error) {
  const auto failure = current_->Finish(context_, error);
  console_.EndProgress();
  if (failure) {
    console_.Error(current_->command().name + ": " + *failure);
    ++failures_;
  }
  current_.reset();
  boost::asio::post(io_, [this] { StartNext(); });
}

void Session::SchedulePoll() {
  poll_.expires_after(kPollInterval);
  poll_.async_wait([this](const boost::system::error_code& ec) {
    if (ec) return;
    Poll();
    SchedulePoll();
  });
}

void Session::Poll() {
  // Some exchanges end without a state change (a command string sent): the
  // poll notices those.
  CheckIdle();
  if (!current_ || finished_) return;
  const auto now = Clock::now();
  WatchProgress(now);
  if (current_) WatchStall(now);
  if (!current_) return;
  if (const auto fraction = current_->Progress(context_)) console_.Progress(current_->command().name, *fraction);
}

// Something must move within the longest wait the link itself could have:
// all its attempts, and a busy reply on top.
void Session::WatchProgress(Clock::time_point now) {
  long long mark = events_;
  if (const link::frmClient* form = client_.Form()) {
    mark += form->nPacchetti + form->StringaInviata + form->ProgressoMultimedia;
    mark += static_cast<long long>(PacketsHeld(*form));
  }
  if (mark > bestMark_) {
    bestMark_ = mark;
    lastProgress_ = now;
  } else if (now - lastProgress_ > progressLimit_) {
    Abandon("nothing moved for " + std::to_string(progressLimit_.count() / 1000) + " s; giving up");
  }
}

// A request waiting with the reply timer off is waiting for nothing the link
// will do by itself: a connection that was refused, or a unit that went
// quiet after saying it was busy.
void Session::WatchStall(Clock::time_point now) {
  const link::frmClient* form = client_.Form();
  const bool waiting = client_.RichiesteInCoda() > 0 || client_.StatoCorrente() != cNoOperation;
  if (!form || !waiting || form->tmrTimeOut->enabled()) {
    stalledSince_.reset();
    return;
  }
  if (!stalledSince_) stalledSince_ = now;
  const int socket = form->Winsock1->state();
  const bool linkDown = invocation_.link.tcp && socket != link::sckConnecting && socket != link::sckConnected;
  if (now - *stalledSince_ < (linkDown ? kLinkDownGrace : stallLimit_)) return;
  if (linkDown)
    Abandon(OrElse(form->StringaErroreConnessione, "the connection to the unit was lost"));
  else
    Abandon(socket == link::sckConnecting ? "cannot connect to the unit" : "the unit stopped answering");
}

void Session::Abandon(const std::string& reason) {
  if (!error_) error_ = reason;
  // The request stays queued on the link that cannot serve it: a new link
  // starts with an empty queue. The code in force may have been changed by
  // an earlier command.
  code_ = client_.StringaCodiceAccesso();
  client_.Disconnetti();
  EndCommand(error_);
}

void Session::OnSignal() {
  // Whatever the command leaves half done (a partial file) is cleaned up.
  if (current_) current_->Finish(context_, std::string("interrupted"));
  current_.reset();
  console_.Error("interrupted");
  ++failures_;
  finished_ = true;
  io_.stop();
}

}  // namespace camrelay::cli
