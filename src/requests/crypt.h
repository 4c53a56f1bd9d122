// Scrambling of the access code: its six characters hidden among random ones
// in a fresh 25-character string each time.
#pragma once

#include <string>

namespace camrelay::requests {

std::string CryptData(const std::string& code);

}  // namespace camrelay::requests
