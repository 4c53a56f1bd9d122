#include "host/session.h"

#include <algorithm>
#include <boost/asio/post.hpp>
#include <csignal>

#include "store/DataVideo.h"

namespace camrelay::host {

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

UnitRun::UnitRun(boost::asio::io_context& io, const LinkOptions& link, const std::vector<Command>& commands,
                 Console& console, Done done)
    : io_(io),
      link_(link),
      commands_(commands),
      console_(console),
      done_(std::move(done)),
      client_(io),
      context_{client_, console_, link.dir},
      poll_(io),
      code_(link.code) {
  const Timing timing = Effective(link);
  const milliseconds longest{std::max(timing.timeoutLong, timing.timeoutShort)};
  stallLimit_ = std::max(kBusyWait, longest * timing.retries);
  progressLimit_ = longest * (std::max(timing.retries, kMediaAttempts) + 2) + kBusyWait;
  answerWait_ = milliseconds{timing.timeoutShort} * timing.retries;
  client_.UsaFileImpostazioni(link.settingsFile);
  client_.OnDebug = [this](const std::string& line) {
    lastDebug_ = line;
    console_.Debug(line);
    if (current_) current_->OnDebug(line);
  };
  client_.CambioStatoConnessione = [this](StatoConnessioneEnum stato) { OnState(stato); };
}

UnitRun::~UnitRun() {
  *alive_ = false;
  client_.OnDebug = nullptr;
  client_.CambioStatoConnessione = nullptr;
}

void UnitRun::Later(void (UnitRun::*step)()) {
  boost::asio::post(io_, [this, step, alive = std::weak_ptr<bool>(alive_)] {
    if (auto live = alive.lock(); live && *live) (this->*step)();
  });
}

void UnitRun::Start() {
  if (!Open()) {
    ++failures_;
    Finish();
    return;
  }
  Later(&UnitRun::StartNext);
  SchedulePoll();
}

// The link goes at once; what its end posts runs from the loop, and the
// owner hears of the end from a turn of its own.
void UnitRun::Finish() {
  finished_ = true;
  console_.EndProgress();
  poll_.cancel();
  client_.Disconnetti();
  Later(&UnitRun::Report);
}

void UnitRun::Report() {
  if (done_) std::exchange(done_, nullptr)(failures_);
}

std::optional<std::string> OpenLink(clsClient& client, const LinkOptions& link, const std::string& code,
                                    const std::string& lastDebug) {
  client.ImpostaTempiRisposta(link.timeoutLong, link.timeoutShort, link.retries);
  client.Connetti(link.host, link.port, link.localPort, false, link.tcp ? sckTCPProtocol : sckUDPProtocol,
                  link.dir);
  if (!client.Status().linked || client.Protocol() == sckProtocolError)
    return "cannot set up the link: " + OrElse(lastDebug, "no usable transport");
  client.StringaConnDB(link.database);
  client.ApriDB();
  if (client.Database().StatoDB != cDbAperto) return "cannot open the database: " + OrElse(lastDebug, link.database);
  client.StringaCodiceAccesso(code);
  return std::nullopt;
}

std::optional<std::string> LinkFailure(clsClient& client, StatoConnessioneEnum stato) {
  if (stato == cConnessioneRifiutata) return OrElse(client.StringaErroreConnessione(), "the unit refused the request");
  // Any other link error (a reset, an abort) makes the library rebuild the
  // link and serve the request again: the watchdogs judge whether it does.
  if (stato == cErroreConnessione && client.StringaErroreConnessione() == kGiveUp) return kGiveUp;
  return std::nullopt;
}

bool UnitRun::Open() {
  lastDebug_.clear();
  const auto failure = OpenLink(client_, link_, code_, lastDebug_);
  if (failure) console_.Error(*failure);
  return !failure;
}

void UnitRun::OnState(StatoConnessioneEnum stato) {
  console_.State(stato);
  if (!current_) return;
  if (!error_) error_ = LinkFailure(client_, stato);
  if (IsMilestone(stato)) ++events_;
  current_->OnState(context_, stato);
  Later(&UnitRun::CheckIdle);
}

void UnitRun::StartNext() {
  if (finished_ || current_) return;
  if (next_ >= commands_.size() || (!client_.Status().linked && !Open())) {
    if (next_ < commands_.size()) ++failures_;
    Finish();
    return;
  }
  current_ = MakeAction(commands_[next_++]);
  error_.reset();
  bestMark_ = 0;
  events_ = 0;
  lastProgress_ = Clock::now();
  stalledSince_.reset();
  idleSince_.reset();
  current_->Start(context_);
  Later(&UnitRun::CheckIdle);
}

void UnitRun::CheckIdle() {
  if (!current_ || finished_) return;
  if (!client_.Status().linked) {
    EndCommand(error_.value_or("the link was lost: " + OrElse(lastDebug_, "it could not be rebuilt")));
    return;
  }
  if (client_.RichiesteInCoda() != 0 || client_.StatoCorrente() != cNoOperation) {
    idleSince_.reset();
    return;
  }
  if (!error_ && current_->AwaitsMore()) {
    const auto now = Clock::now();
    if (!idleSince_) idleSince_ = now;
    if (now - *idleSince_ < answerWait_) return;
  }
  EndCommand(error_);
}

void UnitRun::EndCommand(const std::optional<std::string>& error) {
  const auto failure = current_->Finish(context_, error);
  console_.EndProgress();
  if (failure) {
    console_.Error(current_->command().name + ": " + *failure);
    ++failures_;
  }
  current_.reset();
  Later(&UnitRun::StartNext);
}

void UnitRun::SchedulePoll() {
  poll_.expires_after(kPollInterval);
  // A tick already due when the run ended is still delivered, without an
  // error, after its owner may have let the run go.
  poll_.async_wait([this, alive = std::weak_ptr<bool>(alive_)](const boost::system::error_code& ec) {
    const auto live = alive.lock();
    if (ec || !live || !*live || finished_) return;
    Poll();
    SchedulePoll();
  });
}

void UnitRun::Poll() {
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
void UnitRun::WatchProgress(Clock::time_point now) {
  const LinkStatus status = client_.Status();
  const long long mark = events_ + status.packetsDone + status.mediaBytes;
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
void UnitRun::WatchStall(Clock::time_point now) {
  const LinkStatus status = client_.Status();
  const bool waiting = !status.queue.empty() || status.operation != cNoOperation;
  if (!status.linked || !waiting || status.awaitingReply) {
    stalledSince_.reset();
    return;
  }
  if (!stalledSince_) stalledSince_ = now;
  const bool linkDown = link_.tcp && !status.connecting && !status.connected;
  if (now - *stalledSince_ < (linkDown ? kLinkDownGrace : stallLimit_)) return;
  if (linkDown)
    Abandon(OrElse(client_.StringaErroreConnessione(), "the connection to the unit was lost"));
  else
    Abandon(status.connecting ? "cannot connect to the unit" : "the unit stopped answering");
}

void UnitRun::Abandon(const std::string& reason) {
  if (!error_) error_ = reason;
  // The request stays queued on the link that cannot serve it: a new link
  // starts with an empty queue. The code in force may have been changed by
  // an earlier command.
  code_ = client_.StringaCodiceAccesso();
  client_.Disconnetti();
  EndCommand(error_);
}

void UnitRun::Interrupt() {
  if (finished_) return;
  // Whatever the command leaves half done (a partial file) is cleaned up.
  if (current_) current_->Finish(context_, std::string("interrupted"));
  current_.reset();
  console_.Error("interrupted");
  ++failures_;
  Finish();
}

Session::Session(const LinkOptions& link, const std::vector<Command>& commands, Console& console)
    : signals_(io_, SIGINT, SIGTERM),
      run_(io_, link, commands, console, [this](int failures) {
        failures_ = failures;
        io_.stop();
      }) {}

int Session::Run() {
  signals_.async_wait([this](const boost::system::error_code& ec, int) {
    if (!ec) run_.Interrupt();
  });
  run_.Start();
  io_.run();
  // Let the link go while the loop can still run what its end posts.
  signals_.cancel();
  io_.restart();
  io_.poll();
  return failures_ > 0 ? 1 : 0;
}

}  // namespace camrelay::host
