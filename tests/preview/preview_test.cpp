// The live preview over UDP: the "08" request, the camera cycle, the images
// the unit sends back, playback of recorded files, and the give-up.
#include <gtest/gtest.h>

#include <climits>

#include "exchange.h"

using namespace camrelay;
using namespace camrelay::test;
using Texts = std::vector<std::string>;
using Queue = std::vector<link::Richiesta>;

namespace {

constexpr std::size_t kPiece = 3072;

// Every byte value, in each of the two pieces the image takes.
std::string TwoPieceImage(char salt) {
  std::string image;
  while (image.size() < kPiece + 256) image += static_cast<char>(image.size() % 256);
  image[0] = salt;
  return image;
}

// The unit's image transfer: its acceptance with the size, then the pieces in `order`.
void SendsImage(FakeSocket& unit, const std::string& image, std::initializer_list<int> order = {1, 2}) {
  unit.deliver("AA{}2{}09{}" + std::to_string(image.size()));
  for (int i : order)
    unit.deliver("{}" + std::to_string(i) + "{}" + std::to_string(image.size()) + "{}" +
                 image.substr((i - 1) * kPiece, kPiece));
}

// The unit takes an "08": its acceptance, then its closing element.
void TakesTheRequest(FakeSocket& unit) {
  unit.deliver("AA{}2{}08");
  unit.deliver("OK");
}

// The unit takes an "08" and answers with `image`, or with `status` alone when it is empty.
void Answers(FakeSocket& unit, const std::string& image, const std::string& status = "OK") {
  TakesTheRequest(unit);
  if (image.empty())
    unit.deliver("AA{}0{}09{}" + status);
  else
    SendsImage(unit, image);
}

// What the "08" requests sent so far asked for.
Texts Asked(const FakeSocket& unit) {
  Texts out;
  for (const auto& m : unit.sent)
    if (m.size() > 4 && m.starts_with("{}") && m.ends_with("\r\n")) out.push_back(m.substr(2, m.size() - 4));
  return out;
}

struct Preview : ::testing::Test {
  LinkFixture f{1};
  link::frmClient& form = f.form();
  FakeSocket& unit = f.socket();
};

}  // namespace

TEST_F(Preview, ACycleStepQueuesAtMostOneCameraOfTheMask) {
  Play(f, {Asks("02"), Sends("AA{}0{}02{}123456")});  // the link is busy: new requests wait
  form.VideoCiclePreview = INT_MIN;  // bit 31 alone names no camera: nothing to ask for
  form.AcquisisciNextPreview();
  form.VideoCiclePreview = 5;
  form.NCamPreviewDownloaded = 1;
  form.AcquisisciNextPreview();
  form.AcquisisciNextPreview();  // refused: an "08" already waits
  EXPECT_EQ(form.Richieste, (Queue{{}, {"02", ""}, {"08", "3"}}));
}

// On TCP the camera travels in the opening itself.
TEST(TcpPreview, TheRequestTravelsInTheOpening) {
  LinkFixture t(sckTCPProtocol);
  Play(t, {Asks("08", "2"), Sends("AA{}0{}08{}123456{}2\r\n")});
}

// A request served while the cycle runs hands the link back to the cycle
// once the queue runs dry.
TEST(Cycle, TakesTheLinkBackWhenTheQueueRunsDry) {
  LinkFixture t(sckUDPProtocol);
  Play(t, {Host([](link::frmClient& f) { f.VideoCiclePreview = 5; }), Asks("53"), Sends("AA{}0{}53{}123456"),
           Says("AA{}0{}53"), Sends("OK{}53"), Says(Packet(0, "")), Sends("OK"), Sends("AA{}2{}08{}123456")});
}

TEST(Playback, ARecordedFileOpensPausedAndHoldsTheCycleUntilClosedOrRefused) {
  for (const auto& [command, answer] : {std::pair{"CLOSE:", "OK"}, {"NEXTFRAME:", "Reg Error"}}) {
    LinkFixture f(1);
    auto& form = f.form();
    form.VideoCiclePreview = 5;
    form.NCamPreviewDownloaded = 1;
    form.AddRichiesta("08", "rec1.avi", true);
    EXPECT_EQ(form.ComandoPlayback, "PAUSE:");
    EXPECT_EQ(form.NCamPreviewDownloaded, 0) << "a file shows no camera";
    Answers(f.socket(), TwoPieceImage('f'));
    EXPECT_EQ(form.ImagePreview, TwoPieceImage('f'));
    EXPECT_EQ(form.QueueLength(), 0) << "no camera is asked for while the file is open";
    form.AddRichiesta("08", command, true);
    Answers(f.socket(), "", answer);
    EXPECT_EQ(form.NomeFileMultimedia + form.ComandoPlayback, "") << answer;
    EXPECT_EQ(f.raised(cRicezionePreViewOK), 1) << "an answer without a picture is not reported";
    EXPECT_EQ(form.Richieste, (Queue{{}, {"08", "1"}})) << "the cycle goes on";
  }
}

// A camera the unit does not have answers "Reg Error" every time it is
// asked: the cycle drops it and goes on with the others, or ends.
TEST_F(Preview, ACameraTheUnitRefusesLeavesTheCycle) {
  form.VideoCiclePreview = 1 | 1 << 7;  // cameras 1 and 8
  form.AddRichiesta("08", "8");
  Answers(unit, "", "Reg Error");
  EXPECT_EQ(form.VideoCiclePreview, 1);
  EXPECT_EQ(form.Richieste, (Queue{{}, {"08", "1"}}));
  Answers(unit, TwoPieceImage('c'));
  EXPECT_EQ(form.Richieste, (Queue{{}, {"08", "1"}})) << "camera 1 alone goes on";

  form.VideoCiclePreview = 1 << 7;
  Answers(unit, TwoPieceImage('c'));  // camera 1's answer; camera 8 is next
  unit.sent.clear();
  Answers(unit, "", "Reg Error");
  EXPECT_EQ(form.VideoCiclePreview, 0);
  EXPECT_EQ(form.QueueLength(), 0);
  EXPECT_EQ(Asked(unit), Texts{"8"}) << "camera 8 is asked for once";
  EXPECT_EQ(form.Stato, cNoOperation) << "nothing more is asked for";
}

TEST_F(Preview, ImagesAreAssembledInOrderAndAlwaysReported) {
  form.AttivaPreview("2");
  TakesTheRequest(unit);
  SendsImage(unit, TwoPieceImage('o'), {2, 1, 2});  // the early piece 2 is parked and sent again
  EXPECT_EQ(form.ImagePreview, TwoPieceImage('o'));
  EXPECT_EQ(f.raised(cRicezionePreViewOK), 1);

  form.AttivaPreview("2");
  TakesTheRequest(unit);
  unit.deliver("AA{}1{}09{}10");
  unit.deliver("{}1{}10{}123456789");
  EXPECT_EQ(form.ImagePreview, "123456789");
  EXPECT_EQ(f.raised(cRicezionePreViewOK), 2) << "nine bytes of the ten announced are still an image";
  EXPECT_TRUE(f.debugContains("CreaStrPreview: the image holds 9 bytes, its pieces announce 10"));
}

// A stream image serves the request at the head of the queue, or the one the
// host queues from inside its event, once, and does not move the cycle on.
TEST(StreamImage, ServesTheRequestBehindItOnceAndLeavesTheCycleAlone) {
  const Script image = {Says("AA{}1{}58{}3"), Sends("OK{}58"), Says("{}1{}3{}abc"), Sends("OK")};
  LinkFixture waiting(sckUDPProtocol);
  Script script = {Host([](link::frmClient& f) { f.VideoCiclePreview = 5; }), Asks("57", "2"),
                   Sends("AA{}0{}57{}123456{}2\r\n"), Asks("04", "03")};
  script.insert(script.end(), image.begin(), image.end());
  script.push_back(Sends("AA{}2{}08{}123456"));  // the cycle's turn came when the "57" left the queue
  Play(waiting, script);
  EXPECT_EQ(waiting.form().ImagePreview, "abc");
  EXPECT_EQ(waiting.states.back(), cRicezioneStreamImageOK);
  EXPECT_EQ(waiting.form().Richieste, (Queue{{}, {"08", "1"}, {"04", "03"}}));

  LinkFixture fromEvent(sckUDPProtocol);
  auto& form = fromEvent.form();
  form.CambioStatoConnessione = [&](StatoConnessioneEnum s) {
    if (s == cRicezioneStreamImageOK) form.AddRichiesta("53", "");
  };
  script = {Asks("57", "2"), Sends("AA{}0{}57{}123456{}2\r\n")};
  script.insert(script.end(), image.begin(), image.end());
  script.push_back(Sends("AA{}0{}53{}123456"));
  Play(fromEvent, script);
  EXPECT_EQ(form.Stato, cRichiestaCamEvents);
}

TEST_F(Preview, AGiveUpMovesTheCycleOnAndRepeatsOnlyWhatIsWorthRepeating) {
  form.VideoCiclePreview = 5;
  form.AddRichiesta("08", "1");
  TakesTheRequest(unit);
  SendsImage(unit, TwoPieceImage('g'), {1});  // the second piece never comes
  for (int fired = 0; fired < 40 && form.NCamPreviewDownloaded == 1; ++fired) f.timer().fire();
  EXPECT_EQ(form.Richieste, (Queue{{}, {"08", "3"}}));

  // Only the exact texts act once; a seek with its value, like any other
  // command, is asked for again.
  form.NomeFileMultimedia = "rec1.avi";
  for (const std::string command : {"PAUSE:", "CurrentTimeFileVideo:40"}) {
    form.ComandoPlayback = command;
    form.ResumePreviewAfterGiveUp();
    EXPECT_EQ(form.Richieste.back(), (link::Richiesta{"08", command == "PAUSE:" ? "3" : command}));
  }
}
