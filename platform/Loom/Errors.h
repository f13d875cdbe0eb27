#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

namespace Loom {

// A mutator was handed a null reference where the attribute needs a node.
class NullPointerArgumentError : public std::invalid_argument {
 public:
  NullPointerArgumentError(std::string_view typeName, std::string_view attribute)
      : std::invalid_argument("null pointer argument to " + std::string(typeName) +
                              "::" + std::string(attribute) + "Is not allowed"),
        attribute_(attribute) {}
  std::string const& attribute() const noexcept { return attribute_; }

 private:
  std::string attribute_;
};

// The text form of a value could not be turned back into the value. Names the attribute that
// failed ("" when the record's header or trailer is wrong) and why.
class DeserializationError : public std::runtime_error {
 public:
  DeserializationError(std::string_view attribute, std::string_view problem)
      : std::runtime_error("cannot deserialise attribute '" + std::string(attribute) +
                           "': " + std::string(problem)),
        attribute_(attribute) {}
  std::string const& attribute() const noexcept { return attribute_; }

 private:
  std::string attribute_;
};

// The framework was asked for the hash of a type that declares itself not hashable.
class NotHashableError : public std::logic_error {
 public:
  explicit NotHashableError(std::string_view typeName)
      : std::logic_error(std::string(typeName) + " is not hashable") {}
};

}  // namespace Loom
