// Framework errors: hashing refusals, null arguments, construct-by-name failures.

#include <gtest/gtest.h>

#include <any>
#include <stdexcept>
#include <string>

#include "Fab/HwVplsPwDecapConfig.h"
#include "Loom/Errors.h"
#include "Loom/Hash.h"
#include "Loom/TypeData.h"

namespace {

struct Opaque {
  static constexpr bool hashable = false;
  static constexpr std::string_view typeName = "Test::Opaque";
};

TEST(LoomErrors, HashingATypeThatIsNotHashableRaisesNotHashableError) {
  try {
    (void)Loom::hashValue(Opaque{});
    ADD_FAILURE() << "hashed";
  } catch (Loom::NotHashableError const& e) {
    EXPECT_STREQ(e.what(), "Test::Opaque is not hashable");
  }
  EXPECT_THROW((void)Loom::Hasher<Opaque>{}(Opaque{}), std::logic_error);
}

TEST(LoomErrors, NullPointerArgumentErrorNamesTypeAndAttribute) {
  Loom::NullPointerArgumentError const e("Fab::HwVplsPwDecapConfig", "owner");
  EXPECT_STREQ(e.what(), "null pointer argument to Fab::HwVplsPwDecapConfig::ownerIs not allowed");
  EXPECT_EQ(e.attribute(), "owner");
  EXPECT_TRUE((std::is_base_of_v<std::invalid_argument, Loom::NullPointerArgumentError>));
}

std::string invalidArgumentText(auto&& action) {
  try {
    action();
  } catch (std::invalid_argument const& e) {
    return e.what();
  }
  return "no error";
}

TEST(LoomErrors, ConstructByNameExplainsWhatIsWrong) {
  auto const& registry = Loom::TypeRegistry::instance();
  EXPECT_EQ(invalidArgumentText([&] { registry.create("Fab::NoSuchThing", {}); }),
            "unknown type name 'Fab::NoSuchThing'");
  EXPECT_EQ(registry.find("Fab::NoSuchThing"), nullptr);

  auto const node = registry.create("Fab::HwVplsPwDecapConfig", {});
  ASSERT_TRUE(Loom::dynamicPtrCast<Fab::HwVplsPwDecapConfig>(node));
  EXPECT_EQ(node->typeData().name(), "Fab::HwVplsPwDecapConfig");
  EXPECT_EQ(invalidArgumentText([&] { registry.create("Fab::HwVplsPwDecapConfig", {1}); }),
            "Fab::HwVplsPwDecapConfig: expected 0 arguments, got 1");
  Loom::TypeData const noHook("Test::NoHook", {});
  EXPECT_EQ(invalidArgumentText([&] { noHook.create({}); }),
            "Test::NoHook cannot be created by type name");

  Loom::ArgList const args{std::any(7), std::any(std::string("x"))};
  EXPECT_EQ(Loom::argAt<int>(args, 0, "Test::Thing"), 7);
  EXPECT_EQ(Loom::argAt<std::string>(args, 1, "Test::Thing"), "x");
  EXPECT_EQ(invalidArgumentText([&] { Loom::argAt<std::string>(args, 0, "Test::Thing"); }),
            "Test::Thing: argument 0 has the wrong type");
  EXPECT_EQ(invalidArgumentText([&] { Loom::argAt<long>(args, 0, "Test::Thing"); }),
            "Test::Thing: argument 0 has the wrong type");
  EXPECT_EQ(invalidArgumentText([&] { Loom::argAt<int>(args, 2, "Test::Thing"); }),
            "Test::Thing: argument 2 missing");
}

}  // namespace
