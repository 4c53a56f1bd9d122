// The request queue, the device operation each request type reaches, and the
// scrambling of the access code.
#include <gtest/gtest.h>

#include <array>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "link/frmClient.h"
#include "exchange.h"
#include "requests/crypt.h"

namespace camrelay::test {
namespace {

using Strings = std::vector<std::string>;

Strings Queue(const link::frmClient& f) {
  Strings out;
  for (std::size_t i = 1; i < f.Richieste.size(); ++i)
    out.push_back(f.Richieste[i].Tipo + ":" + f.Richieste[i].Parametro);
  return out;
}

// The head is never compared; one "08" or "09" waiting is enough, whatever
// its argument; ForceAdd takes anything.
TEST(AddRichiesta, WaitingDuplicatesAreRefusedUnlessForced) {
  LinkFixture t(sckUDPProtocol);
  auto& f = t.form();
  Play(t, {Asks("02"), Sends("AA{}0{}02{}123456")});  // busy from now on: nothing else is served
  for (const auto& [tipo, parametro] : {std::pair{"02", ""}, {"02", ""}, {"08", "1"}, {"08", "2"}, {"09", "a"},
                                        {"09", "b"}, {"05", "a.wav"}, {"05", "a.wav"}, {"05", "b.wav"}})
    f.AddRichiesta(tipo, parametro);
  EXPECT_EQ(Queue(f), (Strings{"02:", "02:", "08:1", "09:a", "05:a.wav", "05:b.wav"}));
  EXPECT_EQ(f.RichiesteRifiutate, 4);
  f.AddRichiesta("05", "a.wav", true);
  f.AddRichiesta("05", "a.wav", true);
  EXPECT_EQ(Queue(f).size(), 8u);
}

// An index outside the queue drops the last request; a single request goes
// whatever the index. A busy link serves nothing; an idle one, or one whose
// stream image the unit is busy with, serves the head when a request comes
// or goes.
TEST(RemoveRichiesta, DropsTheIndexGivenOrTheLastAndTheLinkServesWhenFree) {
  LinkFixture t(sckUDPProtocol);
  auto& f = t.form();
  Play(t, {Asks("04"), Sends("AA{}0{}04{}123456")});
  for (const char* tipo : {"53", "54", "06", "11"}) f.AddRichiesta(tipo, "");
  for (int index : {2, 0, 9}) f.RemoveRichiesta(index);
  EXPECT_EQ(Queue(f), (Strings{"04:", "54:"}));
  Play(t, {Says("AA{}0{}04"), Sends("OK{}04"), Says(Packet(0, "")), Sends("OK"), Sends("AA{}0{}54{}123456")});
  f.RemoveRichiesta(5);
  EXPECT_TRUE(Queue(f).empty());
  LinkFixture stream(sckUDPProtocol);
  Play(stream, {Asks("57", "2"), Sends("AA{}0{}57{}123456{}2\r\n"), Says("BS"), Asks("53"),
           Sends("AA{}0{}53{}123456")});
}

// A TCP link connects before it serves and awaits no reply while it
// connects; a socket gone wrong is closed and connected again, and the head of
// the queue is served anew.
TEST(ReadRichiesta, OnTcpConnectsFirstAndServesOnceConnected) {
  LinkFixture t(sckTCPProtocol);
  t.form().AddRichiesta("02", "");
  t.form().AddRichiesta("53", "");  // still connecting: nothing more
  EXPECT_EQ(t.socket().connects, 1);
  EXPECT_TRUE(t.socket().sent.empty());
  Play(t, {Host([](link::frmClient&) {}), Sends("AA{}0{}02{}123456")});
  t.socket().fail(10054, "Connection is reset by remote side");  // the link goes idle, the queue stays
  t.socket().state_ = link::sckError;
  const int closes = t.socket().closes;
  t.form().AddRichiesta("54", "");
  EXPECT_EQ(t.socket().closes, closes + 1);
  EXPECT_EQ(t.socket().connects, 2);
  EXPECT_FALSE(t.timer().enabled()) << "no reply is awaited while connecting";
  Play(t, {Host([](link::frmClient&) {}), Sends("AA{}0{}02{}123456")});
}

// An empty new code, a file name leaving its folder: nothing is sent, the
// request is dropped and the queue goes on.
TEST(ReadRichiesta, RequestsThatCannotBeServedAreDropped) {
  LinkFixture t(sckUDPProtocol);
  for (const auto& [tipo, parametro] : {std::pair{"14", ""}, {"07", ""}, {"56", "../escape.avi"}, {"05", "/etc"},
                                        {"02", ""}})
    t.form().AddRichiesta(tipo, parametro);
  EXPECT_EQ(t.messages(), Strings{"AA{}0{}02{}123456"});
  EXPECT_EQ(Queue(t.form()), Strings{"02:"});
}

// Chunks of at most 3069 bytes on UDP, 51197 on TCP; the receiving side's
// joiner must give the command back whole.
TEST(Operations, CommandStringsAreChunkedSoTheReceiverJoinsThemBack) {
  const std::string longCommand = std::string(2 * 3069, 'a') + "tail1" + std::string(51197 - 2 * 3069, 'b') + "z";
  LinkFixture udp(sckUDPProtocol);
  udp.form().UploadStrCommand(longCommand);
  auto packets = udp.form().StringaPar;  // the opening, 17 chunks, a lone "{}"
  EXPECT_EQ(packets[0], "AA{}18{}50{}123456");
  EXPECT_EQ(packets[1], "{}" + longCommand.substr(0, 3069) + "\r\n");
  EXPECT_EQ(link::CreaStringaComando(packets, sckUDPProtocol), longCommand);
  udp.form().UploadStrCommand("");
  EXPECT_EQ(udp.form().StringaPar, (Strings{"AA{}2{}50{}123456", "{}\r\n", "{}"}));

  LinkFixture tcp(sckTCPProtocol);
  tcp.connect();
  tcp.form().DownLoadStrCommand(longCommand);
  packets = tcp.form().StringaPar;  // the opening with the first chunk, then one more
  EXPECT_EQ(packets[0], "AA{}1{}52{}123456{}" + longCommand.substr(0, 51197) + "\r\n");
  packets[0].erase(0, 17);  // the unit takes the first chunk from after the code
  EXPECT_EQ(link::CreaStringaComando(packets, sckTCPProtocol), longCommand);
}

// The layout is the low two bits of the first character; each group of four
// that follows hides one code character.
int Layout(const std::string& r) { return static_cast<unsigned char>(r[0]) & 3; }

std::string Unscramble(const std::string& r) {
  auto at = [&](int position) { return static_cast<unsigned char>(r[position - 1]); };  // 1-based
  std::string code;
  for (int g = 2; g < 26; g += 4) {
    switch (Layout(r)) {
      case 0: code += static_cast<char>(at(g) ^ at(g + 1) ^ at(g + 2) ^ at(g + 3)); break;
      case 1: code += static_cast<char>(at(g + 1) ^ at(g) ^ at(g + 2)); break;
      case 2: code += static_cast<char>(at(g + 2) ^ at(g)); break;
      default: code += static_cast<char>(at(g + 3) ^ at(1) ^ at(g)); break;
    }
  }
  return code;
}

TEST(CryptData, EveryCallDiffersAndDecodesToTheNormalisedCodeInAllFourLayouts) {
  constexpr std::size_t kCalls = 400;
  const std::string codes[] = {"", "123456", "12", "1234567890", std::string("\xff\x00\x80{}", 5), "{}{}{}"};
  for (const auto& code : codes) {
    const std::string normalised = (code + std::string(6, '\0')).substr(0, 6);
    // In each layout every character varies from call to call: none is a
    // fixed byte that would give the layout or the code away.
    std::map<int, std::array<std::set<char>, 25>> valuesAt;
    std::set<std::string> seen;
    for (std::size_t call = 0; call < kCalls; ++call) {
      const std::string r = requests::CryptData(code);
      ASSERT_EQ(r.size(), 25u);
      ASSERT_EQ(r.find("{}"), std::string::npos) << "code " << code;
      ASSERT_EQ(Unscramble(r), normalised) << "code " << code;
      seen.insert(r);
      for (std::size_t i = 0; i < r.size(); ++i) valuesAt[Layout(r)][i].insert(r[i]);
    }
    EXPECT_EQ(valuesAt.size(), 4u) << "code " << code;
    EXPECT_EQ(seen.size(), kCalls) << "code " << code;  // calls in the same instant differ too
    for (const auto& [layout, values] : valuesAt)
      for (std::size_t i = 0; i < values.size(); ++i)
        EXPECT_GT(values[i].size(), 1u) << "code " << code << ", layout " << layout << ", character " << i;
  }
}

}  // namespace
}  // namespace camrelay::test
