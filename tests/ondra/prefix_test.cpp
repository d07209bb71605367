#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "Ondra/Prefix.h"
#include "Tovak/Assert.h"
#include "Tovak/Trace.h"
#include "Tovak/TraceSink.h"

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
  std::shared_ptr<Prefix> leaf = Prefix::prefixIs({"a", "b", "c"});
  std::weak_ptr<Prefix> const a = leaf->parent()->parent();
  leaf.reset();
  EXPECT_TRUE(a.expired());
  EXPECT_EQ(Prefix::prefix({"a", "b", "c"}), nullptr);

  auto const named = std::make_shared<Prefix>("top", nullptr);
  EXPECT_EQ(Prefix::prefixIs({"x"}, named)->path(), "top/x");
  EXPECT_EQ(Prefix::prefix({"top"}), nullptr); // a tree of its own
}

TEST(Prefix, AssertsAndThrowsOnMisuse) {
  auto const root = std::make_shared<Prefix>("", nullptr);
  Prefix stranger("stranger", nullptr);
  EXPECT_THROW(static_cast<void>(stranger.childIs("x")), std::bad_weak_ptr);
  Tovak::ScopedAssertHandler const throws;
  try {
    root->childDel(&stranger);
    FAIL() << "no assertion";
  } catch (Tovak::AssertionError const& error) {
    EXPECT_STREQ(error.what(), "no prefix:stranger found");
    EXPECT_EQ(error.handlerName(), "OndraPrefix");
  }
}

TEST(Prefix, TracesEveryNodeAlsoTheProbesOfLookups) {
  auto& handler = Tovak::Platform::getDebugHandler("OndraPrefix", false);
  std::uint32_t const before = handler.mask();
  handler.maskIs(1u << 5);
  {
    Tovak::ScopedTraceSink const sink;
    auto const node = Prefix::prefixIs({"a"}, std::make_shared<Prefix>("r", nullptr));
    std::vector<std::string> const wanted{
        "OndraPrefix/5 prefix:r parent:", // the root
        "OndraPrefix/5 prefix:a parent:", // the probe, made and gone
        "OndraPrefix/5 prefix:a parent:",
        "OndraPrefix/5 prefix:a parent:r", // the child
    };
    EXPECT_EQ(sink.lines(), wanted);
  }
  handler.maskIs(before);
}

} // namespace
