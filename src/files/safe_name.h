// File names that come from the unit or the host stay inside their folder.
#pragma once

#include <string_view>

namespace camrelay::store {

// Whether a name is a plain file name: not empty, no path separator of
// either kind, not "." or "..", no drive ("C:") and not absolute. The voice
// messages, media files and preview images are only ever written and read
// under such names.
bool IsPlainFileName(std::string_view name);

}  // namespace camrelay::store
