// The unit's side of the preview over UDP, for the tests of the link and of
// clsClient alike.
#pragma once

#include <string>
#include <vector>

#include "../reception/reception_support.h"
#include "fake_platform.h"

namespace camrelay::test {

inline constexpr std::size_t kPiece = 3072;

// Every byte value, repeated past one piece so that an image takes two.
inline std::string TwoPieceImage(char salt) {
  std::string image;
  while (image.size() <= kPiece) image += AllBytes();
  image[0] = salt;
  return image;
}

class UdpUnit {
 public:
  explicit UdpUnit(FakeSocket& socket) : socket_(socket) {}

  // An image transfer of type `tipo`: its acceptance with the size, then the
  // pieces "{}" index "{}" size "{}" data.
  void sendsImage(const std::string& image, const std::string& tipo = "09") {
    const std::size_t pieces = (image.size() + kPiece - 1) / kPiece;
    const std::string size = std::to_string(image.size());
    socket_.deliver("AA{}" + std::to_string(pieces) + "{}" + tipo + "{}" + size);
    for (std::size_t i = 0; i < pieces; ++i)
      socket_.deliver("{}" + std::to_string(i + 1) + "{}" + size + "{}" + image.substr(i * kPiece, kPiece));
  }
  // Takes the request element and the closing element of an "08", then
  // answers with `image`, or without a picture when it is empty.
  void answers(const std::string& image, const std::string& status = "OK") {
    socket_.deliver("AA{}2{}08");
    socket_.deliver("OK");
    if (image.empty())
      socket_.deliver("AA{}0{}09{}" + status);
    else
      sendsImage(image);
  }
  // What the "08" requests sent so far asked for: their request elements,
  // line end removed.
  std::vector<std::string> asked() const {
    std::vector<std::string> out;
    for (const auto& m : socket_.sent)
      if (m.size() > 4 && m.compare(0, 2, "{}") == 0 && m.compare(m.size() - 2, 2, "\r\n") == 0)
        out.push_back(m.substr(2, m.size() - 4));
    return out;
  }

 private:
  FakeSocket& socket_;
};

}  // namespace camrelay::test
