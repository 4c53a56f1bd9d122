// The page's files, built into the program.
#pragma once

#include <optional>
#include <string_view>

namespace camrelay::web {

// The content of a file of the page by its name ("index.html"), or nullopt.
std::optional<std::string_view> PageFile(std::string_view name);

}  // namespace camrelay::web
