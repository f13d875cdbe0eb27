#include "RedisServer.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <vector>

#include "Orb/UniqueFd.h"

namespace DbLinkTest {

namespace {

using namespace std::chrono_literals;

std::string makeDirectory() {
  char const* base = std::getenv("TMPDIR");
  std::string root = base != nullptr && *base != '\0' ? base : "/tmp";
  // The socket path must fit in sockaddr_un; a long TMPDIR falls back to /tmp.
  if (root.size() > 60) {
    root = "/tmp";
  }
  std::string pattern = root + "/dblink-redis-XXXXXX";
  if (::mkdtemp(pattern.data()) == nullptr) {
    throw std::system_error(errno, std::generic_category(), "mkdtemp " + pattern);
  }
  return pattern;
}

// One blocking PING on the socket; true when the server answered PONG.
bool answersPing(std::string const& path) {
  Orb::UniqueFd fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, path.data(), path.size());
  if (!fd || ::connect(fd.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
    return false;
  }
  timeval const wait{1, 0};
  ::setsockopt(fd.get(), SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof wait);
  char reply[16] = {};
  return ::send(fd.get(), "PING\r\n", 6, MSG_NOSIGNAL) == 6 &&
         ::recv(fd.get(), reply, sizeof reply - 1, 0) > 0 && std::string(reply) == "+PONG\r\n";
}

}  // namespace

RedisServer::RedisServer() : directory_(makeDirectory()), socketPath_(directory_ + "/redis.sock") {
  try {
    start();
  } catch (...) {
    stop();
    std::filesystem::remove_all(directory_);
    throw;
  }
}

RedisServer::~RedisServer() {
  stop();
  std::error_code ignored;
  std::filesystem::remove_all(directory_, ignored);
}

DbLink::RedisEndpoint RedisServer::endpoint() const {
  DbLink::RedisEndpoint endpoint;
  endpoint.unixPath = socketPath_;
  return endpoint;
}

void RedisServer::start() {
  std::vector<std::string> args = {"redis-server", "--port",    "0",
                                   "--unixsocket", socketPath_, "--unixsocketperm",
                                   "700",          "--save",    "",
                                   "--appendonly", "no",        "--dir",
                                   directory_,     "--logfile", directory_ + "/redis.log"};
  std::vector<char*> argv;
  for (auto& arg : args) {
    argv.push_back(arg.data());
  }
  argv.push_back(nullptr);

  // The child reports a failed exec through this pipe; a successful exec closes it.
  int report[2];
  if (::pipe2(report, O_CLOEXEC) != 0) {
    throw std::system_error(errno, std::generic_category(), "pipe2");
  }
  Orb::UniqueFd reportRead(report[0]);
  Orb::UniqueFd reportWrite(report[1]);
  pid_t const pid = ::fork();
  if (pid < 0) {
    throw std::system_error(errno, std::generic_category(), "fork");
  }
  if (pid == 0) {
    // The server must not outlive a test process that dies without running destructors.
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    ::execvp(argv[0], argv.data());
    int const error = errno;
    [[maybe_unused]] auto const n = ::write(reportWrite.get(), &error, sizeof error);
    ::_exit(127);
  }
  pid_ = pid;
  reportWrite.reset();
  int execError = 0;
  if (::read(reportRead.get(), &execError, sizeof execError) == sizeof execError) {
    ::waitpid(pid_, nullptr, 0);
    pid_ = -1;
    throw std::runtime_error("cannot run redis-server (a required test dependency): " +
                             std::generic_category().message(execError));
  }

  auto const deadline = std::chrono::steady_clock::now() + 10s;
  while (!answersPing(socketPath_)) {
    int status = 0;
    if (::waitpid(pid_, &status, WNOHANG) == pid_) {
      pid_ = -1;
      throw std::runtime_error("redis-server exited before answering PING; its log:\n" + log());
    }
    if (std::chrono::steady_clock::now() > deadline) {
      throw std::runtime_error("redis-server did not answer PING on " + socketPath_ +
                               " within 10 s; its log:\n" + log());
    }
    std::this_thread::sleep_for(5ms);
  }
}

void RedisServer::stop() {
  if (pid_ > 0) {
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
    pid_ = -1;
  }
  ::unlink(socketPath_.c_str());
}

void RedisServer::restart() {
  stop();
  start();
}

std::string RedisServer::log() const {
  std::ifstream file(directory_ + "/redis.log");
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

}  // namespace DbLinkTest
