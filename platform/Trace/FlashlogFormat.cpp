#include "Trace/FlashlogFormat.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <stdexcept>

#include "Trace/FlashlogLayout.h"

namespace Trace {
namespace {

constexpr std::size_t kFixedBytes = 16;
constexpr std::size_t kMaxFacilityBytes = std::numeric_limits<std::uint16_t>::max();

enum class EntryType : std::uint8_t { kFormat = 0, kStaticText = 1 };

template <class T>
void put(std::string& out, T value) {
  char bytes[sizeof(T)];
  std::memcpy(bytes, &value, sizeof(T));
  out.append(bytes, sizeof(T));
}

// Reads fixed-width fields and byte strings from an entry, refusing to run past its end.
class EntryCursor {
 public:
  explicit EntryCursor(std::span<char const> bytes) : bytes_(bytes) {}

  template <class T>
  T take(char const* what) {
    need(sizeof(T), what);
    T value;
    std::memcpy(&value, bytes_.data() + at_, sizeof(T));
    at_ += sizeof(T);
    return value;
  }

  std::string takeText(std::size_t length, char const* what) {
    need(length, what);
    std::string text(bytes_.data() + at_, length);
    at_ += length;
    return text;
  }

  std::size_t at() const { return at_; }

 private:
  void need(std::size_t n, char const* what) const {
    if (bytes_.size() - at_ < n) {
      throw FlashlogError(std::string("entry ends inside its ") + what);
    }
  }

  std::span<char const> bytes_;
  std::size_t at_ = 0;
};

// The fixed fields of an entry; the entry bytes are filled in by finishEntry.
std::string startEntry(FormatId id, int level, EntryType type, std::size_t facilityBytes,
                       std::size_t count) {
  std::string out;
  put<std::uint32_t>(out, 0);
  put<std::uint32_t>(out, id);
  put<std::uint8_t>(out, static_cast<std::uint8_t>(std::clamp(level, 0, 255)));
  put<std::uint8_t>(out, static_cast<std::uint8_t>(type));
  put<std::uint16_t>(out, static_cast<std::uint16_t>(facilityBytes));
  put<std::uint32_t>(out, static_cast<std::uint32_t>(count));
  return out;
}

std::string finishEntry(std::string out) {
  out.resize((out.size() + 7) / 8 * 8, '\0');
  if (out.size() > std::numeric_limits<std::uint32_t>::max()) {
    throw std::invalid_argument("trace format-table entry too large for the format table");
  }
  auto const size = static_cast<std::uint32_t>(out.size());
  std::memcpy(out.data(), &size, sizeof size);
  return out;
}

}  // namespace

std::size_t Format::argCount() const {
  return static_cast<std::size_t>(std::count_if(
      elements.begin(), elements.end(), [](auto& e) { return e.kind != ArgKind::kFragment; }));
}

std::string encodeFormatEntry(FormatId id, Format const& format) {
  if (format.facility.size() > kMaxFacilityBytes) {
    throw std::invalid_argument("trace facility name longer than 65535 bytes");
  }
  std::string out = startEntry(id, format.level, EntryType::kFormat, format.facility.size(),
                               format.elements.size());
  out += format.facility;
  for (FormatElement const& e : format.elements) {
    put<std::uint8_t>(out, static_cast<std::uint8_t>(e.kind));
    if (e.kind == ArgKind::kFragment) {
      put<std::uint32_t>(out, static_cast<std::uint32_t>(e.text.size()));
      out += e.text;
    }
  }
  return finishEntry(std::move(out));
}

std::string encodeStaticTextEntry(FormatId id, std::string_view text) {
  if (text.size() > std::numeric_limits<std::uint32_t>::max()) {
    throw std::invalid_argument("static trace text longer than 4 GiB");
  }
  std::string out = startEntry(id, 0, EntryType::kStaticText, 0, text.size());
  out += text;
  return finishEntry(std::move(out));
}

DecodedFormatEntry decodeFormatEntry(std::span<char const> bytes) {
  EntryCursor in(bytes);
  DecodedFormatEntry entry;
  auto const entryBytes = in.take<std::uint32_t>("size field");
  if (entryBytes < kFixedBytes || entryBytes % 8 != 0 || entryBytes > bytes.size()) {
    throw FlashlogError("entry size " + std::to_string(entryBytes) +
                        " is not a multiple of 8 between 16 and the " +
                        std::to_string(bytes.size()) + " bytes left in the table");
  }
  EntryCursor body(bytes.first(entryBytes));
  body.take<std::uint32_t>("size field");
  entry.entryBytes = entryBytes;
  entry.id = body.take<std::uint32_t>("format id");
  if (entry.id == layout::kUnrecordedFormat || entry.id > layout::kMaxFormatId) {
    throw FlashlogError("format id " + std::to_string(entry.id) + " is out of range");
  }
  entry.format.level = body.take<std::uint8_t>("level");
  auto const type = body.take<std::uint8_t>("entry type");
  auto const facilityBytes = body.take<std::uint16_t>("facility length");
  auto const elementCount = body.take<std::uint32_t>("element count");
  if (type == static_cast<std::uint8_t>(EntryType::kStaticText)) {
    entry.staticText = body.takeText(elementCount, "static text");
    return entry;
  }
  if (type != static_cast<std::uint8_t>(EntryType::kFormat)) {
    throw FlashlogError("entry has unknown type " + std::to_string(type));
  }
  entry.format.facility = body.takeText(facilityBytes, "facility name");
  for (std::uint32_t i = 0; i < elementCount; ++i) {
    auto const kind = body.take<std::uint8_t>("element kind");
    if (!isValidArgKind(kind)) {
      throw FlashlogError("element " + std::to_string(i) + " has unknown kind " +
                          std::to_string(kind));
    }
    FormatElement element{static_cast<ArgKind>(kind), {}};
    if (element.kind == ArgKind::kFragment) {
      auto const length = body.take<std::uint32_t>("fragment length");
      element.text = body.takeText(length, "fragment text");
    }
    entry.format.elements.push_back(std::move(element));
  }
  return entry;
}

}  // namespace Trace
