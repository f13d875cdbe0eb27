#include "Loom/TextForm.h"

#include <cstdio>

namespace Loom {
namespace {

constexpr std::string_view kSeparator = ", ";

int hexDigit(char c) {
  if (c >= '0' && c <= '9')
    return c - '0';
  if (c >= 'a' && c <= 'f')
    return c - 'a' + 10;
  if (c >= 'A' && c <= 'F')
    return c - 'A' + 10;
  return -1;
}

}  // namespace

void TextWriter::beginRecord(std::string_view typeName) {
  out_ += typeName;
  out_ += '(';
  first_ = true;
}

void TextWriter::endRecord() {
  out_ += ')';
  first_ = false;
}

void TextWriter::attributeName(std::string_view name) {
  if (!first_) {
    out_ += kSeparator;
  }
  first_ = false;
  out_ += name;
  out_ += '=';
}

void TextWriter::writeUnsigned(std::uint64_t v) {
  out_ += std::to_string(v);
}
void TextWriter::writeSigned(std::int64_t v) {
  out_ += std::to_string(v);
}
void TextWriter::writeBool(bool v) {
  out_ += v ? "true" : "false";
}

void TextWriter::writeQuoted(std::string_view text) {
  out_ += '"';
  for (char const c : text) {
    auto const byte = static_cast<unsigned char>(c);
    switch (c) {
      case '"':
        out_ += "\\\"";
        break;
      case '\\':
        out_ += "\\\\";
        break;
      case '\n':
        out_ += "\\n";
        break;
      case '\t':
        out_ += "\\t";
        break;
      default:
        if (byte < 0x20 || byte >= 0x7f) {
          char buf[5];
          std::snprintf(buf, sizeof buf, "\\x%02x", byte);
          out_ += buf;
        } else {
          out_ += c;
        }
    }
  }
  out_ += '"';
}

void TextReader::expect(std::string_view literal, std::string_view attr) {
  if (text_.substr(pos_, literal.size()) != literal) {
    throw DeserializationError(
        attr, "expected \"" + std::string(literal) + "\" at offset " + std::to_string(pos_));
  }
  pos_ += literal.size();
}

void TextReader::beginRecord(std::string_view typeName) {
  expect(typeName, "");
  expect("(", "");
  first_ = true;
}

void TextReader::endRecord() {
  expect(")", "");
  first_ = false;
}

void TextReader::finish() {
  if (pos_ != text_.size()) {
    throw DeserializationError("", "trailing characters at offset " + std::to_string(pos_));
  }
}

void TextReader::attributeName(std::string_view name) {
  if (!first_) {
    expect(kSeparator, name);
  }
  first_ = false;
  expect(name, name);
  expect("=", name);
}

std::uint64_t TextReader::readUnsigned(std::string_view attr, std::uint64_t max) {
  std::uint64_t value = 0;
  auto const* begin = text_.data() + pos_;
  auto const* end = text_.data() + text_.size();
  auto const [ptr, ec] = std::from_chars(begin, end, value);
  if (ec == std::errc::result_out_of_range || (ec == std::errc() && value > max)) {
    throw DeserializationError(attr, "value out of range (max " + std::to_string(max) + ")");
  }
  if (ec != std::errc() || ptr == begin) {
    throw DeserializationError(attr,
                               "expected an unsigned number at offset " + std::to_string(pos_));
  }
  pos_ += static_cast<std::size_t>(ptr - begin);
  return value;
}

std::int64_t TextReader::readSigned(std::string_view attr, std::int64_t min, std::int64_t max) {
  std::int64_t value = 0;
  auto const* begin = text_.data() + pos_;
  auto const* end = text_.data() + text_.size();
  auto const [ptr, ec] = std::from_chars(begin, end, value);
  if (ec == std::errc::result_out_of_range || (ec == std::errc() && (value < min || value > max))) {
    throw DeserializationError(attr, "value out of range");
  }
  if (ec != std::errc() || ptr == begin) {
    throw DeserializationError(attr, "expected a number at offset " + std::to_string(pos_));
  }
  pos_ += static_cast<std::size_t>(ptr - begin);
  return value;
}

bool TextReader::readBool(std::string_view attr) {
  if (text_.substr(pos_, 4) == "true") {
    pos_ += 4;
    return true;
  }
  if (text_.substr(pos_, 5) == "false") {
    pos_ += 5;
    return false;
  }
  throw DeserializationError(attr, "expected true or false at offset " + std::to_string(pos_));
}

std::string TextReader::readQuoted(std::string_view attr) {
  expect("\"", attr);
  std::string out;
  while (pos_ < text_.size()) {
    char const c = text_[pos_++];
    if (c == '"') {
      return out;
    }
    if (c != '\\') {
      out += c;
      continue;
    }
    if (pos_ >= text_.size()) {
      break;
    }
    char const e = text_[pos_++];
    switch (e) {
      case '"':
        out += '"';
        break;
      case '\\':
        out += '\\';
        break;
      case 'n':
        out += '\n';
        break;
      case 't':
        out += '\t';
        break;
      case 'x': {
        int const hi = pos_ < text_.size() ? hexDigit(text_[pos_]) : -1;
        int const lo = pos_ + 1 < text_.size() ? hexDigit(text_[pos_ + 1]) : -1;
        if (hi < 0 || lo < 0) {
          throw DeserializationError(attr, "bad \\x escape at offset " + std::to_string(pos_));
        }
        out += static_cast<char>(hi * 16 + lo);
        pos_ += 2;
        break;
      }
      default:
        throw DeserializationError(attr, "unknown escape at offset " + std::to_string(pos_ - 1));
    }
  }
  throw DeserializationError(attr, "unterminated string");
}

std::string_view TextReader::readToken(std::string_view attr) {
  auto const start = pos_;
  while (pos_ < text_.size() && text_[pos_] != ',' && text_[pos_] != ')') {
    ++pos_;
  }
  if (pos_ == start) {
    throw DeserializationError(attr, "empty value at offset " + std::to_string(start));
  }
  return text_.substr(start, pos_ - start);
}

}  // namespace Loom
