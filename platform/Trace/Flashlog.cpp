#include "Trace/Flashlog.h"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "Loom/Immortal.h"
#include "Trace/Clock.h"
#include "Trace/FlashlogRecord.h"

namespace Trace {
namespace {

using layout::FileHeader;

// One mapped Flashlog (file or anonymous memory). Never unmapped: a writer may still be
// inside a record of a ring that has just been replaced.
struct Mapping {
  std::byte* base = nullptr;
  std::size_t bytes = 0;
  std::filesystem::path path;  // empty for memory
  std::size_t formatBytes = 0;
  bool tableFullReported = false;
  detail::Ring ring;

  FileHeader* header() const { return reinterpret_cast<FileHeader*>(base); }
  std::uint64_t& formatUsed() const { return header()->formatUsed; }
  std::byte* formatTable() const { return base + layout::kHeaderBytes; }
};

struct State {
  std::mutex mutex;
  std::vector<std::string> formats;  // encoded entries (formats and static texts); [id - 1]
  std::vector<std::unique_ptr<Mapping>> mappings;
  bool idsExhaustedReported = false;
};

State& state() {
  static Loom::Immortal<State> s;
  return s.get();
}

// The current mapping, for flush(), which must not wait for the lock (it runs on the way to
// an abort).
std::atomic<Mapping const*> activeMapping{nullptr};

void warn(std::string const& text) {
  std::string const line = "flashlog: " + text + "\n";
  [[maybe_unused]] auto const n = ::write(STDERR_FILENO, line.data(), line.size());
}

std::string errnoText(int error) {
  return std::system_category().message(error);
}

void validate(FlashlogOptions const& o) {
  std::uint64_t const ringWords = o.ringBytes / 8;
  if (o.ringBytes % 8 != 0 || !std::has_single_bit(ringWords) ||
      ringWords < layout::kMinRingWords || ringWords > layout::kMaxRingWords) {
    throw std::invalid_argument("flashlog ring size " + std::to_string(o.ringBytes) +
                                " bytes is not a power of two from 4 KiB to 16 GiB");
  }
  if (o.formatTableBytes % 8 != 0 || o.formatTableBytes < layout::kMinFormatBytes ||
      o.formatTableBytes > layout::kMaxFormatBytes) {
    throw std::invalid_argument("flashlog format table size " + std::to_string(o.formatTableBytes) +
                                " bytes is not a multiple of 8 from 4 KiB to 256 MiB");
  }
}

std::size_t totalBytes(FlashlogOptions const& o) {
  return layout::kHeaderBytes + o.formatTableBytes + o.ringBytes;
}

void validateAgentName(std::string_view name) {
  if (name.empty() || name == "." || name == ".." || name.find('/') != std::string_view::npos ||
      name.find('\0') != std::string_view::npos) {
    throw std::invalid_argument("flashlog agent name '" + std::string(name) +
                                "' is not a plain file name");
  }
}

// Creates the file under a temporary name, sizes and maps it, then moves any previous file to
// "<path>.1" and renames the new one into place. A file of that name that another process
// still has mapped is never truncated under it. Returns null and sets problem on failure.
std::unique_ptr<Mapping> mapFile(std::filesystem::path const& path, std::size_t bytes,
                                 std::string& problem) {
  std::error_code ec;
  if (path.has_parent_path()) {
    std::filesystem::create_directories(path.parent_path(), ec);
    if (ec) {
      problem = "cannot create directory " + path.parent_path().string() + ": " + ec.message();
      return nullptr;
    }
  }
  std::string tempName = path.string() + ".XXXXXX";
  int const fd = ::mkostemp(tempName.data(), O_CLOEXEC);
  if (fd < 0) {
    problem = "cannot create " + tempName + ": " + errnoText(errno);
    return nullptr;
  }
  auto fail = [&](std::string what, int error) {
    problem = what + ": " + errnoText(error);
    ::close(fd);
    ::unlink(tempName.c_str());
    return nullptr;
  };
  ::fchmod(fd, 0644);
  // Reserve the blocks now: a sparse file on a full disk would kill the process with SIGBUS
  // on some later record.
  if (int const rc = ::posix_fallocate(fd, 0, static_cast<off_t>(bytes)); rc != 0) {
    return fail("cannot reserve " + std::to_string(bytes) + " bytes for " + path.string(), rc);
  }
  void* const base = ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  if (base == MAP_FAILED) {
    return fail("cannot map " + path.string(), errno);
  }
  if (::access(path.c_str(), F_OK) == 0) {
    std::string const previous = path.string() + ".1";
    ::rename(path.c_str(), previous.c_str());
  }
  if (::rename(tempName.c_str(), path.c_str()) != 0) {
    int const error = errno;
    ::munmap(base, bytes);
    return fail("cannot rename " + tempName + " to " + path.string(), error);
  }
  ::close(fd);
  auto mapping = std::make_unique<Mapping>();
  mapping->base = static_cast<std::byte*>(base);
  mapping->bytes = bytes;
  mapping->path = path;
  return mapping;
}

std::unique_ptr<Mapping> mapMemory(std::size_t bytes) {
  void* const base =
      ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (base == MAP_FAILED) {
    throw std::system_error(errno, std::system_category(),
                            "flashlog: cannot allocate " + std::to_string(bytes) + " bytes");
  }
  auto mapping = std::make_unique<Mapping>();
  mapping->base = static_cast<std::byte*>(base);
  mapping->bytes = bytes;
  return mapping;
}

void appendFormat(Mapping& m, std::string const& entry) {
  std::uint64_t const used = m.formatUsed();
  if (used + entry.size() > m.formatBytes) {
    if (!m.tableFullReported) {
      m.tableFullReported = true;
      warn("the format table of " +
           (m.path.empty() ? std::string("the memory ring") : m.path.string()) +
           " is full; records of call sites registered from now on cannot be decoded");
    }
    return;
  }
  std::memcpy(m.formatTable() + used, entry.data(), entry.size());
  std::atomic_ref<std::uint64_t>(m.formatUsed())
      .store(used + entry.size(), std::memory_order_release);
}

void initialise(Mapping& m, FlashlogOptions const& o, std::string_view agentName,
                std::vector<std::string> const& formats) {
  FileHeader h{};
  std::memcpy(h.magic, layout::kMagic, sizeof h.magic);
  h.version = layout::kVersion;
  h.byteOrder = layout::kByteOrderMark;
  h.fileBytes = m.bytes;
  h.formatOffset = layout::kHeaderBytes;
  h.formatBytes = o.formatTableBytes;
  h.ringOffset = layout::kHeaderBytes + o.formatTableBytes;
  h.ringWords = o.ringBytes / 8;
  bool const cycles = o.clock == FlashlogClock::kCycles;
  // Coarse stamps are wall-clock nanoseconds: the anchor (0, 0) at one tick per nanosecond
  // makes the decoder's conversion the identity.
  h.ticksPerSecond = cycles ? Clock::ticksPerSecond() : 1e9;
  h.anchorTicks = cycles ? Clock::ticks() : 0;
  h.anchorRealtimeNs = cycles ? Clock::realtimeNs() : 0;
  h.pid = static_cast<std::uint64_t>(::getpid());
  std::size_t const nameBytes = std::min(agentName.size(), sizeof h.agent - 1);
  std::memcpy(h.agent, agentName.data(), nameBytes);
  std::memcpy(m.base, &h, sizeof h);

  m.formatBytes = o.formatTableBytes;
  m.ring.words = reinterpret_cast<std::uint64_t*>(m.base + h.ringOffset);
  m.ring.mask = h.ringWords - 1;
  m.ring.cursor = &m.header()->cursor;
  m.ring.cycleClock = cycles;
  // About eight anchors per lap of the ring, at most one per 128 KiB of records.
  m.ring.anchorShift =
      cycles ? std::min(14u, static_cast<unsigned>(std::countr_zero(h.ringWords)) - 3) : 63;
  for (std::string const& entry : formats) {
    appendFormat(m, entry);
  }
}

void install(State& s, std::unique_ptr<Mapping> mapping) {
  Mapping* const m = mapping.get();
  s.mappings.push_back(std::move(mapping));
  activeMapping.store(m, std::memory_order_release);
  detail::activeRing.store(&m->ring, std::memory_order_release);
}

bool openLocked(State& s, std::filesystem::path const& path, FlashlogOptions const& options) {
  validate(options);
  std::string problem;
  auto mapping = mapFile(path, totalBytes(options), problem);
  bool const fileBacked = mapping != nullptr;
  if (!fileBacked) {
    warn(problem + "; recording to memory only");
    mapping = mapMemory(totalBytes(options));
  }
  initialise(*mapping, options, path.stem().string(), s.formats);
  install(s, std::move(mapping));
  return fileBacked;
}

// Registers the entry that encode makes for the next id: kept for the files opened later and
// appended to the current one.
template <class Encode>
FormatId entryIs(Encode const& encode) {
  State& s = state();
  std::lock_guard lock(s.mutex);
  if (s.formats.size() >= layout::kMaxFormatId) {
    if (!s.idsExhaustedReported) {
      s.idsExhaustedReported = true;
      warn("more than " + std::to_string(layout::kMaxFormatId) +
           " trace call sites and static texts; the further ones are not recorded");
    }
    return layout::kUnrecordedFormat;
  }
  auto const id = static_cast<FormatId>(s.formats.size() + 1);
  s.formats.push_back(encode(id));
  if (!s.mappings.empty()) {
    appendFormat(*s.mappings.back(), s.formats.back());
  }
  return id;
}

std::string programName() {
  std::string name = program_invocation_short_name;
  return name.empty() || name == "." || name == ".." ? std::string("agent") : name;
}

}  // namespace

namespace detail {

Ring const& openRingOnFirstUse() {
  State& s = state();
  std::lock_guard lock(s.mutex);
  if (Ring const* r = activeRing.load(std::memory_order_acquire)) {
    return *r;
  }
  try {
    openLocked(s, Flashlog::defaultPath(programName()), FlashlogOptions{});
    return *activeRing.load(std::memory_order_acquire);
  } catch (std::exception const& e) {
    // Not even memory for a ring: tracing must still not fail the caller, so records go to a
    // small static ring that nobody reads.
    warn(std::string(e.what()) + "; records are discarded");
    static std::array<std::uint64_t, layout::kMinRingWords> words{};
    static std::uint64_t cursor = 0;
    static Ring const discard{words.data(), words.size() - 1, &cursor, 63, false};
    activeRing.store(&discard, std::memory_order_release);
    return discard;
  }
}

void writeClockAnchor(Ring const& ring) noexcept {
  if (!ring.cycleClock) {
    return;  // coarse stamps are wall-clock time already
  }
  std::uint64_t const position = ring.reserve(layout::kClockRecordWords);
  ring.put(position + 1, Clock::ticks());
  ring.put(position + 2, static_cast<std::uint64_t>(Clock::realtimeNs()));
  std::atomic_ref<std::uint64_t>(ring.words[position & ring.mask])
      .store(layout::recordHeader(position, layout::kClockRecordWords, layout::kClockFormat),
             std::memory_order_release);
}

}  // namespace detail

FlashlogClock defaultFlashlogClock() {
  static FlashlogClock const clock = [] {
    char const* const env = std::getenv(Flashlog::kClockEnv);
    std::string_view const value = env != nullptr ? env : "";
    if (value == "cycles") {
      return FlashlogClock::kCycles;
    }
    if (!value.empty() && value != "coarse") {
      warn(std::string(Flashlog::kClockEnv) + ": '" + std::string(value) +
           "' is neither coarse nor cycles; using coarse");
    }
    return FlashlogClock::kCoarse;
  }();
  return clock;
}

namespace Flashlog {

bool open(std::filesystem::path const& path, FlashlogOptions const& options) {
  if (path.empty() || !path.has_filename()) {
    throw std::invalid_argument("flashlog path '" + path.string() + "' names no file");
  }
  State& s = state();
  std::lock_guard lock(s.mutex);
  return openLocked(s, path, options);
}

std::filesystem::path defaultPath(std::string_view agentName) {
  validateAgentName(agentName);
  char const* const dir = std::getenv(kDirEnv);
  std::filesystem::path base = dir != nullptr && *dir != '\0' ? dir : kDefaultDir;
  return base / (std::string(agentName) + kFileSuffix);
}

bool openDefault(std::string_view agentName, FlashlogOptions const& options) {
  return open(defaultPath(agentName), options);
}

void openInMemory(FlashlogOptions const& options) {
  validate(options);
  State& s = state();
  std::lock_guard lock(s.mutex);
  auto mapping = mapMemory(totalBytes(options));
  initialise(*mapping, options, programName(), s.formats);
  install(s, std::move(mapping));
}

std::filesystem::path path() {
  State& s = state();
  std::lock_guard lock(s.mutex);
  return s.mappings.empty() ? std::filesystem::path() : s.mappings.back()->path;
}

void flush() noexcept {
  Mapping const* const m = activeMapping.load(std::memory_order_acquire);
  if (m == nullptr) {
    return;
  }
  detail::writeClockAnchor(m->ring);
  if (!m->path.empty()) {
    ::msync(m->base, m->bytes, MS_SYNC);
  }
}

FormatId formatIs(Format const& format) {
  return entryIs([&format](FormatId id) { return encodeFormatEntry(id, format); });
}

FormatId staticTextIs(std::string_view text) {
  return entryIs([text](FormatId id) { return encodeStaticTextEntry(id, text); });
}

void recordTexts(FormatId id, std::span<std::string_view const> texts) {
  if (id == layout::kUnrecordedFormat) {
    return;
  }
  std::uint64_t words = 2;
  for (std::string_view t : texts) {
    words += layout::textWords(std::min(t.size(), kMaxTextBytes));
  }
  if (words > layout::kMaxRecordWords) {
    return;
  }
  detail::Ring const& r = detail::ring();
  std::uint64_t const position = r.reserve(words);
  std::uint64_t at = position + 1;
  r.put(at++, r.now());
  for (std::string_view t : texts) {
    detail::putText(r, at, t);
  }
  r.commit(position, words, id);
}

}  // namespace Flashlog

}  // namespace Trace
