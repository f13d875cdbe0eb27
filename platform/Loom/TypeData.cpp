#include "Loom/TypeData.h"

namespace Loom {

TypeData::TypeData(std::string_view name, std::vector<AttributeInfo> attributes, Factory factory,
                   bool hashable)
    : name_(name),
      attributes_(std::move(attributes)),
      factory_(std::move(factory)),
      hashable_(hashable) {}

AttributeInfo const* TypeData::attribute(std::string_view name) const noexcept {
  for (auto const& attr : attributes_) {
    if (attr.name == name) {
      return &attr;
    }
  }
  return nullptr;
}

Ptr<Node> TypeData::create(ArgList const& args) const {
  if (!factory_) {
    throw std::invalid_argument(std::string(name_) + " cannot be created by type name");
  }
  return factory_(args);
}

TypeRegistry& TypeRegistry::instance() {
  static TypeRegistry registry;
  return registry;
}

void TypeRegistry::add(TypeData const& type) {
  types_[type.name()] = &type;
}

TypeData const* TypeRegistry::find(std::string_view name) const {
  auto const it = types_.find(name);
  return it == types_.end() ? nullptr : it->second;
}

std::vector<std::string_view> TypeRegistry::names() const {
  std::vector<std::string_view> result;
  result.reserve(types_.size());
  for (auto const& [name, type] : types_) {
    result.push_back(name);
  }
  return result;
}

Ptr<Node> TypeRegistry::create(std::string_view name, ArgList const& args) const {
  auto const* type = find(name);
  if (!type) {
    throw std::invalid_argument("unknown type name '" + std::string(name) + "'");
  }
  return type->create(args);
}

void requireArgCount(ArgList const& args, std::size_t count, std::string_view typeName) {
  if (args.size() != count) {
    throw std::invalid_argument(std::string(typeName) + ": expected " + std::to_string(count) +
                                " arguments, got " + std::to_string(args.size()));
  }
}

}  // namespace Loom
