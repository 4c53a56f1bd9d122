// Placeholder until this subsystem lands; replaced wholesale by its owner.
#include "requests/crypt.h"
namespace camrelay::requests {
std::string CryptData(const std::string& code) { return std::string(25, '\0') + code.substr(0, 0); }
}  // namespace camrelay::requests
