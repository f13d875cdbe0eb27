#pragma once

#include <atomic>
#include <string>
#include <string_view>

namespace Trace {

inline constexpr int kMaxLevel = 9;
inline constexpr int kNoLevel = -1;

// A trace facility: a named group of trace call sites (one per library or framework part)
// with its current maximum enabled Duallog level; levels 0..maxLevel() are enabled, none when
// it is kNoLevel. Facilities live for the whole process (see Trace::facility), so call sites
// keep references to them. Threading: enabled() is a relaxed atomic load and may race with
// maxLevelIs() from any thread; a level change reaches other threads soon, not at once.
class Facility {
 public:
  explicit Facility(std::string name);
  Facility(Facility const&) = delete;
  Facility& operator=(Facility const&) = delete;

  std::string const& name() const noexcept { return name_; }

  // The check every trace makes: one load and one predictable branch when disabled.
  bool enabled(int level) const noexcept {
    return level <= maxLevel_.load(std::memory_order_relaxed);
  }
  int maxLevel() const noexcept { return maxLevel_.load(std::memory_order_relaxed); }
  // kNoLevel disables the facility; anything outside kNoLevel..kMaxLevel throws
  // std::out_of_range naming the facility and the level.
  void maxLevelIs(int level);

 private:
  std::string const name_;
  std::atomic<int> maxLevel_{kNoLevel};
};

// Facility names are non-empty and made of letters, digits, '_', '-', '.' and ':', so that
// they can be listed in MARL_TRACE.
bool isValidFacilityName(std::string_view name) noexcept;

// The facility of that name, created on first request with the level MARL_TRACE gives it
// (kNoLevel otherwise). The reference stays valid for the life of the process. Throws
// std::invalid_argument for an invalid name.
Facility& facility(std::string_view name);

}  // namespace Trace
