#pragma once

#include <filesystem>
#include <string_view>

namespace Trace {

// The text side of tracing: for each facility, the levels whose traces are also formatted as
// one text line each (the fragments and arguments in order, nothing added between them and
// no prefix) and written to stderr or to a file. Levels come from MARL_TRACE (read when the
// first facility is created) and from these functions, which tools' --trace-level options
// call; a later call overrides. The output is stderr unless MARL_TRACE_FILE or
// outputFileIs() names a file, which is appended to. Threading: all functions are safe from
// any thread; each line is written with one write call under a lock, so lines of different
// threads never interleave.
namespace Duallog {

inline constexpr char kLevelsEnv[] = "MARL_TRACE";
inline constexpr char kFileEnv[] = "MARL_TRACE_FILE";

// Enables levels 0..maxLevel of the facility (maxLevel 0..9; kNoLevel disables it). Throws
// std::out_of_range for another level, std::invalid_argument for an invalid facility name.
void levelIs(std::string_view facility, int maxLevel);
void levelDel(std::string_view facility);
// The facility's maximum enabled level, kNoLevel when none is.
int level(std::string_view facility);
// Applies a list in the MARL_TRACE form ("MarlTunnel/8,Other/2"). Throws
// std::invalid_argument naming the first malformed entry, and then applies nothing.
void levelsIs(std::string_view list);

// Appends the lines to path from now on. Throws std::system_error naming the file when it
// cannot be opened; the output stays as it was.
void outputFileIs(std::filesystem::path const& path);
void outputIsStderr();

// Writes one line (a newline is added).
void write(std::string_view line);

}  // namespace Duallog

}  // namespace Trace
