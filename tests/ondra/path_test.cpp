// Paths and elements as objects. Random paths are judged by a plain model.
#include <gtest/gtest.h>

#include <boost/container/small_vector.hpp>

#include <stdexcept>

#include "Kel/Attr.h"
#include "Kel/Error.h"
#include "Ondra/GnmiPath.h"
#include "path_samples.h"

namespace {

using Kel::Ptr, Ondra::Path, Ondra::PathElem, OndraTest::PathSamples, OndraTest::plainOf;
using OndraTest::PlainPath;
using ConstPath = Ptr<Path const>;

Ptr<Path> parsed(std::string_view text) { return Path::strToPathIs(text); }
std::uint64_t hashOf(ConstPath const& path) { return std::hash<ConstPath>()(path); }
std::uint64_t hashOf(Ptr<PathElem const> const& elem) { return std::hash<Ptr<PathElem const>>()(elem); }

TEST(Path, ConversionHashesAndTextsAgreeForAnyBytes) {
  for (unsigned seed = 0; seed < 300; ++seed) {
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    PathSamples samples(seed);
    PlainPath const plain = samples.plain(seed % 2 == 0);
    gnmi::Path const message = samples.gnmiPath(plain);
    ConstPath const path = samples.path(plain);

    ConstPath const read = Path::gnmiPathIs(message);
    EXPECT_EQ(plainOf(*read), plain);
    EXPECT_TRUE(read->isEqual(path));
    EXPECT_EQ(hashOf(read), hashOf(path));

    gnmi::Path written;
    written.set_origin("left alone");
    path->copyToGnmiPath(&written);
    EXPECT_EQ(plainOf(written), plain);
    EXPECT_EQ(written.origin(), "left alone");

    for (int i = 0; i < message.elem_size(); ++i) {
      gnmi::PathElem const& elem = message.elem(i);
      EXPECT_EQ(std::hash<gnmi::PathElem>()(elem), hashOf(path->elem(static_cast<std::size_t>(i))));
      EXPECT_TRUE(elem == written.elem(i));
    }
    EXPECT_EQ(path->toString(), Ondra::pathToStr(message, 0, true));
  }
}

bool plainIsPrefix(PlainPath const& prefix, PlainPath const& path) {
  if (prefix.size() > path.size()) return false;
  for (std::size_t i = 0; i < prefix.size(); ++i) {
    if (prefix[i].name != path[i].name) return false;
    if (!prefix[i].keys.empty() && prefix[i].keys != path[i].keys) return false;
  }
  return true;
}

TEST(Path, ComparesLikeItsPlainModel) {
  int equal = 0;
  int prefixes = 0;
  for (unsigned seed = 0; seed < 4000; ++seed) {
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    PathSamples samples(seed);
    PlainPath const a = samples.plain(true);
    PlainPath b = samples.plain(true);
    if (samples.below(2) == 0) b.insert(b.begin(), a.begin(), a.end());
    if (samples.below(4) == 0) b = a;
    ConstPath const pathA = samples.path(a);
    ConstPath const pathB = samples.path(b);

    EXPECT_EQ(pathA->isEqual(pathB), a == b);
    EXPECT_EQ(hashOf(pathA) == hashOf(pathB), a == b);
    EXPECT_EQ(Path::isPrefix(pathA, pathB), plainIsPrefix(a, b));
    gnmi::Notification notification;
    *notification.mutable_prefix() = samples.gnmiPath(b);
    EXPECT_EQ(Path::isNotifPrefix(pathA, notification), plainIsPrefix(a, b));
    if (!a.empty() && !b.empty()) {
      gnmi::Path const messageA = samples.gnmiPath(a);
      gnmi::Path const messageB = samples.gnmiPath(b);
      EXPECT_EQ(messageA.elem(0) == messageB.elem(0), a[0] == b[0]);
    }
    equal += a == b;
    prefixes += plainIsPrefix(a, b);
  }
  EXPECT_GT(equal, 500); // the samples are worth something
  EXPECT_GT(prefixes, equal + 500);
}

// An element remembers its hash and interns its texts: neither may show after a change.
TEST(PathElem, StaysEqualToItsModelUnderEdits) {
  for (unsigned seed = 0; seed < 100; ++seed) {
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    PathSamples samples(seed);
    OndraTest::PlainElem model{"", {}};
    Ptr<PathElem> const elem = PathElem::PathElemIs();
    for (int step = 0; step < 40; ++step) {
      std::string const key = "k" + std::to_string(samples.below(12));
      switch (samples.below(8)) {
      case 0: elem->nameIs(model.name = samples.text(true)); break;
      case 1:
        elem->keyDelAll();
        model.keys.clear();
        break;
      case 2:
      case 3: {
        auto const node = model.keys.extract(key);
        EXPECT_EQ(elem->keyDel(key).str(), node.empty() ? "" : node.mapped());
        break;
      }
      default: elem->keyIs(key, model.keys[key] = samples.text(true));
      }
      Ptr<PathElem> const fresh = samples.path({model})->elem(0);
      ASSERT_TRUE(elem->isEqual(fresh) && fresh->isEqual(elem)) << "step " << step;
      ASSERT_EQ(hashOf(elem), hashOf(fresh)) << "step " << step;
      ASSERT_TRUE(PathElem::makePathElem(elem)->isEqual(fresh));
    }
  }
}

TEST(Path, SharesElementsAndReplacesThem) {
  Ptr<Path> const first = parsed("/a/b");
  Ptr<Path> const second = parsed("/c");
  Ptr<Path> const joined = Path::joinPath(first, second);
  Ptr<Path> const copy = Path::makePath(joined);
  EXPECT_EQ(joined->toString(), "/a/b/c");
  EXPECT_EQ(joined->elem(2), second->elem(0));
  second->elem(0)->keyIs("k", "1");
  EXPECT_EQ(copy->toString(), "/a/b/c[k=1]");

  Ptr<PathElem> const held = joined->elem(1);
  std::uint32_t const count = held->refCount();
  joined->replace(1, held);
  EXPECT_EQ(held->refCount(), count);
  joined->replace(1, PathElem::makePathElem(second->elem(0)));
  EXPECT_EQ(held->refCount(), count - 1);
  EXPECT_EQ(joined->toString(), "/a/c[k=1]/c[k=1]");
  EXPECT_EQ(copy->toString(), "/a/b/c[k=1]");
  EXPECT_THROW(static_cast<void>(joined->elem(3)), std::out_of_range);
  EXPECT_THROW(joined->replace(3, held), std::out_of_range);

  copy->copyFrom(second);
  for (int i = 0; i < 5; ++i)
    copy->mergeFrom(copy); // past the inline elements
  EXPECT_EQ(copy->elemSize(), 32u);
  EXPECT_EQ(copy->elem(31), second->elem(0));
  EXPECT_EQ(Path::simplePathIs({"x", "", "y"})->toString(), "/x//y");
}

// Everything a path can do is reached by name, too.
class PathReflection : public testing::Test {
protected:
  using Handle = Ptr<Kel::GenericIf const>;

  template <class T>
  static Handle object(Ptr<T> const& made) {
    return Kel::GenericIf::toObject(static_cast<Kel::PtrInterface*>(made.get()));
  }
  static Handle text(char const* value) { return Kel::handleOf(Kel::String(value)); }
  static Handle number(std::uint64_t value) { return Kel::handleOf(value); }

  static Handle call(Handle const& on, char const* name, std::vector<Handle> const& args = {}) {
    return on->type().attr(name).genericIfCall(on, Kel::ArgList(args.begin(), args.end()));
  }
  static std::string print(Handle const& path) {
    return static_cast<Path*>(static_cast<Kel::PtrInterface*>(path->voidPtrIs(Kel::typeOf<Path>())))
        ->toString();
  }
  static bool truth(Handle const& handle) { return *handle->attrValPtr<bool>(); }
};

TEST_F(PathReflection, CallsEveryOperationOfAPath) {
  Handle const path = object(Path::PathIs());
  EXPECT_EQ(path->type().name().str(), "Path");
  Handle const added = call(path, "addElem");
  added->type().attr("name").genericIfSet(Kel::GenericIf::toObject(added->object()), nullptr, text("a"));
  call(path, "push", {object(PathElem::PathElemIs("b"))});
  EXPECT_EQ(print(path), "/a/b");
  EXPECT_EQ(*call(path, "elemSize")->attrValPtr<std::uint64_t>(), 2u);
  EXPECT_EQ(call(path, "elem", {number(0)})->object(), added->object());
  call(path, "replace", {number(1), added});
  EXPECT_EQ(print(path), "/a/a");
  Handle const other = call(path, "makePath", {object(parsed("/x"))});
  call(path, "mergeFrom", {other});
  EXPECT_EQ(print(path), "/a/a/x");
  EXPECT_EQ(print(call(path, "joinPath", {other, path})), "/x/a/a/x");
  EXPECT_FALSE(truth(call(path, "isEqual", {other})));
  EXPECT_TRUE(truth(call(path, "isPrefix", {other, call(path, "joinPath", {other, path})})));
  EXPECT_FALSE(truth(call(path, "isPrefix", {path, other})));
  call(path, "copyFrom", {other});
  EXPECT_TRUE(truth(call(path, "isEqual", {other})));
}

TEST_F(PathReflection, SaysWhatIsWrongWithARequest) {
  Handle const path = object(parsed("/a"));
  auto const errorOf = [&](char const* name, std::vector<Handle> const& args) -> std::string {
    try {
      call(path, name, args);
    } catch (Kel::Error const& error) {
      return error.what();
    }
    return "no error";
  };
  EXPECT_EQ(errorOf("elem", {number(1)}), "Path.elem: there is no element of that index");
  EXPECT_EQ(errorOf("replace", {number(0)}), "Path.replace takes 2 arguments; found 1");
  EXPECT_EQ(errorOf("push", {nullptr}), "argument 1 of Path.push is missing");
  EXPECT_EQ(errorOf("push", {path}), "argument 1 of Path.push must be of type 'PathElem'; found 'Path'");
  EXPECT_THROW(static_cast<void>(path->type().attr("elemSize").genericIfGet(path)), Kel::Error);
  EXPECT_THROW(path->type().attr("elemSize").genericIfDel(Kel::GenericIf::toObject(path->object())),
               Kel::Error);
}

} // namespace
