#include "agent/Credentials.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "Orb/UniqueFd.h"

namespace VplsAgent {

Credentials readCredentials(std::optional<std::string> user, std::string const& passwordFile) {
  auto const fail = [&](std::string const& problem) {
    return CredentialsError("the password file " + passwordFile + " " + problem);
  };
  Orb::UniqueFd const fd(::open(passwordFile.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
  if (!fd) {
    throw fail(std::string("cannot be read: ") + std::strerror(errno));
  }
  struct stat status {};
  if (::fstat(fd.get(), &status) != 0 || !S_ISREG(status.st_mode)) {
    throw fail("is not a regular file");
  }
  if ((status.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
    char mode[8];
    std::snprintf(mode, sizeof mode, "%04o", static_cast<unsigned>(status.st_mode & 07777));
    throw fail(std::string("can be read or written by others (mode ") + mode +
               "); make it readable by its owner only (chmod 600)");
  }
  std::string text;
  char buffer[4096];
  for (;;) {
    auto const n = ::read(fd.get(), buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) {
      continue;
    }
    if (n < 0) {
      throw fail(std::string("cannot be read: ") + std::strerror(errno));
    }
    if (n == 0 || text.size() > 65536) {
      break;
    }
    text.append(buffer, static_cast<std::size_t>(n));
  }
  text = text.substr(0, text.find('\n'));
  if (!text.empty() && text.back() == '\r') {
    text.pop_back();
  }
  if (text.empty()) {
    throw fail("holds no password on its first line");
  }
  return Credentials{std::move(user), std::move(text)};
}

}  // namespace VplsAgent
