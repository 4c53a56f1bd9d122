// Scripted exchanges with the link: the host asks, the client sends, the unit
// says, the timer fires. A test writes the conversation it expects and plays
// it; the link's record is never touched by hand.
//
//   Play(t, {Asks("02"), Sends("AA{}0{}02{}123456"), Says("AA{}1{}02"),
//            Sends("OK{}02"), Says(Packet(1, "x")), Sends("OK")});
//
// CheckSilence then replays the same script and lets the unit fall silent at
// each point where the link waits for it: every silence must end in a resend
// or a clean give-up, never in a link that waits for ever.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "link_fixture.h"

namespace camrelay::test {

struct Step {
  enum class Kind { Host, Sends, Says, Fires } kind;
  std::string text;  // Sends: the message expected, frame removed; Says: the unit's message
  std::function<void(link::frmClient&)> host;
};
using Script = std::vector<Step>;

// The host queues a request (a TCP link is then connected by the unit).
Step Asks(const std::string& tipo, const std::string& parametro = "");
// The host does anything else through the link's interface.
Step Host(std::function<void(link::frmClient&)> call);
// The client's next message is exactly this.
Step Sends(const std::string& message);
// The unit sends this (in its TCP frame on TCP).
Step Says(const std::string& message);
// The reply timer fires; it must have been armed.
Step Fires();

// Plays the script. The test fails, naming the step, at the first message
// the link sends other than the script says, and when it sends more.
void Play(LinkFixture& t, const Script& script);

// For every Says of the script: plays the script up to it on a new link of
// the protocol, then lets the timer fire while the unit stays silent. Each
// firing must resend something, until the request leaves the queue given up
// ("Raggiunto il numero massimo di tentativi." or, for a preview image,
// silently) with the link idle. Returns the firings each silence took.
std::vector<int> CheckSilence(int protocol, const Script& script);

// A data packet "{}" index "{}" length CR LF body.
std::string Packet(int index, const std::string& body);

}  // namespace camrelay::test
