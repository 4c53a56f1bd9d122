// The statements that create the standard tables, one text per engine.
// Built into the library from schema/*.sql and schema/postgresql/*.sql
// (cmake/EmbedSchema.cmake), so an installed library creates databases
// without the source tree.
#pragma once

#include <string_view>

namespace camrelay::store {

std::string_view SchemaSql();
std::string_view PostgresSchemaSql();

}  // namespace camrelay::store
