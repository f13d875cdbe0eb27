#pragma once

#include <any>
#include <cstddef>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "Loom/Ptr.h"

namespace Loom {

enum class AttributeKind {
  scalar,      // x() / xIs(v)
  collection,  // x(key) / xHas / xIs(key, v) / xDel / xDelAll
  set,         // xHas / xIs(key) / xDel / xDelAll
  reference,   // a counted reference to another node
};

struct AttributeInfo {
  std::string_view name;
  AttributeKind kind;
  std::string_view typeName;  // the value (or mapped value) type's name
};

// Untyped argument list of the construct-by-type-name hook. Each element holds exactly the type
// of the corresponding constructor argument (entities as Loom::Ptr<T> or Loom::Ptr<T const>).
using ArgList = std::vector<std::any>;

// Run-time description of a framework type: its fully qualified name, its attributes by name in
// declaration order, whether it may be hashed, and for node types the hook that creates an
// instance from an untyped argument list. Instances are static and live for the process.
class TypeData {
 public:
  using Factory = std::function<Ptr<Node>(ArgList const&)>;

  TypeData(std::string_view name, std::vector<AttributeInfo> attributes, Factory factory = {},
           bool hashable = true);

  std::string_view name() const noexcept { return name_; }
  std::vector<AttributeInfo> const& attributes() const noexcept { return attributes_; }
  AttributeInfo const* attribute(std::string_view name) const noexcept;
  bool hashable() const noexcept { return hashable_; }
  bool constructible() const noexcept { return static_cast<bool>(factory_); }

  // Creates an instance from `args`; std::invalid_argument when the type has no hook or the
  // arguments do not fit.
  Ptr<Node> create(ArgList const& args) const;

 private:
  std::string_view name_;
  std::vector<AttributeInfo> attributes_;
  Factory factory_;
  bool hashable_;
};

// Every framework type known to the process, by name. Types add themselves through a static
// `TypeRegistration` in their source file; lookups happen after static initialisation.
class TypeRegistry {
 public:
  static TypeRegistry& instance();

  void add(TypeData const& type);
  TypeData const* find(std::string_view name) const;
  std::vector<std::string_view> names() const;

  // Creates an instance of the named type; std::invalid_argument for an unknown name.
  Ptr<Node> create(std::string_view name, ArgList const& args) const;

 private:
  std::map<std::string_view, TypeData const*, std::less<>> types_;
};

struct TypeRegistration {
  explicit TypeRegistration(TypeData const& type) { TypeRegistry::instance().add(type); }
};

// Takes argument `index` of a construct-by-name call as a `T`, or explains which one is wrong.
template <class T>
T const& argAt(ArgList const& args, std::size_t index, std::string_view typeName) {
  if (index >= args.size()) {
    throw std::invalid_argument(std::string(typeName) + ": argument " + std::to_string(index) +
                                " missing");
  }
  if (auto const* value = std::any_cast<T>(&args[index])) {
    return *value;
  }
  throw std::invalid_argument(std::string(typeName) + ": argument " + std::to_string(index) +
                              " has the wrong type");
}

// Checks the argument count of a construct-by-name call.
void requireArgCount(ArgList const& args, std::size_t count, std::string_view typeName);

}  // namespace Loom
