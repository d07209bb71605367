#include <gtest/gtest.h>

#include <boost/container/small_vector.hpp>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "Kel/Attr.h"
#include "Kel/Dir.h"
#include "Kel/Error.h"
#include "Kel/Notifiee.h"
#include "Ondra/PathTypes.h"

namespace {

using Kel::Ptr;
using Ondra::PathToType;

// Writes down what it is told, with the type that the path has by then.
class Watcher final : public Kel::PtrInterface::NotifieeConst {
public:
  explicit Watcher(PathToType const* watched) : NotifieeConst(watched), watched_(watched) {
    hasNotificationActiveIs(true);
    isRegisteredNotifieeIs(true);
  }
  void onAttribute(Kel::AttributeId id, void const* key) override {
    auto const handle = Kel::GenericIf::NotifieeConst::keyPointerToGif(watched_->fwkType().attr(id), key);
    Kel::String const& path = *handle->attrValPtr<Kel::String>();
    auto const* const node = watched_->pathTypes().lookup(path);
    told.push_back(watched_->fwkType().attr(id).name().str() + " " + path.str() + " " +
                   (node == nullptr ? "gone" : node->value.str()));
  }
  std::vector<std::string> take() { return std::exchange(told, {}); }

  std::vector<std::string> told;

private:
  PathToType const* watched_;
};

using Lines = std::vector<std::string>;

TEST(PathToType, TellsOfEveryChangeAndOfNothingElse) {
  Ptr<PathToType> const registry = Ondra::pathToTypeFactory("types");
  EXPECT_EQ(registry->name().str(), "types");
  registry->pathTypesIs("/before", "A");
  Ptr<Watcher> watcher(new Watcher(registry.get()));
  registry->pathTypesIs("/a", "A");
  registry->pathTypesIs("/a", "A");
  EXPECT_EQ(watcher->take(), Lines{"pathTypes /a A"});
  registry->pathTypesIs("/a", "B");
  EXPECT_EQ(watcher->take(), Lines{"pathTypes /a B"});
  EXPECT_EQ(registry->pathTypesDel("/absent").str(), "");
  EXPECT_EQ(registry->pathTypesDel("/a").str(), "B");
  EXPECT_EQ(watcher->take(), Lines{"pathTypes /a gone"});

  registry->pathTypesIs("/c", "C");
  watcher->take();
  registry->pathTypesDelAll();
  Lines told = watcher->take();
  std::sort(told.begin(), told.end());
  EXPECT_EQ(told, (Lines{"pathTypes /before gone", "pathTypes /c gone"}));

  registry->pathTypesIs("/d", "D");
  watcher.reset();
  registry->pathTypesDelAll();
  EXPECT_TRUE(registry->pathTypes().empty());
}

TEST(PathToType, IsReachedGenericallyAndMadeInDirectories) {
  Ptr<Kel::GenericIf const> const name = Kel::handleOf(Kel::String("types"));
  Kel::KelType const type = Kel::typeOf<PathToType>();
  EXPECT_EQ(type.module().str(), "PathTypes");
  Ptr<Kel::GenericIf> const made = type.genericIf(Kel::ArgList{name});
  auto const& registry = *static_cast<PathToType*>(made->object());
  EXPECT_EQ(registry.name().str(), "types");

  auto const text = [](char const* value) {
    return Ptr<Kel::GenericIf const>(Kel::handleOf(Kel::String(value)));
  };
  Kel::KelAttr const attr = type.attr("pathTypes");
  for (char const* path : {"/b", "/c", "/a"})
    attr.genericIfSet(made, text(path), text("T"));
  attr.genericIfDel(made, text("/b"));
  EXPECT_EQ(attr.genericIfCount(made), 2u);
  EXPECT_TRUE(attr.genericIfExist(made, text("/a")));
  EXPECT_EQ(attr.genericIfGet(made, text("/b")), nullptr);
  std::string keys;
  for (auto it = attr.genericIfIteratorConst(made); it; ++it)
    keys += it.key()->gnmiStrRep();
  EXPECT_EQ(keys, "/a/c");

  Ptr<Kel::Dir> const dir = Kel::globalDir()->dirIs("pathtypes-test");
  Ptr<Kel::Entity> const entity = dir->newEntity("types", type, {});
  EXPECT_EQ(entity->fullName().str(), "/pathtypes-test/types");
  EXPECT_TRUE(entity->hasNotificationActive());
  EXPECT_THROW(dir->newEntity("more", type, Kel::ArgList{name}), Kel::NewEntityArgsError);
  Kel::globalDir()->entityDel("pathtypes-test");
}

} // namespace
