// The firmware update file, sent to the unit as one file of the transfer
// layout (files/file_chunks.h).
#pragma once

#include <string>
#include <vector>

#include "common/debug_sink.h"

namespace camrelay::store {

// The firmware upload ("10"): element 0 "AA{}<n>{}10{}<Code>", element 1 the
// header of file 1 named like the file without its folder, then its chunks,
// then the terminator "{}". A missing file is no error: element 0 (announcing
// 1) and the terminator. A file of 0 bytes is sent as a header announcing 0
// chunks and no chunk. A file that cannot be read is reported as
// "LoadFileAgg: <description>" and sent like a missing one.
void LoadFileAgg(std::vector<std::string>& Dati, DebugSink* Form, const std::string& Code, const std::string& path);

}  // namespace camrelay::store
