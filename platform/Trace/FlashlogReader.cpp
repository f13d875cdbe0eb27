#include "Trace/FlashlogReader.h"

#include <errno.h>
#include <time.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <span>
#include <system_error>

#include "Trace/ArgKind.h"
#include "Trace/FlashlogLayout.h"

namespace Trace {
namespace {

using layout::FileHeader;

struct Anchor {
  std::uint64_t ticks;
  std::int64_t realtimeNs;
};

// The format table: the formats of call sites and the static texts records refer to.
struct Table {
  std::map<FormatId, Format> formats;
  std::map<std::uint64_t, std::string> staticTexts;
};

struct Decoded {
  std::uint64_t ticks;
  Format const* format;
  std::string text;
};

class Decoder {
 public:
  Decoder(std::string const& bytes, std::string name) : bytes_(bytes), name_(std::move(name)) {}

  [[noreturn]] void fail(std::string const& what) const {
    throw FlashlogError(name_ + ": " + what);
  }

  FileHeader header() const {
    if (bytes_.size() < sizeof layout::kMagic ||
        std::memcmp(bytes_.data(), layout::kMagic, sizeof layout::kMagic) != 0) {
      fail("not a flashlog file (it does not start with the MARLFLOG signature)");
    }
    if (bytes_.size() < layout::kHeaderBytes) {
      fail("truncated: " + std::to_string(bytes_.size()) +
           " bytes, less than the 4096-byte header");
    }
    FileHeader h;
    std::memcpy(&h, bytes_.data(), sizeof h);
    if (h.byteOrder != layout::kByteOrderMark) {
      fail("written by a machine of the other byte order");
    }
    if (h.version < layout::kOldestReadableVersion || h.version > layout::kVersion) {
      fail("flashlog version " + std::to_string(h.version) + " (this decoder reads versions " +
           std::to_string(layout::kOldestReadableVersion) + " to " +
           std::to_string(layout::kVersion) + ")");
    }
    bool const layoutOk =
        h.formatOffset == layout::kHeaderBytes && h.formatBytes % 8 == 0 &&
        h.formatBytes >= layout::kMinFormatBytes && h.formatBytes <= layout::kMaxFormatBytes &&
        h.ringOffset == h.formatOffset + h.formatBytes && std::has_single_bit(h.ringWords) &&
        h.ringWords >= layout::kMinRingWords && h.ringWords <= layout::kMaxRingWords &&
        h.fileBytes == h.ringOffset + h.ringWords * 8;
    if (!layoutOk) {
      fail("corrupt header: its table and ring sizes do not describe a flashlog");
    }
    if (bytes_.size() < h.fileBytes) {
      fail("truncated: the header describes " + std::to_string(h.fileBytes) +
           " bytes but the file has " + std::to_string(bytes_.size()));
    }
    if (bytes_.size() > h.fileBytes) {
      fail("corrupt: the file has " + std::to_string(bytes_.size()) + " bytes, more than the " +
           std::to_string(h.fileBytes) + " its header describes");
    }
    if (h.formatUsed > h.formatBytes || h.formatUsed % 8 != 0) {
      fail("corrupt header: format table use " + std::to_string(h.formatUsed) +
           " does not fit its " + std::to_string(h.formatBytes) + " bytes");
    }
    if (!std::isfinite(h.ticksPerSecond) || h.ticksPerSecond < 1) {
      fail("corrupt header: clock rate is not a number of ticks per second");
    }
    return h;
  }

  Table readTable(FileHeader const& h) const {
    Table result;
    std::span<char const> const entries(bytes_.data() + h.formatOffset, h.formatUsed);
    std::size_t at = 0;
    while (at < entries.size()) {
      DecodedFormatEntry entry;
      try {
        entry = decodeFormatEntry(entries.subspan(at));
      } catch (FlashlogError const& e) {
        fail("corrupt format table entry at byte " + std::to_string(h.formatOffset + at) + ": " +
             e.what());
      }
      if (result.formats.contains(entry.id) || result.staticTexts.contains(entry.id)) {
        fail("corrupt format table: format id " + std::to_string(entry.id) + " appears twice");
      }
      if (entry.staticText) {
        result.staticTexts.emplace(entry.id, std::move(*entry.staticText));
      } else {
        result.formats.emplace(entry.id, std::move(entry.format));
      }
      at += entry.entryBytes;
    }
    return result;
  }

  void setRing(FileHeader const& h) {
    ringBase_ = h.ringOffset;
    mask_ = h.ringWords - 1;
  }

  std::uint64_t word(std::uint64_t position) const {
    std::uint64_t w;
    std::memcpy(&w, bytes_.data() + ringBase_ + (position & mask_) * 8, sizeof w);
    return w;
  }

  // Appends the record's text; false when its words do not match its format.
  bool decodeRecord(std::uint64_t position, std::uint64_t words, Format const& format,
                    Table const& table, std::string& text) const {
    std::uint64_t at = position + 2;
    std::uint64_t const end = position + words;
    for (FormatElement const& e : format.elements) {
      if (e.kind == ArgKind::kFragment) {
        text += e.text;
        continue;
      }
      if (at >= end) {
        return false;
      }
      std::uint64_t const raw = word(at++);
      if (e.kind == ArgKind::kText) {
        if (raw > kMaxTextBytes || layout::textWords(raw) - 1 > end - at) {
          return false;
        }
        for (std::uint64_t i = 0; i < raw; i += 8) {
          std::uint64_t const w = word(at++);
          char chunk[8];
          std::memcpy(chunk, &w, sizeof chunk);
          text.append(chunk, std::min<std::uint64_t>(8, raw - i));
        }
      } else if (e.kind == ArgKind::kStaticText) {
        auto const found = table.staticTexts.find(raw);
        if (found == table.staticTexts.end()) {
          return false;
        }
        text += found->second;
      } else {
        if ((e.kind == ArgKind::kBool && raw > 1) ||
            (e.kind == ArgKind::kIntfId && raw > 0xffffffffu)) {
          return false;
        }
        appendNumeric(text, e.kind, raw);
      }
    }
    return at == end;
  }

 private:
  std::string const& bytes_;
  std::string name_;
  std::uint64_t ringBase_ = 0;
  std::uint64_t mask_ = 0;
};

// Wall-clock time of a tick count: linear between the anchors around it, and from the last
// anchor on with the calibrated rate. Computed in floating point and clamped, so that the
// anchors of a corrupt file give a wrong time, never an overflow.
std::int64_t toRealtime(std::vector<Anchor> const& anchors, double ticksPerSecond,
                        std::uint64_t ticks) {
  auto next = std::upper_bound(anchors.begin(), anchors.end(), ticks,
                               [](std::uint64_t t, Anchor const& a) { return t < a.ticks; });
  auto const base = next == anchors.begin() ? next : std::prev(next);
  double nsPerTick = 1e9 / ticksPerSecond;
  if (next != anchors.end() && next != base && next->ticks > base->ticks &&
      next->realtimeNs > base->realtimeNs) {
    nsPerTick = (static_cast<double>(next->realtimeNs) - static_cast<double>(base->realtimeNs)) /
                static_cast<double>(next->ticks - base->ticks);
  }
  auto const delta = static_cast<double>(static_cast<std::int64_t>(ticks - base->ticks));
  double const ns = static_cast<double>(base->realtimeNs) + delta * nsPerTick;
  constexpr double kLimit = 9.2e18;  // just inside the range of std::int64_t
  if (std::isnan(ns)) {
    return 0;
  }
  return static_cast<std::int64_t>(std::clamp(ns, -kLimit, kLimit));
}

}  // namespace

FlashlogReader FlashlogReader::fromFile(std::filesystem::path const& path) {
  std::error_code ec;
  if (!std::filesystem::is_regular_file(path, ec)) {
    if (ec || !std::filesystem::exists(path, ec)) {
      throw FlashlogError(path.string() +
                          ": cannot read: " + (ec ? ec.message() : std::string("no such file")));
    }
    throw FlashlogError(path.string() + ": not a regular file");
  }
  std::ifstream in(path, std::ios::binary);
  if (!in.is_open()) {
    throw FlashlogError(path.string() + ": cannot open: " + std::system_category().message(errno));
  }
  std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  if (in.bad()) {
    throw FlashlogError(path.string() + ": cannot read: " + std::system_category().message(errno));
  }
  return FlashlogReader(bytes, path.string());
}

FlashlogReader::FlashlogReader(std::string const& bytes, std::string name) {
  Decoder decoder(bytes, std::move(name));
  FileHeader const h = decoder.header();
  Table const table = decoder.readTable(h);
  decoder.setRing(h);
  agent_.assign(h.agent, ::strnlen(h.agent, sizeof h.agent));
  pid_ = h.pid;

  std::vector<Anchor> anchors{{h.anchorTicks, h.anchorRealtimeNs}};
  std::vector<Decoded> decoded;
  std::uint64_t const end = h.cursor;
  std::uint64_t position = end > h.ringWords ? end - h.ringWords : 0;
  while (position < end) {
    std::uint64_t const w = decoder.word(position);
    std::uint64_t const words = layout::headerWords(w);
    if (layout::headerMagic(w) == layout::kRecordMagic &&
        layout::headerPosition(w) == (position & 0xffffffffu) && words >= 2 &&
        words <= end - position) {
      FormatId const id = layout::headerFormat(w);
      if (id == layout::kClockFormat && words == layout::kClockRecordWords) {
        anchors.push_back(
            {decoder.word(position + 1), static_cast<std::int64_t>(decoder.word(position + 2))});
        position += words;
        continue;
      }
      auto const format = table.formats.find(id);
      std::string text;
      if (format != table.formats.end() &&
          decoder.decodeRecord(position, words, format->second, table, text)) {
        decoded.push_back({decoder.word(position + 1), &format->second, std::move(text)});
        position += words;
        continue;
      }
    }
    ++skippedWords_;
    ++position;
  }

  std::stable_sort(anchors.begin(), anchors.end(),
                   [](Anchor const& a, Anchor const& b) { return a.ticks < b.ticks; });
  records_.reserve(decoded.size());
  for (Decoded& d : decoded) {
    records_.push_back({toRealtime(anchors, h.ticksPerSecond, d.ticks), d.format->facility,
                        d.format->level, std::move(d.text)});
  }
}

std::string FlashlogReader::timeText(std::int64_t timeNs) {
  std::int64_t seconds = timeNs / 1'000'000'000;
  std::int64_t rest = timeNs % 1'000'000'000;
  if (rest < 0) {
    rest += 1'000'000'000;
    --seconds;
  }
  auto const clock = static_cast<time_t>(seconds);
  tm utc{};
  if (::gmtime_r(&clock, &utc) == nullptr) {
    return std::string("@").append(std::to_string(timeNs));
  }
  char buf[96];
  std::snprintf(buf, sizeof buf, "%04d-%02d-%02dT%02d:%02d:%02d.%06dZ", utc.tm_year + 1900,
                utc.tm_mon + 1, utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec,
                static_cast<int>(rest / 1000));
  return buf;
}

std::string FlashlogReader::line(Record const& record) {
  return timeText(record.timeNs) + " " + record.facility + "/" + std::to_string(record.level) +
         " " + record.text;
}

}  // namespace Trace
