#pragma once

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>

// The Flashlog file, shared by the writer (Flashlog) and the decoder (FlashlogReader):
//
//   [0, 4096)                         FileHeader
//   [formatOffset, +formatBytes)      format table: entries appended as call sites and static
//                                     texts register (FlashlogFormat.h)
//   [ringOffset, +ringWords * 8)      ring of 64-bit words holding the records
//
// A record is a run of words starting at an absolute word position p (the ring index is
// p mod ringWords):
//   word 0  header: magic (4 bits) | length in words (8) | format id (20) | low 32 bits of p
//   word 1  ticks (Trace::Clock)
//   then one word per numeric argument and per static text (its id in the format table), and
//   for a text argument a word holding its byte length (at most kMaxTextBytes) followed by the
//   bytes packed into words.
// The header is written last, with release order, and carries the record's own position, so
// the decoder recognises a record only once it is complete and tells a live header from a
// stale one left by the previous lap of the ring. Words are in the writer's byte order;
// FileHeader::byteOrder lets a decoder on another machine say so instead of misreading.
namespace Trace::layout {

inline constexpr char kMagic[8] = {'M', 'A', 'R', 'L', 'F', 'L', 'O', 'G'};
// Version 2 added static texts (their table entries and argument kind); a version 1 file is a
// version 2 file without them, so the decoder reads both.
inline constexpr std::uint32_t kVersion = 2;
inline constexpr std::uint32_t kOldestReadableVersion = 1;
inline constexpr std::uint32_t kByteOrderMark = 0x01020304;
inline constexpr std::size_t kHeaderBytes = 4096;
inline constexpr std::size_t kAgentNameBytes = 64;

inline constexpr std::uint64_t kMinRingWords = 512;
inline constexpr std::uint64_t kMaxRingWords = std::uint64_t{1} << 31;
inline constexpr std::uint64_t kMinFormatBytes = 4096;
inline constexpr std::uint64_t kMaxFormatBytes = std::uint64_t{1} << 28;

// Format id 0 marks a call site (or static text) that is not recorded; the highest id marks a
// clock anchor record (ticks, then wall-clock nanoseconds as its one argument word).
inline constexpr std::uint32_t kFormatIdBits = 20;
inline constexpr std::uint32_t kUnrecordedFormat = 0;
inline constexpr std::uint32_t kClockFormat = (1u << kFormatIdBits) - 1;
inline constexpr std::uint32_t kMaxFormatId = kClockFormat - 1;

inline constexpr std::uint64_t kRecordMagic = 0xA;
inline constexpr std::uint64_t kMaxRecordWords = 255;
inline constexpr std::uint64_t kClockRecordWords = 3;

struct FileHeader {
  char magic[8];
  std::uint32_t version;
  std::uint32_t byteOrder;
  std::uint64_t fileBytes;
  std::uint64_t formatOffset;
  std::uint64_t formatBytes;
  std::uint64_t ringOffset;
  std::uint64_t ringWords;
  std::uint64_t formatUsed;  // bytes of complete entries; written with release order
  std::uint64_t cursor;      // words reserved so far (absolute); advanced by writers
  std::uint64_t anchorTicks;
  std::int64_t anchorRealtimeNs;
  double ticksPerSecond;
  std::uint64_t pid;
  char agent[kAgentNameBytes];
};
static_assert(sizeof(FileHeader) <= kHeaderBytes);
static_assert(alignof(FileHeader) == 8);

constexpr std::uint64_t recordHeader(std::uint64_t position, std::uint64_t words,
                                     std::uint32_t formatId) noexcept {
  return (kRecordMagic << 60) | (words << 52) | (std::uint64_t{formatId} << 32) |
         (position & 0xffffffffu);
}
constexpr std::uint64_t headerMagic(std::uint64_t header) noexcept {
  return header >> 60;
}
constexpr std::uint64_t headerWords(std::uint64_t header) noexcept {
  return (header >> 52) & 0xff;
}
constexpr std::uint32_t headerFormat(std::uint64_t header) noexcept {
  return static_cast<std::uint32_t>((header >> 32) & ((1u << kFormatIdBits) - 1));
}
constexpr std::uint64_t headerPosition(std::uint64_t header) noexcept {
  return header & 0xffffffffu;
}

// Words a text argument of the given byte length occupies, its length word included.
constexpr std::uint64_t textWords(std::uint64_t bytes) noexcept {
  return 1 + (bytes + 7) / 8;
}

}  // namespace Trace::layout

namespace Trace {

// A Flashlog file could not be decoded: not a Flashlog file, truncated, or corrupt. what()
// names the file and what is wrong with it.
class FlashlogError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace Trace
