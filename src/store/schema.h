// The statements that create the standard tables. Built into the library
// from schema/*.sql (cmake/EmbedSchema.cmake), so an installed library
// creates databases without the source tree.
#pragma once

#include <string_view>

namespace camrelay::store {

std::string_view SchemaSql();

}  // namespace camrelay::store
