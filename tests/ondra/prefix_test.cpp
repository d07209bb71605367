// The tree of prefixes: who keeps which node, that a long chain ends without recursion, misuse.
#include <gtest/gtest.h>

#include "Ondra/Prefix.h"
#include "ondra/assertion.h"

namespace {

using Ondra::Prefix;

TEST(Prefix, NodesLiveWhileTheyOrTheirDescendantsAreHeld) {
  std::weak_ptr<Prefix> const root = Prefix::prefix({});
  EXPECT_TRUE(root.expired()); // made, and gone with its holder
  std::shared_ptr<Prefix> b = Prefix::prefixIs({"a", "b"});
  EXPECT_EQ(b->path(), "/a/b");
  EXPECT_EQ(Prefix::prefixIs({"a", "b"}), b);
  EXPECT_EQ(Prefix::prefix({"a"}), b->parent());
  EXPECT_EQ(Prefix::prefix({"a", "x"}), nullptr);
  EXPECT_EQ(Prefix::prefix({})->path(), "");

  std::shared_ptr<Prefix> const c = Prefix::prefixIs({"c"}, b);
  std::weak_ptr<Prefix> const middle = b;
  b.reset();
  EXPECT_EQ(c->path(), "/a/b/c");
  EXPECT_EQ(Prefix::prefix({"a", "b", "c"}), c);
  std::shared_ptr<Prefix> parent = c->parent();
  EXPECT_EQ(parent->child("c"), c);
  EXPECT_EQ(parent->child(""), nullptr);
  static_cast<void>(parent->childIs("dropped at once"));
  EXPECT_EQ(parent->child("dropped at once"), nullptr);
}

TEST(Prefix, EndsWithItsLastHolder) {
  std::weak_ptr<Prefix> const a = Prefix::prefixIs({"a", "b", "c"})->parent()->parent();
  EXPECT_TRUE(a.expired());
  Prefix::prefixIs(std::vector<std::string>(300'000, "a")).reset(); // takes no deep stack
  EXPECT_EQ(Prefix::prefix({"a"}), nullptr);
  auto const named = std::make_shared<Prefix>("top", nullptr);
  EXPECT_EQ(Prefix::prefixIs({"x"}, named)->path(), "top/x");
  EXPECT_EQ(Prefix::prefix({"top"}), nullptr); // a tree of its own
}

TEST(Prefix, AssertsAndThrowsOnMisuse) {
  auto const root = std::make_shared<Prefix>("", nullptr);
  Prefix stranger("stranger", nullptr);
  EXPECT_THROW(static_cast<void>(stranger.childIs("x")), std::bad_weak_ptr);
  EXPECT_EQ(assertionIn([&] { root->childDel(&stranger); }), "OndraPrefix: no prefix:stranger found");
}

} // namespace
