#include "Hardware/AradIhpLifTable.h"

#include <stdexcept>
#include <string>

namespace Hardware::Marl {

Loom::Ptr<AradIhpLifTable> AradIhpLifTable::AradIhpLifTableIs() {
  return Loom::make<AradIhpLifTable>();
}

Loom::TypeData const& AradIhpLifTable::type() {
  static Loom::TypeData const data(
      typeName, {{"lifEntry", Loom::AttributeKind::collection, "Hardware::Marl::AradIhpLifEntry"}},
      [](Loom::ArgList const& args) -> Loom::Ptr<Loom::Node> {
        Loom::requireArgCount(args, 0, typeName);
        return AradIhpLifTableIs();
      });
  return data;
}

AradIhpLifEntry AradIhpLifTable::lifEntry(std::uint32_t lifIndex) const {
  return rows_.valueOr(lifIndex, AradIhpLifEntry{});
}

void AradIhpLifTable::lifEntryIs(std::uint32_t lifIndex, AradIhpLifEntry const& entry) {
  if (lifIndex > kMaxLifIndex) {
    throw std::out_of_range("AradIhpLifTable: LIF index " + std::to_string(lifIndex) +
                            " above 0x1ffff");
  }
  rows_.set(lifIndex, entry);
}

void AradIhpLifTable::lifEntryDel(std::uint32_t lifIndex) {
  rows_.erase(lifIndex);
}

namespace {
Loom::TypeRegistration const registration(AradIhpLifTable::type());
}

}  // namespace Hardware::Marl
