// What the command line needs of the operating system beyond the standard
// library, one implementation per system (system_posix.cpp,
// system_windows.cpp), so that the rest of the program reads the same on each.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace camrelay::cli {

// Where the settings live, as --help names them, and the lines of --help's
// environment section for the variables that move them (empty where none
// does).
extern const char* const kSettingsStoreHelp;
extern const char* const kSettingsEnvironmentHelp;

// Opens a page, an address or a file, in the user's browser; false when none
// could be started.
bool OpenInBrowser(const std::string& page);
// A new, empty folder below the temporary folder that only this user may
// read, its name starting with prefix. Throws std::runtime_error when none
// can be made.
std::filesystem::path MakePrivateFolder(const std::string& prefix);
// The bytes of a regular file, opened without following a link: a link
// planted in a served folder must not lead out of it. nullopt when path is
// not a regular file of its own or cannot be read.
std::optional<std::string> ReadRegularFile(const std::filesystem::path& path);
// This machine's name and this process's number, "name:number": who holds a
// claim, in words a person can trace.
std::string MachineAndProcess();
// Lets the program keep as many files and sockets open as the system allows
// it, where the system keeps a lower limit until asked.
void RaiseOpenFileLimit();

}  // namespace camrelay::cli
