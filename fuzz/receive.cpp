// The receive dispatcher as a hostile or broken peer drives it: the input is
// a start (one byte: the transport and the exchange in progress) followed by
// pieces, each handed to the link as one data arrival (a TCP read or a UDP
// datagram); an empty piece fires the reply timer instead. The exchanges
// start from an idle link, from the acceptance of each download type, and
// from an upload with its first element sent.
//
// After every piece the link must still be sound: no exception escaped, Stato
// is a value of its enumeration, the TCP receive buffer and the transfer in
// memory are within their limits, and the queue's spare element 0 is empty.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "input.h"
#include "link/frmClient.h"
#include "link/limits.h"
#include "link_fixture.h"

namespace {

using namespace camrelay;
using test::LinkFixture;

struct Start {
  const char* request;    // queued request type, none when empty
  const char* parameter;  // its argument
  const char* acceptance; // what the unit answered, none when empty
};

// Every download type the unit may accept, and an upload of four elements.
constexpr Start kStarts[] = {
    {"", "", ""},
    {"02", "", "AA{}3{}02"},
    {"04", "0", "AA{}3{}04"},
    {"11", "", "AA{}2{}11"},
    {"53", "", "AA{}2{}53"},
    {"54", "", "AA{}2{}54"},
    {"06", "", "AA{}3{}06{}AA{}3{}06{}"},
    {"56", "clip.avi", "AA{}4{}56"},
    {"52", "STATO", "AA{}2{}51"},
    {"08", "1", "AA{}2{}09{}6"},
    {"57", "1", "AA{}2{}58{}6"},
    {"50", "a long command string cut into several elements", "AA{}4{}50"},
};

void CheckInvariants(LinkFixture& t) {
  const auto& f = t.form();
  fuzz::Require(f.Stato >= 0 && f.Stato <= 57, "Stato outside StatoConnessioneEnum");
  fuzz::Require(f.sBufferRicezione.size() <= link::kMaxFrameBytes + 64, "receive buffer past its limit");
  fuzz::Require(f.bytesInTransfer <= link::kMaxTransferBytes, "transfer past its limit");
  fuzz::Require(f.Richieste.at(0) == link::Richiesta{}, "queue element 0 not empty");
}

void Run(std::string_view input) {
  if (input.empty()) return;
  const unsigned char head = static_cast<unsigned char>(input[0]);
  const int protocol = head & 1;
  const Start& start = kStarts[(head >> 1) % std::size(kStarts)];
  LinkFixture t(protocol);
  t.form().TentativiTimeOutMax = 3;
  if (*start.request) {
    t.form().AddRichiesta(start.request, start.parameter);
    if (protocol == sckTCPProtocol) t.connect();
  }
  if (*start.acceptance) t.unitSends(start.acceptance);
  for (const auto& piece : fuzz::Pieces(input.substr(1))) {
    if (piece.empty())
      t.timer().fire();
    else
      t.socket().deliver(piece);
    t.platform().runPosted(100);
    CheckInvariants(t);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  return camrelay::fuzz::RunInput(data, size, Run);
}
