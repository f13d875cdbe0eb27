#include "Statedb/SharedTableManager.h"

#include <mutex>
#include <utility>

#include "Loom/Errors.h"

namespace Statedb {
namespace {

// Every agent's manager in the process, by agent name.
struct Registry {
  std::mutex mutex;
  std::map<Loom::String, Loom::Ptr<SharedTableManager>> managers;
};

Registry& registry() {
  static Registry instance;
  return instance;
}

bool isCollection(Loom::AttributeInfo const& attribute) {
  return attribute.kind == Loom::AttributeKind::collection ||
         attribute.kind == Loom::AttributeKind::set;
}

}  // namespace

std::string_view toString(MountMode mode) noexcept {
  return mode == MountMode::readOnly ? "read-only" : "write";
}

MountError::MountError(std::string_view path, std::string_view typeName, MountMode mode,
                       std::string_view problem)
    : std::runtime_error("cannot mount '" + std::string(path) + "' as " + std::string(typeName) +
                         " (" + std::string(toString(mode)) + "): " + std::string(problem)),
      path_(path),
      typeName_(typeName),
      mode_(mode) {}

Loom::Ptr<SharedTableManager> SharedTableManager::forAgent(Loom::String const& entityManagerName) {
  if (entityManagerName.empty()) {
    throw std::invalid_argument("Statedb::SharedTableManager: the agent name is empty");
  }
  auto& reg = registry();
  std::lock_guard lock(reg.mutex);
  auto& manager = reg.managers[entityManagerName];
  if (!manager) {
    manager = Loom::make<SharedTableManager>(Key{}, entityManagerName);
  }
  return manager;
}

void SharedTableManager::resetAllForTest() {
  std::map<Loom::String, Loom::Ptr<SharedTableManager>> gone;
  {
    auto& reg = registry();
    std::lock_guard lock(reg.mutex);
    gone.swap(reg.managers);
  }
  // The managers and their tables go here, outside the lock.
}

Loom::TypeData const& SharedTableManager::type() {
  static Loom::TypeData const data(
      typeName,
      {
          {"agentName", Loom::AttributeKind::scalar, "Loom::String"},
          {"table", Loom::AttributeKind::collection, "Loom::Node"},
      },
      [](Loom::ArgList const& args) -> Loom::Ptr<Loom::Node> {
        Loom::requireArgCount(args, 1, typeName);
        return forAgent(Loom::argAt<Loom::String>(args, 0, typeName));
      },
      false);
  return data;
}

void SharedTableManager::tableIs(Loom::String const& path, Loom::Ptr<Loom::Node> table) {
  if (!table) {
    throw Loom::NullPointerArgumentError(typeName, "table");
  }
  auto& slot = tables_[path];
  if (slot.mode) {
    throw std::logic_error("Statedb::SharedTableManager: table '" + path.str() +
                           "' is mounted; unmount it before replacing it");
  }
  slot.entity = std::move(table);
}

Loom::Ptr<Loom::Node> SharedTableManager::table(Loom::String const& path) const {
  auto const it = tables_.find(path);
  return it == tables_.end() ? nullptr : it->second.entity;
}

Loom::Ptr<Loom::Node> SharedTableManager::mount(Loom::String const& path, std::string_view typeName,
                                                MountMode mode,
                                                std::vector<std::string> const& collections) {
  auto const* const type = Loom::TypeRegistry::instance().find(typeName);
  if (!type) {
    throw std::invalid_argument("unknown table type '" + std::string(typeName) + "' for '" +
                                path.str() + "'");
  }
  for (auto const& name : collections) {
    auto const* const attribute = type->attribute(name);
    if (!attribute || !isCollection(*attribute)) {
      throw MountError(path.view(), typeName, mode,
                       "'" + name + "' is not a collection of " + std::string(typeName));
    }
  }
  auto const existing = tables_.find(path);
  if (existing != tables_.end()) {
    Table& table = existing->second;
    auto const tableType = table.entity->typeData().name();
    if (tableType != typeName) {
      throw MountError(path.view(), typeName, mode,
                       "the table is of type " + std::string(tableType));
    }
    if (table.mode && *table.mode != mode) {
      throw MountError(
          path.view(), typeName, mode,
          "agent '" + agentName_.str() + "' has it mounted " + std::string(toString(*table.mode)));
    }
    table.mode = mode;
    return table.entity;
  }
  // Created before it is stored, so that a failing creation leaves no trace.
  Loom::Ptr<Loom::Node> entity;
  try {
    entity = type->create({});
  } catch (std::invalid_argument const& e) {
    throw std::invalid_argument("table type '" + std::string(typeName) + "' for '" + path.str() +
                                "' cannot be created: " + e.what());
  }
  tables_.emplace(path, Table{entity, mode});
  return entity;
}

void SharedTableManager::unmount(Loom::String const& path) {
  auto const it = tables_.find(path);
  if (it != tables_.end()) {
    it->second.mode.reset();
  }
}

bool SharedTableManager::mounted(Loom::String const& path) const {
  return mountMode(path).has_value();
}

std::optional<MountMode> SharedTableManager::mountMode(Loom::String const& path) const {
  auto const it = tables_.find(path);
  return it == tables_.end() ? std::nullopt : it->second.mode;
}

Loom::Ptr<Loom::Node> SharedTableManager::mountedEntity(Loom::String const& path) const {
  auto const it = tables_.find(path);
  return it == tables_.end() || !it->second.mode ? nullptr : it->second.entity;
}

std::vector<Loom::String> SharedTableManager::mountedPaths() const {
  std::vector<Loom::String> result;
  for (auto const& [path, table] : tables_) {
    if (table.mode) {
      result.push_back(path);
    }
  }
  return result;
}

namespace {
Loom::TypeRegistration const registration(SharedTableManager::type());
}

}  // namespace Statedb
