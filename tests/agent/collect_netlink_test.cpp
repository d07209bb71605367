// The real kernel: links, addresses and neighbours in a network namespace of the test's own. Skipped where
// the system does not permit one.
#include <absl/strings/str_split.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <linux/neighbour.h>
#include <net/if.h>
#include <netlink/addr.h>
#include <netlink/errno.h>
#include <netlink/route/addr.h>
#include <netlink/route/link.h>
#include <netlink/route/neighbour.h>
#include <re2/re2.h>
#include <sched.h>
#include <unistd.h>

#include "AgentTesting.h"
#include "Tovak/Clock.h"
#include "agent/collect/Collectors.h"
#include "agent/collect/ConfigApplier.h"

namespace {

using namespace AgentTesting;
using namespace Agent;

// The kernel answers a request when all its events are queued: no test here has to wait for one.
class Kernel : public testing::Test {
protected:
  void SetUp() override {
    home_ = ::open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC);
    if (home_ < 0 || ::unshare(CLONE_NEWNET) != 0) GTEST_SKIP() << "no network namespace of one's own here";
    inside_ = true;
    socket.reset(nl_socket_alloc());
    ASSERT_GE(nl_connect(socket.get(), NETLINK_ROUTE), 0);
    if (add("d0") >= 0) return;
    kind_ = "bridge"; // a kernel without dummies may have these
    if (int const error = add("d0"); error < 0)
      GTEST_SKIP() << "no links to make here: " << nl_geterror(error);
  }
  void TearDown() override {
    collectors.reset();
    socket.reset();
    if (inside_) {
      EXPECT_EQ(::setns(home_, CLONE_NEWNET), 0);
    }
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
  int add(std::string const& name) {
    rtnl_link* const link = rtnl_link_alloc();
    rtnl_link_set_name(link, name.c_str());
    rtnl_link_set_type(link, kind_);
    int const error = rtnl_link_add(socket.get(), link, NLM_F_CREATE | NLM_F_EXCL);
    rtnl_link_put(link);
    return error;
  }
  int change(std::string const& name, std::function<void(rtnl_link*)> const& edit) {
    rtnl_link *now = nullptr, *const wanted = rtnl_link_alloc();
    int error = rtnl_link_get_kernel(socket.get(), 0, name.c_str(), &now);
    edit(wanted);
    if (error >= 0) error = rtnl_link_change(socket.get(), now, wanted, 0);
    rtnl_link_put(now);
    rtnl_link_put(wanted);
    return error;
  }
  int remove(std::string const& name) {
    rtnl_link* const link = rtnl_link_alloc();
    rtnl_link_set_name(link, name.c_str());
    int const error = rtnl_link_delete(socket.get(), link);
    rtnl_link_put(link);
    return error;
  }
  int address(std::string const& name, char const* text, bool isDel = false) {
    nl_addr* local = nullptr;
    nl_addr_parse(text, AF_UNSPEC, &local);
    rtnl_addr* const address = rtnl_addr_alloc();
    rtnl_addr_set_ifindex(address, static_cast<int>(::if_nametoindex(name.c_str())));
    rtnl_addr_set_local(address, local);
    int const error =
        isDel ? rtnl_addr_delete(socket.get(), address, 0) : rtnl_addr_add(socket.get(), address, 0);
    rtnl_addr_put(address);
    nl_addr_put(local);
    return error;
  }
  int neighbor(std::string const& name, char const* ip, char const* mac) {
    nl_addr *destination = nullptr, *link = nullptr;
    nl_addr_parse(ip, AF_UNSPEC, &destination);
    nl_addr_parse(mac, AF_LLC, &link);
    rtnl_neigh* const entry = rtnl_neigh_alloc();
    rtnl_neigh_set_ifindex(entry, static_cast<int>(::if_nametoindex(name.c_str())));
    rtnl_neigh_set_dst(entry, destination);
    rtnl_neigh_set_lladdr(entry, link);
    rtnl_neigh_set_state(entry, NUD_PERMANENT);
    int const error = rtnl_neigh_add(socket.get(), entry, NLM_F_CREATE);
    rtnl_neigh_put(entry);
    nl_addr_put(link);
    nl_addr_put(destination);
    return error;
  }
  Interface* find(std::string const& name) const {
    return tree.interfaces->interface.find(Kel::String(name));
  }
  std::set<std::string> names() const {
    std::set<std::string> all;
    for (auto const& [name, entry] : tree.interfaces->interface)
      all.insert(name.str());
    return all;
  }

  NetlinkSocket socket;
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
  ASSERT_GE(address("d0", "192.0.2.1/24"), 0);
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

  ASSERT_GE(change("d0",
                   [](rtnl_link* link) {
                     rtnl_link_set_flags(link, IFF_UP);
                     rtnl_link_set_mtu(link, 1400);
                     rtnl_link_set_ifalias(link, "called so");
                   }),
            0);
  ASSERT_GE(address("d0", "192.0.2.1/24", true), 0);
  ASSERT_GE(address("d0", "198.51.100.7/25"), 0);
  ASSERT_GE(neighbor("d0", "198.51.100.8", "02:00:00:00:00:08"), 0);
  ASSERT_GE(add("d1"), 0);
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
  ASSERT_GE(remove("d1"), 0);
  settle();
  EXPECT_EQ(find("d1"), nullptr);
}

// A queue that holds only a few events, and a scheduler that does not come to read: everything is read anew.
TEST_F(Kernel, OverrunsEndInSync) {
  start(4096);
  for (int i = 0; i < 30; ++i)
    ASSERT_GE(add(fmt::format("x{}", i)), 0);
  for (int i = 0; i < 30; i += 2)
    ASSERT_GE(remove(fmt::format("x{}", i)), 0);
  ASSERT_GE(address("x1", "192.0.2.1/24"), 0);
  ASSERT_GE(remove("d0"), 0);
  settle();
  EXPECT_GT(collectors->overruns(), 0U) << "the test made none";
  std::set<std::string> wanted = {"lo"};
  for (int i = 1; i < 30; i += 2)
    wanted.insert(fmt::format("x{}", i));
  std::set<std::string> got;
  for (std::string const& name : names()) {
    if (name == "lo" || name[0] == 'x' || name == "d0")
      got.insert(name); // some systems add tunnels to every namespace
  }
  EXPECT_EQ(got, wanted);
  EXPECT_TRUE(find("x1")->subinterfaces->subinterface.find(0)->ipv4->addresses->address.has("192.0.2.1"));
}

TEST_F(Kernel, AppliesConfiguration) {
  start();
  ConfigApplier applier(scheduler);
  auto const apply = [&](std::vector<LinkChange> const& links) {
    std::optional<ConfigApplier::Outcome> got;
    applier.apply(links, [&](ConfigApplier::Outcome const& outcome) {
      got = outcome;
      scheduler->stop();
    });
    scheduler->run(); // until the answer
    settle();
    return *got ? std::string() : got->error();
  };
  Interface& d0 = *find("d0");
  // What can be configured, and nothing that the kernel changes by itself: counters, the states of links and addresses.
  auto const present = [&] {
    std::string left;
    for (std::string const& line :
         std::vector<std::string>(absl::StrSplit(textOf(Kel::Ptr<Interface>(find("d0")), "/state/"), '\n')))
      if (RE2::PartialMatch(line, "/(description|enabled|mtu|ip|prefix-length) =")) left += line + '\n';
    return left;
  };
  ASSERT_GE(add("d1"), 0);
  ASSERT_GE(address("d0", "198.51.100.1/24"), 0);
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
}

} // namespace
