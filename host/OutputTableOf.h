#pragma once

#include <algorithm>
#include <array>
#include <string>
#include <utility>
#include <vector>

#include "host/OutputTable.h"

namespace Host {

// The cells of a row read back, in column order: key columns, then value columns.
using Cells = std::vector<Cell>;

// Every encoding of one output table, derived from its description `D`, which holds:
//   Entity, Key, Value               the entity and its element's types;
//   redisName, jsonName, jsonShape   the names and the JSON shape (JsonShape);
//   isSet                            elements are only present or absent: a row holds
//                                    "requested": "true", the JSON list the key columns only;
//   loadedAtStart                    see OutputTable;
//   keyColumns, valueColumns         std::arrays of Column<Key> and Column<Value>;
//   entity(harness)                  the entity, null while it is absent;
//   elements(entity)                 the entity's collection of (key, value) elements; or
//   forEach(entity, visit)           visits (key, value) of every element in key order, and
//   find(entity, key)                the value, or null (or none);
//   make(cells)                      the key and the value from decoded cells, and
//   store(harness, key, value)       writes an element read back;
//   notifies, Reactor<Note>          whether the entity notifies its keys, and then a reactor
//                                    on it that calls Note with each key notified;
//   takeChanged(harness)             for an entity that does not notify, the keys changed since
//                                    the last call, if it can tell (else its row is compared).
// A new field is a new column in its description; every encoding follows.
template <class D>
class OutputTableOf final : public OutputTable {
 public:
  using Key = typename D::Key;
  using Value = typename D::Value;

  std::string_view redisName() const override { return D::redisName; }
  std::string_view jsonName() const override { return D::jsonName; }
  JsonShape jsonShape() const override { return D::jsonShape; }
  bool loadedAtStart() const override { return D::loadedAtStart; }

  static std::string keyText(Key const& key) {
    std::string text(D::redisName);
    for (auto const& column : D::keyColumns) {
      text += '|';
      text += cellText(column.get(key));
    }
    return text;
  }

  static Fields fields(Value const& value) {
    Fields out;
    out.reserve(D::valueColumns.size());
    for (auto const& column : D::valueColumns) {
      out.emplace_back(column.name, cellText(column.get(value)));
    }
    return out;
  }

  static std::optional<Fields> rowFields(AgentHarness const& harness, Key const& key) {
    auto const* entity = D::entity(harness);
    if (entity == nullptr) {
      return std::nullopt;
    }
    auto const value = find(*entity, key);
    return value ? std::optional<Fields>(fields(*value)) : std::nullopt;
  }

  template <class F>
  static void forEach(typename D::Entity const& entity, F const& visit) {
    if constexpr (requires { D::elements(entity); }) {
      for (auto const& [key, value] : D::elements(entity)) {
        visit(key, value);
      }
    } else {
      D::forEach(entity, visit);
    }
  }

  static auto find(typename D::Entity const& entity, Key const& key) {
    if constexpr (requires { D::elements(entity); }) {
      return D::elements(entity).find(key);
    } else {
      return D::find(entity, key);
    }
  }

  void forEachRow(AgentHarness const& harness,
                  std::function<void(std::string&&, Fields&&)> const& visit) const override {
    if (auto const* entity = D::entity(harness)) {
      forEach(*entity,
              [&](Key const& key, Value const& value) { visit(keyText(key), fields(value)); });
    }
  }

  nlohmann::ordered_json json(AgentHarness const& harness) const override {
    using Json = nlohmann::ordered_json;
    Json out = D::jsonShape == JsonShape::list ? Json::array() : Json::object();
    auto const* entity = D::entity(harness);
    if (entity == nullptr) {
      return out;
    }
    forEach(*entity, [&](Key const& key, Value const& value) {
      Json values = Json::object();
      if constexpr (!D::isSet) {
        for (auto const& column : D::valueColumns) {
          values[std::string(column.name)] = cellJson(column.get(value));
        }
      }
      if constexpr (D::jsonShape == JsonShape::members) {
        out = std::move(values);
      } else if constexpr (D::jsonShape == JsonShape::map) {
        static_assert(D::keyColumns.size() == 1);
        auto const name = cellText(D::keyColumns[0].get(key));
        if constexpr (D::valueColumns.size() == 1) {
          out[name] = std::move(values.begin().value());
        } else {
          out[name] = std::move(values);
        }
      } else {
        Json element = Json::object();
        for (auto const& column : D::keyColumns) {
          element[std::string(column.name)] = cellJson(column.get(key));
        }
        element.update(values);
        out.push_back(std::move(element));
      }
    });
    return out;
  }

  void load(AgentHarness& harness, std::string_view key, Fields const& row) const override {
    std::vector<std::string_view> segments;
    for (std::size_t begin = 0;;) {
      auto const end = key.find('|', begin);
      segments.push_back(key.substr(begin, end - begin));
      if (end == std::string_view::npos) {
        break;
      }
      begin = end + 1;
    }
    if (segments.size() != D::keyColumns.size() + 1) {
      throw BadRow("expected " + std::to_string(D::keyColumns.size() + 1) +
                   " key segments, found " + std::to_string(segments.size()));
    }
    Cells cells;
    for (std::size_t i = 0; i < D::keyColumns.size(); ++i) {
      auto const& column = D::keyColumns[i];
      cells.push_back(readCell(column.kind, column.max, segments[i + 1],
                               "key segment " + std::to_string(i + 1)));
    }
    if constexpr (!D::isSet) {
      for (auto const& column : D::valueColumns) {
        auto const field = std::find_if(row.begin(), row.end(),
                                        [&](auto const& f) { return f.first == column.name; });
        if (field == row.end()) {
          throw BadRow("field " + std::string(column.name) + " is missing");
        }
        cells.push_back(
            readCell(column.kind, column.max, field->second, "field " + std::string(column.name)));
      }
    }
    auto const [k, v] = D::make(cells);
    D::store(harness, k, v);
  }

  std::unique_ptr<TableWatch> watch(AgentHarness& harness) const override {
    if constexpr (D::notifies) {
      return std::make_unique<Watch>(harness);
    } else if constexpr (requires { D::takeChanged(harness); }) {
      return std::make_unique<ChangeWatch>(harness);
    } else {
      return nullptr;
    }
  }

 private:
  class Watch final : public TableWatch {
   public:
    explicit Watch(AgentHarness& harness)
        : harness_(harness), reactor_([this](Key const& key) { keys_.push_back(key); }) {
      D::entity(harness_)->publisher().subscribe(reactor_);
    }
    ~Watch() override { D::entity(harness_)->publisher().unsubscribe(reactor_); }

    void take(std::vector<RowUpdate>& rows) override {
      std::sort(keys_.begin(), keys_.end());
      keys_.erase(std::unique(keys_.begin(), keys_.end()), keys_.end());
      for (auto const& key : keys_) {
        rows.push_back(RowUpdate{keyText(key), rowFields(harness_, key)});
      }
      keys_.clear();
    }
    void forget() override { keys_.clear(); }

   private:
    AgentHarness& harness_;
    std::vector<Key> keys_;
    typename D::template Reactor<std::function<void(Key const&)>> reactor_;
  };

  // The keys an entity that notifies nothing reports as changed when asked (the chip's).
  class ChangeWatch final : public TableWatch {
   public:
    explicit ChangeWatch(AgentHarness& harness) : harness_(harness) {}
    void take(std::vector<RowUpdate>& rows) override {
      for (auto const& key : D::takeChanged(harness_)) {
        rows.push_back(RowUpdate{keyText(key), rowFields(harness_, key)});
      }
    }
    void forget() override { D::takeChanged(harness_); }

   private:
    AgentHarness& harness_;
  };
};

}  // namespace Host
