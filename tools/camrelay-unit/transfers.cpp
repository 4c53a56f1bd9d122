#include "transfers.h"

#include "protocol.h"

namespace camrelay::unit {

namespace {

std::string Acceptance(std::size_t count, std::string_view tipo) {
  return "AA{}" + std::to_string(count) + "{}" + std::string(tipo);
}

std::vector<std::string> Pieces(std::string_view text, std::size_t size) {
  std::vector<std::string> pieces;
  for (std::size_t at = 0; at < text.size(); at += size) pieces.emplace_back(text.substr(at, size));
  return pieces;
}

}  // namespace

Transfer TableTransfer(std::string_view tipo, const std::vector<std::string>& dati) {
  Transfer t{std::string(tipo), {}, {}, true, true};
  if (dati.size() > 1) t.packets.assign(dati.begin() + 1, dati.end());
  if (t.packets.empty()) t.packets.push_back("{}1{}0" + std::string(kCrLf));
  t.acceptance = Acceptance(t.packets.size(), tipo);
  return t;
}

std::vector<std::string> FileElements(int file, std::string_view name, std::string_view bytes) {
  const std::string number = std::string(kSep) + std::to_string(file) + std::string(kSep);
  std::vector<std::string> chunks = Pieces(bytes, kPacketBytes);
  std::vector<std::string> elements{number + std::to_string(chunks.size()) + std::string(kSep) + std::string(name) +
                                    std::string(kCrLf)};
  for (std::size_t j = 0; j < chunks.size(); ++j)
    elements.push_back(number + std::to_string(j + 1) + std::string(kSep) + std::to_string(chunks[j].size()) +
                       std::string(kSep) + chunks[j]);
  return elements;
}

Transfer VoiceTransfer(const std::vector<std::string>& layout) {
  Transfer t{std::string(type::Wave), {}, {}, false, true};
  if (layout.size() > 1) t.packets.assign(layout.begin() + 1, layout.end());
  const std::string opening = Acceptance(t.packets.size(), type::Wave) + std::string(kSep);
  t.acceptance = opening + opening;
  return t;
}

Transfer StringTransfer(std::string_view text, bool tcp) {
  Transfer t{std::string(type::CommandAnswer), {}, {}, false, true};
  std::vector<std::string> chunks = Pieces(text, tcp ? kStringChunkTcp : kStringChunkUdp);
  // Over UDP the component keeps a chunk only when it has at least two
  // characters: lend the last one a character of the one before.
  if (!tcp && chunks.size() > 1 && chunks.back().size() == 1) {
    chunks.back().insert(0, 1, chunks[chunks.size() - 2].back());
    chunks[chunks.size() - 2].pop_back();
  }
  for (const auto& chunk : chunks) t.packets.push_back(std::string(kSep) + chunk + std::string(kCrLf));
  if (!tcp) t.packets.emplace_back(kSep);
  t.acceptance = Acceptance(t.packets.size(), type::CommandAnswer);
  return t;
}

Transfer ImageTransfer(std::string_view tipo, std::string_view image) {
  Transfer t{std::string(tipo), {}, {}, false, true};
  const std::string size = std::to_string(image.size());
  std::size_t index = 0;
  for (const auto& piece : Pieces(image, kPacketBytes))
    t.packets.push_back("{}" + std::to_string(++index) + "{}" + size + "{}" + piece);
  t.acceptance = Acceptance(t.packets.size(), tipo) + std::string(kSep) + size;
  return t;
}

Transfer ImageReply(std::string_view tipo, std::string_view word) {
  return Transfer{std::string(tipo), Acceptance(0, tipo) + std::string(kSep) + std::string(word), {}, false, true};
}

Transfer MediaTransfer(std::string_view bytes) {
  Transfer t{std::string(type::Media), {}, {}, false, false};
  for (const auto& piece : Pieces(bytes, kPacketBytes)) t.packets.push_back(std::string(kSep) + piece);
  t.packets.emplace_back(kSep);
  t.acceptance = Acceptance(t.packets.size(), type::Media);
  return t;
}

}  // namespace camrelay::unit
