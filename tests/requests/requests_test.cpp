// The request queue, the device operation each request type reaches, and the
// scrambling of the access code.
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "link/frmClient.h"
#include "link_fixture.h"
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
  f.Stato = cRichiestaProg;  // busy: nothing is served
  for (const auto& [tipo, parametro] : {std::pair{"08", "1"}, {"08", "2"}, {"08", "3"}, {"09", "a"}, {"09", "b"},
                                        {"05", "a.wav"}, {"05", "a.wav"}, {"05", "b.wav"}})
    f.AddRichiesta(tipo, parametro);
  EXPECT_EQ(Queue(f), (Strings{"08:1", "08:2", "09:a", "05:a.wav", "05:b.wav"}));
  EXPECT_EQ(f.RichiesteRifiutate, 3);
  f.AddRichiesta("05", "a.wav", true);
  f.AddRichiesta("05", "a.wav", true);
  EXPECT_EQ(Queue(f).size(), 7u);
}

// An index outside the queue drops the last request; a single request goes
// whatever the index. A busy link serves nothing; an idle one, or one in a
// stream image exchange, serves the head when a request comes or goes.
TEST(RemoveRichiesta, DropsTheIndexGivenOrTheLastAndTheLinkServesWhenFree) {
  LinkFixture t(sckUDPProtocol);
  auto& f = t.form();
  f.Stato = cRichiestaProg;
  for (const char* tipo : {"02", "53", "54", "06", "11"}) f.AddRichiesta(tipo, "");
  for (int index : {2, 0, 9}) f.RemoveRichiesta(index);
  EXPECT_EQ(Queue(f), (Strings{"02:", "54:"}));
  f.Stato = cNoOperation;
  f.RemoveRichiesta(1);
  EXPECT_EQ(t.messages(), Strings{"AA{}0{}54{}123456"});
  f.RemoveRichiesta(5);
  EXPECT_TRUE(Queue(f).empty());
  for (int stato : {cRichiestaStreamImage, cRicezioneStreamImageOK}) {
    f.Stato = stato;
    f.AddRichiesta("53", "");
  }
  EXPECT_EQ(t.messages().size(), 3u);
}

TEST(ReadRichiesta, OnTcpConnectsFirstAndServesOnceConnected) {
  LinkFixture t(sckTCPProtocol);
  t.form().AddRichiesta("02", "");
  t.form().ReadRichiesta();  // still connecting: nothing more
  EXPECT_EQ(t.socket().connects, 1);
  EXPECT_TRUE(t.socket().sent.empty());
  t.connect();
  EXPECT_EQ(t.lastMessage(), "AA{}0{}02{}123456");
  t.socket().state_ = link::sckError;  // any other state: closed and connected again
  const int closes = t.socket().closes;
  t.form().Stato = cNoOperation;
  t.form().ReadRichiesta();
  EXPECT_EQ(t.socket().closes, closes + 1);
  EXPECT_EQ(t.socket().connects, 2);
}

// Each type waits behind a busy link with "53" after it, then the idle link
// serves it (access code "1"): the opening, the state raised, the reply
// interval. Login and code changes start with only three retries left; a
// stream image leaves the queue before it is sent.
TEST(ReadRichiesta, EachTypeSendsItsOpeningInItsState) {
  const struct {
    const char *tipo, *parametro, *opening;
    int stato, interval;
  } rows[] = {
      {"AA", "", "AA{}0{}00{}1", cNoOperation, 1000},      {"02", "", "AA{}0{}02{}1", cRichiestaProg, 1000},
      {"04", "", "AA{}0{}04{}1", cRichiestaLog, 1000},     {"04", "03", "AA{}0{}03{}1", cRichiestaCancellaLog, 1000},
      {"53", "", "AA{}0{}53{}1", cRichiestaCamEvents, 1000},  {"06", "", "AA{}0{}06{}1", cRichiestaWave, 1000},
      {"11", "", "AA{}0{}11{}1", cRichiestaCancellaPrimaLog, 1000},
      {"54", "", "AA{}0{}54{}1", cRichiestaProgCamEvents, 1000},
      {"56", "a.jpg", "AA{}0{}56{}1{}a.jpg", cRichiestaMultimedia, 1000},
      {"57", "2", "AA{}0{}57{}1{}2\r\n", cTrasmettiStreamImageReq, 750},
      {"52", "x", "AA{}2{}52{}1", cTrasmettiStringaReq, 750}, {"50", "x", "AA{}2{}50{}1", cTrasmettiStringa, 750},
      {"01", "", "AA{}6{}01{}1", cTrasmettiProg, 1000},    {"55", "", "AA{}2{}55{}1", cTrasmettiProgCamEvents, 750},
      {"07", "", "AA{}2{}07{}1", cTrasmettiInstallCode, 1000}, {"14", "", "AA{}2{}14{}1", cTrasmettiUserCode, 1000},
      {"05", "", "AA{}1{}05{}1", cTrasmettiWave, 1000},
      {"10", "", "AA{}4{}10{}1", cTrasmettiAggiornamento, 1000},  // header, two chunks, end
  };
  for (const auto& row : rows) {
    const std::string tipo = row.tipo;
    SCOPED_TRACE(tipo);
    LinkFixture t(sckUDPProtocol, "1");
    auto& f = t.form();
    f.OpenDB();
    t.clearRecords();
    f.NewStringaPassWord = "654321";
    WriteFileBytes(t.dir() / "update.bin", std::string(3073, '\x5a'));  // the update: the file at the path given
    const std::string parametro = tipo == "10" ? (t.dir() / "update.bin").string() : row.parametro;
    f.Stato = cRicezioneStringaOK;
    f.AddRichiesta(tipo, parametro);
    f.AddRichiesta("53", "");
    f.Stato = cNoOperation;
    f.ReadRichiesta();
    EXPECT_EQ(t.messages(), Strings{row.opening});
    EXPECT_EQ(t.states, row.stato == cNoOperation ? std::vector<int>{} : std::vector<int>{row.stato});
    EXPECT_EQ(t.timer().interval(), row.interval);
    EXPECT_EQ(f.TentativiTimeOut, tipo == "AA" || tipo == "07" || tipo == "14" ? 12 : 1);
    EXPECT_EQ(Queue(f), (tipo == "57" ? Strings{"53:"} : Strings{tipo + ":" + parametro, "53:"}));
  }
}

// An empty new code, a file name leaving its folder: nothing is sent, the
// request is dropped and the queue goes on.
TEST(ReadRichiesta, RequestsThatCannotBeServedAreDropped) {
  LinkFixture t(sckUDPProtocol);
  t.form().Stato = cRichiestaProg;
  for (const auto& [tipo, parametro] : {std::pair{"14", ""}, {"07", ""}, {"56", "../escape.avi"}, {"05", "/etc"},
                                        {"02", ""}})
    t.form().AddRichiesta(tipo, parametro);
  t.form().Stato = cNoOperation;
  t.form().ReadRichiesta();
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
    std::set<int> layouts;
    std::set<std::string> seen;
    for (std::size_t call = 0; call < kCalls; ++call) {
      const std::string r = requests::CryptData(code);
      ASSERT_EQ(r.size(), 25u);
      ASSERT_EQ(r.find("{}"), std::string::npos) << "code " << code;
      ASSERT_EQ(Unscramble(r), normalised) << "code " << code;
      seen.insert(r);
      layouts.insert(Layout(r));
    }
    EXPECT_EQ(layouts.size(), 4u) << "code " << code;
    EXPECT_EQ(seen.size(), kCalls) << "code " << code;  // calls in the same instant differ too
  }
}

TEST(CryptData, AnOpeningCarriesTheAccessCodeScrambled) {
  LinkFixture t(sckUDPProtocol);
  t.form().PwdCrypted = true;
  t.form().AddRichiesta("02", "");
  ASSERT_EQ(t.lastMessage().size(), 11u + 25u);
  EXPECT_EQ(Unscramble(t.lastMessage().substr(11)), "123456");
}

}  // namespace
}  // namespace camrelay::test
