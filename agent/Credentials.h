#pragma once

#include <optional>
#include <stdexcept>
#include <string>

namespace VplsAgent {

// What the agent authenticates with: an access-control user (none: the server's default user)
// and its password. The password comes from a file that only its owner can read, never from
// the command line or the environment, and appears in no log line.
struct Credentials {
  std::optional<std::string> user;
  std::string password;
};

// A password file the agent will not use; what() names the file and the problem.
class CredentialsError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Reads the password, the file's first line (without its line end). Refuses a file that its
// group or others may read or write, one that cannot be read, and an empty password.
Credentials readCredentials(std::optional<std::string> user, std::string const& passwordFile);

}  // namespace VplsAgent
