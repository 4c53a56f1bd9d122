// Logging in: accepted, refused, and the fallback from the scrambled code.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "link_fixture.h"

namespace camrelay::test {
namespace {

bool Raised(const LinkFixture& t, int stato) {
  return std::find(t.states.begin(), t.states.end(), stato) != t.states.end();
}

TEST(Login, AcceptedTheLinkIsUpAndTheNextRequestKeepsItsState) {
  LinkFixture t(sckTCPProtocol);
  auto& f = t.form();
  f.AddRichiesta("AA", "");
  f.AddRichiesta("02", "");
  t.connect();
  EXPECT_EQ(t.lastMessage(), "AA{}0{}00{}123456");
  EXPECT_EQ(f.TentativiTimeOut, 10 - 3);
  t.unitSends("AA{}0{}00{}1");
  EXPECT_EQ(f.RemotePasswordType, 1);
  EXPECT_TRUE(Raised(t, cConnessioneOK));
  EXPECT_EQ(t.lastMessage(), "AA{}0{}02{}123456");
  EXPECT_EQ(f.Stato, cRichiestaProg);
  EXPECT_EQ(f.QueueLength(), 1);
}

TEST(Login, AScrambledCodeRefusedOnceIsFollowedByThePlainCodeThenARefusal) {
  LinkFixture t(sckUDPProtocol);
  auto& f = t.form();
  f.PwdCrypted = true;
  f.AddRichiesta("AA", "");
  const std::string scrambled = t.lastMessage();
  EXPECT_EQ(scrambled.size(), std::string("AA{}0{}00{}").size() + 25);

  t.unitSends("PW");
  EXPECT_FALSE(f.PwdCrypted);
  EXPECT_TRUE(t.debugContains("Password di accesso al sistema criptata NON ACCETTATA"));
  EXPECT_FALSE(Raised(t, cConnessioneRifiutata));
  EXPECT_EQ(t.lastMessage(), "AA{}0{}00{}123456");

  t.unitSends("PW");
  EXPECT_TRUE(Raised(t, cConnessioneRifiutata));
  EXPECT_EQ(f.StringaErroreConnessione, "Password di accesso errata!");
  EXPECT_EQ(f.Stato, cNoOperation);
  EXPECT_EQ(f.QueueLength(), 0);
  EXPECT_EQ(t.messages().size(), 2u);
}

TEST(Login, OnceTheScrambledCodeIsAcceptedARefusalIsFinal) {
  LinkFixture t(sckUDPProtocol);
  auto& f = t.form();
  f.PwdCrypted = true;
  f.AddRichiesta("AA", "");
  t.unitSends("AA{}0{}00{}2");
  EXPECT_TRUE(f.bPwdCryptedAccettata);
  EXPECT_TRUE(t.debugContains("Accettata la password di accesso al sistema criptata"));
  EXPECT_EQ(f.RemotePasswordType, 2);

  f.AddRichiesta("02", "");
  f.RemotePasswordType = 2;
  t.unitSends("PW");
  EXPECT_TRUE(f.PwdCrypted);
  EXPECT_TRUE(Raised(t, cConnessioneRifiutata));
  EXPECT_EQ(f.RemotePasswordType, 0);
  EXPECT_EQ(f.QueueLength(), 0);
}

}  // namespace
}  // namespace camrelay::test
