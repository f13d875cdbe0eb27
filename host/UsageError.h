#pragma once

#include <stdexcept>

namespace Host {

// A command line that cannot be used; what() says what is wrong in one line. The programs
// answer it with their usage text and exit code 2.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace Host
