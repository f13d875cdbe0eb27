#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "Trace/FlashlogFormat.h"

namespace Trace {

// Decodes a Flashlog file, also one whose writer aborted or is still writing: the records
// still in the ring, oldest first, each with its wall-clock time and the text Duallog would
// have printed (runtime text arguments as far as the record kept them, kMaxTextBytes bytes;
// static fragments and static texts whole, from the file's format table). Records torn by the
// wrap of the ring, overwritten while being read, never completed, or referring to a format or
// static text missing from the table are skipped and counted. A file that is not a Flashlog, or
// whose header or format table is truncated or corrupt, raises FlashlogError naming the file and
// the problem.
// Threading: an immutable value once constructed.
class FlashlogReader {
 public:
  struct Record {
    std::int64_t timeNs = 0;  // wall clock, nanoseconds since the epoch
    std::string facility;
    int level = 0;
    std::string text;
  };

  // Reads and decodes the file.
  static FlashlogReader fromFile(std::filesystem::path const& path);
  // Decodes the bytes of a file; name is used in error messages.
  FlashlogReader(std::string const& bytes, std::string name);

  std::vector<Record> const& records() const noexcept { return records_; }
  // Ring words that belonged to no complete record.
  std::uint64_t skippedWords() const noexcept { return skippedWords_; }
  std::string const& agent() const noexcept { return agent_; }
  std::uint64_t pid() const noexcept { return pid_; }

  // "2025-11-22T09:38:01.123456Z": UTC, microseconds.
  static std::string timeText(std::int64_t timeNs);
  // The text line flashlog-cat prints: "<time> <facility>/<level> <text>".
  static std::string line(Record const& record);

 private:
  std::vector<Record> records_;
  std::uint64_t skippedWords_ = 0;
  std::string agent_;
  std::uint64_t pid_ = 0;
};

}  // namespace Trace
