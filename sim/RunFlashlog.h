#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace Sim {

// Where one run's binary trace (the Flashlog) goes. A file that --flashlog names, or the
// default file in $MARL_FLASHLOG_DIR, was asked for and stays (Host::applyTraceOptions opens
// the first; the Flashlog opens the second on the first record). Otherwise the trace goes to a
// private directory "<temp dir>/vpls-decap-sim-flashlog.XXXXXX", which the destructor removes:
// a run leaves nothing behind unless it aborts, when the directory keeps the trace of the crash
// (keptOnAbortMessage() says where). Records made after the removal land in the unlinked file,
// which the process still maps. When no private directory can be made the trace stays in
// memory.
// Threading: the main thread's, before anything is traced and at the end of main.
class RunFlashlog {
 public:
  explicit RunFlashlog(std::optional<std::string> const& flashlogOption);
  ~RunFlashlog();
  RunFlashlog(RunFlashlog const&) = delete;
  RunFlashlog& operator=(RunFlashlog const&) = delete;

  // The private directory, when the trace went to one.
  std::optional<std::filesystem::path> const& privateDir() const { return privateDir_; }

  // The line to say when the process aborts with the private directory in place; empty when
  // there is none.
  std::string keptOnAbortMessage(std::string const& program) const;

 private:
  std::optional<std::filesystem::path> privateDir_;
};

}  // namespace Sim
