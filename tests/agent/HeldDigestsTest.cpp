#include "agent/HeldDigests.h"

#include <map>
#include <optional>
#include <random>
#include <string>

#include <gtest/gtest.h>

namespace VplsAgent {
namespace {

using DbLink::Fields;

// Random rows written and deleted over a few thousand keys, enough to grow the table and to
// delete amid probe chains, against a map of what the database would hold.
TEST(HeldDigests, SaysExactlyWhichWritesChangeWhatTheDatabaseHolds) {
  std::mt19937 rng(7);
  HeldDigests held;
  std::map<std::string, Fields> database;
  for (int step = 0; step < 200000; ++step) {
    auto const key = "K|" + std::to_string(rng() % 4000);
    std::optional<Fields> row;
    if (rng() % 3 != 0) {
      row = Fields{{"a", std::to_string(rng() % 3)}, {"b", ""}};
    }
    auto const found = database.find(key);
    bool const changes =
        row ? found == database.end() || found->second != *row : found != database.end();
    ASSERT_EQ(held.changes(key, row ? &*row : nullptr), changes) << "step " << step;
    if (row) {
      database[key] = *row;
    } else if (found != database.end()) {
      database.erase(found);
    }
    ASSERT_EQ(held.size(), database.size());
  }
  held.clear();
  Fields const row{{"a", "0"}, {"b", ""}};
  EXPECT_TRUE(held.changes("K|1", &row));
  held.hold("K|2", &row);
  EXPECT_FALSE(held.changes("K|2", &row));
}

}  // namespace
}  // namespace VplsAgent
