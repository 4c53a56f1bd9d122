#include "web/live_link.h"

#include <algorithm>
#include <boost/asio/post.hpp>
#include <boost/beast/core/detail/base64.hpp>
#include <chrono>
#include <cstdio>
#include <ctime>

#include "host/session.h"
#include "web/access.h"
#include "store/text.h"

namespace camrelay::web {

using nlohmann::json;

namespace {

constexpr std::chrono::milliseconds kPollInterval{100};
// What a page that connects late is shown of the past.
constexpr std::size_t kKeepTimeline = 500;
constexpr std::size_t kKeepDebug = 500;
constexpr std::size_t kKeepJobs = 200;

// Preview requests come and go with the camera cycle: they are the preview
// job's, not waiting jobs.
bool IsPreviewRequest(const QueuedRequest& r) { return r.type == "08" || r.type == "09"; }

bool IsPreviewState(StatoConnessioneEnum stato) {
  return stato == cTrasmettiPreviewEnable || stato == cRichiestaPreView || stato == cRicezionePreViewOK ||
         stato == cRicezionePreviewReq;
}

// Local time of day to the millisecond, for the timeline and the outcomes.
std::string Now() {
  const auto now = std::chrono::system_clock::now();
  const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
  const auto millis = std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
  std::tm local{};
  localtime_r(&seconds, &local);
  char text[32];
  std::snprintf(text, sizeof text, "%02d:%02d:%02d.%03d", local.tm_hour, local.tm_min, local.tm_sec,
                static_cast<int>(millis));
  return text;
}

// What the link is doing, as a technician would say it.
const char* OperationInWords(StatoConnessioneEnum stato) {
  switch (stato) {
    case cNoOperation: return "Idle";
    case cRichiestaProg: case cRicezioneProg: case cRicezioneProgOK: return "Downloading the programming";
    case cTrasmettiProg: return "Uploading the programming";
    case cRichiestaWave: case cRicezioneWave: case cRicezioneWaveOK: return "Downloading the voice messages";
    case cTrasmettiWave: case cRicezioneWaveNotOK: return "Uploading the voice messages";
    case cRichiestaLog: case cRicezioneLogOK: return "Downloading the event log";
    case cRichiestaCancellaLog: case cRichiestaCancellaPrimaLog: return "Erasing the event log";
    case cTrasmettiPreviewEnable: case cRichiestaPreView: case cRicezionePreViewOK: case cRicezionePreviewReq:
      return "Showing the live preview";
    case cTrasmettiAggiornamento: case cRicezioneAggiornamento: case cRicezioneAggiornamentoOK:
    case cRicezioneAggiornamentoNotOK: return "Sending the firmware update";
    case cTrasmettiInstallCode: case cRicezioneInstallCode: case cRicezioneInstallCodeOK:
      return "Changing the installer code";
    case cTrasmettiUserCode: case cRicezioneUserCode: case cRicezioneUserCodeOK: return "Changing the user code";
    case cRichiestaCamEvents: case cRicezioneCamEvents: case cRicezioneCamEventsOK:
      return "Downloading the camera events";
    case cTrasmettiProgCamEvents: return "Uploading the camera-event programming";
    case cRichiestaProgCamEvents: case cRicezioneProgCamEvents: case cRicezioneProgCamEventsOK:
      return "Downloading the camera-event programming";
    case cRichiestaMultimedia: case cRicezioneMultimedia: case cRicezioneMultimediaOK: case cRicezioneMultimediaNotOK:
      return "Downloading a file";
    case cTrasmettiStreamImageReq: case cRicezioneStreamImageReq: case cRicezioneStreamImageReqOK:
      return "Fetching a camera image";
    case cTrasmettiStringa: case cRichiestaStringa: case cRicezioneStringa: case cRicezioneStringaOK:
    case cTrasmettiStringaReq: case cRicezioneStringaReq: case cRicezioneStringaReqOK:
      return "Exchanging a command string";
    case cTrasmissioneOKAndBusy: case cRichiestaOKAndBusy: return "Waiting: the unit is busy";
    case cTimeOutConnessione: return "Waiting for the unit's answer";
    case cErroreConnessione: return "The connection failed";
    case cConnessioneRifiutata: return "The unit refused the access code";
    default: return "Talking to the unit";
  }
}

void Keep(std::deque<json>& history, json message, std::size_t limit) {
  history.push_back(std::move(message));
  if (history.size() > limit) history.pop_front();
}

bool IsFile(const std::string& file) {
  std::error_code ec;
  return std::filesystem::is_regular_file(file, ec);
}

std::string Base64(const std::string& bytes) {
  namespace b64 = boost::beast::detail::base64;
  std::string out(b64::encoded_size(bytes.size()), '\0');
  out.resize(b64::encode(out.data(), bytes.data(), bytes.size()));
  return out;
}

// A code typed on the page is shown as asterisks in its job, like anywhere.
bool ArgumentIsSecret(host::Op op) { return op == host::Op::SetInstallerCode || op == host::Op::SetUserCode; }

// How a command's argument is shown: a code hidden, a file picked by its
// name (the folder it waits in is the console's own business).
std::string ShownArgument(const host::Command& command) {
  if (ArgumentIsSecret(command.op)) return "******";
  if (command.op == host::Op::UploadFirmware) return std::filesystem::path(command.argument).filename().string();
  return command.argument;
}

}  // namespace

LiveLink::LiveLink(boost::asio::io_context& io, const cli::Invocation& invocation, host::Console& console,
                   Publish publish)
    : io_(io),
      link_(invocation.link),
      console_(console),
      publish_(std::move(publish)),
      client_(io),
      context_{client_, console_, invocation.link.dir},
      poll_(io),
      haveDatabase_(IsFile(host::DatabaseFile(invocation.link.database))) {
  console_.onLine = [this](const std::string& line) {
    if (speaking_) speaking_->lines.push_back(line);
  };
}

LiveLink::~LiveLink() {
  console_.onLine = nullptr;
  poll_.cancel();
  client_.Disconnetti();
}

std::optional<std::string> LiveLink::Open() {
  client_.OnDebug = [this](const std::string& line) { OnDebug(line); };
  client_.CambioStatoConnessione = [this](StatoConnessioneEnum stato) { OnState(stato); };
  if (!link_.code.empty()) console_.AddSecret(link_.code);
  if (auto failure = host::OpenLink(client_, link_, link_.code, lastDebug_)) return failure;
  client_.Show();
  Poll();
  return std::nullopt;
}

std::string LiveLink::ForPage(const std::string& text) const {
  return store::Cp1252ToUtf8(HideScrambledCodes(console_.Scrub(text)));
}

template <typename F>
void LiveLink::As(Job& job, F&& body) {
  speaking_ = &job;
  body();
  speaking_ = nullptr;
}

int LiveLink::Run(host::Command command) {
  host::CheckCommand(command);
  if (!client_.Status().linked) throw host::UsageError("the console is not connected to a unit: press Connect");
  host::CheckSource(command, link_.database, haveDatabase_, done_);
  if (ArgumentIsSecret(command.op)) console_.AddSecret(command.argument);
  const bool held = command.op == host::Op::Preview || command.op == host::Op::Playback;
  if (held && (preview_ || clip_))
    throw host::UsageError(command.name + ": " + (preview_ ? "a preview is running: stop it first"
                                                           : "a clip is open: close it first"));
  if (command.op == host::Op::Playback) command.images = 0;  // held by hand
  Job job;
  job.id = nextId_++;
  job.action = host::MakeAction(command);
  job.action->Record(record_);
  job.staleRefusal = client_.Status().lastOutcome == RequestOutcome::UnitError;
  PublishJob(job, "queued");
  const int refusedBefore = client_.Status().requestsRefused;
  const int waitingBefore = WaitingRequests();
  As(job, [&] { job.action->Start(context_); });
  if (command.op == host::Op::Preview) {
    preview_ = std::move(job);
    return preview_->id;
  }
  if (command.op == host::Op::Playback) {
    clip_ = std::move(job);
    return clip_->id;
  }
  if (client_.Status().requestsRefused > refusedBefore) {
    PublishJob(job, "refused", "the same request is already waiting in the queue");
    return job.id;
  }
  // Not queued: either refused by the command itself (nothing to send), or
  // sent at once and already out of the queue (a stream image).
  if (WaitingRequests() <= waitingBefore) job.inQueue = false;
  jobs_.push_back(std::move(job));
  boost::asio::post(io_, [this] { Settle(); });
  return jobs_.back().id;
}

std::optional<std::string> LiveLink::Connect(const std::string& host, int port, bool tcp, const std::string& code) {
  Disconnect();
  if (!host.empty()) link_.host = host;
  if (port > 0) link_.port = port;
  link_.tcp = tcp;
  if (!code.empty()) link_.code = code;
  auto failure = Open();
  publish_(UnitMessage());
  return failure;
}

void LiveLink::Disconnect() {
  if (!client_.Status().linked) return;
  client_.Disconnetti();
  // The requests went with the link: their jobs end here.
  for (Job& job : jobs_) job.error = "the link was closed before it was sent";
  if (preview_) preview_->stopped = true;
  if (clip_) clip_->error = "the link was closed";
  while (!jobs_.empty()) {
    Job job = std::move(jobs_.front());
    jobs_.pop_front();
    Finish(job);
  }
  Settle();
  publish_(UnitMessage());
}

void LiveLink::OrderClip(host::PlaybackOrder order, double value) {
  if (!clip_) throw host::UsageError("playback: no clip is open");
  bool taken = false;
  As(*clip_, [&] { taken = clip_->action->Order(context_, order, value); });
  if (!taken) throw host::UsageError("playback: the clip is closing");
  boost::asio::post(io_, [this] { Settle(); });
}

void LiveLink::Record(bool on) {
  record_ = on;
  for (Job* held : {preview_ ? &*preview_ : nullptr, clip_ ? &*clip_ : nullptr})
    if (held) held->action->Record(on);
  publish_(RecordMessage());
}

json LiveLink::RecordMessage() const { return json{{"type", "record"}, {"on", record_}}; }

// The job that holds the preview requests now: the preview, or the clip.
LiveLink::Job* LiveLink::Held() {
  if (preview_) return &*preview_;
  return clip_ ? &*clip_ : nullptr;
}

void LiveLink::StopPreview() {
  if (!preview_) return;
  preview_->stopped = true;
  client_.FermaPreview();
}

LiveLink::Job* LiveLink::FindJob(int id) {
  const auto it = std::find_if(jobs_.begin(), jobs_.end(), [id](const Job& j) { return j.id == id; });
  return it == jobs_.end() ? nullptr : &*it;
}

// Where a job's request stands in the link's queue, from 1 (the head); 0
// when it is not there. Jobs hold their requests in queue order, and the
// preview's requests come and go between them.
int LiveLink::QueuePosition(const Job& job) {
  int ahead = 0;
  for (const Job& other : jobs_) {
    if (&other == &job) break;
    if (other.inQueue) ++ahead;
  }
  if (!job.inQueue) return 0;
  const std::vector<QueuedRequest> queue = client_.Status().queue;
  for (std::size_t i = 0; i < queue.size(); ++i)
    if (!IsPreviewRequest(queue[i]) && ahead-- == 0) return static_cast<int>(i) + 1;
  return 0;
}

void LiveLink::Cancel(int id) {
  if (preview_ && preview_->id == id) return StopPreview();
  if (clip_ && clip_->id == id) return OrderClip(host::PlaybackOrder::Close, 0);
  Job* job = FindJob(id);
  const int position = job ? QueuePosition(*job) : 0;
  if (position == 0) throw host::UsageError("cancel: that job is over, or its request has left the queue");
  const LinkStatus before = client_.Status();
  const int othersWaiting = static_cast<int>(before.queue.size()) - 1;
  std::string kept = othersWaiting == 0 ? "nothing else was waiting"
                                        : std::to_string(othersWaiting) + " other request" +
                                              (othersWaiting == 1 ? " stays" : "s stay") + " queued";
  // Marked first: taking the head out serves the next request at once, and
  // the jobs settle inside that call.
  job->inQueue = false;
  if (position == 1) {
    const bool counting = before.packetsExpected > 0;
    job->cancelled = "abandoned while running" +
                     (counting ? " after " + std::to_string(before.packetsDone) + " of " +
                                     std::to_string(before.packetsExpected) + " packets"
                               : std::string()) +
                     "; " + kept;
    client_.AnnullaRichiesta();
  } else {
    job->cancelled = "taken out of the queue before it was sent; " + kept;
  }
  if (!client_.WithdrawRequest(position)) {
    if ((job = FindJob(id))) {
      job->inQueue = true;
      job->cancelled.reset();
    }
    throw host::UsageError("cancel: the link would not let the request go");
  }
  const auto it = std::find_if(jobs_.begin(), jobs_.end(), [id](const Job& j) { return j.id == id; });
  if (it != jobs_.end()) {
    Job done = std::move(*it);
    jobs_.erase(it);
    Finish(done);
  }
  Settle();
}

bool LiveLink::SendRow(const std::string& text) {
  if (!client_.Status().linked || client_.Protocol() != sckUDPProtocol) return false;
  client_.SendTypedString(text);
  return true;
}

int LiveLink::WaitingRequests() {
  const std::vector<QueuedRequest> queue = client_.Status().queue;
  return static_cast<int>(std::count_if(queue.begin(), queue.end(), [](const auto& r) { return !IsPreviewRequest(r); }));
}

void LiveLink::OnState(StatoConnessioneEnum stato) {
  console_.State(stato);
  json message{{"type", "state"},
               {"number", static_cast<int>(stato)},
               {"name", std::string(StatoConnessioneName(stato))},
               {"time", Now()}};
  Keep(timeline_, message, kKeepTimeline);
  publish_(message);
  // A request that left the queue hands the link to the next: its states
  // are the next one's.
  Settle();
  if (Job* held = Held(); held && IsPreviewState(stato)) {
    const char* source = preview_ && held == &*preview_ ? "preview" : "playback";
    As(*held, [&] { held->action->OnState(context_, stato); });
    if (stato == cRicezionePreViewOK) {
      ++held->images;
      PublishImage(source);
    }
  } else if (!jobs_.empty()) {
    Job& job = jobs_.front();
    if (!job.error) job.error = host::LinkFailure(client_, stato);
    As(job, [&] { job.action->OnState(context_, stato); });
    if (stato == cRicezioneStreamImageOK) PublishImage("stream");
  }
  boost::asio::post(io_, [this] { Settle(); });
}

void LiveLink::OnDebug(const std::string& line) {
  lastDebug_ = line;
  console_.Debug(line);
  json message{{"type", "debug"}, {"time", Now()}, {"line", ForPage(line)}};
  Keep(debug_, message, kKeepDebug);
  publish_(message);
}

// Ends the commands whose requests have left the link's queue, oldest first.
void LiveLink::Settle() {
  while (!jobs_.empty()) {
    Job& front = jobs_.front();
    const int waiting = static_cast<int>(std::count_if(jobs_.begin(), jobs_.end(), [](const Job& j) { return j.inQueue; }));
    const int held = WaitingRequests();
    if (front.inQueue && held >= waiting) break;
    // The last exchange is still closing (a stream image on its way).
    if (held == 0 && client_.StatoCorrente() != cNoOperation && !preview_) break;
    Job job = std::move(front);
    jobs_.pop_front();
    Finish(job);
  }
  if (preview_ && PreviewOver()) {
    Job job = std::move(*preview_);
    preview_.reset();
    Finish(job);
  }
  if (clip_ && (!client_.Status().linked || clip_->action->HeldOver(context_))) {
    Job job = std::move(*clip_);
    clip_.reset();
    Finish(job);
  }
}

// A camera the unit does not have answers "Reg Error" every time it is
// asked (no image, no state change, only the request's outcome): the
// preview ends there, failed, with that reason, rather than asking again
// for ever. An outcome left from before the preview began does not count.
void LiveLink::CheckPreviewRefused() {
  if (!preview_ || preview_->error) return;
  const LinkStatus status = client_.Status();
  const bool refused = status.lastOutcome == RequestOutcome::UnitError;
  if (!refused || preview_->staleRefusal) {
    preview_->staleRefusal = preview_->staleRefusal && refused;
    return;
  }
  const std::string said = status.lastOutcomeText.empty() ? "Reg Error" : status.lastOutcomeText;
  preview_->error = "camera " + std::to_string(client_.CameraPreview()) + ": " + Describe(status.lastOutcome) +
                    " (\"" + said + "\")";
  client_.FermaPreview();
}

bool LiveLink::PreviewOver() {
  const LinkStatus status = client_.Status();
  if (!status.linked) return true;
  const bool queued = std::any_of(status.queue.begin(), status.queue.end(), IsPreviewRequest);
  return client_.VideoCicle() == 0 && !queued && !IsPreviewState(client_.StatoCorrente());
}

void LiveLink::Finish(Job& job) {
  std::optional<std::string> failure;
  As(job, [&] { failure = job.action->Finish(context_, job.error); });
  if (job.stopped) {
    PublishJob(job, "done", "stopped after " + std::to_string(job.images) + " images");
    return;
  }
  if (job.cancelled) {
    PublishJob(job, "cancelled", *job.cancelled);
    return;
  }
  if (failure)
    console_.Error(job.action->command().name + ": " + *failure);
  else
    done_.push_back(job.action->command().op);
  PublishJob(job, failure ? "failed" : "done", failure.value_or(""));
}

json LiveLink::JobMessage(const Job& job, const std::string& status, const std::string& message) const {
  const host::Command& command = job.action->command();
  json lines = json::array();
  for (const std::string& line : job.lines) lines.push_back(ForPage(line));
  return json{{"type", "job"},
              {"id", job.id},
              {"command", command.name},
              {"argument", ForPage(ShownArgument(command))},
              {"status", status},
              {"message", ForPage(message)},
              {"lines", lines},
              {"progress", job.percent},
              {"time", Now()}};
}

void LiveLink::PublishJob(const Job& job, const std::string& status, const std::string& message) {
  json update = JobMessage(job, status, message);
  if (status != "queued" && status != "running") Keep(finished_, update, kKeepJobs);
  publish_(update);
}

void LiveLink::PublishImage(const char* source) {
  const std::string image = client_.ImagePreview();
  if (image.empty()) return;
  publish_(json{{"type", "image"},
                {"source", source},
                {"camera", source == std::string("preview") ? client_.CameraPreview() : 0},
                {"time", Now()},
                {"jpeg", Base64(image)}});
}

void LiveLink::Poll() {
  CheckPreviewRefused();
  PublishPanel();
  PublishSummary();
  PublishProgress();
  Settle();
  poll_.expires_after(kPollInterval);
  poll_.async_wait([this](const boost::system::error_code& ec) {
    if (!ec) Poll();
  });
}

void LiveLink::PublishProgress() {
  if (jobs_.empty()) return;
  Job& job = jobs_.front();
  const auto fraction = job.action->Progress(context_);
  const int percent = fraction ? static_cast<int>(std::clamp(*fraction, 0.0, 1.0) * 100) : -1;
  if (percent == job.percent) return;
  job.percent = percent;
  PublishJob(job, "running");
}

void LiveLink::PublishPanel() {
  const LinkStatus status = client_.Status();
  if (!status.linked) return;
  const panel::PanelModel p = client_.Panel();
  json queue = json::array();
  for (const QueuedRequest& request : status.queue)
    queue.push_back({{"tipo", ForPage(request.type)}, {"parametro", ForPage(request.argument)}});
  json now{
      {"caption", ForPage(p.caption)},
      {"LblLocal", ForPage(p.LblLocal)},
      {"lblLocalIp", ForPage(p.lblLocalIp)},
      {"lblLocalPort", ForPage(p.lblLocalPort)},
      {"LblTypeCon", ForPage(p.LblTypeCon)},
      {"LblRemote", ForPage(p.LblRemote)},
      {"lblRemoteIp", ForPage(p.lblRemoteIp)},
      {"lblRemotePort", ForPage(p.lblRemotePort)},
      {"LblRemoteOut", ForPage(p.LblRemoteOut)},
      {"lblRemoteIpOut", ForPage(p.lblRemoteIpOut)},
      {"lblRemotePortOut", ForPage(p.lblRemotePortOut)},
      {"LblStato", ForPage(p.LblStato)},
      {"LblStatoTCP", ForPage(p.LblStatoTCP)},
      {"LblTimeOut", ForPage(p.LblTimeOut)},
      {"LblTentativiRicezione", ForPage(p.LblTentativiRicezione)},
      {"LblRichiesta", ForPage(p.LblRichiesta)},
      {"txtTxData", ForPage(p.txtTxData)},
      {"txtRxData", ForPage(p.txtRxData)},
      {"Label3", ForPage(p.Label3)},
      {"Label4", ForPage(p.Label4)},
      {"sendRowVisible", p.sendRowVisible},
      {"LblSendStr", ForPage(p.LblSendStr)},
      {"CmdSendStr", ForPage(p.CmdSendStr)},
      {"pct", ForPage(p.pct)},
      {"pctColour", p.pctColour},
      {"sbarVuoto", ForPage(p.sbarVuoto)},
      {"sbarConnesso", ForPage(p.sbarConnesso)},
      {"stato", status.operation},
      {"statoName", std::string(StatoConnessioneName(status.operation))},
      {"tentativi", status.attempts},
      {"tentativiMax", status.retryLimit},
      {"timeOutLungo", status.timeoutLongMs},
      {"timeOutBreve", status.timeoutShortMs},
      {"queue", queue},
  };
  json changed = json::object();
  for (auto& [key, value] : now.items())
    if (!panel_.contains(key) || panel_[key] != value) changed[key] = value;
  if (changed.empty()) return;
  panel_ = std::move(now);
  publish_(json{{"type", "panel"}, {"fields", changed}});
}

// What a technician reads at a glance, in plain words: the numbers and the
// system's own names stay in the panel and the timeline.
void LiveLink::PublishSummary() {
  const LinkStatus status = client_.Status();
  json now{{"type", "summary"},
           {"doing", OperationInWords(status.operation)},
           {"packetsDone", status.packetsDone},
           {"packetsExpected", status.packetsExpected},
           {"mediaBytes", status.mediaBytes},
           {"waiting", status.queue.empty() ? 0 : static_cast<int>(status.queue.size()) - 1},
           {"outcome", Describe(status.lastOutcome)},
           {"outcomeKind", status.lastOutcome == RequestOutcome::Completed || status.lastOutcome == RequestOutcome::None
                               ? "good" : "bad"},
           {"outcomeText", ForPage(status.lastOutcomeText)}};
  if (now == summary_) return;
  summary_ = now;
  publish_(now);
}

json LiveLink::UnitMessage() {
  // Before the first Connect, or after a Disconnect, the options say which
  // unit the bar offers.
  const bool linked = client_.Status().linked;
  return json{{"type", "unit"},
              {"connected", linked},
              {"host", ForPage(linked ? client_.RemoteHost() : link_.host)},
              {"port", linked ? client_.RemotePort() : link_.port},
              {"transport", link_.tcp ? "TCP" : "UDP"}};
}

std::vector<json> LiveLink::Welcome() {
  std::vector<json> messages;
  messages.push_back(UnitMessage());
  if (!summary_.is_null()) messages.push_back(summary_);
  messages.push_back(json{{"type", "panel"}, {"fields", panel_}});
  for (const auto& list : {&timeline_, &debug_, &finished_})
    for (const json& message : *list) messages.push_back(message);
  for (const Job& job : jobs_) messages.push_back(JobMessage(job, "queued", ""));
  if (preview_) messages.push_back(JobMessage(*preview_, "queued", ""));
  if (clip_) messages.push_back(JobMessage(*clip_, "running", ""));
  messages.push_back(RecordMessage());
  return messages;
}

}  // namespace camrelay::web

