#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "Ondra/PathTypes.h"
#include "fixture/Observer.h"

namespace {

using Kel::Ptr;
using Ondra::PathToType;
using Lines = std::vector<std::string>;

TEST(PathToType, TellsOfEveryChangeAndOfNothingElse) {
  Ptr<PathToType> const registry = Ondra::pathToTypeFactory("types");
  registry->pathTypesIs("/before", "A");
  Lines told;
  registry->hasNotificationActiveIs(true);
  Ptr<Fixture::Observer> const watcher(
      new Fixture::Observer(registry.get(), [&](auto const& text) { told.push_back(text); }));
  auto const take = [&told] { return std::exchange(told, {}); };
  registry->pathTypesIs("/a", "A");
  registry->pathTypesIs("/a", "A");
  EXPECT_EQ(take(), Lines{"pathTypes[\"/a\"]"});
  registry->pathTypesIs("/a", "B");
  EXPECT_EQ(take(), Lines{"pathTypes[\"/a\"]"});
  EXPECT_EQ(registry->pathTypesDel("/absent").str(), "");
  EXPECT_EQ(registry->pathTypesDel("/a").str(), "B");
  EXPECT_EQ(take(), Lines{"pathTypes[\"/a\"]"});
  registry->pathTypesIs("/c", "C");
  take();
  registry->pathTypesDelAll();
  std::sort(told.begin(), told.end());
  EXPECT_EQ(take(), (Lines{"pathTypes[\"/before\"]", "pathTypes[\"/c\"]"}));
  EXPECT_TRUE(registry->pathTypes().empty());
}

} // namespace
