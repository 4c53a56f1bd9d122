// What a broken or hostile peer may not do to a download: make the link hold
// more than one transfer's worth of memory, or answer in the unit's place
// from another address.
#include <gtest/gtest.h>

#include "link/limits.h"
#include "exchange.h"

using namespace camrelay;
using camrelay::test::LinkFixture;
using camrelay::test::Packet;

// Packets of the largest frame, each at a new index of the largest count an
// acceptance may announce: the transfer is ended once it would pass its
// bound, its memory released, and the next request is served. The same index
// sent again replaces its packet and is counted once.
TEST(HostilePeer, ADownloadIsEndedWhenItWouldHoldMoreThanItsBound) {
  LinkFixture f(sckTCPProtocol);
  f.form().AddRichiesta("02", "");
  f.form().AddRichiesta("04", "04");
  f.connect();
  f.unitSends("AA{}" + std::to_string(link::kMaxAnnouncedPackets) + "{}02");
  const std::string body(link::kMaxFrameBytes - 64, 'x');
  for (int round = 0; round < 20; ++round) f.unitSends(Packet(1, body));
  EXPECT_EQ(f.debugLines("above the limit"), 0) << "a packet sent again replaces itself";
  const long fit = link::kMaxTransferBytes / body.size();
  for (long index = 2; index <= fit; ++index) f.unitSends(Packet(index, body));
  EXPECT_EQ(f.raised(cErroreConnessione), 0);
  f.clearRecords();
  f.unitSends(Packet(fit + 1, body));
  EXPECT_EQ(f.debugLines("WinSock_Download: the transfer would hold"), 1);
  EXPECT_EQ(f.raised(cErroreConnessione), 1);
  EXPECT_EQ(f.form().StringaErroreConnessione, "Raggiunto il numero massimo di tentativi.");
  std::size_t held = 0;
  for (const auto& packet : f.form().StringaPar) held += packet.size();
  EXPECT_LT(held, 1024u) << "the packets were released";
  ASSERT_EQ(f.form().QueueLength(), 1);
  EXPECT_EQ(f.form().Richieste[1].Tipo, "04") << "the download was dropped, the next request served";
  f.unitSends("AA{}1{}04");
  f.unitSends(Packet(1, ""));
  f.unitSends("12{}04");
  EXPECT_EQ(f.raised(cRicezioneLogOK), 1);
}

// A datagram from another port, even on the unit's own machine, is neither
// acknowledged nor stored; the drops are counted and reported now and then,
// and the unit's own packets still complete the transfer.
TEST(HostilePeer, UdpTakesDatagramsFromTheUnitsAddressAndPortOnly) {
  LinkFixture f(sckUDPProtocol);
  f.form().AddRichiesta("04", "04");
  f.unitSends("AA{}1{}04");
  f.clearRecords();
  const std::string forged = Packet(1, "forged");
  f.socket().deliverFrom(f.socket().remoteHost(), f.socket().remotePort() + 1, forged);
  f.socket().deliverFrom("127.0.0.2", f.socket().remotePort(), forged);
  for (int i = 0; i < 1000; ++i) f.socket().deliverFrom("10.0.0.9", 7, forged);
  EXPECT_TRUE(f.socket().sent.empty());
  EXPECT_EQ(f.form().StringaPar[1], "");
  EXPECT_EQ(f.form().foreignDatagrams, 1002);
  EXPECT_EQ(f.debugLines("not the unit; dropped"), 2) << "one report, then one per thousand";
  EXPECT_EQ(f.debugLines("datagram from 127.0.0.1:19202"), 1);
  f.unitSends(Packet(1, "genuine"));
  EXPECT_EQ(f.form().StringaPar[1], "genuine");
  EXPECT_EQ(f.raised(cRicezioneLogOK), 1);
}

// A data packet with no transfer to go into, or an acknowledgement of no
// upload, on a link that never started one, is dropped. An acceptance
// announcing more packets than a download may hold is ignored whole, whatever
// type it names: the link stays in the state of the request it sent, raises
// nothing, and the unit's next answer is taken as usual.
TEST(HostilePeer, WhatAnswersNothingAskedOrAnnouncesTooMuchLeavesTheStateAsItWas) {
  LinkFixture f(sckUDPProtocol);
  f.unitSends(Packet(0, "x"));
  EXPECT_EQ(f.debugLines("index 0 outside"), 1);
  EXPECT_TRUE(f.form().StringaPar.empty());
  f.clearRecords();
  f.unitSends("OK");
  EXPECT_TRUE(f.states.empty());
  EXPECT_EQ(f.form().RequestsEnded, 0);
  EXPECT_TRUE(f.socket().sent.empty());
  f.form().AddRichiesta("04", "04");
  ASSERT_EQ(f.form().Stato, cRichiestaLog);
  const std::string arrival = f.form().sTipoArrivo;
  f.clearRecords();
  const std::string tooMany = std::to_string(link::kMaxAnnouncedPackets + 1);
  for (const char* tipo : {"04", "02", "56"}) {
    f.unitSends("AA{}" + tooMany + "{}" + tipo);
    EXPECT_EQ(f.form().Stato, cRichiestaLog) << "acceptance of type " << tipo;
    EXPECT_EQ(f.form().sTipoArrivo, arrival) << "acceptance of type " << tipo;
  }
  EXPECT_TRUE(f.states.empty());
  EXPECT_TRUE(f.socket().sent.empty()) << "nothing acknowledged";
  EXPECT_EQ(f.debugLines("acceptance ignored"), 3);
  EXPECT_TRUE(f.timer().enabled());
  f.unitSends("AA{}1{}04");
  f.unitSends(Packet(1, "evento"));
  EXPECT_EQ(f.raised(cRicezioneLogOK), 1);
}
