#include "Trace/Duallog.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <mutex>
#include <stdexcept>
#include <string>
#include <system_error>

#include "Loom/Immortal.h"
#include "Trace/Facility.h"
#include "Trace/LevelList.h"

namespace Trace::Duallog {
namespace {

int openOutput(std::filesystem::path const& path) {
  return ::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
}

// Where lines go. Starts from MARL_TRACE_FILE when it is set and can be opened.
class Output {
 public:
  Output() {
    char const* const env = std::getenv(kFileEnv);
    if (env == nullptr || *env == '\0') {
      return;
    }
    int const fd = openOutput(env);
    if (fd < 0) {
      std::string const line = std::string(kFileEnv) + ": cannot open " + env + ": " +
                               std::system_category().message(errno) + "; tracing to stderr\n";
      [[maybe_unused]] auto const n = ::write(STDERR_FILENO, line.data(), line.size());
      return;
    }
    fd_ = fd;
  }

  void fileIs(std::filesystem::path const& path) {
    int const fd = openOutput(path);
    if (fd < 0) {
      throw std::system_error(errno, std::system_category(),
                              "cannot open trace output file " + path.string());
    }
    std::lock_guard lock(mutex_);
    closeOwned();
    fd_ = fd;
  }

  void stderrIs() {
    std::lock_guard lock(mutex_);
    closeOwned();
  }

  void write(std::string_view line) {
    std::string buffer;
    buffer.reserve(line.size() + 1);
    buffer.append(line).push_back('\n');
    std::lock_guard lock(mutex_);
    std::size_t done = 0;
    while (done < buffer.size()) {
      ssize_t const n = ::write(fd_, buffer.data() + done, buffer.size() - done);
      if (n < 0 && errno == EINTR) {
        continue;
      }
      if (n <= 0) {
        return;  // A trace line that cannot be written is dropped; tracing never fails.
      }
      done += static_cast<std::size_t>(n);
    }
  }

 private:
  void closeOwned() {
    if (fd_ != STDERR_FILENO) {
      ::close(fd_);
    }
    fd_ = STDERR_FILENO;
  }

  std::mutex mutex_;
  int fd_ = STDERR_FILENO;
};

Output& output() {
  static Loom::Immortal<Output> o;
  return o.get();
}

}  // namespace

void levelIs(std::string_view facilityName, int maxLevel) {
  facility(facilityName).maxLevelIs(maxLevel);
}

void levelDel(std::string_view facilityName) {
  facility(facilityName).maxLevelIs(kNoLevel);
}

int level(std::string_view facilityName) {
  return facility(facilityName).maxLevel();
}

void levelsIs(std::string_view list) {
  LevelList const parsed = parseLevelList(list);
  if (!parsed.problems.empty()) {
    throw std::invalid_argument("trace levels: " + parsed.problems.front());
  }
  for (LevelSetting const& s : parsed.settings) {
    levelIs(s.facility, s.maxLevel);
  }
}

void outputFileIs(std::filesystem::path const& path) {
  output().fileIs(path);
}

void outputIsStderr() {
  output().stderrIs();
}

void write(std::string_view line) {
  output().write(line);
}

}  // namespace Trace::Duallog
