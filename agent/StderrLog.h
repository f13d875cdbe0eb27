#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace VplsAgent {

// The syslog priority of a line the agent writes.
enum class LogPriority : std::uint8_t { error, warning, notice, info };

// The priority of a library log message of the given severity (Cog::LogMessage, 0 most
// severe, the syslog scale): 3 and more severe are errors, 4 a warning, 5 a notice, the rest
// information. Nothing is more severe than an error: a message concerns this agent, not the
// whole system.
LogPriority priorityOfSeverity(int severity);

// Writes the agent's lines to stderr. When stderr is the journal's stream ($JOURNAL_STREAM
// holds "device:inode" of stderr's file, as the service manager sets it), every line starts
// with its syslog priority ("<3>" for an error ... "<6>" for information, sd-daemon.h) and
// leaves out the program's name, which the journal records with the line. Anywhere else (a
// terminal, a file, a pipe) a line is "<program>: <text>" or the text as given, without a
// priority, as tests and scripts read them.
//
// Invariants: each call writes whole lines in one write(2), so that lines of one call never
// mix with other output; a text of several lines gets the priority on each line.
// Threading: a value; calls from any thread (each is one write).
class StderrLog {
 public:
  // Looks at $JOURNAL_STREAM and stderr.
  static StderrLog forStderr(std::string program);
  StderrLog(std::string program, bool journal);

  // "<program>: <line>" (in the journal: the line).
  void say(LogPriority priority, std::string_view line) const;
  // The text as it is, one or more lines (a final newline is added when missing).
  void write(LogPriority priority, std::string_view text) const;

  bool journal() const noexcept { return journal_; }

 private:
  std::string program_;
  bool journal_;
};

}  // namespace VplsAgent
