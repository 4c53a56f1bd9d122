#include "host/session.h"

#include <algorithm>
#include <boost/asio/ip/address.hpp>
#include <boost/asio/ip/udp.hpp>
#include <boost/asio/post.hpp>
#include <csignal>

#include "store/DataVideo.h"

namespace camrelay::host {

namespace {

using std::chrono::milliseconds;

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

// A host name that cannot be resolved would otherwise show on UDP only as a
// unit that never answers, after every attempt: say so at once, with the
// resolver's reason.
std::optional<std::string> Unresolved(const std::string& host) {
  boost::system::error_code ec;
  boost::asio::ip::make_address(host, ec);
  if (!ec) return std::nullopt;
  boost::asio::io_context io;
  boost::asio::ip::udp::resolver resolver(io);
  resolver.resolve(host, "", ec);
  if (!ec) return std::nullopt;
  return "cannot resolve the unit's address '" + host + "': " + ec.message();
}

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
  client.RunStoresWith(link.storeRunner);
  client.PortaLocaleLibera(link.anyLocalPort);
  client.Connetti(link.host, link.port, link.localPort, false, link.tcp ? sckTCPProtocol : sckUDPProtocol,
                  link.dir);
  if (!client.Status().linked) return "cannot set up the link: " + OrElse(lastDebug, "no usable transport");
  if (client.Protocol() == sckProtocolError) {
    const std::string port = link.localPort > 0 ? std::to_string(link.localPort) : "from the settings file";
    return "cannot bind the local UDP port " + port + ": " + OrElse(lastDebug, "no reason given") +
           "; give --local-port 0 to let the system pick a free one";
  }
  if (auto unresolved = Unresolved(client.RemoteHost())) return unresolved;
  client.StringaConnDB(link.database);
  client.ApriDB();
  if (client.Status().database != cDbAperto) return "cannot open the database: " + OrElse(lastDebug, link.database);
  client.StringaCodiceAccesso(code);
  return std::nullopt;
}

namespace {

// How far a transfer got when the link gave up on it.
std::string HowFar(const LinkStatus& status) {
  if (status.packetsExpected < 1) return "";
  const std::string counts = std::to_string(status.packetsDone) + " of " + std::to_string(status.packetsExpected);
  if (status.transferType == "56") return ", " + counts + " packets received; the partial file was removed";
  if (status.upload) return ", " + counts + " packets acknowledged";
  return ", " + counts + " packets received; nothing stored";
}

}  // namespace

std::string UnitName(clsClient& client) {
  return client.RemoteHost() + ":" + std::to_string(client.RemotePort()) +
         (client.Protocol() == sckTCPProtocol ? " tcp" : " udp");
}

std::optional<std::string> LinkFailure(clsClient& client, StatoConnessioneEnum stato) {
  const LinkStatus status = client.Status();
  if (stato == cConnessioneRifiutata)
    return std::string(Describe(RequestOutcome::CodeRefused)) + " (" + OrElse(status.lastOutcomeText, "no reason given") + ")";
  // Any other link error (a reset, an abort) makes the library rebuild the
  // link and serve the request again: the watchdogs judge whether it does.
  if (stato == cErroreConnessione && status.lastOutcome == RequestOutcome::RetriesExhausted)
    return "no answer from " + UnitName(client) + " after " + std::to_string(status.attempts) + " attempts" +
           HowFar(status) + " (" + status.lastOutcomeText + ")";
  return std::nullopt;
}

bool UnitRun::Open() {
  lastDebug_.clear();
  const auto failure = OpenLink(client_, link_, code_, lastDebug_);
  if (failure) {
    console_.Error(*failure);
    return false;
  }
  unit_ = SiteUnit{client_.RemoteHost(), client_.RemotePort(), link_.localPort, link_.tcp};
  return true;
}

void UnitRun::OnState(StatoConnessioneEnum stato) {
  console_.State(stato);
  if (!current_) return;
  if (!error_) error_ = LinkFailure(client_, stato);
  if (stato == cConnessioneRifiutata) codeRefused_ = true;
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
  if (ChangesUnit(current_->command().op))
    console_.Note(TargetLine(current_->command(), link_.dir, UnitName(client_)));
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
  } else {
    reached_ = true;
  }
  current_.reset();
  if (codeRefused_) SkipTheRest();
  Later(&UnitRun::StartNext);
}

// Every later command would log in with the code just refused: a unit may
// lock out a code tried too often, so none of them is sent.
void UnitRun::SkipTheRest() {
  if (next_ >= commands_.size()) return;
  std::string names;
  for (; next_ < commands_.size(); ++next_, ++failures_)
    names += (names.empty() ? "" : " ") + commands_[next_].name;
  console_.Error("not sent, since the access code was refused: " + names);
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
  const auto images = current_->ImagesArrived();
  const long long mark = images.value_or(events_ + status.packetsDone + status.mediaBytes);
  if (mark > bestMark_) {
    bestMark_ = mark;
    lastProgress_ = now;
  } else if (now - lastProgress_ > progressLimit_) {
    Abandon(std::string(images ? "no image arrived" : "nothing moved") + " for " +
            std::to_string(progressLimit_.count() / 1000) + " s; giving up");
  }
}

// A request waiting with the reply timer off is waiting for nothing the link
// will do by itself: a connection that was refused, or a unit that went
// quiet after saying it was busy.
void UnitRun::WatchStall(Clock::time_point now) {
  const LinkStatus status = client_.Status();
  const bool waiting = !status.queue.empty() || status.operation != cNoOperation;
  // A link waiting for its store waits for the database, not the unit.
  if (!status.linked || !waiting || status.awaitingReply || status.storing) {
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

std::optional<SiteUnit> UnitRun::Reached() const {
  if (!reached_) return std::nullopt;
  return unit_;
}

int Session::Run() {
  signals_.async_wait([this](const boost::system::error_code& ec, int number) {
    if (ec) return;
    signal_ = number;
    run_.Interrupt();
  });
  run_.Start();
  io_.run();
  // Let the link go while the loop can still run what its end posts.
  signals_.cancel();
  io_.restart();
  io_.poll();
  if (signal_ != 0) return 128 + signal_;
  return failures_ > 0 ? 1 : 0;
}

}  // namespace camrelay::host
