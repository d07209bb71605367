// The same random edits on objects of C++ classes and of the same types described at run time: everything
// that can be seen from outside is the same at every step.

#include "fixture/RandomEdits.h"
#include "platform/KelTesting.h"

namespace KelTesting {
namespace {

// A tree under one root, with an observer on every entity in it.
class Watched {
public:
  explicit Watched(Flavour const& flavour) : dir_(Kel::globalDir()->dirIs("differential")) {
    root_ = entityIn(flavour.device().genericIf(ArgList()));
    dir_->entityIs("device", root_);
  }
  ~Watched() { Kel::globalDir()->entityDel("differential"); }

  [[nodiscard]] Kel::Ptr<Kel::Entity> const& root() const { return root_; }

  // Puts observers on what has none yet, drops those of what has ended.
  void watch() {
    for (auto const& entity : Fixture::entitiesBeneath(root_)) {
      std::string const name = entity->fullName().str();
      auto& [called, recorder] = recorders_[entity->serial()];
      if (recorder == nullptr) called = name, recorder = std::make_unique<Recorder>(entity);
    }
  }
  // What all observers were told, by the name of the entity.
  std::string told() {
    std::string out;
    for (auto at = recorders_.begin(); at != recorders_.end();) {
      bool ended = false;
      for (std::string const& event : at->second.second->take()) {
        out += at->second.first + " " + event + "\n";
        EXPECT_FALSE(ended) << at->second.first << " was told something after its end";
        ended = event == "end";
      }
      at = ended ? recorders_.erase(at) : std::next(at);
    }
    return out;
  }

private:
  Kel::Ptr<Kel::Dir> dir_;
  Kel::Ptr<Kel::Entity> root_;
  std::map<std::uint64_t, std::pair<std::string, std::unique_ptr<Recorder>>> recorders_;
};

struct Step {
  std::string did, told, tree;
};

std::vector<Step> run(Flavour const& flavour, std::uint32_t seed, int steps) {
  Watched tree(flavour);
  Fixture::RandomEdits edits(tree.root(), seed);
  std::vector<Step> out;
  for (int i = 0; i < steps; ++i) {
    tree.watch();
    std::string const did = edits.edit();
    out.push_back({did, tree.told(), i % 16 == 15 ? Fixture::dump(tree.root()) : ""});
  }
  return out;
}

TEST(KelDifferential, DeclaredAndRuntimeTypesAreTheSameFromOutside) {
  int silent = 0, told = 0;
  for (std::uint32_t seed = 1; seed <= 6; ++seed) {
    auto const declared = run(kFlavours[0], seed, 320), runtime = run(kFlavours[1], seed, 320);
    for (std::size_t i = 0; i < declared.size(); ++i) {
      SCOPED_TRACE("seed " + std::to_string(seed) + ", step " + std::to_string(i) + ": " + declared[i].did);
      ASSERT_EQ(declared[i].did, runtime[i].did);
      ASSERT_EQ(declared[i].told, runtime[i].told);
      ASSERT_EQ(declared[i].tree, runtime[i].tree);
      ++(declared[i].told.empty() ? silent : told);
    }
  }
  // The edits are worth something only when both kinds are among them.
  EXPECT_GT(silent, 100);
  EXPECT_GT(told, 1000);
}

} // namespace
} // namespace KelTesting
