// The demo's files: generated tones for the voice messages, a picture per
// camera, the snapshots and the clip that CamEvents lists.
#include <string>
#include <vector>

#include "avi.h"
#include "demo_content.h"
#include "folder_content.h"
#include "picture.h"
#include "wav.h"

namespace camrelay::unit {

using namespace demo;
namespace fs = std::filesystem;

void WriteDemoFiles(const fs::path& dir) {
  for (const char* folder : kFolders) fs::create_directories(dir / folder);
  constexpr int kRate = 8000;
  // A two-tone siren, and three slow beeps for the mains.
  std::vector<Tone> siren;
  for (int i = 0; i < 4; ++i) siren.insert(siren.end(), {{880, 250}, {660, 250}});
  WriteBytes(dir / "Audio" / kIntrusionWav, EncodeWav(Tones(siren, kRate), kRate));
  WriteBytes(dir / "Audio" / kMainsWav,
             EncodeWav(Tones({{440, 300}, {0, 200}, {440, 300}, {0, 200}, {440, 600}}, kRate), kRate));

  for (int camera = 1; camera <= kCameras; ++camera)
    WriteBytes(dir / "Preview" / ("cam" + std::to_string(camera) + ".jpg"),
               EncodeJpeg(CameraPicture(camera, 0, 320, 240)));
  int moment = 0;  // moves the bar, so two snapshots of a camera differ
  for (const Recording& r : kRecordings) {
    if (!r.clip) {
      WriteBytes(dir / "Snapshot" / RecordingName(r), EncodeJpeg(CameraPicture(r.camera, ++moment, 320, 240)));
      continue;
    }
    Clip clip{{}, 160, 120, kClipFps};
    for (int frame = 0; frame < kClipFrames; ++frame)
      clip.frames.push_back(EncodeJpeg(CameraPicture(r.camera, frame, clip.width, clip.height), 75));
    WriteBytes(dir / "VideoAvi" / RecordingName(r), WriteMjpegAvi(clip));
  }
}

}  // namespace camrelay::unit
