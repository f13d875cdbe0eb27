#pragma once

#include <filesystem>
#include <string_view>

namespace Host {

// Creates a new directory only this user can enter, "<temp dir>/<prefix>.XXXXXX", for one run's
// sockets, toggles and trace files. Throws std::system_error naming the path when it cannot.
std::filesystem::path makePrivateDir(std::string_view prefix);

}  // namespace Host
