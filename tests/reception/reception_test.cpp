// Downloads played through the fake socket: the request, the unit's
// acceptance and packets, the end, and what lands in the database and on disk.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <functional>

#include "exchange.h"
#include "store/download.h"
#include "store/dump.h"

using namespace camrelay;
using camrelay::test::LinkFixture;
using camrelay::test::Packet;
using camrelay::test::ReadFileBytes;
using Texts = std::vector<std::string>;

namespace {

std::string AllBytes() {
  std::string bytes;
  for (int b = 0; b < 256; ++b) bytes += static_cast<char>(b);
  return bytes;
}

std::string LogLine(const std::string& text) {
  return "{}Registro_eventi{}6{}{NULL}{}3{}01/02/2024 10:00:00{}7{}101{}3{}" + text +
         "{}202{}1{}3{}2{}3{}Mario{}202\r\n";
}

// One column of a table, its rows joined by commas.
std::string Column(LinkFixture& f, const std::string& table, std::size_t column) {
  std::string out;
  for (const auto& row : store::DumpTable(f.db(), table).rows) out += row[column].value_or("NULL") + ",";
  return out;
}

// A whole UDP multimedia download: the chunks, then the closing packet.
// Returns the progress shown after each chunk.
std::vector<int> DownloadMedia(LinkFixture& f, const std::string& name, const Texts& chunks) {
  std::vector<int> progress;
  f.form().AddRichiesta("56", name);
  f.unitSends("AA{}" + std::to_string(chunks.size() + 1) + "{}56");
  for (const auto& chunk : chunks) {
    f.unitSends("{}" + chunk);
    progress.push_back(f.form().ProgressoMultimedia);
  }
  f.unitSends("{}closing packet: acknowledged, never written");
  return progress;
}

}  // namespace

TEST(Reception, UdpLogDropsMalformedPacketsAndEndsOnItsLastOne) {
  LinkFixture f(1);
  f.form().OpenDB();
  f.form().AddRichiesta("04", "04");
  f.unitSends("AA{}3{}04");
  f.clearRecords();
  const auto empty = f.form().StringaPar;
  // Short body, no line end, no second separator, index past the count.
  for (const std::string bad : {"{}3{}10\r\n123456789", "{}3{}9123456789", "{}3", "{}4{}3\r\nabc"})
    f.unitSends(bad);
  EXPECT_EQ(f.form().StringaPar, empty);
  EXPECT_EQ(f.messages(), Texts(4, "OK")) << "a dropped packet is still acknowledged";
  ASSERT_EQ(f.debug.size(), 4u) << "and each drop is told";
  EXPECT_TRUE(f.debug[3].starts_with("WinSock_Download: index 4 outside 0..3; packet dropped: {}4{}3\r\nabc"));
  f.unitSends(Packet(2, LogLine("seconda")));
  f.unitSends(Packet(1, LogLine("prima")));
  EXPECT_EQ(f.raised(cRicezioneLogOK), 0);
  f.unitSends(Packet(3, LogLine("terza")));
  f.unitSends(Packet(3, LogLine("terza")));  // repeated after the end: must not end it twice
  EXPECT_EQ(f.raised(cRicezioneLogOK), 1);
  EXPECT_EQ(f.form().RecordsNew, 3) << "stored by the link on completion";
  EXPECT_EQ(Column(f, "Registro_eventi", 3), "prima,seconda,terza,");
}

// A host with a distant server stores away from the loop: the link hands
// the store over with its own copy of the packets and waits, ending the
// request only once the store is back; the last packet repeated meanwhile
// starts no second store.
TEST(Reception, LinkWaitsForAStoreRunElsewhere) {
  LinkFixture f(1);
  f.form().OpenDB();
  std::vector<std::pair<std::function<void()>, std::function<void()>>> handed;
  f.form().RunStore = [&](std::function<void()> work, std::function<void()> then) {
    handed.emplace_back(std::move(work), std::move(then));
  };
  f.form().AddRichiesta("04", "04");
  f.unitSends("AA{}2{}04");
  f.unitSends(Packet(1, LogLine("prima")));
  f.unitSends(Packet(2, LogLine("seconda")));
  f.unitSends(Packet(2, LogLine("seconda")));
  ASSERT_EQ(handed.size(), 1u);
  EXPECT_EQ(Column(f, "Registro_eventi", 3), "") << "nothing stored on the loop";
  f.form().StringaPar.clear();
  handed[0].first();
  EXPECT_EQ(f.raised(cRicezioneLogOK), 0) << "the link hears of the store on the loop only";
  EXPECT_EQ(Column(f, "Registro_eventi", 3), "prima,seconda,");
  handed[0].second();
  EXPECT_EQ(f.raised(cRicezioneLogOK), 1);
  EXPECT_EQ(f.form().RecordsNew, 2);
  EXPECT_FALSE(f.form().StoreInFlight);
}

// A unit may accept voice messages as it accepts every other download, with
// "AA{}N{}06" alone: that acceptance is then the opening element. One that
// announces no count writes nothing, and says so.
TEST(Reception, VoiceMessagesAcceptedPlainlyAreWritten) {
  for (const std::string acceptance : {"AA{}3{}06", "AA{}3{}06{}AA{}3{}06{}", "AA{}3{}06{}AA"}) {
    LinkFixture f(1);
    f.form().AddRichiesta("06", "");
    f.unitSends(acceptance);
    EXPECT_EQ(f.messages().back(), "OK{}06") << acceptance;
    for (const std::string element : {"{}1{}1{}porta.wav\r\n", "{}1{}1{}3{}abc", "{}"}) f.unitSends(element);
    EXPECT_EQ(f.raised(cRicezioneWaveOK), 1) << acceptance;
    const bool counted = acceptance != "AA{}3{}06{}AA";
    EXPECT_EQ(std::filesystem::exists(f.dir() / "Audio" / "porta.wav"), counted) << acceptance;
    EXPECT_EQ(f.debugContains("SaveMessaggiWave: the opening element \"AA\" announces no element count"), !counted);
  }
}

// On TCP the unit's "12" completes a download: nothing is stored or written
// before it. A late one, for a transfer already ended, must not end the next.
TEST(Reception, TcpDownloadsAreCompletedByTheUnitsEndWhileInProgressOnly) {
  LinkFixture f(0);
  f.form().OpenDB();
  for (const char* tipo : {"02", "53", "06"}) f.form().AddRichiesta(tipo, "");
  f.connect();
  f.unitSends("AA{}2{}02");
  for (int i = 1; i <= 2; ++i)
    f.unitSends(Packet(i, "{}NumTel{}6{}" + std::to_string(i) + "{}3{}Nome" + std::to_string(i) +
                              "{}202{}06123{}202{}Vero{}11{}Falso{}11{}Falso{}11{}3{}2\r\n"));
  EXPECT_EQ(Column(f, "NumTel", 1), "") << "nothing is stored before the end";
  f.unitSends("12{}02");
  EXPECT_EQ(f.raised(cRicezioneProgOK), 1);
  EXPECT_EQ(Column(f, "NumTel", 1), "Nome1,Nome2,");

  f.unitSends("AA{}1{}53");
  f.unitSends("12{}02");  // repeated
  EXPECT_EQ(f.raised(cRicezioneProgOK), 1);
  EXPECT_EQ(f.form().QueueLength(), 2) << "the camera events are still in flight";
  EXPECT_EQ(f.form().Stato, cRichiestaCamEvents);
  EXPECT_TRUE(f.debugContains("Winsock_ResendAll: end of a transfer 02 that is not in progress ignored"));
  f.unitSends(Packet(1, "{}CamEvents{}0{}1{}3\r\n"));
  f.unitSends("12{}53");
  EXPECT_EQ(f.raised(cRicezioneCamEventsOK), 1);

  f.unitSends("AA{}3{}06{}AA{}3{}06{}");
  for (const std::string& element : Texts{"{}1{}1{}porta.wav\r\n", "{}1{}1{}256{}" + AllBytes(), "{}"})
    f.unitSends(element);
  EXPECT_FALSE(std::filesystem::exists(f.dir() / "Audio" / "porta.wav"));
  f.unitSends("12{}06");
  EXPECT_EQ(f.raised(cRicezioneWaveOK), 1);
  // The voice store writes one zero byte after what it received.
  EXPECT_EQ(ReadFileBytes(f.dir() / "Audio" / "porta.wav"), AllBytes() + '\0');
}

// A media file holds all but the closing packet, below its folder. The file
// asked for only ever holds a complete run: a run started again (after a
// reset, or at the unit's request) starts from an empty file, and a run given
// up leaves nothing behind.
TEST(Reception, AMediaFileHoldsOnlyACompleteRunBelowItsFolder) {
  LinkFixture f(1);
  const std::string data = AllBytes() + "{}" + AllBytes() + std::string(5, '\0');
  EXPECT_EQ(DownloadMedia(f, "X.JPG", {AllBytes(), "{}" + AllBytes(), std::string(5, '\0')}),
            (std::vector<int>{33, 67, 100}));
  EXPECT_EQ(f.messages(), (Texts{"AA{}0{}56{}123456{}X.JPG", "OK{}56", "OK", "OK", "OK", "OK"}));
  f.unitSends("{}stray");
  EXPECT_EQ(f.messages().size(), 6u) << "nothing is acknowledged past the count";
  DownloadMedia(f, "still.jpg", {"jpg"});
  EXPECT_EQ(ReadFileBytes(f.dir() / "VideoAvi" / "X.JPG"), data);
  EXPECT_EQ(ReadFileBytes(f.dir() / "Snapshot" / "still.jpg"), "jpg");

  const auto target = f.dir() / "VideoAvi" / "clip.avi";
  DownloadMedia(f, "clip.avi", {"old"});
  f.form().AddRichiesta("56", "clip.avi");
  f.unitSends("AA{}4{}56");
  f.unitSends("{}first attempt ");
  EXPECT_EQ(ReadFileBytes(target), "old") << "nothing of a run in progress where the file goes";
  f.unitSends("AA{}4{}56");  // the run starts over
  for (const std::string packet : {"{}one", "{}two", "{}three", "{}"}) f.unitSends(packet);
  EXPECT_EQ(ReadFileBytes(target), "onetwothree");
  f.form().AddRichiesta("56", "clip.avi");
  f.unitSends("AA{}3{}56");
  f.unitSends("{}lost");
  for (int fired = 0; fired < 30 && f.form().QueueLength() > 0; ++fired) f.timer().fire();
  EXPECT_EQ(f.form().QueueLength(), 0);
  EXPECT_EQ(ReadFileBytes(target), "onetwothree");
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(f.dir() / "VideoAvi"), {}), 2);
  // A link closed by its host in the middle of a run leaves nothing behind.
  f.form().AddRichiesta("56", "clip.avi");
  f.unitSends("AA{}3{}56");
  f.unitSends("{}cut short");
  f.form().Form_Unload();
  EXPECT_EQ(ReadFileBytes(target), "onetwothree");
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(f.dir() / "VideoAvi"), {}), 2);
}

TEST(Reception, AMediaNameThatLeavesItsFolderWritesNothing) {
  LinkFixture f(1);
  f.form().NomeFileMultimedia = "../escape.jpg";  // as if the request, which refuses it too, had let it through
  DownloadMedia(f, "../escape.jpg", {"one", "two"});
  EXPECT_EQ(f.raised(cRicezioneMultimedia), 0) << "no data was written";
  EXPECT_EQ(f.raised(cRicezioneMultimediaOK), 1) << "the run is still acknowledged to its end";
  EXPECT_FALSE(std::filesystem::exists(f.dir() / "escape.jpg"));
}
