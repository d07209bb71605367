// The real kernel: links, addresses and neighbours in a network namespace of the test's own. Skipped where
// the system does not permit one.
#include <absl/strings/str_split.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <net/if.h>
#include <re2/re2.h>
#include <sched.h>
#include <unistd.h>

#include <cstdlib>

#include "AgentTesting.h"
#include "Tovak/Clock.h"
#include "agent/collect/Collectors.h"
#include "agent/collect/ConfigApplier.h"
#include "agent/collect/LinkBefore.h"

namespace {

using namespace AgentTesting;
using namespace Agent;

// `ip` ends when all events of what it did are queued: no test here has to wait for one.
class Kernel : public testing::Test {
protected:
  void SetUp() override {
    home_ = ::open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC);
    if (home_ < 0 || ::unshare(CLONE_NEWNET) != 0) GTEST_SKIP() << "no network namespace of one's own here";
    inside_ = true;
    if (ip("link add d0 type dummy 2>/dev/null")) return;
    kind_ = "bridge"; // a kernel without dummies may have these
    if (!ip("link add d0 type bridge")) GTEST_SKIP() << "no links to make here";
  }
  void TearDown() override {
    collectors.reset();
    EXPECT_TRUE(!inside_ || ::setns(home_, CLONE_NEWNET) == 0);
    if (home_ >= 0) ::close(home_);
  }

  void start(int receiveBytes = 1 << 20) {
    Collectors::Options options;
    options.netlink.receiveBytes = receiveBytes;
    collectors.emplace(scheduler, tree, options);
    collectors->start();
    settle();
  }
  void settle() {
    scheduler->runUntil(clock.monotonicNs() + 200'000'000); // beyond the pause after an overrun
    EXPECT_TRUE(collectors->isFilled());
  }
  // In the namespace of this thread.
  static bool ip(std::string const& command) { return std::system(("ip " + command).c_str()) == 0; }
  bool add(std::string const& name) const { return ip(fmt::format("link add {} type {}", name, kind_)); }
  Interface* find(std::string const& name) const {
    return tree.interfaces->interface.find(Kel::String(name));
  }
  std::set<std::string> names() const {
    std::set<std::string> all;
    for (auto const& [name, entry] : tree.interfaces->interface)
      all.insert(name.str());
    return all;
  }

  Tovak::SimulatedClock clock;
  std::shared_ptr<Tovak::TaskScheduler> scheduler = std::make_shared<Tovak::TaskScheduler>(clock);
  Kel::Ptr<Kel::Dir> root{new Kel::Dir()};
  Tree tree = treeIn(*root);
  std::optional<Collectors> collectors;

private:
  char const* kind_ = "dummy";
  int home_ = -1;
  bool inside_ = false;
};

TEST_F(Kernel, TellsWhatIsThereAndWhatChanges) {
  ASSERT_TRUE(ip("address add 192.0.2.1/24 dev d0"));
  start();
  EXPECT_TRUE(find("lo") != nullptr && find("lo")->state->type == InterfaceType::Loopback);
  EXPECT_EQ(find("lo")->state->mtu, std::nullopt);
  Interface const& d0 = *find("d0");
  EXPECT_EQ(d0.state->ifindex, ::if_nametoindex("d0"));
  EXPECT_EQ(d0.state->mtu, 1500);
  EXPECT_EQ(d0.state->adminStatus, AdminStatus::Down);
  EXPECT_TRUE(d0.ethernet->state->macAddress);
  EXPECT_EQ(d0.state->counters->outPkts, 0U) << "counters come without netlink";
  Ipv4 const& v4 = *d0.subinterfaces->subinterface.find(0)->ipv4;
  ASSERT_TRUE(v4.addresses->address.has("192.0.2.1"));
  EXPECT_EQ(v4.addresses->address.find("192.0.2.1")->state->prefixLength, 24);
  EXPECT_EQ(v4.addresses->address.find("192.0.2.1")->state->origin, AddressOrigin::Static);

  ASSERT_TRUE(ip("link set d0 up mtu 1400 alias 'called so'"));
  ASSERT_TRUE(ip("address del 192.0.2.1/24 dev d0") && ip("address add 198.51.100.7/25 dev d0"));
  ASSERT_TRUE(ip("neighbor add 198.51.100.8 lladdr 02:00:00:00:00:08 dev d0") && add("d1"));
  settle();
  EXPECT_EQ(d0.state->mtu, 1400);
  EXPECT_EQ(d0.state->adminStatus, AdminStatus::Up);
  EXPECT_EQ(d0.state->description, Kel::String("called so"));
  EXPECT_TRUE(d0.state->lastChange);
  EXPECT_EQ(d0.config->mtu, 1500) << "what is configured is the clients'";
  EXPECT_EQ(v4.addresses->address.find("198.51.100.7")->state->prefixLength, 25);
  EXPECT_FALSE(v4.addresses->address.has("192.0.2.1"));
  EXPECT_EQ(textOf(Kel::Ptr<Interface>(find("d0")), "[198.51.100.8]/state"),
            R"(/subinterfaces/subinterface[0]/ipv4/neighbors/neighbor[198.51.100.8]/state/ip = "198.51.100.8"
/subinterfaces/subinterface[0]/ipv4/neighbors/neighbor[198.51.100.8]/state/link-layer-address = "02:00:00:00:00:08"
/subinterfaces/subinterface[0]/ipv4/neighbors/neighbor[198.51.100.8]/state/origin = 'STATIC'
)");
  EXPECT_NE(find("d1"), nullptr);
  ASSERT_TRUE(ip("link del d1"));
  settle();
  EXPECT_EQ(find("d1"), nullptr);
}

// A queue that holds only a few events, and a scheduler that does not come to read: everything is read anew.
TEST_F(Kernel, OverrunsEndInSync) {
  start(4096);
  for (int i = 0; i < 30; ++i)
    ASSERT_TRUE(add(fmt::format("x{}", i)));
  for (int i = 0; i < 30; i += 2)
    ASSERT_TRUE(ip(fmt::format("link del x{}", i)));
  ASSERT_TRUE(ip("address add 192.0.2.1/24 dev x1") && ip("link del d0"));
  settle();
  EXPECT_GT(collectors->overruns(), 0U) << "the test made none";
  std::set<std::string> wanted = {"lo"};
  for (int i = 1; i < 30; i += 2)
    wanted.insert(fmt::format("x{}", i));
  std::set<std::string> got;
  for (std::string const& name : names())
    if (name == "lo" || name[0] == 'x' || name == "d0")
      got.insert(name); // some systems add tunnels to every namespace
  EXPECT_EQ(got, wanted);
  EXPECT_TRUE(find("x1")->subinterfaces->subinterface.find(0)->ipv4->addresses->address.has("192.0.2.1"));
}

TEST_F(Kernel, AppliesConfiguration) {
  start();
  ConfigApplier applier(scheduler);
  auto const apply = [&](std::vector<LinkChange> const& links) {
    std::optional<Kstd::Result<void, std::string>> got;
    applier.carry(links, [&](auto const& outcome) {
      got = outcome;
      scheduler->stop();
    });
    scheduler->run(); // until the answer
    settle();
    return *got ? std::string() : got->error();
  };
  Interface& d0 = *find("d0");
  // What can be configured, and nothing that the kernel changes by itself: counters, the states of links and
  // addresses.
  auto const present = [&] {
    std::string left;
    for (std::string const& line :
         std::vector<std::string>(absl::StrSplit(textOf(Kel::Ptr<Interface>(find("d0")), "/state/"), '\n')))
      if (RE2::PartialMatch(line, "/(description|enabled|mtu|ip|prefix-length) =")) left += line + '\n';
    return left;
  };
  ASSERT_TRUE(add("d1") && ip("address add 198.51.100.1/24 dev d0"));
  settle();
  LinkChange wanted = {.name = "d0", .description = "wanted", .mtu = 1300, .enabled = true};
  wanted.addresses = {{false, "192.0.2.7", 24}, {false, "198.51.100.1", 25}, {true, "2001:db8::7", 64}};
  EXPECT_EQ(apply({wanted}), "");
  EXPECT_EQ(d0.state->description, Kel::String("wanted"));
  EXPECT_EQ(d0.state->mtu, 1300);
  EXPECT_EQ(d0.state->enabled, true);
  Subinterface const& unit = *d0.subinterfaces->subinterface.find(0);
  EXPECT_EQ(unit.ipv4->addresses->address.find("192.0.2.7")->state->prefixLength, 24);
  EXPECT_EQ(unit.ipv4->addresses->address.find("198.51.100.1")->state->prefixLength, 25);
  EXPECT_EQ(unit.ipv6->addresses->address.find("2001:db8::7")->state->prefixLength, 64);

  // What is refused at the last leaves all as it was: settings, addresses, other links.
  std::string const held = present();
  LinkChange other = {.name = "d1", .mtu = 1280};
  LinkChange refused = wanted;
  refused.mtu = 1400;
  refused.description = "other";
  refused.addresses = {{false, "192.0.2.8", 24}, {false, "0.0.0.0", 33}};
  EXPECT_THAT(apply({other, refused}), testing::HasSubstr("interface 'd0' was not changed"));
  EXPECT_EQ(present(), held);
  EXPECT_EQ(find("d1")->state->mtu, 1500);
  EXPECT_THAT(apply({{.name = "d0", .mtu = 1}}), testing::HasSubstr("interface 'd0' was not changed"));
  EXPECT_EQ(present(), held);

  // What is no longer wanted becomes what it was, the address that gave way too.
  EXPECT_EQ(apply({{.name = "d0"}, {.name = "none", .mtu = 1300}}), "");
  EXPECT_EQ(d0.state->description, std::nullopt);
  EXPECT_EQ(d0.state->mtu, 1500);
  EXPECT_FALSE(unit.ipv4->addresses->address.has("192.0.2.7"));
  EXPECT_EQ(unit.ipv4->addresses->address.find("198.51.100.1")->state->prefixLength, 24);
  // What has no leaf comes back all the same: the loopback's MTU has more than 16 bits.
  EXPECT_EQ(apply({{.name = "lo", .mtu = 1300}}), "");
  EXPECT_EQ(find("lo")->state->mtu, 1300);
  EXPECT_EQ(apply({{.name = "lo"}}), "");
  EXPECT_EQ(find("lo")->state->mtu, std::nullopt);

  // What was there before outlives who changed it: another one takes it over by its text.
  auto const look = [&](ConfigApplier& by, LinkChange const& link) {
    std::string text;
    by.look({link}, [&](auto const& befores) {
      text = befores->at(link.name);
      scheduler->stop();
    });
    scheduler->run();
    return text;
  };
  LinkChange const first = {
      .name = "d0", .description = "a\nb", .mtu = 1300, .addresses = {{false, "198.51.100.1", 25}}};
  LinkChange const last = {.name = "d0", .description = "c", .enabled = true};
  std::string const before = look(applier, first);
  EXPECT_EQ(d0.state->mtu, 1500); // looked at alone
  EXPECT_EQ(apply({first}), "");
  std::string const later = look(applier, last);
  EXPECT_EQ(apply({last}), "");
  ConfigApplier next(scheduler);
  next.beforesAre({{"d0", mergedBefore(before, later)}});
  EXPECT_EQ(look(next, {.name = "d0"}), "");
  LinkChange const none = {.name = "d0"};
  next.carry({none}, [&](auto const&) { scheduler->stop(); });
  scheduler->run();
  settle();
  EXPECT_EQ(d0.state->description, std::nullopt);
  EXPECT_EQ(d0.state->enabled, false);
  EXPECT_EQ(unit.ipv4->addresses->address.find("198.51.100.1")->state->prefixLength, 24);
  EXPECT_EQ(LinkBefore::of(before, "another start"), std::nullopt);
}

} // namespace
