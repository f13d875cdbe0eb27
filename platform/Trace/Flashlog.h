#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <span>
#include <string_view>

#include "Loom/Threading.h"
#include "Trace/Clock.h"
#include "Trace/FlashlogFormat.h"
#include "Trace/FlashlogLayout.h"

namespace Trace {

// The time stamp of records (see Trace::Clock): kCoarse, wall-clock time to the kernel tick
// and the cheapest; kCycles, sub-microsecond, for chasing timing, at several ns per record
// more on machines with a slow cycle counter.
enum class FlashlogClock : std::uint8_t { kCoarse, kCycles };

// MARL_FLASHLOG_CLOCK: "coarse" (the default) or "cycles"; another value is reported once on
// stderr and ignored.
FlashlogClock defaultFlashlogClock();

struct FlashlogOptions {
  std::size_t ringBytes = std::size_t{4} << 20;         // power of two, 4 KiB to 16 GiB
  std::size_t formatTableBytes = std::size_t{1} << 20;  // multiple of 8, 4 KiB to 256 MiB
  FlashlogClock clock = defaultFlashlogClock();
};

namespace detail {

// The ring records are written into, resolved once per file so that the recording path is a
// handful of plain stores. Rings are never unmapped, so a writer that loaded a ring just
// before another file was opened finishes its record safely.
struct Ring {
  std::uint64_t* words = nullptr;
  std::uint64_t mask = 0;
  std::uint64_t* cursor = nullptr;  // FileHeader::cursor inside the mapping
  unsigned anchorShift = 63;        // a clock anchor is written every 2^anchorShift words
  bool cycleClock = false;          // stamps are Clock::ticks(), else Clock::coarseNs()

  std::uint64_t now() const noexcept { return cycleClock ? Clock::ticks() : Clock::coarseNs(); }

  // Claims the next words. Like the framework's use counts, the cursor is advanced with an
  // atomic add only while the framework runs several threads; a plain add costs a fraction.
  std::uint64_t reserve(std::uint64_t words) const noexcept {
    std::atomic_ref<std::uint64_t> const c(*cursor);
    if (Loom::Threading::multiThreaded()) {
      return c.fetch_add(words, std::memory_order_relaxed);
    }
    std::uint64_t const at = c.load(std::memory_order_relaxed);
    c.store(at + words, std::memory_order_relaxed);
    return at;
  }
  void put(std::uint64_t position, std::uint64_t value) const noexcept {
    std::atomic_ref<std::uint64_t>(this->words[position & mask])
        .store(value, std::memory_order_relaxed);
  }
  // Publishes a record whose other words are written; see FlashlogLayout.h.
  void commit(std::uint64_t position, std::uint64_t length, FormatId id) const noexcept;
};

inline std::atomic<Ring const*> activeRing{nullptr};

// Opens the default file for this process on its first record (cold path).
Ring const& openRingOnFirstUse();
void writeClockAnchor(Ring const& ring) noexcept;

inline Ring const& ring() {
  Ring const* r = activeRing.load(std::memory_order_acquire);
  if (r != nullptr) [[likely]] {
    return *r;
  }
  return openRingOnFirstUse();
}

inline void Ring::commit(std::uint64_t position, std::uint64_t length, FormatId id) const noexcept {
  std::atomic_ref<std::uint64_t>(words[position & mask])
      .store(layout::recordHeader(position, length, id), std::memory_order_release);
  if ((position >> anchorShift) != ((position + length) >> anchorShift)) [[unlikely]] {
    writeClockAnchor(*this);
  }
}

}  // namespace detail

// The always-on binary trace of this process: a ring of records in a memory-mapped file, so
// that whatever was recorded survives an abort of the process and can be decoded by another
// (flashlog-cat, FlashlogReader). There is one Flashlog per process; the functions below act
// on it. It opens <dir>/<program name>.flashlog on the first record unless open() or
// openDefault() chose a file before. Opening a file moves an existing file of that name to
// "<name>.1", so the Flashlog of a crashed run survives the restart. When the file cannot be
// created, records go to an anonymous in-memory ring and a message on stderr says so.
// Threading: recording is lock-free and safe from any thread once the framework is switched
// to several threads (Loom::Threading), and from its one thread before; format registration
// and opening take an internal lock. Records made while another thread opens a new file land in
// the file that was current when the record started.
namespace Flashlog {

inline constexpr char kDirEnv[] = "MARL_FLASHLOG_DIR";
inline constexpr char kClockEnv[] = "MARL_FLASHLOG_CLOCK";
inline constexpr char kDefaultDir[] = "/tmp/flashlog";
inline constexpr char kFileSuffix[] = ".flashlog";

// Opens a new Flashlog file at path (creating its directory) and makes it current. Returns
// false when it fell back to memory. Throws std::invalid_argument for impossible options.
bool open(std::filesystem::path const& path, FlashlogOptions const& options = {});

// Opens <MARL_FLASHLOG_DIR or /tmp/flashlog>/<agentName>.flashlog.
bool openDefault(std::string_view agentName, FlashlogOptions const& options = {});
std::filesystem::path defaultPath(std::string_view agentName);

// Records into memory only (used when no file is wanted, e.g. short-lived tools).
void openInMemory(FlashlogOptions const& options = {});

// The current file; empty when recording to memory (or before the first record).
std::filesystem::path path();

// Writes a clock anchor and forces the file's pages to disk (msync), for a process that is
// about to abort. Safe to call at any time; does nothing before the first record.
void flush() noexcept;

// Registers a format and returns its id, stable for the life of the process. Registered
// formats are written into every file the process opens. Returns layout::kUnrecordedFormat
// once the id space is used up.
FormatId formatIs(Format const& format);

// Registers a text with static storage duration that records refer to by id (an argument of
// kind kStaticText; use Trace::staticText, which registers each text once) and returns the id,
// from the same sequence as format ids and with the same limits. The text is written into
// every file the process opens.
FormatId staticTextIs(std::string_view text);

// Records a message whose arguments are all text (the format's argument slots must be kText;
// missing texts record as empty, surplus ones are ignored).
void recordTexts(FormatId id, std::span<std::string_view const> texts);

}  // namespace Flashlog

}  // namespace Trace
