// The two writers whose file names come from the unit: the voice-message
// store and the multimedia download. Bit 0 of the first byte chooses.
//   voice: the pieces are the elements of a voice download (element 0 the
//          unit's opening element), handed to SaveMessaggiWave;
//   media: the first piece is the file name asked for, the others the data
//          packets of a multimedia download over UDP, closing packet added.
// Both write below a working folder that sits alone inside a sandbox folder.
// Afterwards the sandbox must hold nothing but the working folder, its
// Audio/, Snapshot/ and VideoAvi/ folders, and plain files directly in those:
// no name, however made, leads a write anywhere else.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "files/voice.h"
#include "input.h"
#include "link_fixture.h"

namespace {

namespace fs = std::filesystem;
using namespace camrelay;

void Fail(const std::string& what) {
  std::fprintf(stderr, "written outside its folder: %s\n", what.c_str());
  std::abort();
}

void CheckConfined(const fs::path& sandbox) {
  static const std::set<std::string> kFolders{"Audio", "Snapshot", "VideoAvi"};
  for (const auto& entry : fs::recursive_directory_iterator(sandbox)) {
    const auto relative = fs::relative(entry.path(), sandbox);
    const std::vector<fs::path> parts(relative.begin(), relative.end());
    if (entry.is_symlink()) Fail(relative.string());
    if (parts.empty() || parts[0] != "work") Fail(relative.string());
    if (parts.size() >= 2 && !kFolders.count(parts[1].string())) Fail(relative.string());
    if (parts.size() == 2 && !entry.is_directory()) Fail(relative.string());
    if (parts.size() == 3 && !entry.is_regular_file()) Fail(relative.string());
    if (parts.size() > 3) Fail(relative.string());
  }
}

void SaveVoice(const std::vector<std::string>& pieces, const fs::path& work) {
  std::vector<std::string> elements = pieces;
  fuzz::QuietSink sink;
  store::SaveMessaggiWave(elements, work / "Audio", &sink);
}

void DownloadMedia(const std::vector<std::string>& pieces, const fs::path& work) {
  test::LinkFixture t(sckUDPProtocol);
  t.form().CurrDir(work.string());
  t.form().AddRichiesta("56", "clip.avi");
  // As if the request had let any name through: the writer must hold alone.
  t.form().NomeFileMultimedia = pieces[0];
  t.unitSends("AA{}" + std::to_string(pieces.size()) + "{}56");
  for (std::size_t i = 1; i < pieces.size(); ++i) t.unitSends("{}" + pieces[i]);
  t.unitSends("{}");
}

void Run(std::string_view input) {
  if (input.empty()) return;
  test::TempDir sandbox;
  const fs::path work = sandbox / "work";
  fs::create_directory(work);
  const auto pieces = fuzz::Pieces(input.substr(1), 32);
  if (input[0] & 1)
    DownloadMedia(pieces, work);
  else
    SaveVoice(pieces, work);
  CheckConfined(sandbox.path());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  return camrelay::fuzz::RunInput(data, size, Run);
}
