#include "bench/scale/SelfProcess.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <stdexcept>

#include "Orb/UniqueFd.h"

extern char** environ;

namespace Bench {
namespace {

constexpr char kSelf[] = "/proc/self/exe";

std::string readAll(int fd) {
  std::string text;
  char buffer[4096];
  for (;;) {
    auto const n = ::read(fd, buffer, sizeof buffer);
    if (n <= 0) {
      return text;
    }
    text.append(buffer, static_cast<std::size_t>(n));
  }
}

// Spawns the child with its stdout on a pipe; posix_spawn's file actions own the redirection.
pid_t spawnSelf(std::vector<std::string> args, int stdoutFd, int closeFd) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, stdoutFd, STDOUT_FILENO);
  posix_spawn_file_actions_addclose(&actions, closeFd);
  args.insert(args.begin(), kSelf);
  std::vector<char*> argv;
  for (auto& arg : args) {
    argv.push_back(arg.data());
  }
  argv.push_back(nullptr);
  pid_t pid = 0;
  int const rc = ::posix_spawn(&pid, kSelf, &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (rc != 0) {
    throw std::runtime_error("cannot start a child process of this program");
  }
  return pid;
}

std::string joined(std::vector<std::string> const& args) {
  std::string text;
  for (auto const& arg : args) {
    text += (text.empty() ? "" : " ") + arg;
  }
  return text;
}

}  // namespace

std::string runSelf(std::vector<std::string> const& args) {
  int ends[2];
  if (::pipe(ends) != 0) {
    throw std::runtime_error("cannot create a pipe to a child process");
  }
  Orb::UniqueFd const readEnd(ends[0]);
  Orb::UniqueFd writeEnd(ends[1]);
  pid_t const pid = spawnSelf(args, writeEnd.get(), readEnd.get());
  writeEnd.reset();
  auto output = readAll(readEnd.get());
  int status = 0;
  ::waitpid(pid, &status, 0);
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
    throw std::runtime_error("child '" + joined(args) + "' failed");
  }
  return output;
}

}  // namespace Bench
