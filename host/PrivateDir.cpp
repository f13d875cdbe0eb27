#include "host/PrivateDir.h"

#include <stdlib.h>

#include <cerrno>
#include <string>
#include <system_error>

namespace Host {

std::filesystem::path makePrivateDir(std::string_view prefix) {
  std::string pattern =
      (std::filesystem::temp_directory_path() / (std::string(prefix) + ".XXXXXX")).string();
  if (::mkdtemp(pattern.data()) == nullptr) {
    throw std::system_error(errno, std::generic_category(),
                            "cannot create a private directory " + pattern);
  }
  return pattern;
}

}  // namespace Host
