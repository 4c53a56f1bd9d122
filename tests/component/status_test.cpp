// The status view a host reads instead of the link's own record: the transfer
// in hand, the queue, the reply awaited, the limits, how each request ended;
// and the log and camera events that the library stores, only what is new.
#include <gtest/gtest.h>

#include "client_fixture.h"
#include "exchange.h"
#include "store/dump.h"

using namespace camrelay;

namespace {

using Lines = std::vector<std::string>;
using test::Packet;

// One event of the log: when, and what.
std::string Event(const std::string& when, const std::string& text) {
  return "{}Registro_eventi{}6{}{NULL}{}3{}" + when + "{}7{}101{}3{}" + text + "{}202{}1{}3{}2{}3{}Mario{}202\r\n";
}

std::string CamEvent(const std::string& when, const std::string& file) {
  return "{}CamEvents{}5{}" + when + "{}7{}2{}3{}Movimento{}202{}" + file + "{}202{}12{}3{}Vero{}11\r\n";
}

struct StatusFixture : test::ClientOnFakePlatform {
  std::vector<int> states;
  std::vector<int> recordsNewAtCompletion;

  StatusFixture() {
    client.CambioStatoConnessione = [this](StatoConnessioneEnum s) {
      states.push_back(s);
      if (s == cRicezioneLogOK || s == cRicezioneCamEventsOK)
        recordsNewAtCompletion.push_back(client.Status().recordsNew);
    };
    client.ImpostaTempiRisposta(4000, 3000, 3);
    client.Connetti("127.0.0.1", 19201, 14400, false, sckUDPProtocol, dir.path().string());
    client.StringaConnDB((dir.path() / "v.db").string());
    client.ApriDB();
    client.StringaCodiceAccesso("123456");
  }

  test::FakeSocket& unit() { return *platform->socket; }

  // The unit sends `lines` as a transfer of type `tipo`, one record a packet.
  void UnitSendsRecords(const std::string& tipo, const Lines& lines) {
    unit().deliver("AA{}" + std::to_string(lines.size()) + "{}" + tipo);
    for (std::size_t i = 0; i < lines.size(); ++i) unit().deliver(Packet(static_cast<int>(i + 1), lines[i]));
  }

  int DownloadLog(const Lines& lines) {
    client.ScaricaLog();
    UnitSendsRecords("04", lines);
    return client.Status().recordsNew;
  }

  // One column of a table, its rows joined by commas.
  std::string Column(const std::string& table, const std::string& name) {
    const auto dump = store::DumpTable(client.Database(), table);
    std::size_t column = 0;
    while (column < dump.columns.size() && dump.columns[column] != name) ++column;
    std::string out;
    for (const auto& row : dump.rows) out += row.at(column).value_or("NULL") + ",";
    return out;
  }
};

}  // namespace

TEST_F(StatusFixture, ADownloadShowsItsProgressQueueAndReplyAwaitedThenHowItEnded) {
  LinkStatus status = client.Status();
  EXPECT_TRUE(status.linked);
  EXPECT_EQ(status.database, cDbAperto);
  EXPECT_EQ(status.lastOutcome, RequestOutcome::None);
  EXPECT_EQ(status.timeoutLongMs, 4000);
  EXPECT_EQ(status.timeoutShortMs, 3000);
  EXPECT_EQ(status.retryLimit, 3);
  EXPECT_FALSE(status.awaitingReply);
  EXPECT_EQ(status.packetsDone + status.packetsExpected, 0);
  EXPECT_EQ(client.UboundStringaPar(), 0);

  client.ScaricaLog();
  client.DownloadMultimediaFile("a.jpg");
  status = client.Status();
  ASSERT_EQ(status.queue.size(), 2u);
  EXPECT_EQ(status.queue[0].type, "04");
  EXPECT_EQ(status.queue[1].type, "56");
  EXPECT_EQ(status.queue[1].argument, "a.jpg");
  EXPECT_TRUE(status.awaitingReply);
  EXPECT_EQ(status.replyWithinMs, 4000) << "a download's opening waits the long interval";
  EXPECT_EQ(status.operation, cRichiestaLog);

  unit().deliver("AA{}3{}04");
  unit().deliver(Packet(2, Event("01/02/2024 10:00:00", "due")));
  status = client.Status();
  EXPECT_EQ(status.transferType, "04");
  EXPECT_FALSE(status.upload);
  EXPECT_EQ(status.packetsDone, 1);
  EXPECT_EQ(status.packetsExpected, 3);
  EXPECT_EQ(status.lastOutcome, RequestOutcome::None);

  unit().deliver(Packet(1, Event("01/02/2024 09:00:00", "uno")));
  unit().deliver(Packet(3, Event("01/02/2024 11:00:00", "tre")));
  status = client.Status();
  EXPECT_EQ(status.lastOutcome, RequestOutcome::Completed);
  EXPECT_EQ(status.requestsEnded, 1);
  EXPECT_EQ(status.recordsNew, 3);
  ASSERT_EQ(status.queue.size(), 1u) << "the media request is served next";
  EXPECT_EQ(status.queue[0].type, "56");

  // How the request ended outlives the link taken down.
  client.Disconnetti();
  status = client.Status();
  EXPECT_FALSE(status.linked);
  EXPECT_EQ(status.lastOutcome, RequestOutcome::Completed);
  EXPECT_EQ(status.requestsEnded, 1);
}

// Until the unit accepts the opening no transfer is in hand: the elements a
// request has ready to send are not packets received or acknowledged.
TEST_F(StatusFixture, ARequestAwaitingItsAcceptanceShowsNoPackets) {
  client.DownLoadStrCommand("EVENTI?");
  EXPECT_EQ(client.Status().packetsDone + client.Status().packetsExpected, 0);
  unit().deliver("AA{}2{}52");
  EXPECT_EQ(client.Status().packetsExpected, 2);
}

// A cancel abandons the request in hand; taking it out then ends it for
// good, and a request waiting behind it can go at any time. The head in hand
// cannot: the exchange is the link's until it ends or is abandoned.
TEST_F(StatusFixture, WithdrawnRequestsLeaveTheQueueAndTheLinkGoesOn) {
  client.DownLoadProgrammazione();
  client.ScaricaLog();
  client.DownloadCamEvents();
  EXPECT_FALSE(client.WithdrawRequest(1)) << "the programming download is in hand";
  EXPECT_FALSE(client.WithdrawRequest(4));
  EXPECT_FALSE(client.WithdrawRequest(0));
  ASSERT_TRUE(client.WithdrawRequest(2));
  auto types = [&] {
    std::vector<std::string> out;
    for (const QueuedRequest& r : client.Status().queue) out.push_back(r.type);
    return out;
  };
  EXPECT_EQ(types(), (std::vector<std::string>{"02", "53"}));

  const int ended = client.Status().requestsEnded;
  unit().sent.clear();
  client.AnnullaRichiesta();
  EXPECT_EQ(client.Status().lastOutcome, RequestOutcome::Cancelled);
  EXPECT_EQ(client.Status().requestsEnded, ended) << "a cancel leaves the request queued";
  ASSERT_TRUE(client.WithdrawRequest(1));
  EXPECT_EQ(client.Status().requestsEnded, ended + 1);
  EXPECT_EQ(types(), (std::vector<std::string>{"53"}));
  EXPECT_EQ(client.StatoCorrente(), cRichiestaCamEvents) << "the next request is served at once";
  ASSERT_EQ(unit().sent.size(), 1u);
  EXPECT_TRUE(unit().sent[0].starts_with("AA{}0{}53{}")) << unit().sent[0];

  EXPECT_FALSE(client.WithdrawRequest(1));
  client.AnnullaRichiesta();
  ASSERT_TRUE(client.WithdrawRequest(1));
  EXPECT_TRUE(client.Status().queue.empty());
  // The abandoned exchange's reply timer is stopped with it: nothing is
  // asked of the unit again, nothing given up later.
  EXPECT_FALSE(platform->timer->fire());
  EXPECT_EQ(unit().sent.size(), 1u);
  EXPECT_EQ(client.Status().requestsEnded, ended + 2);
}

// The unit sends its whole log each time: what the table holds already is
// not added again, and the count says how many records were new.
TEST_F(StatusFixture, ARepeatedDownloadAddsOnlyTheNewEvents) {
  const std::string a = Event("01/02/2024 09:00:00", "porta"), b = Event("01/02/2024 09:05:00", "porta"),
                    c = Event("01/02/2024 09:05:00", "porta"), d = Event("02/02/2024 08:00:00", "finestra");
  // The same event twice at once is two events, and the same text at another
  // time another event.
  EXPECT_EQ(DownloadLog({a, b, c}), 3);
  EXPECT_EQ(DownloadLog({a, b, c}), 0);
  EXPECT_EQ(DownloadLog({a, b, c, d, d}), 2);
  EXPECT_EQ(Column("Registro_eventi", "DataOra"),
            "2024-02-01 09:00:00,2024-02-01 09:05:00,2024-02-01 09:05:00,2024-02-02 08:00:00,2024-02-02 08:00:00,");
  // A unit whose log dropped its oldest events: the overlap is found all the same.
  EXPECT_EQ(DownloadLog({c, d, d, a}), 1);
  // The log began anew (erased on the unit): everything is new.
  EXPECT_EQ(DownloadLog({b}), 1);
  EXPECT_EQ(Column("Registro_eventi", "IdRegistro"), "1,2,3,4,5,6,7,");
  // Camera events likewise, in their own table.
  const std::string first = CamEvent("03/03/2024 10:00:00", "a.avi"), second = CamEvent("03/03/2024 10:01:00", "b.avi");
  client.DownloadCamEvents();
  UnitSendsRecords("53", {first});
  client.DownloadCamEvents();
  UnitSendsRecords("53", {first, second});
  EXPECT_EQ(Column("CamEvents", "NomeFile"), "a.avi,b.avi,");
  EXPECT_EQ(recordsNewAtCompletion, (std::vector<int>{3, 0, 2, 1, 1, 1, 1})) << "known when the completion is raised";
  // The packets stay with the link as well; reading past either end gives nothing.
  EXPECT_EQ(client.UboundStringaPar(), 2);
  EXPECT_EQ(client.GetStringaPar(2), second);
  EXPECT_EQ(client.GetStringaPar(3) + client.GetStringaPar(-1), "");
}
