// The transfers the unit sends: an acceptance, then data packets 1..N in the
// layout the component expects for the transfer's type.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace camrelay::unit {

// Bytes of a file or an image carried by one packet.
inline constexpr std::size_t kPacketBytes = 3072;
// Characters of a string answer per packet, the sizes the component itself
// cuts command strings into.
inline constexpr std::size_t kStringChunkTcp = 51197;
inline constexpr std::size_t kStringChunkUdp = 3069;

struct Transfer {
  std::string tipo;
  std::string acceptance;
  std::vector<std::string> packets;  // packet i is packets[i - 1]
  // The component places these packets by their own index, so a copy or a
  // late packet cannot corrupt the result; every other type is stored in
  // arrival order.
  bool indexed = false;
  // On TCP the unit closes the transfer with "12{}type" once the last packet
  // has been acknowledged; a media file ends by its count instead.
  bool closedByResendAll = true;
};

// Record-line transfers ("02", "03", "04", "11", "53", "54") from a transfer
// array whose element 0 is an opening. With nothing to send, one empty
// packet follows, so a transfer is never empty.
Transfer TableTransfer(std::string_view tipo, const std::vector<std::string>& dati);
// One file in the voice layout: its header "{}" f "{}" k "{}" name CR LF,
// then its k chunks "{}" f "{}" j "{}" b "{}" bytes of at most kPacketBytes.
std::vector<std::string> FileElements(int file, std::string_view name, std::string_view bytes);
// Voice messages ("06") from the voice layout: the acceptance carries the
// layout's opening element, re-typed as a download.
Transfer VoiceTransfer(const std::vector<std::string>& layout);
// A string answer ("51"): "{}" chunk CR LF per packet; on UDP a closing "{}"
// that the count includes.
Transfer StringTransfer(std::string_view text, bool tcp);
// An image ("09", "58"): "{}" i "{}" size "{}" piece.
Transfer ImageTransfer(std::string_view tipo, std::string_view image);
// An image acceptance that carries a word instead of an image: "OK" or
// "Reg Error".
Transfer ImageReply(std::string_view tipo, std::string_view word);
// A snapshot or clip ("56"): "{}" + bytes per packet, then a closing "{}".
Transfer MediaTransfer(std::string_view bytes);

}  // namespace camrelay::unit
