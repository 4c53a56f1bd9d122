#include "avi.h"

#include <algorithm>
#include <cstdint>

#include "little_endian.h"

namespace camrelay::unit {

namespace {

std::uint32_t Get32(std::string_view in, std::size_t at) {
  std::uint32_t v = 0;
  for (int i = 3; i >= 0; --i) v = (v << 8) | static_cast<unsigned char>(in[at + i]);
  return v;
}

// A chunk: four-character code, little-endian size, data, a pad byte to an
// even length.
std::string Chunk(std::string_view fourcc, std::string_view data) {
  std::string out(fourcc);
  Put32(out, static_cast<std::uint32_t>(data.size()));
  out.append(data);
  if (data.size() % 2) out.push_back('\0');
  return out;
}
std::string List(std::string_view type, std::string_view data) { return Chunk("LIST", std::string(type) + std::string(data)); }

std::size_t LargestFrame(const Clip& clip) {
  std::size_t largest = 0;
  for (const auto& f : clip.frames) largest = std::max(largest, f.size());
  return largest;
}

std::string MainHeader(const Clip& clip) {
  std::string h;
  Put32(h, static_cast<std::uint32_t>(1000000 / clip.fps));  // microseconds per frame
  Put32(h, static_cast<std::uint32_t>(LargestFrame(clip) * clip.fps));
  Put32(h, 0);
  Put32(h, 0x10);  // has an index
  Put32(h, static_cast<std::uint32_t>(clip.frames.size()));
  Put32(h, 0);
  Put32(h, 1);  // streams
  Put32(h, static_cast<std::uint32_t>(LargestFrame(clip)));
  Put32(h, static_cast<std::uint32_t>(clip.width));
  Put32(h, static_cast<std::uint32_t>(clip.height));
  for (int i = 0; i < 4; ++i) Put32(h, 0);
  return Chunk("avih", h);
}

std::string StreamList(const Clip& clip) {
  std::string strh = "vidsMJPG";
  Put32(strh, 0);   // flags
  Put32(strh, 0);   // priority, language
  Put32(strh, 0);   // initial frames
  Put32(strh, 1);   // scale
  Put32(strh, static_cast<std::uint32_t>(clip.fps));  // rate
  Put32(strh, 0);   // start
  Put32(strh, static_cast<std::uint32_t>(clip.frames.size()));
  Put32(strh, static_cast<std::uint32_t>(LargestFrame(clip)));
  Put32(strh, 0xffffffffu);  // default quality
  Put32(strh, 0);   // sample size: varies
  Put16(strh, 0);
  Put16(strh, 0);
  Put16(strh, static_cast<std::uint16_t>(clip.width));
  Put16(strh, static_cast<std::uint16_t>(clip.height));

  std::string strf;
  Put32(strf, 40);
  Put32(strf, static_cast<std::uint32_t>(clip.width));
  Put32(strf, static_cast<std::uint32_t>(clip.height));
  Put16(strf, 1);
  Put16(strf, 24);
  strf += "MJPG";
  Put32(strf, static_cast<std::uint32_t>(clip.width * clip.height * 3));
  for (int i = 0; i < 4; ++i) Put32(strf, 0);
  return List("strl", Chunk("strh", strh) + Chunk("strf", strf));
}

}  // namespace

std::string WriteMjpegAvi(const Clip& clip) {
  std::string movi;
  std::string index;
  for (const auto& frame : clip.frames) {
    index += "00dc";
    Put32(index, 0x10);  // key frame
    Put32(index, static_cast<std::uint32_t>(4 + movi.size()));  // from the "movi" code
    Put32(index, static_cast<std::uint32_t>(frame.size()));
    movi += Chunk("00dc", frame);
  }
  const std::string body = "AVI " + List("hdrl", MainHeader(clip) + StreamList(clip)) + List("movi", movi) +
                           Chunk("idx1", index);
  return Chunk("RIFF", body);
}

std::optional<Clip> ReadMjpegAvi(std::string_view avi) {
  if (avi.size() < 12 || avi.substr(0, 4) != "RIFF" || avi.substr(8, 4) != "AVI ") return std::nullopt;
  Clip clip;
  // Walk the chunks, entering every list: the frames are the "00dc" chunks
  // of the "movi" list, the timing is in "avih".
  for (std::size_t at = 12; at + 8 <= avi.size();) {
    const std::string_view fourcc = avi.substr(at, 4);
    const std::size_t size = Get32(avi, at + 4);
    if (fourcc == "LIST") {
      at += 12;
      continue;
    }
    if (at + 8 + size > avi.size()) break;
    const std::string_view data = avi.substr(at + 8, size);
    if (fourcc == "avih" && size >= 40) {
      const std::uint32_t us = Get32(data, 0);
      clip.fps = us ? static_cast<int>(1000000 / us) : 1;
      clip.width = static_cast<int>(Get32(data, 32));
      clip.height = static_cast<int>(Get32(data, 36));
    } else if (fourcc == "00dc" || fourcc == "00db") {
      clip.frames.emplace_back(data);
    }
    at += 8 + size + (size % 2);
  }
  if (clip.frames.empty()) return std::nullopt;
  if (clip.fps < 1) clip.fps = 1;
  return clip;
}

}  // namespace camrelay::unit
