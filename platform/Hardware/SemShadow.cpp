#include "Hardware/SemShadow.h"

#include <bit>

namespace Hardware::Marl {

Loom::Ptr<SemShadow> SemShadow::SemShadowIs() {
  return Loom::make<SemShadow>();
}

Loom::TypeData const& SemShadow::type() {
  static Loom::TypeData const data(
      typeName,
      {
          {"vplsDecap", Loom::AttributeKind::collection, "Hardware::Marl::SemShadow::Entry"},
          {"mplsDecap", Loom::AttributeKind::collection, "Hardware::Marl::SemShadow::Entry"},
      },
      [](Loom::ArgList const& args) -> Loom::Ptr<Loom::Node> {
        Loom::requireArgCount(args, 0, typeName);
        return SemShadowIs();
      });
  return data;
}

void SemShadow::entryIs(Table table, std::uint64_t key, FapMask fapMask, Payload payload) {
  (table == Table::vplsDecap ? vplsDecap_ : mplsDecap_)[key] = Entry{fapMask, payload};
}

void SemShadow::entryDel(Table table, std::uint64_t key) {
  (table == Table::vplsDecap ? vplsDecap_ : mplsDecap_).erase(key);
}

std::map<std::uint64_t, SemShadow::Entry> const& SemShadow::entries(Table table) const {
  return table == Table::vplsDecap ? vplsDecap_ : mplsDecap_;
}

unsigned SemShadow::firstFap(FapMask mask) noexcept {
  return static_cast<unsigned>(std::countr_zero(mask));
}

SemExactMatchIterator::SemExactMatchIterator(SemShadow const& shadow, SemShadow::Table table)
    : it_(shadow.entries(table).begin()), end_(shadow.entries(table).end()) {}

SemShadow::Payload SemTableReader::payload(unsigned fap, std::uint64_t key) const {
  if (!shadow_) {
    return SemShadow::kEmptyPayload;
  }
  auto const& entries = shadow_->entries(table_);
  auto const it = entries.find(key);
  if (it == entries.end()) {
    return SemShadow::kEmptyPayload;
  }
  bool const installed = fap < 64 && (it->second.fapMask >> fap & 1) != 0;
  return installed ? it->second.payload : SemShadow::kEmptyPayload;
}

namespace {
Loom::TypeRegistration const registration(SemShadow::type());
}

}  // namespace Hardware::Marl
