#include "files/safe_name.h"

namespace camrelay::store {

bool IsPlainFileName(std::string_view name) {
  // A separator makes any path, absolute ones included; a colon makes a
  // drive or an alternate data stream on the unit's side; a NUL byte would
  // cut the name short on the way to the file system.
  if (name.empty() || name == "." || name == "..") return false;
  return name.find_first_of(std::string_view("/\\:\0", 4)) == std::string_view::npos;
}

}  // namespace camrelay::store
