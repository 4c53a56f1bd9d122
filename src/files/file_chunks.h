// The layout in which files travel in a transfer: per file a header element
// "{}<f>{}<k>{}<name>" CR LF, then k chunk elements "{}<f>{}<j>{}<b>{}<bytes>",
// f the file's number, j the chunk's from 1, b its byte count; every chunk
// but the last holds 3072 bytes. The bytes travel unchanged, one character
// each.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace camrelay::store {

inline constexpr std::uintmax_t kChunkBytes = 3072;

// Appends the header and chunks of a file, reading it straight into the
// chunks so that a large file is held in memory once. wireName is the name
// as the unit reads it (Windows-1252). A file of 0 bytes gets a header that
// announces 0 chunks and no chunk element: an empty chunk would carry
// nothing, and the chunk count stays size / 3072 rounded up for every size.
// Throws std::runtime_error when the file cannot be read, leaving Dati as it
// was.
void AppendFileElements(std::vector<std::string>& Dati, int fileNumber, const std::filesystem::path& file,
                        std::string_view wireName);

}  // namespace camrelay::store
