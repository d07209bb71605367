// What the agent's tests share: a tree of their own, recorded /proc and /sys folders, the leaves of a subtree
// as text.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <string>
#include <string_view>

#include "Kel/Dir.h"
#include "agent/model/Tree.h"
#include "fixture/Observer.h"

namespace AgentTesting {

using Leaves = std::map<std::string, std::string>; // path below the entity -> text form of the value

// Every leaf that has a value.
[[nodiscard]] Leaves leavesOf(Kel::Ptr<Kel::Entity> const& entity);
// One "path = value" a line, those alone whose path holds `part`.
[[nodiscard]] std::string textOf(Kel::Ptr<Kel::Entity> const& entity, std::string_view part = "");

// A folder that is written by hand and gone with the test.
class RecordedFolder {
public:
  RecordedFolder();
  ~RecordedFolder();
  RecordedFolder(RecordedFolder const&) = delete;
  RecordedFolder& operator=(RecordedFolder const&) = delete;

  void put(std::string const& file, std::string_view text); // missing folders are made
  void remove(std::string const& fileOrFolder);
  [[nodiscard]] std::string path(std::string const& below = "") const { return (root_ / below).string(); }

private:
  std::filesystem::path root_;
};

// Counts what an entity and everything beneath it tell of: changed leaves and entries.
class ChangeCounter {
public:
  explicit ChangeCounter(Kel::Ptr<Kel::Entity> const& entity);
  ChangeCounter(ChangeCounter const&) = delete;
  ChangeCounter& operator=(ChangeCounter const&) = delete;
  [[nodiscard]] int changes() const { return changes_; }

private:
  std::vector<Kel::Ptr<Fixture::Observer>> watches_;
  int changes_ = 0;
};

} // namespace AgentTesting
