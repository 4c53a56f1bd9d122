// The opening packet every request to the unit starts with.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "link/frmClient.h"

namespace camrelay::link {

// The access code as it travels: scrambled while the unit takes the
// scrambled form, else as typed.
std::string AccessCode(const frmClient& f);

// "AA{}<count>{}<code>{}<access code>": count is the number of packets that
// follow this one.
std::string Opening(const frmClient& f, std::size_t count, std::string_view code);

}  // namespace camrelay::link
