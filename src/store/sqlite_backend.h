// The embedded engine: a SQLite database file.
#pragma once

#include <filesystem>
#include <memory>

#include "store/backend.h"

namespace camrelay::store {

// Opens the database file. A file that does not exist yet, or is empty (a
// placeholder made by hand, or left by a crash while creating one), gets the
// standard tables when create is set and is refused otherwise. Throws
// std::runtime_error with a description a user can act on.
std::unique_ptr<Backend> OpenSqlite(const std::filesystem::path& file, bool create);

// Whether the file holds a database (it exists and is not empty).
bool SqliteFileHoldsDatabase(const std::filesystem::path& file);

// Creates a database file with the standard tables; on failure no file is
// left behind. Throws std::runtime_error.
void CreateSqliteFile(const std::filesystem::path& file);

}  // namespace camrelay::store
