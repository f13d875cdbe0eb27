#pragma once

#include <charconv>
#include <concepts>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>
#include <type_traits>

#include "Loom/BoundedString.h"
#include "Loom/Errors.h"
#include "Loom/RangeError.h"
#include "Loom/String.h"

namespace Loom {

// The generic text form of value records:
//
//   TypeName(attr1=value1, attr2=value2, ...)
//
// A record opens with its fully qualified type name and "(", separates attributes with ", ",
// and closes with ")". Each attribute is written as its name, "=", and its value:
//   unsigned and signed integers in decimal; bools as true / false;
//   strings in double quotes, with \" \\ \n \t and \xHH (two hex digits) for other bytes
//     below 0x20 or at 0x7f and above;
//   nested records in their own text form;
//   other value types as their codec says (an interface id is a quoted name, a label a number).
// Decoding reads the attributes in declaration order, names included, and requires that the
// whole input is consumed. Every failure raises DeserializationError naming the attribute.
class TextWriter;
class TextReader;

// How one attribute type is written and read. Specialised for framework value types.
template <class T>
struct TextCodec;

template <class T>
concept TextRecord = requires(T const& v, TextWriter& w, TextReader& r) {
  { T::typeName } -> std::convertible_to<std::string_view>;
  v.writeText(w);
  { T::readText(r) } -> std::same_as<T>;
};

class TextWriter {
 public:
  void beginRecord(std::string_view typeName);
  void endRecord();

  template <class T>
  TextWriter& field(std::string_view name, T const& value) {
    attributeName(name);
    TextCodec<T>::write(*this, value);
    return *this;
  }

  // Value writers used by codecs.
  void writeUnsigned(std::uint64_t v);
  void writeSigned(std::int64_t v);
  void writeBool(bool v);
  void writeQuoted(std::string_view text);
  void writeRaw(std::string_view text) { out_ += text; }

  std::string const& text() const noexcept { return out_; }
  std::string take() { return std::move(out_); }

 private:
  void attributeName(std::string_view name);

  std::string out_;
  bool first_ = true;
};

class TextReader {
 public:
  explicit TextReader(std::string_view text) : text_(text) {}

  // Expects "TypeName(".
  void beginRecord(std::string_view typeName);
  // Expects ")".
  void endRecord();
  // Requires that nothing is left.
  void finish();

  // Reads the separator (except before the first attribute), the attribute's name and "=",
  // then the value. A RangeError from the value's own parser becomes DeserializationError.
  template <class T>
  T field(std::string_view name) {
    attributeName(name);
    try {
      return TextCodec<T>::read(*this, name);
    } catch (RangeError const& e) {
      throw DeserializationError(name, e.what());
    }
  }

  // Value readers used by codecs; `attr` names the attribute in errors.
  std::uint64_t readUnsigned(std::string_view attr, std::uint64_t max);
  std::int64_t readSigned(std::string_view attr, std::int64_t min, std::int64_t max);
  bool readBool(std::string_view attr);
  std::string readQuoted(std::string_view attr);
  // The characters up to the next ',' or ')' (not consumed), for types with their own parser.
  std::string_view readToken(std::string_view attr);

  std::size_t position() const noexcept { return pos_; }

 private:
  void attributeName(std::string_view name);
  void expect(std::string_view literal, std::string_view attr);

  std::string_view text_;
  std::size_t pos_ = 0;
  bool first_ = true;
};

template <std::unsigned_integral T>
requires(!std::same_as<T, bool>) struct TextCodec<T> {
  static void write(TextWriter& w, T v) { w.writeUnsigned(v); }
  static T read(TextReader& r, std::string_view attr) {
    return static_cast<T>(r.readUnsigned(attr, std::numeric_limits<T>::max()));
  }
};

template <std::signed_integral T>
struct TextCodec<T> {
  static void write(TextWriter& w, T v) { w.writeSigned(v); }
  static T read(TextReader& r, std::string_view attr) {
    return static_cast<T>(
        r.readSigned(attr, std::numeric_limits<T>::min(), std::numeric_limits<T>::max()));
  }
};

template <>
struct TextCodec<bool> {
  static void write(TextWriter& w, bool v) { w.writeBool(v); }
  static bool read(TextReader& r, std::string_view attr) { return r.readBool(attr); }
};

template <class E>
requires std::is_enum_v<E>
struct TextCodec<E> {
  using U = std::underlying_type_t<E>;
  static void write(TextWriter& w, E v) { TextCodec<U>::write(w, static_cast<U>(v)); }
  static E read(TextReader& r, std::string_view attr) {
    return static_cast<E>(TextCodec<U>::read(r, attr));
  }
};

template <>
struct TextCodec<String> {
  static void write(TextWriter& w, String const& v) { w.writeQuoted(v.view()); }
  static String read(TextReader& r, std::string_view attr) { return String(r.readQuoted(attr)); }
};

template <std::size_t N>
struct TextCodec<BoundedString<N>> {
  static void write(TextWriter& w, BoundedString<N> const& v) { w.writeQuoted(v.str()); }
  static BoundedString<N> read(TextReader& r, std::string_view attr) {
    return BoundedString<N>(String(r.readQuoted(attr)));
  }
};

template <TextRecord T>
struct TextCodec<T> {
  static void write(TextWriter& w, T const& v) {
    TextWriter nested;
    v.writeText(nested);
    w.writeRaw(nested.text());
  }
  static T read(TextReader& r, std::string_view) {
    // The nested record continues in the same input.
    return T::readText(r);
  }
};

// The text form of a value record.
template <TextRecord T>
std::string toText(T const& value) {
  TextWriter w;
  value.writeText(w);
  return w.take();
}

// The value record that `text` encodes; DeserializationError when it does not, including when
// characters follow the record.
template <TextRecord T>
T fromText(std::string_view text) {
  TextReader r(text);
  T value = T::readText(r);
  r.finish();
  return value;
}

}  // namespace Loom
