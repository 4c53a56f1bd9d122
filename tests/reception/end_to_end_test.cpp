// Whole downloads through the fake socket: the request, the unit's
// acceptance, its packets, the end, and what lands in the database and the
// working folder.
#include <gtest/gtest.h>

#include "link_fixture.h"
#include "reception_support.h"
#include "store/download.h"
#include "store/dump.h"

using namespace camrelay;
using camrelay::test::AllBytes;
using camrelay::test::LinkFixture;
using camrelay::test::Packet;
using camrelay::test::ReadFileBytes;

namespace {

using Texts = std::vector<std::string>;

bool Raised(const LinkFixture& f, int stato) {
  return std::find(f.states.begin(), f.states.end(), stato) != f.states.end();
}

std::string LogLine(const std::string& descrizione) {
  return "{}Registro_eventi{}6{}{NULL}{}3{}01/02/2024 10:00:00{}7{}101{}3{}" + descrizione +
         "{}202{}1{}3{}2{}3{}Mario{}202\r\n";
}

std::string NumTelLine(int posizione, const std::string& nominativo, const std::string& numero) {
  return "{}NumTel{}6{}" + std::to_string(posizione) + "{}3{}" + nominativo + "{}202{}" + numero +
         "{}202{}Vero{}11{}Falso{}11{}Falso{}11{}3{}2\r\n";
}

}  // namespace

TEST(EndToEnd, UdpLogLeavesItsRecordsForTheHostToAppend) {
  LinkFixture f(1);
  f.form().AddRichiesta("04", "04");
  ASSERT_EQ(f.lastMessage(), "AA{}0{}04{}123456");
  f.unitSends("AA{}3{}04");
  EXPECT_EQ(f.lastMessage(), "OK{}04");
  f.unitSends(Packet(2, LogLine("seconda")));
  f.unitSends(Packet(1, LogLine("prima")));
  EXPECT_FALSE(Raised(f, cRicezioneLogOK));
  f.unitSends(Packet(3, LogLine("terza")));
  EXPECT_TRUE(Raised(f, cRicezioneLogOK));
  EXPECT_EQ(f.form().Stato, cNoOperation);
  EXPECT_EQ(f.form().QueueLength(), 0);

  // What the host does with the packets the reception leaves behind.
  EXPECT_EQ(f.form().UboundStringaPar(), 3);
  EXPECT_EQ(store::AppendRecordLines(f.form().StringaPar, f.db(), &f.form()), 3);
  const auto log = store::DumpTable(f.db(), "Registro_eventi");
  ASSERT_EQ(log.rows.size(), 3u);
  EXPECT_EQ(log.rows[0][3], "prima");
  EXPECT_EQ(log.rows[1][3], "seconda");
  EXPECT_EQ(log.rows[2][3], "terza");
}

TEST(EndToEnd, TcpProgrammingIsStoredWhenTheUnitEndsIt) {
  LinkFixture f(0);
  f.form().AddRichiesta("02", "");
  f.connect();
  ASSERT_EQ(f.lastMessage(), "AA{}0{}02{}123456");
  f.unitSends("AA{}2{}02");
  f.unitSends(Packet(1, NumTelLine(1, "Mario Rossi", "0612345")));
  f.unitSends(Packet(2, NumTelLine(2, "Anna Bianchi", "3331234567")));
  EXPECT_EQ(f.messages(), (Texts{"AA{}0{}02{}123456", "OK{}02", "OK", "OK"}));
  EXPECT_TRUE(store::DumpTable(f.db(), "NumTel").rows.empty()) << "nothing is stored before the end";

  f.unitSends("12{}02");
  EXPECT_TRUE(Raised(f, cRicezioneProgOK));
  const auto numTel = store::DumpTable(f.db(), "NumTel");
  ASSERT_EQ(numTel.rows.size(), 2u);
  EXPECT_EQ(numTel.rows[0][1], "Mario Rossi");
  EXPECT_EQ(numTel.rows[1][2], "3331234567");
  EXPECT_EQ(f.form().Stato, cNoOperation);
  EXPECT_EQ(f.form().QueueLength(), 0);
}

TEST(EndToEnd, TcpVoiceMessagesAreWrittenWhenTheUnitEndsThem) {
  LinkFixture f(0);
  f.form().AddRichiesta("06", "");
  f.connect();
  ASSERT_EQ(f.lastMessage(), "AA{}0{}06{}123456");
  std::string first;
  while (first.size() < 3072 + 100) first += AllBytes();
  const std::string second = AllBytes();
  const Texts elements = {
      "{}1{}2{}allarme.wav\r\n",
      "{}1{}1{}3072{}" + first.substr(0, 3072),
      "{}1{}2{}" + std::to_string(first.size() - 3072) + "{}" + first.substr(3072),
      "{}2{}1{}porta.wav\r\n",
      "{}2{}1{}256{}" + second,
      "{}",
  };
  f.unitSends("AA{}6{}06{}AA{}6{}06{}");
  for (const auto& element : elements) f.unitSends(element);
  EXPECT_FALSE(std::filesystem::exists(f.dir() / "Audio" / "allarme.wav"));

  f.unitSends("12{}06");
  EXPECT_TRUE(Raised(f, cRicezioneWaveOK));
  // The voice store writes one zero byte after what it received.
  EXPECT_EQ(ReadFileBytes(f.dir() / "Audio" / "allarme.wav"), first + std::string(1, '\0'));
  EXPECT_EQ(ReadFileBytes(f.dir() / "Audio" / "porta.wav"), second + std::string(1, '\0'));
  EXPECT_EQ(f.form().QueueLength(), 0);
}

TEST(EndToEnd, UdpMediaFileIsWrittenAsTheUnitSentIt) {
  LinkFixture f(1);
  f.form().AddRichiesta("56", "ingresso.jpg");
  ASSERT_EQ(f.lastMessage(), "AA{}0{}56{}123456{}ingresso.jpg");
  const Texts chunks = {AllBytes(), "{}" + AllBytes() + "\r\n"};
  f.unitSends("AA{}3{}56");
  for (const auto& chunk : chunks) f.unitSends("{}" + chunk);
  EXPECT_EQ(f.form().ProgressoMultimedia, 100);
  f.unitSends("{}");
  EXPECT_EQ(ReadFileBytes(f.dir() / "Snapshot" / "ingresso.jpg"), chunks[0] + chunks[1]);
  EXPECT_TRUE(Raised(f, cRicezioneMultimediaOK));
  EXPECT_EQ(f.messages(), (Texts{"AA{}0{}56{}123456{}ingresso.jpg", "OK{}56", "OK", "OK", "OK"}));
}
