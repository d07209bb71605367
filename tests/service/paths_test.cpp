// Paths of requests: checking, patterns and what they cover, enumeration of objects, canonical bytes.

#include <gmock/gmock.h>

#include <random>

#include "agent/paths/ObjectCursor.h"
#include "agent/paths/OutPath.h"
#include "agent/paths/Pattern.h"
#include "service/ServiceTesting.h"

using namespace ServiceTesting;
using Agent::ObjectCursor, Agent::PathView, Agent::Pattern;
using Cover = Pattern::Cover;

namespace {

Pattern pattern(std::string_view text) {
  Pattern::OrError made = Pattern::of(Agent::RequestPath::of({}, path(text)).value());
  EXPECT_TRUE(made.ok()) << text << ": " << (made.ok() ? "" : made.error().error_message());
  return made.ok() ? made.value() : Pattern();
}

TEST(Pattern, covers) {
  Agent::declareTypes();
  std::string const eth0 = "/interfaces/interface[name=eth0]";
  for (auto const& [covering, covered, cover] : std::vector<std::tuple<std::string, std::string, Cover>>{
           {"/", eth0, Cover::All},
           {"/interfaces", eth0 + "/state/mtu", Cover::All},
           {eth0 + "/state", eth0, Cover::Partial},
           {eth0 + "/state", "/interfaces/interface[name=eth1]", Cover::None},
           {eth0 + "/state", eth0 + "/config", Cover::None},
           {eth0, "/interfaces", Cover::Partial},
           {"/interfaces/interface[name=*]/state", eth0 + "/state/mtu", Cover::All},
           {"/interfaces/interface/state", eth0 + "/state", Cover::All},
           {"/openconfig-interfaces:interfaces/interface/state", eth0 + "/state", Cover::All},
           {"/interfaces/*/state/mtu", eth0 + "/state", Cover::Partial},
           {"/*/*/*/mtu", eth0 + "/state/mtu", Cover::All},
           {"/.../mtu", eth0 + "/state/mtu", Cover::All},
           {"/.../mtu", eth0 + "/state/enabled", Cover::Partial},
           {"/interfaces/.../mtu", "/system", Cover::None},
           {"/interfaces/.../state/.../in-octets", eth0 + "/state/counters/in-octets", Cover::All},
           {"/.../interface[name=eth0]/.../mtu", "/interfaces/interface[name=eth1]/state/mtu",
            Cover::Partial},
           {"/.../state", eth0 + "/hold-time/state/up", Cover::All},
       })
    EXPECT_EQ(pattern(covering).cover(PathView(path(covered), 0)), cover) << covering << " of " << covered;
  std::string many;
  for (int i = 0; i < 100; ++i)
    many += "/...";
  EXPECT_EQ(pattern(many + "/mtu").cover(PathView(path(eth0 + "/state/mtu"), 0)), Cover::All);
}

// Cut anywhere, while entries come and go: what was there all the time is found exactly once, in order.
TEST(ObjectCursor, findsWhatStaysExactlyOnce) {
  Bench bench;
  for (unsigned seed = 1; seed <= 20; ++seed) {
    SCOPED_TRACE(fmt::format("seed {}", seed));
    std::mt19937 random(seed);
    auto& all = *bench.tree().interfaces;
    auto const name = [](unsigned i) { return fmt::format("p{:04}", i); };
    std::vector<std::string> staying;
    for (unsigned i = 0; i < 1500; i += 3) {
      bench.addInterface(name(i));
      staying.push_back(fmt::format("/openconfig/interfaces/interface[name={}]/state/counters", name(i)));
    }
    Pattern const wanted = pattern("/interfaces/interface[name=*]/state/counters");
    ObjectCursor cursor(wanted);
    std::vector<std::string> found;
    for (ObjectCursor::Result at; (at = cursor.next()) != ObjectCursor::Result::End;) {
      unsigned const other = random() % 500 * 3 + 1;
      if (random() % 2 == 0)
        bench.addInterface(name(other));
      else
        all.entryDel(&Agent::Interfaces::interface, Kel::String(name(other)));
      if (at != ObjectCursor::Result::Found) continue;
      std::string const path = cursor.path()->toString();
      if (std::ranges::find(staying, path) != staying.end()) found.push_back(path);
    }
    EXPECT_EQ(found, staying);
    while (!all.interface.empty())
      all.entryDel(&Agent::Interfaces::interface, Kel::String(all.interface.begin()->first));
  }
}

TEST(OutPath, bytesOfWhatLiesBelowBeginWithThoseAbove) {
  auto const bytes = [](std::string_view text) { return Agent::pathBytes(PathView(path(text), 0)); };
  using Rows = std::vector<std::pair<char const*, char const*>>;
  for (auto const& [above, below] : Rows{{"/a/b", "/a/b"},
                                         {"/a/b", "/a/b/c"},
                                         {"/a/b", "/a/b[k=1]/c"}, // no key stands for all
                                         {"/a/b[k=1]", "/a/b[k=1]/c"},
                                         {"/a/b[k=1][l=2]", "/a/b[l=2][k=1]/c"}})
    EXPECT_TRUE(Agent::bytesAtOrBelow(bytes(above), bytes(below))) << above << below;
  for (auto const& [above, below] : Rows{{"/a/b", "/a/bc"},
                                         {"/a/b[k=1]", "/a/b[k=11]"},
                                         {"/a/b[k=1]", "/a/b"},
                                         {"/a/b[k=1]", "/a/b[k=1][l=2]"},
                                         {"/a", "/b"}})
    EXPECT_FALSE(Agent::bytesAtOrBelow(bytes(above), bytes(below))) << above << below;
  auto const withKey = [](std::string const& key) { // of the bytes that separate others
    gnmi::Path made = path("/a");
    (*made.mutable_elem(0)->mutable_key())["k"] = key;
    return Agent::pathBytes(PathView(made, 0));
  };
  std::string const odd = withKey("\x01\x02\x03z"), other = withKey("\x01\x02\x33z");
  EXPECT_NE(odd, other);
  EXPECT_FALSE(Agent::bytesAtOrBelow(odd, other));
}

} // namespace
