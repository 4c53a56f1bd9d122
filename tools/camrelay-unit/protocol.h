// The unit's own words of the wire protocol: separators, message codes and
// transfer types, written from the protocol notes rather than taken from the
// component, so that a misreading on either side shows up between the two.
#pragma once

#include <string_view>

namespace camrelay::unit {

// Between the fields of every message; never escaped.
inline constexpr std::string_view kSep = "{}";
inline constexpr std::string_view kCrLf = "\r\n";
// TCP only: "LN{}" length "{}" message.
inline constexpr std::string_view kFrameMarker = "LN{}";

// The first two characters of a message.
namespace code {
inline constexpr std::string_view Request = "AA";    // a request, or its acceptance
inline constexpr std::string_view Password = "PW";   // the access code is refused
inline constexpr std::string_view Ack = "OK";        // one element or packet taken
inline constexpr std::string_view Busy = "BS";       // the real answer comes later
inline constexpr std::string_view ResendAll = "12";  // repeat your last answer / TCP end of a transfer
inline constexpr std::string_view End = "13";        // a probe, a resend, or a restart
}  // namespace code

// The transfer types the unit serves.
namespace type {
inline constexpr std::string_view Login = "00";
inline constexpr std::string_view ProgUpload = "01";
inline constexpr std::string_view Prog = "02";
inline constexpr std::string_view LogThenErase = "03";
inline constexpr std::string_view Log = "04";
inline constexpr std::string_view WaveUpload = "05";
inline constexpr std::string_view Wave = "06";
inline constexpr std::string_view InstallerCode = "07";
inline constexpr std::string_view Preview = "08";
inline constexpr std::string_view PreviewImage = "09";
inline constexpr std::string_view Firmware = "10";
inline constexpr std::string_view EraseLog = "11";
inline constexpr std::string_view UserCode = "14";
inline constexpr std::string_view Command = "50";
inline constexpr std::string_view CommandAnswer = "51";
inline constexpr std::string_view CommandRequest = "52";
inline constexpr std::string_view CamEvents = "53";
inline constexpr std::string_view ProgCamEvents = "54";
inline constexpr std::string_view ProgCamEventsUpload = "55";
inline constexpr std::string_view Media = "56";
inline constexpr std::string_view StreamRequest = "57";
inline constexpr std::string_view StreamImage = "58";
}  // namespace type

// The requests whose elements come from the component: the unit accepts
// them with "AA{}count{}type" and takes their elements.
constexpr bool IsUpload(std::string_view t) {
  for (std::string_view upload : {type::ProgUpload, type::WaveUpload, type::InstallerCode, type::Preview,
                                  type::Firmware, type::UserCode, type::Command, type::CommandRequest,
                                  type::ProgCamEventsUpload, type::StreamRequest})
    if (t == upload) return true;
  return false;
}

}  // namespace camrelay::unit
