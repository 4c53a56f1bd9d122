// The readers of text that comes from outside: the first byte chooses one,
// the rest is its input.
//   0 CreaStringaComando over pieces (either transport)
//   1 CreaStrPreview over image pieces
//   2 the settings file, read key by key and as numbers
//   3 the connection-string parser
//   4 Italian dates: whatever is read is written and read back the same
//   5 ISO dates: the same round trip
//   6 the number readers
//   7 wire values of each transfer type, and the character-set round trip
// Besides the sanitizers' checks, each may fail only in the way it documents
// (an std::invalid_argument or std::runtime_error with a description).
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "component/settings.h"
#include "env_guard.h"
#include "input.h"
#include "link/frmClient.h"
#include "link_fixture.h"
#include "store/DataVideo.h"
#include "store/text.h"
#include "store/values.h"
#include "store/wire.h"

namespace {

using namespace camrelay;

std::vector<std::string> Elements(std::string_view text) {
  std::vector<std::string> elements{std::string()};
  for (auto& piece : fuzz::Pieces(text, 64)) elements.push_back(std::move(piece));
  return elements;
}

void Preview(std::string_view text) {
  test::LinkFixture t(sckUDPProtocol);
  t.form().StringaPar = Elements(text);
  long size = 0;
  t.form().CreaStrPreview(size);
  fuzz::Require(t.form().ImagePreview.size() <= text.size(), "an image longer than its pieces");
}

void Settings(std::string_view text) {
  static const test::ConfigHomeGuard home;
  component::SettingsStore store("CamRelay");
  std::filesystem::create_directories(home.settingsFile().parent_path());
  std::ofstream(home.settingsFile(), std::ios::binary | std::ios::trunc) << text;
  for (const char* key : {"RemoteHost", "RemotePort", "LocalPort", "DelayLoadDataFromDB"})
    component::SettingAsInteger(store.GetSetting("AppSetting", key, "0"));
}

void ItalianDate(std::string_view text) {
  const auto date = store::ParseItalianDate(text);
  if (date) fuzz::Require(store::ParseItalianDate(store::FormatItalianDate(*date)) == date, "Italian date round trip");
}

void IsoDate(std::string_view text) {
  const auto date = store::ParseIsoDate(text);
  if (date) fuzz::Require(store::ParseIsoDate(store::FormatIsoDate(*date)) == date, "ISO date round trip");
}

void Numbers(std::string_view text) {
  link::LeadingNumber(std::string(text));
  store::WholeNumber(text);
  component::SettingAsInteger(std::string(text));
}

void WireValues(std::string_view text) {
  for (const char* type : {"3", "7", "11", "202"}) {
    try {
      store::FromWireText(type, text);
    } catch (const std::invalid_argument&) {
    }
  }
  fuzz::Require(store::Utf8ToCp1252(store::Cp1252ToUtf8(text)) == text, "Windows-1252 round trip");
}

void Run(std::string_view input) {
  if (input.empty()) return;
  const std::string_view text = input.substr(1);
  switch (static_cast<unsigned char>(input[0]) % 8) {
    case 0: {
      auto elements = Elements(text);
      link::CreaStringaComando(elements, input[0] & 0x80 ? sckUDPProtocol : sckTCPProtocol);
      break;
    }
    case 1: Preview(text); break;
    case 2: Settings(text); break;
    case 3:
      try {
        store::DatabasePath(text);
      } catch (const std::runtime_error&) {
      }
      break;
    case 4: ItalianDate(text); break;
    case 5: IsoDate(text); break;
    case 6: Numbers(text); break;
    case 7: WireValues(text); break;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  return camrelay::fuzz::RunInput(data, size, Run);
}
