#include "Trace/Facility.h"

#include <unistd.h>

#include <cstdlib>
#include <map>
#include <memory>
#include <mutex>
#include <stdexcept>

#include "Loom/Immortal.h"
#include "Trace/Duallog.h"
#include "Trace/LevelList.h"

namespace Trace {
namespace {

// All facilities of the process, by name. Created on first use, when it also applies the
// levels of MARL_TRACE, so those hold before any trace runs.
class Registry {
 public:
  Registry() {
    char const* const env = std::getenv(Duallog::kLevelsEnv);
    if (env == nullptr) {
      return;
    }
    LevelList const list = parseLevelList(env);
    for (std::string const& problem : list.problems) {
      std::string const line = std::string(Duallog::kLevelsEnv) + ": ignoring " + problem + "\n";
      [[maybe_unused]] auto const n = ::write(STDERR_FILENO, line.data(), line.size());
    }
    for (LevelSetting const& s : list.settings) {
      findOrCreate(s.facility).maxLevelIs(s.maxLevel);
    }
  }

  Facility& get(std::string_view name) {
    std::lock_guard lock(mutex_);
    return findOrCreate(name);
  }

 private:
  Facility& findOrCreate(std::string_view name) {
    auto it = facilities_.find(name);
    if (it == facilities_.end()) {
      it = facilities_.emplace(std::string(name), std::make_unique<Facility>(std::string(name)))
               .first;
    }
    return *it->second;
  }

  std::mutex mutex_;
  std::map<std::string, std::unique_ptr<Facility>, std::less<>> facilities_;
};

}  // namespace

Facility::Facility(std::string name) : name_(std::move(name)) {
  if (!isValidFacilityName(name_)) {
    throw std::invalid_argument("'" + name_ + "' is not a valid trace facility name");
  }
}

void Facility::maxLevelIs(int level) {
  if (level < kNoLevel || level > kMaxLevel) {
    throw std::out_of_range("trace level " + std::to_string(level) + " for facility " + name_ +
                            " is outside 0..9");
  }
  maxLevel_.store(level, std::memory_order_relaxed);
}

bool isValidFacilityName(std::string_view name) noexcept {
  if (name.empty()) {
    return false;
  }
  for (char c : name) {
    bool const ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                    c == '_' || c == '-' || c == '.' || c == ':';
    if (!ok) {
      return false;
    }
  }
  return true;
}

Facility& facility(std::string_view name) {
  static Loom::Immortal<Registry> registry;
  if (!isValidFacilityName(name)) {
    throw std::invalid_argument("'" + std::string(name) + "' is not a valid trace facility name");
  }
  return registry.get().get(name);
}

}  // namespace Trace
