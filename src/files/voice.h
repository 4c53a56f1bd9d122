// Voice messages: the sound files that the alarm inputs (Ingressi) and the
// power-supply events (Alimentazione) name in their field FoniaFileWav, kept
// in the Audio folder below the working folder.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "store/DataVideo.h"

namespace camrelay::store {

// names[1..] become the FoniaFileWav values of Ingressi, then of
// Alimentazione, in their rows' order, Null and empty ones left out and
// repeated ones kept; names[0] is empty. The names are UTF-8, as on disk.
void RicavaWaveName(std::vector<std::string>& names, DataVideo& db, DebugSink* Form);

// The voice-message upload ("05"): element 0 "AA{}<n>{}05{}<Code>", then for
// each listed name f whose file is in folder, its header and chunks as file
// number f, then the terminator "{}". A name whose file is missing takes no
// element but keeps its number. A name that is not a plain file name is
// refused with a report and nothing outside folder is read.
void LoadMessaggiWave(std::vector<std::string>& Dati, DataVideo& db, DebugSink* Form, const std::string& Code,
                      const std::filesystem::path& folder);

// Writes the voice messages of a download into folder (created when
// missing): Dati[0] is the unit's opening element, which announces n,
// Dati[1..n-1] the file headers and chunks, Dati[n] the terminator. A file
// is written when its last chunk arrives, replacing one of the same name,
// with one zero byte after the bytes received. A file whose chunks come out
// of order or with another length than announced, or whose name is not a
// plain file name, is reported and not written; a header announcing no
// chunk writes nothing.
void SaveMessaggiWave(std::vector<std::string>& Dati, const std::filesystem::path& folder, DebugSink* Form);

}  // namespace camrelay::store
