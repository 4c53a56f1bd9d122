#include "host/actions.h"

#include <algorithm>
#include <cstdlib>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <vector>

#include "common/debug_sink.h"
#include "files/voice.h"
#include "store/download.h"
#include "store/text.h"

namespace camrelay::host {
namespace fs = std::filesystem;

namespace {

// ---- Progress of the transfer in hand, read from the link itself. ----------

enum class Bar { None, Upload, Download, Media };

// The share of the transfer in hand that is done; a single packet needs no bar.
std::optional<double> TransferFraction(clsClient& client) {
  const LinkStatus status = client.Status();
  if (status.packetsExpected < 2) return std::nullopt;
  return double(status.packetsDone) / double(status.packetsExpected);
}

std::optional<double> FractionOf(Bar bar, clsClient& client) {
  switch (bar) {
    case Bar::Upload:
    case Bar::Download:
      return TransferFraction(client);
    case Bar::Media:
      return client.ProgressoMultimedia() / 100.0;
    case Bar::None:
      break;
  }
  return std::nullopt;
}

// ---- Files and records that arrive. -----------------------------------------

// The store reports bad records through the link's debug channel; here each
// report is counted, and shown with -v.
class CountingSink : public DebugSink {
 public:
  explicit CountingSink(Console& console) : console_(console) {}
  void CreateEventOnDebug(const std::string& Message) override {
    if (reports++ == 0) first = Message;
    console_.Debug(Message);
  }
  int reports = 0;
  std::string first;

 private:
  Console& console_;
};

std::vector<std::string> ReceivedPackets(clsClient& client) {
  std::vector<std::string> dati(static_cast<std::size_t>(client.UboundStringaPar()) + 1);
  for (std::size_t i = 1; i < dati.size(); ++i) dati[i] = client.GetStringaPar(static_cast<int>(i));
  return dati;
}

std::string Relative(const fs::path& file, const fs::path& dir) { return file.lexically_relative(dir).string(); }

// "<prefix><NNNN>.jpg" numbered after the highest such file already in the
// folder, so that earlier images are never overwritten.
fs::path NextNumberedFile(const fs::path& folder, const std::string& prefix) {
  int last = 0;
  std::error_code ec;
  for (const auto& entry : fs::directory_iterator(folder, ec)) {
    const std::string name = entry.path().filename().string();
    if (!name.starts_with(prefix) || !name.ends_with(".jpg")) continue;
    const std::string digits = name.substr(prefix.size(), name.size() - prefix.size() - 4);
    if (!digits.empty() && digits.find_first_not_of("0123456789") == std::string::npos)
      last = std::max(last, std::stoi(digits));
  }
  char number[16];
  std::snprintf(number, sizeof number, "%04d", last + 1);
  return folder / (prefix + number + ".jpg");
}

// Saves the image the link holds; returns the file, or throws.
fs::path SaveImage(Context& ctx, const std::string& prefix) {
  const fs::path folder = ctx.dir / "Snapshot";
  fs::create_directories(folder);
  const fs::path file = NextNumberedFile(folder, prefix);
  const std::string image = ctx.client.ImagePreview();
  std::ofstream out(file, std::ios::binary);
  out.write(image.data(), static_cast<std::streamsize>(image.size()));
  if (!out.flush()) throw std::runtime_error("cannot write " + file.string());
  return file;
}

// ---- The commands. ------------------------------------------------------------

using Starter = void (*)(clsClient&, const Command&);

// A command that is one request and nothing more.
class SimpleAction : public Action {
 public:
  SimpleAction(const Command& command, Starter start, StatoConnessioneEnum completion, Bar bar)
      : Action(command), start_(start), completion_(completion), bar_(bar) {}
  void Start(Context& ctx) override { start_(ctx.client, command()); }
  std::optional<double> Progress(Context& ctx) const override { return FractionOf(bar_, ctx.client); }

 protected:
  StatoConnessioneEnum Completion() const override { return completion_; }

 private:
  Starter start_;
  StatoConnessioneEnum completion_;
  Bar bar_;
};

// A download of records that only grow (the event log, the camera events):
// the library stores on completion the records it did not hold already, and
// reports a record it could not store as a diagnostic line.
class NewRecordsAction : public SimpleAction {
 public:
  NewRecordsAction(const Command& command, Starter start, StatoConnessioneEnum completion, std::string table)
      : SimpleAction(command, start, completion, Bar::Download), table_(std::move(table)) {}

  void OnState(Context& ctx, StatoConnessioneEnum stato) override {
    if (stato == Completion()) recordsNew_ = ctx.client.Status().recordsNew;
    SimpleAction::OnState(ctx, stato);
  }

  void OnDebug(const std::string& line) override {
    if (!line.starts_with("AddNewRecords")) return;
    if (problems_++ == 0) firstProblem_ = line;
  }

  std::optional<std::string> Finish(Context& ctx, const std::optional<std::string>& error) override {
    auto failure = Action::Finish(ctx, error);
    if (failure) return failure;
    if (problems_ > 0)
      return std::to_string(recordsNew_) + " new records stored; " + std::to_string(problems_) +
             " problem(s) with the others: " + firstProblem_ + (problems_ > 1 ? " (run with -v for all)" : "");
    ctx.console.Note(command().name + ": " + std::to_string(recordsNew_) + " new records added to " + table_);
    return std::nullopt;
  }

 private:
  std::string table_;
  int recordsNew_ = 0;
  int problems_ = 0;
  std::string firstProblem_;
};

// The camera-event programming is whole: the one received replaces the one
// held, holidays included, all or nothing, so that a bad record never leaves
// half of it behind (the unit still has it; run again).
class ProgCamEventsAction : public SimpleAction {
 public:
  explicit ProgCamEventsAction(const Command& command)
      : SimpleAction(
            command, [](clsClient& c, const Command&) { c.DownloadProgCamEvents(); }, cRicezioneProgCamEventsOK,
            Bar::Download) {}

  void OnState(Context& ctx, StatoConnessioneEnum stato) override {
    SimpleAction::OnState(ctx, stato);
    // Stored once, even if the unit's last packet were to complete it twice.
    if (stato == Completion() && !stored_) {
      stored_ = true;
      storeError_ = Store(ctx);
    }
  }

  std::optional<std::string> Finish(Context& ctx, const std::optional<std::string>& error) override {
    if (storeError_) return storeError_;
    auto failure = Action::Finish(ctx, error);
    if (!failure)
      ctx.console.Note(command().name + ": " + std::to_string(records_) +
                       " records stored in ProgCamEvents and Festivita");
    return failure;
  }

 private:
  std::optional<std::string> Store(Context& ctx) {
    const std::vector<std::string> dati = ReceivedPackets(ctx.client);
    CountingSink sink(ctx.console);
    try {
      store::DataVideo& db = ctx.client.Database();
      db.EnsureOpen(nullptr, "camrelay");
      store::Transaction transaction(db.Handle());
      db.Execute("Del_ProgCamEvents");
      db.Handle().Exec("DELETE FROM \"Festivita\"");
      records_ = store::AppendRecordLines(dati, db, &sink);
      if (sink.reports > 0)
        return std::to_string(sink.reports) + " problem(s) storing what the unit sent; nothing was stored "
               "(run with -v for details)";
      transaction.Commit();
    } catch (const std::exception& e) {
      return std::string("cannot store what the unit sent: ") + e.what();
    }
    return std::nullopt;
  }

  bool stored_ = false;
  int records_ = 0;
  std::optional<std::string> storeError_;
};

// A snapshot or clip. The library writes the run into a partial file and
// puts it where the file goes only once it is complete, so a file already
// there is kept when the download fails.
class MediaAction : public SimpleAction {
 public:
  explicit MediaAction(const Command& command)
      : SimpleAction(
            command, [](clsClient& c, const Command& cmd) { c.DownloadMultimediaFile(cmd.argument); },
            cRicezioneMultimediaOK, Bar::Media) {}

  void Start(Context& ctx) override {
    // The same rule as the reception's: exactly ".jpg" is a snapshot.
    const bool snapshot = command().argument.ends_with(".jpg");
    target_ = ctx.dir / (snapshot ? "Snapshot" : "VideoAvi") / command().argument;
    SimpleAction::Start(ctx);
  }

  // The library reports every packet of data it writes; a file's time stamp
  // would not tell, since the file system's clock is coarser than a fast run.
  void OnState(Context& ctx, StatoConnessioneEnum stato) override {
    if (stato == cRicezioneMultimedia) receivedData_ = true;
    SimpleAction::OnState(ctx, stato);
  }

  std::optional<std::string> Finish(Context& ctx, const std::optional<std::string>& error) override {
    auto failure = Action::Finish(ctx, error);
    if (failure) return failure;
    std::error_code ec;
    if (!receivedData_ || !fs::exists(target_, ec)) return "the unit sent no data for " + command().argument;
    ctx.console.Note(command().name + ": " + Relative(target_, ctx.dir) + " (" +
                     std::to_string(fs::file_size(target_, ec)) + " bytes)");
    return std::nullopt;
  }

 private:
  fs::path target_;
  bool receivedData_ = false;
};

class AnswerAction : public SimpleAction {
 public:
  explicit AnswerAction(const Command& command)
      : SimpleAction(
            command, [](clsClient& c, const Command& cmd) { c.DownLoadStrCommand(store::Utf8ToCp1252(cmd.argument)); },
            cRicezioneStringaOK, Bar::None) {}

  void OnState(Context& ctx, StatoConnessioneEnum stato) override {
    if (stato == Completion() && !completed()) ctx.console.Answer(ctx.client.StringaRicevuta());
    Action::OnState(ctx, stato);
  }

  std::optional<std::string> Finish(Context& ctx, const std::optional<std::string>& error) override {
    if (!error && !completed()) return "no answer from the unit";
    return Action::Finish(ctx, error);
  }

  // A unit may acknowledge the request's last element and send the answer
  // as a transfer of its own a little later.
  bool AwaitsMore() const override { return !completed(); }
};

class StreamImageAction : public SimpleAction {
 public:
  explicit StreamImageAction(const Command& command)
      : SimpleAction(
            command, [](clsClient& c, const Command& cmd) { c.DownLoadStreamImage(cmd.argument); },
            cRicezioneStreamImageOK, Bar::None) {}

  void OnState(Context& ctx, StatoConnessioneEnum stato) override {
    if (stato == Completion() && !completed()) {
      try {
        const fs::path file = SaveImage(ctx, "stream-cam" + std::to_string(command().cameras) + "-");
        ctx.console.Note(command().name + ": " + Relative(file, ctx.dir));
      } catch (const std::exception& e) {
        saveError_ = e.what();
      }
    }
    Action::OnState(ctx, stato);
  }

  // A stream request leaves the queue as it is sent, so a lost request or
  // image is not asked for again: it simply never arrives.
  std::optional<std::string> Finish(Context& ctx, const std::optional<std::string>& error) override {
    if (saveError_) return saveError_;
    if (!error && !completed()) return "no image arrived";
    return Action::Finish(ctx, error);
  }

 private:
  std::optional<std::string> saveError_;
};

// The library reports a voice message it could not write and still raises
// the download's completion: that report is this command's failure.
class VoiceDownloadAction : public SimpleAction {
 public:
  explicit VoiceDownloadAction(const Command& command)
      : SimpleAction(
            command, [](clsClient& c, const Command&) { c.DownLoadMessaggiWave(); }, cRicezioneWaveOK,
            Bar::Download) {}

  void OnDebug(const std::string& line) override {
    if (line.starts_with("SaveMessaggiWave: ") && !problem_) problem_ = line;
  }

  std::optional<std::string> Finish(Context& ctx, const std::optional<std::string>& error) override {
    auto failure = Action::Finish(ctx, error);
    if (!failure && problem_) return "not every voice message could be written: " + *problem_;
    return failure;
  }

 private:
  std::optional<std::string> problem_;
};

// The voice messages are the files that the programming names. One that is
// not in Audio/ is skipped by the library without a word: say so, and send
// nothing at all when none is there.
class VoiceUploadAction : public SimpleAction {
 public:
  explicit VoiceUploadAction(const Command& command)
      : SimpleAction(
            command, [](clsClient& c, const Command&) { c.UpLoadMessaggiWave(""); }, cTrasmissioneOK, Bar::Upload) {}

  void Start(Context& ctx) override {
    std::vector<std::string> names;
    CountingSink sink(ctx.console);
    store::RicavaWaveName(names, ctx.client.Database(), &sink);
    std::string missing;
    int present = 0;
    for (std::size_t i = 1; i < names.size(); ++i) {
      std::string name = names[i];
      name.erase(0, name.find_first_not_of(' '));
      name.erase(name.find_last_not_of(' ') + 1);
      std::error_code ec;
      if (fs::is_regular_file(ctx.dir / "Audio" / name, ec))
        ++present;
      else
        missing += (missing.empty() ? "" : ", ") + name;
    }
    if (present == 0) {
      Refuse(names.size() < 2 ? "the programming names no voice message (FoniaFileWav)"
                              : "none of the voice messages the programming names is in Audio/: " + missing);
      return;
    }
    if (!missing.empty()) ctx.console.Note(command().name + ": not in Audio/, not sent: " + missing);
    SimpleAction::Start(ctx);
  }
};

// The preview cycles by itself, camera after camera; after the images asked
// for it is stopped. The stop is queued from inside the image's own event,
// while the link still holds that request: it then follows at once, before
// the cycle can queue another camera.
class PreviewAction : public Action {
 public:
  using Action::Action;

  void Start(Context& ctx) override {
    endedBefore_ = ctx.client.Status().requestsEnded;
    ctx.client.VideoCicle(command().cameras);
  }

  void OnState(Context& ctx, StatoConnessioneEnum stato) override {
    if (StoppedByUnit(ctx)) return;
    if (stato != cRicezionePreViewOK || shown_ >= command().images) return;
    ++shown_;
    try {
      const int camera = ctx.client.CameraPreview();
      if (recording()) {
        SaveImage(ctx, "preview-cam" + std::to_string(camera) + "-");
        ++saved_;
      }
    } catch (const std::exception& e) {
      saveError_ = e.what();
    }
    if (shown_ >= command().images || saveError_) ctx.client.FermaPreview();
  }

  // A lost image is given up and the cycle moves on to the next camera: only
  // images that never arrived at all make the preview fail.
  std::optional<std::string> Finish(Context& ctx, const std::optional<std::string>& error) override {
    if (saveError_) return saveError_;
    // The link drops a camera the unit refuses from its cycle by itself: a
    // preview of that camera alone ends with no state change to see it by.
    if (!unitError_) unitError_ = UnitRefusal(ctx);
    if (unitError_) return unitError_;
    if (shown_ < command().images)
      return error.value_or("only " + std::to_string(shown_) + " of " + std::to_string(command().images) +
                            " images arrived");
    ctx.console.Note(command().name + ": " + std::to_string(saved_) + " images saved in Snapshot/");
    return std::nullopt;
  }

  std::optional<long long> ImagesArrived() const override { return shown_; }

 protected:
  StatoConnessioneEnum Completion() const override { return cRicezionePreViewOK; }

 private:
  // A camera the unit does not have is answered "Reg Error", and the cycle
  // would ask for it again at once, for ever: the preview stops there.
  bool StoppedByUnit(Context& ctx) {
    if (unitError_) return true;
    unitError_ = UnitRefusal(ctx);
    if (!unitError_) return false;
    ctx.client.VideoCicle(0);
    return true;
  }

  std::optional<std::string> UnitRefusal(Context& ctx) const {
    const LinkStatus status = ctx.client.Status();
    if (status.requestsEnded == endedBefore_ || status.lastOutcome != RequestOutcome::UnitError) return std::nullopt;
    return "camera " + std::to_string(ctx.client.CameraPreview()) +
           ": the unit answered \"Reg Error\" (it has no such camera)";
  }

  int shown_ = 0;
  int saved_ = 0;
  int endedBefore_ = 0;
  std::optional<std::string> saveError_;
  std::optional<std::string> unitError_;
};

// A clip recorded on the unit: it opens paused on its first frame, goes to
// --seek, and moves --step frames at a time; each frame asked for is saved,
// and the clip is closed after --frames of them. Every move is queued from
// inside the event of the frame before it, while the link still holds that
// request, so that it follows at once.
//
// With no frame count the clip is held open by hand instead: it moves only
// on the user's orders, until closed or refused by the unit.
class PlaybackAction : public Action {
 public:
  using Action::Action;

  void Start(Context& ctx) override {
    endedBefore_ = ctx.client.Status().requestsEnded;
    ctx.client.AttivaPreview(command().argument);
  }

  void OnState(Context& ctx, StatoConnessioneEnum stato) override {
    if (stato != cRicezionePreViewOK || closing_) return;
    ++frames_;
    if (byHand()) return OnHeldFrame(ctx);
    if (!opened_) {
      opened_ = true;
      if (command().seek >= 0) return ctx.client.CurrentTimeFileVideo(command().seek);
    } else if (movesLeft_ > 0 && --movesLeft_ > 0) {
      return Move(ctx);
    }
    try {
      SaveImage(ctx, "playback-" + fs::path(command().argument).stem().string() + "-");
      ++saved_;
    } catch (const std::exception& e) {
      saveError_ = e.what();
    }
    if (saveError_ || saved_ >= command().images) {
      closing_ = true;
      ctx.client.AttivaPreview("CLOSE:");
      return;
    }
    movesLeft_ = std::abs(command().step);
    Move(ctx);
  }

  bool Order(Context& ctx, PlaybackOrder order, double value) override {
    if (!byHand() || closing_ || HeldOver(ctx)) return false;
    playing_ = order == PlaybackOrder::Play;
    switch (order) {
      case PlaybackOrder::Play: case PlaybackOrder::Next: ctx.client.AttivaPreview("NEXTFRAME:"); break;
      case PlaybackOrder::Previous: ctx.client.AttivaPreview("PREVFRAME:"); break;
      case PlaybackOrder::Pause: ctx.client.AttivaPreview("PAUSE:"); break;
      case PlaybackOrder::Seek: ctx.client.CurrentTimeFileVideo(value); break;
      case PlaybackOrder::Quality: ctx.client.AttivaPreview("SetQualityImages:" + Decimal(value)); break;
      case PlaybackOrder::Close:
        closing_ = true;
        ctx.client.AttivaPreview("CLOSE:");
        break;
    }
    return true;
  }

  // The answer to "CLOSE:" ends the last preview request queued; a "Reg
  // Error" to any of them ends the clip on the unit's side.
  bool HeldOver(Context& ctx) const override {
    const LinkStatus status = ctx.client.Status();
    if (Refused(status)) return true;
    if (!closing_) return false;
    const bool waiting = std::any_of(status.queue.begin(), status.queue.end(),
                                     [](const QueuedRequest& r) { return r.type == "08"; });
    return !waiting && status.operation == cNoOperation;
  }

  std::optional<std::string> Finish(Context& ctx, const std::optional<std::string>& error) override {
    if (saveError_) return saveError_;
    const LinkStatus status = ctx.client.Status();
    if (Refused(status))
      return "the unit answered \"Reg Error\": it has no clip " + command().argument + ", or cannot play it";
    if (error) return error;
    if (byHand()) {
      ctx.console.Note(command().name + ": " + command().argument + " closed after " + std::to_string(frames_) +
                       " frames, " + std::to_string(saved_) + " saved");
      return std::nullopt;
    }
    if (saved_ < command().images)
      return "only " + std::to_string(saved_) + " of " + std::to_string(command().images) + " frames arrived";
    ctx.console.Note(command().name + ": " + std::to_string(saved_) + " frames of " + command().argument +
                     " saved in Snapshot/");
    return std::nullopt;
  }

  std::optional<long long> ImagesArrived() const override { return frames_; }

 protected:
  StatoConnessioneEnum Completion() const override { return cNoOperation; }

 private:
  bool byHand() const { return command().images == 0; }
  bool Refused(const LinkStatus& status) const {
    return status.requestsEnded != endedBefore_ && status.lastOutcome == RequestOutcome::UnitError;
  }
  void Move(Context& ctx) { ctx.client.AttivaPreview(command().step > 0 ? "NEXTFRAME:" : "PREVFRAME:"); }

  // Playing is stepping on from the event of each frame. At the clip's end
  // the unit answers a step with the last frame again: the same picture
  // twice stops the play there.
  void OnHeldFrame(Context& ctx) {
    std::string image = ctx.client.ImagePreview();
    const bool atEnd = image == lastFrame_;
    lastFrame_ = std::move(image);
    if (recording()) {
      try {
        SaveImage(ctx, "playback-" + fs::path(command().argument).stem().string() + "-");
        ++saved_;
      } catch (const std::exception& e) {
        saveError_ = e.what();
      }
    }
    if (playing_ && (atEnd || saveError_)) playing_ = false;
    if (playing_) ctx.client.AttivaPreview("NEXTFRAME:");
  }

  static std::string Decimal(double value) {
    std::ostringstream text;
    text << value;
    return text.str();
  }

  int endedBefore_ = 0;
  bool opened_ = false;
  bool closing_ = false;
  bool playing_ = false;
  int movesLeft_ = 0;
  int saved_ = 0;
  int frames_ = 0;
  std::string lastFrame_;
  std::optional<std::string> saveError_;
};

std::unique_ptr<Action> Simple(const Command& c, Starter start, StatoConnessioneEnum completion,
                               Bar bar = Bar::None) {
  return std::make_unique<SimpleAction>(c, start, completion, bar);
}

}  // namespace


void Action::OnState(Context&, StatoConnessioneEnum stato) {
  if (stato == Completion() && Completion() != cNoOperation) completed_ = true;
}

std::optional<std::string> Action::Finish(Context&, const std::optional<std::string>& error) {
  if (refusal_) return refusal_;
  if (error) return error;
  if (Completion() != cNoOperation && !completed_) return "the unit ended the exchange before it completed";
  return std::nullopt;
}

std::optional<double> Action::Progress(Context&) const { return std::nullopt; }

std::unique_ptr<Action> MakeAction(const Command& c) {
  switch (c.op) {
    case Op::Login:
      return Simple(c, [](clsClient& cl, const Command&) { cl.RichiestaDiConnessione(); }, cConnessioneOK);
    case Op::DownloadProg:
      return Simple(c, [](clsClient& cl, const Command&) { cl.DownLoadProgrammazione(); }, cRicezioneProgOK,
                    Bar::Download);
    case Op::UploadProg:
      return Simple(c, [](clsClient& cl, const Command&) { cl.UpLoadProgrammazione(); }, cTrasmissioneOK,
                    Bar::Upload);
    case Op::DownloadLog:
      return std::make_unique<NewRecordsAction>(
          c, [](clsClient& cl, const Command&) { cl.ScaricaLog(); }, cRicezioneLogOK, "Registro_eventi");
    case Op::EraseLog:
      // The erase is acknowledged with an empty transfer that raises no
      // completion state of its own.
      return Simple(c, [](clsClient& cl, const Command&) { cl.CancellaLog(); }, cNoOperation);
    case Op::DownloadCamEvents:
      return std::make_unique<NewRecordsAction>(
          c, [](clsClient& cl, const Command&) { cl.DownloadCamEvents(); }, cRicezioneCamEventsOK, "CamEvents");
    case Op::DownloadProgCamEvents:
      return std::make_unique<ProgCamEventsAction>(c);
    case Op::UploadProgCamEvents:
      return Simple(c, [](clsClient& cl, const Command&) { cl.UpLoadProgCamEvents(); }, cTrasmissioneOK,
                    Bar::Upload);
    case Op::DownloadWave:
      return std::make_unique<VoiceDownloadAction>(c);
    case Op::UploadWave:
      return std::make_unique<VoiceUploadAction>(c);
    case Op::UploadFirmware:
      return Simple(c, [](clsClient& cl, const Command& cmd) { cl.UpLoadAggiornamento(cmd.argument); },
                    cTrasmissioneOK, Bar::Upload);
    case Op::DownloadMedia:
      return std::make_unique<MediaAction>(c);
    case Op::SendCommand:
      // A command string's upload ends without a completion state.
      return Simple(c, [](clsClient& cl, const Command& cmd) { cl.UploadStrCommand(store::Utf8ToCp1252(cmd.argument)); },
                    cNoOperation);
    case Op::RequestCommand:
      return std::make_unique<AnswerAction>(c);
    case Op::StreamImage:
      return std::make_unique<StreamImageAction>(c);
    case Op::SetInstallerCode:
      return Simple(c, [](clsClient& cl, const Command& cmd) {
        cl.p_NewStringaPassWord(cmd.argument);
        cl.UploadCodInstallatore();
      }, cTrasmissioneOK);
    case Op::SetUserCode:
      return Simple(c, [](clsClient& cl, const Command& cmd) {
        cl.p_NewStringaPassWord(cmd.argument);
        cl.UploadCodUtente();
      }, cTrasmissioneOK);
    case Op::Preview:
      return std::make_unique<PreviewAction>(c);
    case Op::Playback:
      return std::make_unique<PlaybackAction>(c);
  }
  return nullptr;
}

}  // namespace camrelay::host
