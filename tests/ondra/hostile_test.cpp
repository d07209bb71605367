// The worst host: whatever it does, the laws hold at every quiet moment. What is drawn comes from seeds. To
// play on or again:
//   ONDRA_HOSTILE_STEPS=100000   so many steps a property instead of a few hundred
//   ONDRA_HOSTILE_SEED=17        the play of this seed alone, as a failure names it

#include <gmock/gmock.h>

#include "Kel/Allocator.h"
#include "Ondra/live/Referrers.h"
#include "Tovak/Assert.h"
#include "ondra/hostile_host.h"

namespace {

using namespace Hostile;

constexpr unsigned kAll = 31;
constexpr unsigned bit(Call call) { return static_cast<unsigned>(call); }

struct Property {
  char const* name;
  Powers powers;
};
void PrintTo(Property const& property, std::ostream* out) { *out << property.name; }

class HostileHost : public testing::TestWithParam<Property> {};

// Tells of an assertion before it throws: whoever catches it must not hide it.
void failed(Tovak::AssertionFailure const& failure) {
  ADD_FAILURE() << "assertion: " << failure.message;
  throw Tovak::AssertionError(failure);
}

void play(std::uint32_t seed, Powers const& powers, std::size_t steps) {
  SCOPED_TRACE("ONDRA_HOSTILE_SEED=" + std::to_string(seed));
  Tovak::ScopedAssertHandler const tells(&failed);
  try {
    Play host(seed, powers);
    for (std::size_t i = 0; i < steps && !testing::Test::HasFailure(); ++i) {
      host.step();
      if (testing::Test::HasFailure())
        ADD_FAILURE() << "step " << i << ": " << testing::PrintToString(host.log());
    }
  } catch (Tovak::AssertionError const&) { // told
  }
  EXPECT_EQ(Ondra::Referrers::instance().size(), 0U);
  EXPECT_EQ(Ondra::GifGnmiNotifiee::notifieeMapSize(), 0U);
}

TEST_P(HostileHost, KeepsTheLaws) {
  constexpr std::size_t kStepsASeed = 25;
#ifdef __SANITIZE_ADDRESS__
  constexpr std::size_t kSteps = 200; // each takes ten times as long
#else
  constexpr std::size_t kSteps = 500;
#endif
  std::size_t const steps = numberIn("ONDRA_HOSTILE_STEPS", kSteps);
  std::size_t const only = numberIn("ONDRA_HOSTILE_SEED", 0);
  for (std::size_t seed = 1; seed <= steps / kStepsASeed && !HasFailure(); ++seed)
    if (only == 0 || only == seed) play(static_cast<std::uint32_t>(seed), GetParam().powers, kStepsASeed);
}

constexpr Property kProperties[] = {
    {"Polite", {}},
    {"OnTheFixture", {.onFixture = true}},
    {"BadTexts", {.badTexts = true}},
    {"TextsThatCannotBePrinted", {.refuses = true}},
    {"Collisions", {.collides = true}},
    {"ObserversThatReact", {.meddles = bit(Call::Tell)}},
    {"SettersThatReact", {.meddles = bit(Call::Set)}},
    {"RoutersThatReact", {.meddles = bit(Call::Push)}},
    {"PrintersThatReact", {.meddles = bit(Call::Print) | bit(Call::Parse)}},
    {"ObserversThatThrow", {.throws = bit(Call::Tell)}},
    {"SettersThatThrow", {.throws = bit(Call::Set)}},
    {"RoutersThatThrow", {.throws = bit(Call::Push)}},
    {"ParsersThatThrow", {.throws = bit(Call::Parse)}},
    {"PrintersThatThrow", {.throws = bit(Call::Print)}},
    {"Everything", {.meddles = kAll, .throws = kAll, .refuses = true, .collides = true, .badTexts = true}},
};
// What has little to say is asked for time like everything else: no slice is longer by more than a member.
TEST(HostileSlices, EverythingIsAskedForTime) {
  constexpr std::size_t kMany = 2000;
  auto const textOf = [](std::uint32_t i) { return Kel::String(std::to_string(i)); };
  std::vector<std::pair<std::string, std::function<void(Host&, std::uint32_t)>>> cases{
      // adds one more
      {"values", [&](Host& host, auto i) { host.silentIs(textOf(i), {}); }},
      {"values under structured keys",
       [&](Host& host, auto i) {
         host.placeIs({textOf(i), {}, {}}, {});
       }},
      {"entities", [&](Host& host, auto i) { host.roomIs({textOf(i)}); }},
      {"entities with their keys", [&](Host& host, auto i) { host.guestIs(textOf(i)); }},
      {"references", [&](Host& host, auto i) { host.aliasIs(textOf(i), host.guestIs("g")); }},
      {"structures in an array", [&](Host& host, auto) { host.stepAdd({}); }},
      {"directories",
       [&](Host& host, auto i) { static_cast<Kel::Dir*>(host.parent())->dirIs(textOf(i).view()); }},
  };
  static_cast<void>(collisions());
  for (Kel::Ptr<Kel::Entity> const& wide : wideEntities(kMany)) {
    cases.push_back({wide->fwkType().name().str(), [wide](Host& host, auto i) {
                       if (i == 0) static_cast<Kel::Dir*>(host.parent())->entityIs("wide", wide);
                     }});
  }
  for (auto const& [name, add] : cases) {
    World world({});
    for (std::uint32_t i = 0; i < kMany; ++i)
      add(*world.host, i);
    for (Ondra::WalkerFlags const flags :
         {Ondra::flagSnapshot, Ondra::flagSnapshot | Ondra::flagStream, Ondra::flagStream}) {
      WalkHarness harness;
      RecordingRouter router;
      for (char const* const walk : {"the first", "another"}) {
        WalkHarness::Walk whole = harness.walked(router, *world.dir, flags);
        // Without values to send, a walk does not go into one.
        bool const goesThere = flags.has(Ondra::flagSnapshot) || !name.starts_with("Holder");
        EXPECT_GE(whole.task->questions, goesThere ? kMany : 0)
            << name << ", " << walk << " walk, flags " << flags.toString();
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(, HostileHost, testing::ValuesIn(kProperties),
                         [](auto const& one) { return one.param.name; });

} // namespace
