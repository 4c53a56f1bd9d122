// The live preview: the "08" request, the camera cycle, the images the unit
// sends back, and playback of recorded files.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>

#include "link_fixture.h"
#include "preview_support.h"

using namespace camrelay;
using camrelay::test::kPiece;
using camrelay::test::LinkFixture;
using camrelay::test::TwoPieceImage;
using camrelay::test::UdpUnit;

namespace {

using Texts = std::vector<std::string>;

struct Preview : ::testing::Test {
  LinkFixture f{1};
  link::frmClient& form = f.form();
  UdpUnit unit{f.socket()};

  int raised(int stato) const { return static_cast<int>(std::count(f.states.begin(), f.states.end(), stato)); }
  // The link busy with a programming download, so that new requests wait.
  void busy() {
    form.Richieste.push_back({"02", ""});
    form.Stato = cRichiestaProg;
  }
};

}  // namespace

TEST_F(Preview, TheRequestTakesTheFormOfItsTransportWithoutAStateEvent) {
  form.NomeFileMultimedia = "rec1.avi";
  form.ComandoPlayback = "PAUSE:";
  form.AttivaPreview("07x");
  EXPECT_EQ(form.NomeFileMultimedia + form.ComandoPlayback, "") << "a camera ends the playback";
  EXPECT_EQ(form.StringaPar, (Texts{"AA{}2{}08{}123456", "{}7\r\n", "{}"}));
  EXPECT_EQ(f.messages(), Texts{"AA{}2{}08{}123456"});
  EXPECT_EQ(form.NCamPreviewDownloaded, 7);
  EXPECT_EQ(form.Stato, cTrasmettiPreviewEnable);
  EXPECT_EQ(form.StringaInviata, 1) << "the unit's acceptance releases element 1";
  EXPECT_TRUE(f.timer().enabled());
  EXPECT_EQ(f.timer().interval(), form.TimeOutBreve);
  EXPECT_TRUE(f.states.empty());

  LinkFixture tcp(0);
  tcp.socket().state_ = link::sckConnected;
  tcp.form().AttivaPreview("rec1.avi");
  EXPECT_EQ(tcp.messages(), Texts{"AA{}0{}08{}123456{}rec1.avi\r\n"});
  EXPECT_EQ(tcp.form().StringaPar.size(), 1u);
  EXPECT_TRUE(tcp.states.empty());
}

TEST_F(Preview, CycleOnCamerasOneAndThreeWrapsAround) {
  form.VideoCiclePreview = 5;
  form.NCamPreviewDownloaded = 1;
  form.AcquisisciNextPreview();
  std::vector<std::string> images;
  for (char salt : {'a', 'b', 'c'}) {
    images.push_back(TwoPieceImage(salt));
    unit.answers(images.back());
    EXPECT_EQ(form.ImagePreview, images.back());
  }
  // Each image ends its request and the cycle asks for the next camera.
  EXPECT_EQ(unit.asked(), (Texts{"3", "1", "3"}));
  EXPECT_EQ(raised(cRicezionePreViewOK), 3);
  EXPECT_EQ(form.Richieste, (std::vector<link::Richiesta>{{}, {"08", "1"}}));
  EXPECT_EQ(form.Stato, cTrasmettiPreviewEnable);
}

TEST_F(Preview, TheCycleSearchIsBounded) {
  busy();
  for (int mask : {0, INT_MIN}) {  // no camera, and bit 31 alone, which names none
    form.VideoCiclePreview = mask;
    form.NCamPreviewDownloaded = 31;
    form.AcquisisciNextPreview();
    EXPECT_EQ(form.QueueLength(), 1) << mask;
    EXPECT_EQ(form.NCamPreviewDownloaded, 31) << mask;
  }
  form.VideoCiclePreview = INT_MIN | 1;  // camera 1 beside the stray bit
  form.AcquisisciNextPreview();
  EXPECT_EQ(form.Richieste.back(), (link::Richiesta{"08", "1"}));
}

TEST_F(Preview, ASecondStepWhileOneWaitsIsRefused) {
  busy();
  form.VideoCiclePreview = 5;
  form.NCamPreviewDownloaded = 1;
  form.AcquisisciNextPreview();
  form.AcquisisciNextPreview();
  EXPECT_EQ(form.Richieste, (std::vector<link::Richiesta>{{}, {"02", ""}, {"08", "3"}}));
}

TEST_F(Preview, ARecordedFileStopsTheCycleUntilItIsClosed) {
  form.VideoCiclePreview = 5;
  form.AddRichiesta("08", "rec1.avi", true);
  const std::string frame = TwoPieceImage('f');
  unit.answers(frame);
  EXPECT_EQ(form.ImagePreview, frame);
  EXPECT_EQ(unit.asked(), Texts{"rec1.avi"}) << "no camera is asked for while the file is open";
  EXPECT_EQ(form.QueueLength(), 0);

  form.AddRichiesta("08", "NEXTFRAME:", true);
  unit.answers(TwoPieceImage('n'));
  EXPECT_EQ(form.NomeFileMultimedia, "rec1.avi");
  EXPECT_EQ(form.ComandoPlayback, "NEXTFRAME:");

  form.AddRichiesta("08", "CLOSE:", true);
  unit.answers("");
  EXPECT_EQ(form.NomeFileMultimedia, "");
  EXPECT_EQ(form.ComandoPlayback, "");
  EXPECT_EQ(unit.asked(), (Texts{"rec1.avi", "NEXTFRAME:", "CLOSE:"}));
  EXPECT_EQ(form.Richieste, (std::vector<link::Richiesta>{{}, {"08", "1"}})) << "closed: the cycle goes on";
}

TEST_F(Preview, RegErrorEndsThePlaybackAndAnswersWithoutAPictureRaiseNothing) {
  form.AddRichiesta("08", "rec9.avi", true);
  unit.answers("", "Reg Error");
  EXPECT_EQ(form.NomeFileMultimedia, "");
  EXPECT_EQ(form.ComandoPlayback, "");
  EXPECT_EQ(raised(cRicezionePreViewOK), 0);
  EXPECT_EQ(form.Stato, cNoOperation);
  EXPECT_EQ(form.QueueLength(), 0);
}

TEST_F(Preview, AGiveUpAsksAgainOnlyForWhatIsWorthRepeating) {
  busy();
  form.VideoCiclePreview = 5;
  form.NCamPreviewDownloaded = 3;
  form.ResumePreviewAfterGiveUp();
  EXPECT_EQ(form.Richieste.back(), (link::Richiesta{"08", "1"})) << "no file: the next camera";

  form.Richieste.resize(2);
  form.NomeFileMultimedia = "rec1.avi";
  for (const std::string once : {"PAUSE:", "STOP:", "NEXTFRAME:", "PREVFRAME:", "CurrentTimeFileVideo:40",
                                 "SetQualityImages:3"}) {
    form.ComandoPlayback = once;
    form.ResumePreviewAfterGiveUp();
    EXPECT_EQ(form.QueueLength(), 1) << once;
  }
  form.ComandoPlayback = "CLOSE:";
  form.ResumePreviewAfterGiveUp();
  EXPECT_EQ(form.Richieste.back(), (link::Richiesta{"08", "CLOSE:"}));
}

TEST_F(Preview, PiecesAreAssembledInOrderWhateverOrderTheyCameIn) {
  form.AttivaPreview("2");
  f.unitSends("AA{}2{}08");
  f.unitSends("OK");
  const std::string image = TwoPieceImage('o');
  const std::string size = std::to_string(image.size());
  const std::string first = "{}1{}" + size + "{}" + image.substr(0, kPiece);
  const std::string second = "{}2{}" + size + "{}" + image.substr(kPiece);
  f.unitSends("AA{}2{}09{}" + size);
  f.unitSends(second);  // early: parked, the count does not move
  EXPECT_EQ(form.nPacchetti, 1);
  f.unitSends(first);
  EXPECT_EQ(raised(cRicezionePreViewOK), 0);
  f.unitSends(second);
  EXPECT_EQ(form.ImagePreview, image);
  EXPECT_EQ(raised(cRicezionePreViewOK), 1);
}

TEST_F(Preview, AnImageShortOfItsAnnouncedSizeIsNotReported) {
  form.AttivaPreview("2");
  f.unitSends("AA{}2{}08");
  f.unitSends("OK");
  f.unitSends("AA{}1{}09{}10");
  f.unitSends("{}1{}10{}123456789");
  EXPECT_EQ(raised(cRicezionePreViewOK), 0);
  EXPECT_EQ(form.Stato, cNoOperation);
}

TEST_F(Preview, CreaStrPreviewStopsAtTheFirstMalformedPiece) {
  form.StringaPar = {"AA{}4{}09{}6", "{}1{}6{}ab", "{}2{}999{}cd", "{}3{}6", "{}4{}6{}ef"};
  long size = 0;
  form.CreaStrPreview(size);
  EXPECT_EQ(form.ImagePreview, "abcd") << "piece 3 has no data field";
  EXPECT_EQ(size, 6) << "the first piece gives the size";

  form.StringaPar = {"AA{}1{}09{}2", "1{}2{}xy"};
  form.CreaStrPreview(size);
  EXPECT_EQ(form.ImagePreview, "") << "a piece must begin with the separator";
}

TEST_F(Preview, TcpImageEndsWithTheUnitsEnd) {
  LinkFixture tcp(0);
  tcp.socket().state_ = link::sckConnected;
  tcp.form().VideoCiclePreview = 1;
  tcp.form().AddRichiesta("08", "1");
  const std::string image = TwoPieceImage('t');
  const std::string size = std::to_string(image.size());
  tcp.unitSends("AA{}2{}09{}" + size);
  tcp.unitSends("{}1{}" + size + "{}" + image.substr(0, kPiece));
  tcp.unitSends("{}2{}" + size + "{}" + image.substr(kPiece));
  EXPECT_NE(tcp.form().ImagePreview, image) << "on TCP the last piece does not end the image";
  tcp.unitSends("12{}09");
  EXPECT_EQ(tcp.form().ImagePreview, image);
  EXPECT_EQ(std::count(tcp.states.begin(), tcp.states.end(), cRicezionePreViewOK), 1);
  EXPECT_EQ(tcp.lastMessage(), "AA{}0{}08{}123456{}1\r\n") << "the cycle of one camera asks again";
}

TEST_F(Preview, AStreamImageLeavesTheQueueAndTheCycleAlone) {
  form.VideoCiclePreview = 5;
  form.Richieste.push_back({"03", "03"});  // queued while the stream image was asked for
  form.Stato = cTrasmettiStreamImageReq;
  const std::string image = TwoPieceImage('s');
  unit.sendsImage(image, "58");
  EXPECT_EQ(form.ImagePreview, image);
  EXPECT_EQ(raised(cRicezioneStreamImageOK), 1);
  EXPECT_EQ(raised(cRicezionePreViewOK), 0);
  EXPECT_EQ(form.Richieste, (std::vector<link::Richiesta>{{}, {"03", "03"}})) << "the waiting request is served";
  EXPECT_TRUE(unit.asked().empty());
}

TEST_F(Preview, AnImageTheUnitStopsSendingIsGivenUpSilentlyAndTheCycleGoesOn) {
  form.VideoCiclePreview = 5;
  form.AddRichiesta("08", "1");
  f.unitSends("AA{}2{}08");
  f.unitSends("OK");
  const std::string image = TwoPieceImage('g');
  const std::string size = std::to_string(image.size());
  f.unitSends("AA{}2{}09{}" + size);
  f.unitSends("{}1{}" + size + "{}" + image.substr(0, kPiece));
  // The second piece never comes: the timer probes until it gives up.
  for (int fired = 0; fired < 40 && form.NCamPreviewDownloaded == 1; ++fired) f.timer().fire();
  EXPECT_EQ(form.Richieste, (std::vector<link::Richiesta>{{}, {"08", "3"}}));
  EXPECT_EQ(form.TentativiTimeOut, 1) << "the next camera starts with every attempt";
  EXPECT_EQ(raised(cErroreConnessione), 0);
  EXPECT_EQ(f.socket().sent.back(), "AA{}2{}08{}123456");
}
