// Toggles from files that name them, leave them out, are missing or broken; where the folder is said to be.
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>
#include <unistd.h>

#include "Toggle/Toggle.h"
#include "Tovak/TraceSink.h"

namespace {

class ToggleState : public ::testing::Test {
protected:
  ToggleState() {
    folder_ = std::filesystem::temp_directory_path() / ("toggle-test-" + std::to_string(::getpid()));
    std::filesystem::create_directories(folder_);
    Toggle::toggleDirIs(folder_.string());
  }
  ~ToggleState() override {
    Toggle::toggleDirIs("");
    std::filesystem::remove_all(folder_);
  }
  void write(char const* file, char const* text) { std::ofstream(folder_ / file) << text; }

  std::filesystem::path folder_;
  Tovak::ScopedTraceSink sink_;
};

TEST_F(ToggleState, ReadsTheFileElseTheDefault) {
  write("T.json", R"({"On": true, "Off": false})");
  for (bool const defaultState : {false, true}) {
    EXPECT_TRUE(Toggle::getToggleState("On", "T.json", defaultState));
    EXPECT_FALSE(Toggle::getToggleState("Off", "T.json", defaultState));
    EXPECT_EQ(Toggle::getToggleState("Missing", "T.json", defaultState), defaultState);
    EXPECT_EQ(Toggle::getToggleState("On", "Missing.json", defaultState), defaultState);
  }
  EXPECT_TRUE(sink_.lines().empty());
}

TEST_F(ToggleState, BrokenFilesGiveTheDefaultAndOneWarning) {
  struct {
    char const* text;
    char const* warning;
  } const table[] = {
      {"", "parse error"},
      {"{\"On\": tru", "parse error"},
      {"[1, 2]", "expected a JSON object, got array"},
      {"{\"On\": \"yes\"}", "toggle \"On\": expected true or false, got \"yes\""},
  };
  for (auto const& row : table) {
    write("Broken.json", row.text);
    Toggle::toggleDirIs(folder_.string()); // forgets what was reported
    sink_.clear();
    for (bool const defaultState : {false, true})
      EXPECT_EQ(Toggle::getToggleState("On", "Broken.json", defaultState), defaultState) << row.text;
    EXPECT_EQ(sink_.lines().size(), 1u) << row.text;
    EXPECT_TRUE(sink_.contains("Broken.json is broken, using defaults: ")) << row.text;
    EXPECT_TRUE(sink_.contains(row.warning)) << row.text << ": " << sink_.lines().at(0);
  }
  std::filesystem::create_directory(folder_ / "Folder.json");
  EXPECT_TRUE(Toggle::getToggleState("On", "Folder.json", true));
  EXPECT_TRUE(sink_.contains("Folder.json is broken"));
}

TEST_F(ToggleState, TheFolderComesFromTheEnvironmentWhenNotSet) {
  write("T.json", R"({"On": true})");
  Toggle::toggleDirIs("");
  EXPECT_FALSE(Toggle::getToggleState("On", "T.json", false));
  ::setenv(Toggle::directoryEnvironmentVariable, folder_.c_str(), 1);
  EXPECT_TRUE(Toggle::getToggleState("On", "T.json", false));
  ::unsetenv(Toggle::directoryEnvironmentVariable);
}

} // namespace
