#pragma once

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "tests/platform/Trace/TraceTestSupport.h"

namespace Sim::test {

inline std::filesystem::path simBinary() {
  return VPLS_DECAP_SIM_BINARY;
}
inline std::filesystem::path sourceDir() {
  return VPLS_DECAP_SOURCE_DIR;
}

using TraceTest::readFile;

// A private directory, removed with everything in it when the owner goes.
class TempDir : public TraceTest::TempDir {
 public:
  std::filesystem::path write(std::string const& name, std::string const& text) const {
    auto const file = path() / name;
    TraceTest::writeFile(file, text);
    return file;
  }
};

// How a run of the runner ended: its exit code, or the signal that ended it, and its output.
struct SimResult {
  int exitCode = -1;
  int signal = 0;
  std::string out;
  std::string err;

  std::vector<std::string> outLines() const {
    std::vector<std::string> lines;
    std::istringstream in(out);
    for (std::string line; std::getline(in, line);) {
      lines.push_back(line);
    }
    return lines;
  }
};

// How the runner is started besides its arguments: what its standard input reads, and whether
// MARL_FLASHLOG_DIR keeps its Flashlog in `<dir>/flashlog` (or nothing does).
struct SimStart {
  std::optional<std::filesystem::path> input;
  bool flashlogDir = true;
};

// The runner as a child process: its output goes to files in `dir`, its Flashlog and its
// private directory into `dir` too, so that runs of parallel tests never share one and nothing
// is left behind.
class SimProcess {
 public:
  SimProcess(TempDir const& dir, std::vector<std::string> const& args, SimStart const& start = {})
      : dir_(dir) {
    pid_ = ::fork();
    if (pid_ != 0) {
      return;
    }
    auto const redirect = [](std::filesystem::path const& file, int target) {
      int const fd = ::open(file.c_str(),
                            target == STDIN_FILENO ? O_RDONLY : O_WRONLY | O_CREAT | O_TRUNC, 0600);
      ::dup2(fd, target);
      ::close(fd);
    };
    redirect(dir.path() / "stdout", STDOUT_FILENO);
    redirect(dir.path() / "stderr", STDERR_FILENO);
    if (start.input) {
      redirect(*start.input, STDIN_FILENO);
    }
    if (start.flashlogDir) {
      ::setenv("MARL_FLASHLOG_DIR", (dir.path() / "flashlog").c_str(), 1);
    } else {
      ::unsetenv("MARL_FLASHLOG_DIR");
    }
    // Its private directory too: a run that aborts leaves it behind.
    ::setenv("TMPDIR", dir.path().c_str(), 1);
    std::string const binary = simBinary().string();
    std::vector<char*> argv{const_cast<char*>(binary.c_str())};
    for (auto const& arg : args) {
      argv.push_back(const_cast<char*>(arg.c_str()));
    }
    argv.push_back(nullptr);
    ::execv(binary.c_str(), argv.data());
    ::_exit(127);
  }

  pid_t pid() const { return pid_; }

  SimResult wait() {
    SimResult result;
    int status = 0;
    while (::waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
    }
    if (WIFEXITED(status)) {
      result.exitCode = WEXITSTATUS(status);
    } else if (WIFSIGNALED(status)) {
      result.signal = WTERMSIG(status);
    }
    result.out = readFile(dir_.path() / "stdout");
    result.err = readFile(dir_.path() / "stderr");
    return result;
  }

 private:
  TempDir const& dir_;
  pid_t pid_ = -1;
};

inline SimResult runSim(TempDir const& dir, std::vector<std::string> const& args,
                        SimStart const& start = {}) {
  return SimProcess(dir, args, start).wait();
}

// Runs one scenario text with the given options.
inline SimResult runScenarioText(std::string const& scenario, std::vector<std::string> options) {
  TempDir dir;
  auto const file = dir.write("scenario.json", scenario);
  options.insert(options.begin(), {"run", file.string()});
  return runSim(dir, options);
}

// The example scenarios, for tests that run each of them, and their names as test names.
inline auto const kExamples = ::testing::Values(
    "standby-pseudowire", "vlan-aware-instance", "split-horizon-groups", "vxlan-regimes",
    "awkward-order", "show-command", "agent-restart", "full-chip");
inline std::string exampleTestName(::testing::TestParamInfo<char const*> const& info) {
  std::string name = info.param;
  std::erase(name, '-');
  return name;
}

inline nlohmann::ordered_json parseJson(std::string const& text) {
  return nlohmann::ordered_json::parse(text);
}

}  // namespace Sim::test
