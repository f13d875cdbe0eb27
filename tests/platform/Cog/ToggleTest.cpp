#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "Cog/Toggle.h"
#include "tests/platform/Trace/TraceTestSupport.h"

namespace {

class ToggleTest : public ::testing::Test {
 protected:
  TraceTest::TempDir dir_;
  TraceTest::ScopedEnv env_{Cog::kToggleDirEnv, dir_.path().string()};
};

TEST_F(ToggleTest, FileDecidesOtherwiseTheDefault) {
  struct Case {
    char const* what;
    std::optional<std::string> content;  // nullopt: no file
    bool defaultValue;
    bool expected;
    char const* warning;  // "" when nothing must be said
  };
  Case const cases[] = {
      {"no file", std::nullopt, true, true, ""},
      {"no file, default off", std::nullopt, false, false, ""},
      {"name absent", R"({"Other": false})", true, true, ""},
      {"true", R"({"Feature": true})", false, true, ""},
      {"false", R"({"Feature": false, "Other": true})", true, false, ""},
      {"empty object", "{}", false, false, ""},
      {"bad JSON", R"({"Feature": tru)", false, false, "not valid JSON: "},
      {"empty file", "", true, true, "not valid JSON: "},
      {"not an object", R"([{"Feature": false}])", true, true,
       "expected a JSON object of toggle names, found a value of type array"},
      {"string value", R"({"Feature": "false"})", true, true,
       "toggle Feature has a value of type string, expected true or false"},
      {"number value", R"({"Feature": 0})", true, true,
       "toggle Feature has a value of type number, expected true or false"},
      {"wrong type elsewhere", R"({"Feature": false, "Other": 3})", true, false, ""},
  };
  for (Case const& c : cases) {
    std::filesystem::remove(dir_ / "Features.json");
    if (c.content) {
      TraceTest::writeFile(dir_ / "Features.json", *c.content);
    }
    TraceTest::StderrCapture err;
    bool const got = Cog::getToggleState("Feature", "Features.json", c.defaultValue);
    err.restore();
    EXPECT_EQ(got, c.expected) << c.what;
    std::string const said = err.text();
    if (*c.warning == '\0') {
      EXPECT_EQ(said, "") << c.what;
    } else {
      std::string const file = (dir_ / "Features.json").string();
      EXPECT_EQ(said.rfind("toggle file " + file + ": ", 0), 0u) << c.what << ": " << said;
      EXPECT_NE(said.find(c.warning), std::string::npos) << c.what << ": " << said;
      EXPECT_NE(said.find("using the default (" + std::string(c.defaultValue ? "true" : "false") +
                          ") for Feature\n"),
                std::string::npos)
          << c.what << ": " << said;
      EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 1) << c.what << ": " << said;
    }
  }
}

TEST_F(ToggleTest, UnusableFileNamesWarnAndGiveTheDefault) {
  std::filesystem::create_directory(dir_ / "Dir.json");
  for (auto const& [file, warning] :
       {std::pair{"Dir.json", "not a regular file"}, std::pair{"../x.json", "not a plain file"}}) {
    TraceTest::StderrCapture err;
    EXPECT_TRUE(Cog::getToggleState("Feature", file, true)) << file;
    err.restore();
    EXPECT_NE(err.text().find(warning), std::string::npos) << file << ": " << err.text();
  }
}

TEST(ToggleDir, ComesFromTheEnvironment) {
  {
    TraceTest::ScopedEnv env(Cog::kToggleDirEnv, std::nullopt);
    EXPECT_EQ(Cog::toggleDir(), "/etc/marl/toggles");
  }
  {
    TraceTest::ScopedEnv env(Cog::kToggleDirEnv, "/nonexistent/toggles");
    EXPECT_EQ(Cog::toggleDir(), "/nonexistent/toggles");
    TraceTest::StderrCapture err;
    EXPECT_FALSE(Cog::getToggleState("Feature", "Features.json", false));
    EXPECT_TRUE(Cog::getToggleState("Feature", "Features.json", true));
    err.restore();
    EXPECT_EQ(err.text(), "") << "an absent toggle directory is not a problem";
  }
}

}  // namespace
