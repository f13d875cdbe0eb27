#include "bench/scale/OutputFloor.h"

#include <functional>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "Loom/Hash.h"

namespace Bench {
namespace {

using namespace Hardware::MarlTunnel;

// The hash floor's hasher: a key's own hash where it has one, std::hash for the enumerations,
// and the two fields of an EVEC profile key, which has neither.
struct KeyHash {
  template <class Key>
  std::size_t operator()(Key const& key) const noexcept {
    if constexpr (requires { key.hash(std::size_t{0}); }) {
      return key.hash(0);
    } else {
      return std::hash<Key>{}(key);
    }
  }
  std::size_t operator()(EvecProfileKey const& key) const noexcept {
    return Loom::hashValue(key.second(), Loom::hashValue(key.first()));
  }
};

// The hash floor's container of one output collection's rows: a set's keys, or a collection's
// keys and values.
template <class Row>
struct Hashed {
  void write(Row const& key) { rows.insert(key); }
  void erase(Row const& key) { rows.erase(key); }
  std::unordered_set<Row, KeyHash> rows;
};
template <class Key, class Value>
struct Hashed<std::pair<Key, Value>> {
  void write(std::pair<Key, Value> const& row) { rows.insert_or_assign(row.first, row.second); }
  void erase(std::pair<Key, Value> const& row) { rows.erase(row.first); }
  std::unordered_map<Key, Value, KeyHash> rows;
};

// `Entity`'s rows, written by `Write(entity, row)` and erased by `Erase(entity, row)`, and
// written into and erased from the hash floor's container by key.
template <class Entity, class Row, class Write, class Erase>
class Rows final : public OutputFloor::Table {
 public:
  Rows(std::vector<Row> rows, Write write, Erase erase)
      : rows_(std::move(rows)), write_(write), erase_(erase) {}

  std::size_t rows() const noexcept override { return rows_.size(); }
  void write() override {
    for (auto const& row : rows_) {
      write_(*entity_, row);
    }
  }
  void erase() override {
    for (auto const& row : rows_) {
      erase_(*entity_, row);
    }
  }
  void writeHashed() override {
    for (auto const& row : rows_) {
      hashed_.write(row);
    }
  }
  void eraseHashed() override {
    for (auto const& row : rows_) {
      hashed_.erase(row);
    }
  }

 private:
  std::vector<Row> rows_;
  Write write_;
  Erase erase_;
  Loom::Ptr<Entity> entity_ = Loom::make<Entity>();
  Hashed<Row> hashed_;
};

// The rows of a collection (key and value) or of a set (key).
template <class Collection>
auto rowsOf(Collection const& collection) {
  using Row = std::remove_cvref_t<decltype(*collection.begin())>;
  std::vector<std::conditional_t<
      std::is_const_v<typename Row::first_type>,
      std::pair<std::remove_const_t<typename Row::first_type>, typename Row::second_type>, Row>>
      rows;
  for (auto const& row : collection) {
    rows.emplace_back(row);
  }
  return rows;
}

template <class Entity, class Row, class Write, class Erase>
std::unique_ptr<OutputFloor::Table> table(std::vector<Row> rows, Write write, Erase erase) {
  return std::make_unique<Rows<Entity, Row, Write, Erase>>(std::move(rows), write, erase);
}

}  // namespace

OutputFloor::OutputFloor(Host::AgentHarness const& harness) {
  auto& h = harness;
  tables_.push_back(table<MplsDecapConfig>(
      rowsOf(h.mplsDecapConfig->config()),
      [](auto& e, auto const& r) { e.configIs(r.first, r.second); },
      [](auto& e, auto const& r) { e.configDel(r.first); }));
  tables_.push_back(table<Fab::HwVplsPwDecapStatus>(
      rowsOf(h.hwVplsPwDecapStatus()->decapStatus()),
      [](auto& e, auto const& r) { e.decapStatusIs(r.first, r.second); },
      [](auto& e, auto const& r) { e.decapStatusDel(r.first); }));
  tables_.push_back(table<EsemConfigVpls>(
      rowsOf(h.esemConfigVpls->esemConfig()),
      [](auto& e, auto const& r) { e.esemConfigIs(r.first, r.second); },
      [](auto& e, auto const& r) { e.esemConfigDel(r.first); }));
  tables_.push_back(table<Fab::LabelToPwIntfId>(
      rowsOf(h.decapLabelToPwIntfColl->labelToPwIntf()),
      [](auto& e, auto const& r) { e.labelToPwIntfIs(r.first, r.second); },
      [](auto& e, auto const& r) { e.labelToPwIntfDel(r.first); }));
  auto const& requests = h.lifProfileOrientationConfig->lpoRequest();
  tables_.push_back(table<LifProfileOrientationConfig>(
      std::vector<LifProfileOrientationKey>(requests.begin(), requests.end()),
      [](auto& e, auto const& key) { e.lpoRequestIs(key); },
      [](auto& e, auto const& key) { e.lpoRequestDel(key); }));
  tables_.push_back(table<LifProfileOrientationStatus>(
      rowsOf(h.lifProfileOrientationStatus->lpoResponse()),
      [](auto& e, auto const& r) { e.lpoResponseIs(r.first, r.second); },
      [](auto& e, auto const& r) { e.lpoResponseDel(r.first); }));
  tables_.push_back(table<Fab::VplsPwIntfAdditionalDataMap>(
      rowsOf(h.vplsPwIntfAdditionalDataMap->additionalDataMap()),
      [](auto& e, auto const& r) { e.additionalDataMapIs(r.first, r.second); },
      [](auto& e, auto const& r) { e.additionalDataMapDel(r.first); }));
  tables_.push_back(table<Fab::HwVplsPwStatus>(
      rowsOf(h.hwVplsPwStatus->encapAdditionalId()),
      [](auto& e, auto const& r) { e.encapAdditionalIdIs(r.first, r.second); },
      [](auto& e, auto const& r) { e.encapAdditionalIdDel(r.first); }));
  tables_.push_back(table<IntfToLifProfileOrientationKeyMap>(
      rowsOf(h.intfToLifProfileOrientationKeyMap->lifProfileOrientationKey()),
      [](auto& e, auto const& r) { e.lifProfileOrientationKeyIs(r.first, r.second); },
      [](auto& e, auto const& r) { e.lifProfileOrientationKeyDel(r.first); }));
  tables_.push_back(table<TagPopPushConfig>(
      rowsOf(h.tagPopPushConfig->app()), [](auto& e, auto const& r) { e.appIs(r.first, r.second); },
      [](auto& e, auto const& r) { e.appDel(r.first); }));
  tables_.push_back(table<EvecProfileRequestDir>(
      rowsOf(h.evecProfileRequestDir->evecProfileRequest()),
      [](auto& e, auto const& r) { e.evecProfileRequestIs(r.second); },
      [](auto& e, auto const& r) { e.evecProfileRequestDel(r.first); }));
}

OutputFloor::~OutputFloor() = default;

std::size_t OutputFloor::rows() const noexcept {
  std::size_t count = 0;
  for (auto const& t : tables_) {
    count += t->rows();
  }
  return count;
}

void OutputFloor::write() {
  for (auto const& t : tables_) {
    t->write();
  }
}

void OutputFloor::erase() {
  for (auto const& t : tables_) {
    t->erase();
  }
}

void OutputFloor::writeHashed() {
  for (auto const& t : tables_) {
    t->writeHashed();
  }
}

void OutputFloor::eraseHashed() {
  for (auto const& t : tables_) {
    t->eraseHashed();
  }
}

}  // namespace Bench
