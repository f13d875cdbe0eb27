#pragma once

#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "Loom/Node.h"
#include "Loom/Ptr.h"
#include "Loom/String.h"
#include "Loom/TypeData.h"

namespace Statedb {

// How an agent mounts a shared table: to read it, or to write it.
enum class MountMode { readOnly, write };

// "read-only" or "write".
std::string_view toString(MountMode mode) noexcept;

// A mount that does not fit the table: another type than the table has, a mode that conflicts
// with the agent's current mount, or a declared collection the type does not have. what()
// names the path, the requested type and mode, and the problem.
class MountError : public std::runtime_error {
 public:
  MountError(std::string_view path, std::string_view typeName, MountMode mode,
             std::string_view problem);
  std::string const& path() const noexcept { return path_; }
  std::string const& typeName() const noexcept { return typeName_; }
  MountMode mode() const noexcept { return mode_; }

 private:
  std::string path_;
  std::string typeName_;
  MountMode mode_;
};

// One agent's mounts of the named shared-memory tables. The tables live in shared memory, not
// in the agent: there is one manager per agent name for the whole process, and it keeps its
// tables (and their contents) when the agent that mounted them is torn down and rebuilt, so a
// restarted agent finds the state it left.
//
// A table is created at its first mount, by type name through Loom::TypeRegistry, unless a
// test harness has stored one at that path before (tableIs). Later mounts of the path find the
// same entity. A mount names the table's type and, optionally, the collections the agent uses;
// both must fit the table.
//
// Invariants: a path holds at most one table, of one type, for the life of the manager; a
// mounted table is mounted in exactly one mode; unmounting keeps the table and its contents.
// Threading: forAgent() and resetAllForTest() may be called from any thread; everything else
// runs on the agent's scheduler thread and takes no locks.
class SharedTableManager : public Loom::Node {
  struct Key {
    explicit Key() = default;
  };

 public:
  static constexpr std::string_view typeName = "Statedb::SharedTableManager";

  // The one manager of the agent `entityManagerName` (Statedb::EntityManager::name()), created
  // on first request. std::invalid_argument for an empty name.
  static Loom::Ptr<SharedTableManager> forAgent(Loom::String const& entityManagerName);
  // Forgets every agent's manager and tables, as if the shared memory had been wiped.
  static void resetAllForTest();

  SharedTableManager(Key, Loom::String agentName) : agentName_(std::move(agentName)) {}

  static Loom::TypeData const& type();
  Loom::TypeData const& typeData() const override { return type(); }

  Loom::String const& agentName() const noexcept { return agentName_; }

  // Stores `table` at `path` as if another agent had created it; the next mount of the path
  // finds it (and checks that the mount's type name is the table's). std::logic_error while
  // the path is mounted; Loom::NullPointerArgumentError for a null table.
  void tableIs(Loom::String const& path, Loom::Ptr<Loom::Node> table);
  // The table at `path`, mounted or not; null when there is none.
  Loom::Ptr<Loom::Node> table(Loom::String const& path) const;

  // Mounts the table at `path` in `mode` and returns it. The first mount of a path creates the
  // table by type name (std::invalid_argument "unknown table type '<name>' for '<path>'" when
  // no such type is registered). MountError when the path holds a table of another type, when
  // the path is already mounted in the other mode, or when one of `collections` is not a
  // collection of the type. Mounting again in the same mode returns the same table.
  Loom::Ptr<Loom::Node> mount(Loom::String const& path, std::string_view typeName, MountMode mode,
                              std::vector<std::string> const& collections = {});
  // Ends the mount of `path`; the table and its contents stay. Nothing happens when the path
  // is not mounted.
  void unmount(Loom::String const& path);

  bool mounted(Loom::String const& path) const;
  // The mode of the mount of `path`, none when it is not mounted.
  std::optional<MountMode> mountMode(Loom::String const& path) const;
  // The mounted table at `path`; null when the path is not mounted.
  Loom::Ptr<Loom::Node> mountedEntity(Loom::String const& path) const;
  // The mounted table at `path` as a `T`; null when it is not mounted or is not a `T`.
  template <class T>
  Loom::Ptr<T> mountedEntity(Loom::String const& path) const {
    return Loom::dynamicPtrCast<T>(mountedEntity(path));
  }
  // Every mounted path, in ascending order.
  std::vector<Loom::String> mountedPaths() const;

 private:
  struct Table {
    Loom::Ptr<Loom::Node> entity;
    std::optional<MountMode> mode;  // set while mounted
  };

  Loom::String const agentName_;
  std::map<Loom::String, Table> tables_;
};

}  // namespace Statedb
