#include "agent/FoundRows.h"

#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace VplsAgent {
namespace {

using DbLink::Fields;

std::vector<DbLink::RedisReply> flat(Fields const& fields) {
  std::vector<DbLink::RedisReply> out;
  for (auto const& [field, value] : fields) {
    for (auto const* text : {&field, &value}) {
      DbLink::RedisReply reply;
      reply.kind = DbLink::RedisReply::Kind::string;
      reply.text = *text;
      out.push_back(reply);
    }
  }
  return out;
}

std::string keyOf(int n) {
  return "T|" + std::to_string(n);
}

// Enough rows to grow the index several times and fill several arena chunks (one row larger
// than a chunk), looked up and taken back.
TEST(FoundRows, HoldsEveryRowOnceAndTakesEachByKey) {
  constexpr int kRows = 20000;
  FoundRows rows;
  std::string const large(3 << 20, 'x');
  for (int n = kRows - 1; n >= 0; --n) {
    Fields const fields{{"a", std::to_string(n)}, {"b", n == 7 ? large : ""}};
    rows.add(keyOf(n), flat(fields));
    rows.add(keyOf(n), flat({{"a", "again"}}));  // a key that SCAN returned twice
  }
  rows.add("U|1", flat({{"a", "1"}}));  // another table
  ASSERT_EQ(rows.size(), std::size_t{kRows + 1});

  std::vector<std::string> order;
  std::vector<std::string> tablesAsked;
  rows.forEachInKeyOrder(
      [&](std::string_view key, Fields const& fields) {
        order.emplace_back(key);
        EXPECT_EQ(fields.front().second, key.substr(2));
      },
      [&](std::string_view table) {
        tablesAsked.emplace_back(table);
        return table == "T";
      });
  EXPECT_EQ(tablesAsked, (std::vector<std::string>{"T", "U"}));
  EXPECT_EQ(order.size(), std::size_t{kRows});
  EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));

  struct Case {
    std::string key;
    Fields fields;
    FoundRows::Found found;
  };
  for (auto const& c : std::vector<Case>{
           {keyOf(5), {{"a", "5"}, {"b", ""}}, FoundRows::Found::same},
           {keyOf(5), {{"a", "5"}, {"b", ""}}, FoundRows::Found::absent},  // taken already
           {keyOf(6), {{"b", ""}, {"a", "6"}}, FoundRows::Found::same},    // another order
           {keyOf(7), {{"a", "7"}, {"b", large}}, FoundRows::Found::same},
           {keyOf(8), {{"a", "8"}}, FoundRows::Found::different},
           {keyOf(9), {{"a", "9"}, {"b", "y"}}, FoundRows::Found::different},
           {keyOf(10), {{"a", "10"}, {"b", ""}, {"c", ""}}, FoundRows::Found::different},
           {keyOf(kRows), {}, FoundRows::Found::absent},
       }) {
    EXPECT_EQ(rows.take(c.key, c.fields), c.found) << c.key;
  }
  std::size_t left = 0;
  rows.forEachLeft([&](std::string_view key) {
    EXPECT_NE(key, keyOf(5));
    ++left;
  });
  EXPECT_EQ(left, std::size_t{kRows + 1 - 6});
}

}  // namespace
}  // namespace VplsAgent
