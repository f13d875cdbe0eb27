#pragma once

#include <sys/types.h>

#include <string>

#include "dblink/RedisUrl.h"

namespace DbLinkTest {

// A private redis-server for one test: started on a Unix socket in a fresh temporary directory
// (no TCP port, no persistence), ready once it answers PING. The destructor kills it and removes
// the directory. redis-server must be on PATH; when it cannot start, the constructor throws
// std::runtime_error saying why (with the server's log when there is one).
class RedisServer {
 public:
  RedisServer();
  ~RedisServer();
  RedisServer(RedisServer const&) = delete;
  RedisServer& operator=(RedisServer const&) = delete;

  std::string const& socketPath() const noexcept { return socketPath_; }
  DbLink::RedisEndpoint endpoint() const;
  // The temporary directory, for files a test wants next to the server.
  std::string const& directory() const noexcept { return directory_; }

  // Kills the server at once (SIGKILL: no goodbye to clients) and removes its socket file.
  void stop();
  // Stops the server if it runs and starts a new one, empty, on the same socket path.
  void restart();
  bool running() const noexcept { return pid_ > 0; }

 private:
  void start();
  std::string log() const;

  std::string directory_;
  std::string socketPath_;
  pid_t pid_ = -1;
};

}  // namespace DbLinkTest
