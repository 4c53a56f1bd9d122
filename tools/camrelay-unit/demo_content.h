// The content a unit starts with when its folder holds no database: a
// realistic programming, a few months of log, camera events and the files
// they name. Everything comes from fixed seeds and fixed dates, so two demo
// folders are identical and a test can rely on what it holds.
#pragma once

#include <filesystem>
#include <string>

#include "database.h"

namespace camrelay::unit {

// Fills the standard tables of an open database, which should be empty.
void FillDemoTables(Database& db);

// Writes the demo's files below dir: voice messages, camera images,
// snapshots and clips, replacing files of the same names.
void WriteDemoFiles(const std::filesystem::path& dir);

namespace demo {

// The voice messages the programming names.
inline constexpr const char* kIntrusionWav = "allarme_intrusione.wav";
inline constexpr const char* kMainsWav = "mancanza_rete.wav";
inline constexpr int kCameras = 4;
inline constexpr int kClipFrames = 8;
inline constexpr int kClipFps = 4;

// One clip and a few snapshots, each named after its camera and moment, and
// listed in CamEvents.
struct Moment {
  int year, month, day, hour, minute, second;
};
struct Recording {
  int camera;
  Moment when;
  const char* kind;
  bool clip;
};

inline constexpr Recording kRecordings[] = {
    {1, {2025, 6, 12, 8, 15, 30}, "Allarme ingresso", false},
    {2, {2025, 6, 12, 8, 15, 30}, "Allarme ingresso", true},
    {2, {2025, 6, 18, 22, 4, 11}, "Rilevazione movimento", false},
    {3, {2025, 6, 21, 3, 47, 2}, "Allarme ingresso", false},
    {4, {2025, 6, 27, 14, 0, 0}, "Test periodico", false},
    {1, {2025, 6, 29, 19, 12, 45}, "Rilevazione movimento", false},
};

// "snap_cam1_20250612_081530.jpg", "clip_cam2_20250612_081530.avi"
std::string RecordingName(const Recording& r);

}  // namespace demo
}  // namespace camrelay::unit
