#include "exchange.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace camrelay::test {

Step Asks(const std::string& tipo, const std::string& parametro) {
  return Host([=](link::frmClient& f) { f.AddRichiesta(tipo, parametro); });
}
Step Host(std::function<void(link::frmClient&)> call) { return {Step::Kind::Host, "", std::move(call)}; }
Step Sends(const std::string& message) { return {Step::Kind::Sends, message, {}}; }
Step Says(const std::string& message) { return {Step::Kind::Says, message, {}}; }
Step Fires() { return {Step::Kind::Fires, "", {}}; }

std::string Packet(int index, const std::string& body) {
  return "{}" + std::to_string(index) + "{}" + std::to_string(body.size()) + "\r\n" + body;
}

namespace {

// Plays steps [0, end) and returns whether they all went as written.
bool PlayUpTo(LinkFixture& t, const Script& script, std::size_t end) {
  std::size_t read = t.socket().sent.size();
  auto unread = [&] {
    std::string out;
    const auto sent = t.messages();
    for (std::size_t i = read; i < sent.size(); ++i) out += "\n  " + sent[i];
    return out;
  };
  for (std::size_t i = 0; i < end; ++i) {
    const Step& step = script[i];
    const std::string where = "step " + std::to_string(i + 1) + ": ";
    switch (step.kind) {
      case Step::Kind::Host:
        step.host(t.form());
        if (t.socket().state() == link::sckConnecting) t.connect();
        break;
      case Step::Kind::Sends:
        if (read >= t.socket().sent.size() || t.messages()[read] != step.text) {
          ADD_FAILURE() << where << "expected the client to send " << step.text << "; it sent:" << unread();
          return false;
        }
        ++read;
        break;
      case Step::Kind::Says:
      case Step::Kind::Fires:
        if (read != t.socket().sent.size()) {
          ADD_FAILURE() << where << "the client sent more than the script says:" << unread();
          return false;
        }
        if (step.kind == Step::Kind::Says) {
          t.unitSends(step.text);
        } else if (!t.timer().fire()) {
          ADD_FAILURE() << where << "the reply timer is not armed";
          return false;
        }
        break;
    }
  }
  if (end == script.size() && read != t.socket().sent.size()) {
    ADD_FAILURE() << "after the last step the client sent more:" << unread();
    return false;
  }
  return true;
}

// The unit stays silent: the timer resends until the request gives up.
int LetSilenceRun(LinkFixture& t) {
  auto& f = t.form();
  const int limit = std::max(f.TentativiTimeOutMax, 25);
  const auto head = f.Richieste;
  for (int fires = 1; fires <= limit; ++fires) {
    const std::size_t sent = t.socket().sent.size();
    if (!t.timer().fire()) {
      ADD_FAILURE() << "the link waits for the unit with no timer armed";
      return fires - 1;
    }
    if (f.lastOutcome == RequestOutcome::RetriesExhausted) {
      EXPECT_NE(f.Richieste, head) << "the request given up is still queued";
      EXPECT_FALSE(f.bAttesaFine);
      const bool quiet = f.sTipoArrivo == "09";
      EXPECT_EQ(f.StringaErroreConnessione,
                quiet ? std::string() : std::string("Raggiunto il numero massimo di tentativi."));
      return fires;
    }
    // A request that left the queue when it was sent (a stream image) has
    // nothing to resend: the link simply goes idle.
    if (f.QueueLength() == 0 && f.Stato == cNoOperation && !t.timer().enabled()) return fires;
    if (t.socket().sent.size() == sent) {
      ADD_FAILURE() << "firing " << fires << " neither resent nor gave up";
      return fires;
    }
  }
  ADD_FAILURE() << "no give-up after " << limit << " firings";
  return limit;
}

}  // namespace

void Play(LinkFixture& t, const Script& script) { PlayUpTo(t, script, script.size()); }

std::vector<int> CheckSilence(int protocol, const Script& script) {
  std::vector<int> firings;
  for (std::size_t i = 0; i < script.size(); ++i) {
    if (script[i].kind != Step::Kind::Says) continue;
    SCOPED_TRACE("silence before step " + std::to_string(i + 1) + ", " + script[i].text);
    LinkFixture t(protocol);
    if (!PlayUpTo(t, script, i)) return firings;
    firings.push_back(LetSilenceRun(t));
  }
  return firings;
}

}  // namespace camrelay::test
