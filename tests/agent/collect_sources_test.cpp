// The sampled sources over recorded trees, round by round on a simulated clock.
#include <absl/strings/str_replace.h>
#include <fmt/format.h>

#include "AgentTesting.h"
#include "Tovak/Clock.h"
#include "agent/collect/Collectors.h"
#include "agent/collect/SystemSources.h"

namespace {

using namespace AgentTesting;

constexpr std::int64_t kSecond = 1'000'000'000;

class Sources : public testing::Test {
protected:
  Sources() {
    proc.put("stat",
             "cpu  100 0 100 800 0 0 0 0 0 0\ncpu0 100 0 100 800 0 0 0 0 0 0\nintr 1 2\nbtime 1600000000\n");
    proc.put("meminfo",
             "MemTotal:       1000000 kB\nMemFree:  300000 kB\nMemAvailable:    600000 kB\nBuffers: 1 kB\n");
    proc.put("uptime", "12345.67 100.00\n");
    proc.put("sys/kernel/hostname", "box\n");
    proc.put("sys/kernel/domainname", "(none)\n");
    proc.put("sys/kernel/osrelease", "6.1.0\n");
  }

  // Starts the collectors, without netlink; the first round is done when this returns.
  void start(std::int64_t sliceNs = Tovak::TaskScheduler::defaultSliceNs) {
    scheduler->sliceNsIs(sliceNs);
    collectors.emplace(scheduler, tree,
                       Agent::Collectors::Options{.procRoot = proc.path(),
                                                  .sysRoot = sys.path(),
                                                  .etcRoot = etc.path(),
                                                  .periodNs = kSecond,
                                                  .watchesLinks = false});
    collectors->start();
    scheduler->runUntilIdle();
    ASSERT_TRUE(collectors->isFilled());
  }
  void nextRound() { scheduler->runUntil(clock.monotonicNs() + kSecond); }
  void putProcess(int pid, std::string const& name, int ticks, int start, int pages = 1) {
    proc.put(fmt::format("{}/stat", pid),
             fmt::format("{} ({}) S 1 1 1 0 -1 0 0 0 0 0 {} {} 0 0 20 0 1 0 {} 0 {} 0\n", pid, name, ticks,
                         ticks, start, pages));
    proc.put(fmt::format("{}/cmdline", pid), name + std::string("\0--flag\0", 8));
  }

  RecordedFolder proc, sys, etc;
  Tovak::SimulatedClock clock;
  std::shared_ptr<Tovak::TaskScheduler> scheduler = std::make_shared<Tovak::TaskScheduler>(clock);
  Kel::Ptr<Kel::Dir> root{new Kel::Dir()};
  Agent::Tree tree = Agent::treeIn(*root);
  std::optional<Agent::Collectors> collectors;
};

TEST_F(Sources, SystemNamesTimesAndMemory) {
  etc.put("os-release", "NAME=x\nPRETTY_NAME=\"Some OS 12\"\n");
  etc.put("motd", "\n");
  etc.put("issue", "Welcome\n");
  etc.put("resolv.conf", "nameserver 10.0.0.1\nsearch a.example b.example\n");
  start();
  EXPECT_EQ(textOf(tree.system->state), R"(/boot-time = 1600000000000000000
/current-datetime = "2020-09-13T12:26:40Z"
/hostname = "box"
/login-banner = "Welcome"
/software-version = "Some OS 12"
/up-time = 12345670000000
)");
  EXPECT_EQ(textOf(tree.system->config), "/hostname = \"box\"\n/login-banner = \"Welcome\"\n");
  EXPECT_EQ(textOf(tree.system->memory), R"(/state/available = 614400000
/state/free = 307200000
/state/physical = 1024000000
/state/used = 409600000
)");
  EXPECT_EQ(textOf(tree.system->dns, "state"), R"(/servers/server[10.0.0.1]/state/address = "10.0.0.1"
/servers/server[10.0.0.1]/state/port = 53
/state/search = "a.example" "b.example"
)");
  // Configuration belongs to the clients once it is there; state follows the machine.
  tree.system->config->leafIs(&Agent::SystemConfig::hostname, Kel::String("wanted"));
  proc.put("sys/kernel/hostname", "renamed\n");
  etc.put("resolv.conf", "nameserver 10.0.0.2\nnameserver nonsense\nnameserver ::ffff:1.2.3.4%eth0\n");
  for (int i = 0; i < 10; ++i)
    nextRound();
  EXPECT_EQ(tree.system->config->hostname, Kel::String("wanted"));
  EXPECT_EQ(tree.system->state->hostname, Kel::String("renamed"));
  EXPECT_EQ(textOf(tree.system->dns->servers, "/address"), R"(/server[10.0.0.2]/address = "10.0.0.2"
/server[10.0.0.2]/config/address = "10.0.0.2"
/server[10.0.0.2]/state/address = "10.0.0.2"
/server[::ffff:102:304]/address = "::ffff:102:304"
/server[::ffff:102:304]/config/address = "::ffff:102:304"
/server[::ffff:102:304]/state/address = "::ffff:102:304"
)");
}

TEST_F(Sources, ProcessorSharesAreThoseOfTheInterval) {
  start();
  EXPECT_TRUE(tree.system->cpus->cpu.empty()) << "one reading is no share";
  auto const stat = [this](char const* cpu0) {
    proc.put("stat", fmt::format("cpu  0 0 0 0\n{}intr {}\n", cpu0, std::string(100000, '1')));
  };
  stat("cpu0 150 0 120 825 3 1 1 0\n"); // 50 20 25 3 1 1 of 100
  nextRound();
  Agent::CpuState const& cpu = *tree.system->cpus->cpu.find(Agent::CpuIndex{0})->state;
  EXPECT_EQ(cpu.total->instant.value, 72);
  EXPECT_EQ(cpu.user->instant.value, 50);
  EXPECT_EQ(cpu.kernel->instant.value, 20);
  EXPECT_EQ(cpu.wait->instant.value, 3);
  EXPECT_EQ(cpu.hardwareInterrupt->instant.value, 1);
  EXPECT_EQ(cpu.total->interval, static_cast<std::uint64_t>(kSecond));
  stat("cpu0 150 0 120 925 1 1 1 0\n"); // idle, and waiting goes back
  nextRound();
  EXPECT_EQ(cpu.total->instant.value, 0);
  EXPECT_EQ(cpu.total->avg.value, 36);
  EXPECT_EQ(cpu.total->min.value, 0);
  EXPECT_EQ(cpu.total->max.value, 72);
  EXPECT_EQ(cpu.total->minTime - cpu.total->maxTime, static_cast<std::uint64_t>(kSecond));
  EXPECT_EQ(cpu.idle->max.value, 100);
  // What cannot be read leaves what is known; a processor that is taken away goes.
  proc.remove("stat");
  nextRound();
  EXPECT_EQ(tree.system->cpus->cpu.size(), 1U);
  stat("cpu1 1 1 1 1\n");
  nextRound();
  EXPECT_EQ(tree.system->cpus->cpu.find(Agent::CpuIndex{0}), nullptr);
}

TEST_F(Sources, ProcessesComeGoAndAreReplaced) {
  putProcess(1, "init", 100, 5, 250);
  putProcess(77, "a) b", 0, 900);
  proc.put("99/other", ""); // ended between the listing and the reading
  proc.put("not-a-process", "");
  start();
  nextRound();
  EXPECT_EQ(textOf(tree.system->processes, "[1]/state"),
            fmt::format(R"(/process[1]/state/args = "init" "--flag"
/process[1]/state/cpu-usage-system = 1000000000
/process[1]/state/cpu-usage-user = 1000000000
/process[1]/state/cpu-utilization = 0
/process[1]/state/memory-usage = {}
/process[1]/state/memory-utilization = 0
/process[1]/state/name = "init"
/process[1]/state/pid = 1
/process[1]/state/start-time = 1600000000050000000
)",
                        250 * ::getpagesize()));
  EXPECT_EQ(tree.system->processes->process.size(), 2U);
  EXPECT_EQ(tree.system->processes->process.find(77)->state->name, Kel::String("a) b"));
  putProcess(1, "init", 120, 5, 250); // 20 + 20 ticks in a second: 40 %
  nextRound();
  EXPECT_EQ(tree.system->processes->process.find(1)->state->cpuUtilization->value, 40);
  // The number goes to another process: another entry. The other one ends.
  Kel::Ptr<Agent::Process> const first(tree.system->processes->process.find(1));
  putProcess(1, "second", 3, 6);
  proc.remove("77");
  nextRound();
  EXPECT_TRUE(first->isOrphan());
  EXPECT_EQ(tree.system->processes->process.size(), 1U);
  EXPECT_EQ(textOf(tree.system->processes, "args"), "/process[1]/state/args = \"second\" \"--flag\"\n");
  // A process that runs another program keeps its entry.
  putProcess(1, "third", 3, 6);
  nextRound();
  EXPECT_EQ(textOf(tree.system->processes, "args"), "/process[1]/state/args = \"third\" \"--flag\"\n");
}

TEST_F(Sources, InterfaceCountersOfKnownLinksAlone) {
  proc.put("net/dev", "Inter-|   Receive\n face |bytes\n  eth0: 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16\n"
                      " gone: 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16\n");
  sys.put("class/net/eth0/statistics/rx_crc_errors", "17\n");
  auto const entry = tree.interfaces->entryIs(&Agent::Interfaces::interface, "eth0");
  entry->state->leafIs(&Agent::InterfaceState::ifindex, 2U);
  entry->subinterfaces->entryIs(&Agent::Subinterfaces::subinterface, 0);
  auto const clients = tree.interfaces->entryIs(&Agent::Interfaces::interface, "gone");
  start();
  std::string const common = R"(/in-discards = 4
/in-errors = 3
/in-fcs-errors = 17
/in-multicast-pkts = 8
/in-octets = 1
/in-pkts = 2
/out-discards = 12
/out-errors = 11
/out-octets = 9
/out-pkts = 10
)";
  EXPECT_EQ(textOf(entry->state->counters), common);
  EXPECT_EQ(textOf(entry->subinterfaces->subinterface.find(0)->state->counters),
            absl::StrReplaceAll(common, {{"/in-fcs-errors = 17\n", ""}}));
  EXPECT_FALSE(clients->state->counters) << "no link of this machine";
}

TEST_F(Sources, ComponentsOfTheMachine) {
  sys.put("class/dmi/id/sys_vendor", "Maker\n");
  sys.put("class/dmi/id/product_name", "Box 1\n");
  sys.put("class/dmi/id/product_serial", "\n");
  sys.put("class/dmi/id/bios_version", "1.2\n");
  sys.put("block/loop0/removable", "0\n");
  sys.put("block/sda/removable", "1\n");
  sys.put("block/sda/device/model", "Disk 9  \n");
  sys.put("class/hwmon/hwmon0/name", "chip\n");
  sys.put("class/hwmon/hwmon0/temp1_input", "36549\n");
  sys.put("class/hwmon/hwmon0/temp1_label", "Core 0\n");
  sys.put("class/hwmon/hwmon0/temp2_input", "broken\n");
  proc.put("cpuinfo", "processor : 0\nmodel name\t: Fast One\nphysical id\t: 0\n\n"
                      "processor : 1\nmodel name\t: Fast One\nphysical id\t: 0\n\n");
  start();
  EXPECT_EQ(textOf(tree.components, "[CPU0]/state/description"),
            "/component[CPU0]/state/description = \"Fast One\"\n");
  EXPECT_EQ(textOf(tree.components, "[sda]/state"), R"(/component[sda]/state/model-name = "Disk 9"
/component[sda]/state/name = "sda"
/component[sda]/state/oper-status = 'ACTIVE'
/component[sda]/state/parent = "CHASSIS"
/component[sda]/state/removable = true
/component[sda]/state/type = 'STORAGE'
)");
  EXPECT_EQ(textOf(tree.components, "[CHASSIS]/state/m"),
            R"(/component[CHASSIS]/state/memory/available = 614400000
/component[CHASSIS]/state/memory/utilized = 409600000
/component[CHASSIS]/state/mfg-name = "Maker"
/component[CHASSIS]/state/model-name = "Box 1"
)");
  EXPECT_EQ(tree.components->component.size(), 6U) << textOf(tree.components, "]/name");
  sys.put("class/hwmon/hwmon0/temp1_input", "-1500\n");
  sys.remove("block/sda");
  for (int i = 0; i < 10; ++i)
    nextRound();
  EXPECT_EQ(textOf(tree.components, "temperature"), R"(/component[hwmon0-temp1]/state/temperature/avg = 17.5
/component[hwmon0-temp1]/state/temperature/instant = -1.5
/component[hwmon0-temp1]/state/temperature/max = 36.5
/component[hwmon0-temp1]/state/temperature/min = -1.5
)");
  EXPECT_FALSE(tree.components->component.has("sda"));
}

TEST_F(Sources, MountPointsThatHoldData) {
  std::string const head = "22 27 0:21 / ", tail = " rw - ";
  proc.put("self/mountinfo", head + "/" + tail + "ext4 a rw\n" + head + "/a\\040b" + tail + "xfs a rw\n" +
                                 head + "/proc" + tail + "proc a rw\n" + head + "/net" + tail +
                                 "nfs4 a rw\n" + head + "/gone" + tail + "ext4 a rw\n" + head + "/auto" +
                                 tail + "autofs a rw\n");
  std::vector<std::string> asked;
  Agent::Host host;
  host.proc = Agent::TextRoot(proc.path());
  Agent::MountSource source(host, tree.system->mountPoints, [&asked](char const* path, struct statvfs* to) {
    asked.emplace_back(path);
    to->f_frsize = 1000;
    to->f_blocks = std::string(path) == "/proc" ? 0 : 5000;
    to->f_bfree = 3000;
    to->f_bavail = 2000;
    return std::string(path) == "/gone" ? -1 : 0;
  });
  source.begin({});
  while (source.advance()) {
  }
  EXPECT_EQ(asked, (std::vector<std::string>{"/", "/a b", "/proc", "/gone"})) << "others may hold the thread";
  EXPECT_EQ(textOf(tree.system->mountPoints, "state"), R"(/mount-point[/]/state/available = 2
/mount-point[/]/state/name = "/"
/mount-point[/]/state/size = 5
/mount-point[/]/state/type = 'EXT4_FS'
/mount-point[/]/state/utilized = 2
/mount-point[/a b]/state/available = 2
/mount-point[/a b]/state/name = "/a b"
/mount-point[/a b]/state/size = 5
/mount-point[/a b]/state/type = "xfs"
/mount-point[/a b]/state/utilized = 2
/mount-point[/net]/state/name = "/net"
/mount-point[/net]/state/type = "nfs4"
)");
  proc.put("self/mountinfo", head + "/" + tail + "ext4 a rw\n");
  source.begin({});
  while (source.advance()) {
  }
  EXPECT_EQ(tree.system->mountPoints->mountPoint.size(), 1U);
}

// Whatever the slices, a round finds the same; a round in which nothing changed tells of nothing but the
// time.
TEST_F(Sources, RoundsAreSlicedAndSilentWithoutChange) {
  for (int pid = 1; pid <= 300; ++pid)
    putProcess(pid, fmt::format("p{}", pid), pid, 1);
  start(0); // yields after every step
  Leaves const sliced = leavesOf(tree.system);
  EXPECT_EQ(tree.system->processes->process.size(), 300U);
  Tovak::TaskStats const stats = scheduler->stats("agent-sampler");
  EXPECT_GT(stats.runs, 600U / 2);
  nextRound(); // the second reading gives the processes' shares
  ChangeCounter const counter(tree.system);
  nextRound();
  EXPECT_EQ(counter.changes(), 1) << "current-datetime";

  Kel::Ptr<Kel::Dir> const dir(new Kel::Dir());
  Agent::Tree const other = Agent::treeIn(*dir);
  auto const wholeClock = std::make_unique<Tovak::SimulatedClock>();
  auto const whole = std::make_shared<Tovak::TaskScheduler>(*wholeClock);
  Agent::Collectors all(
      whole, other,
      {.procRoot = proc.path(), .sysRoot = sys.path(), .etcRoot = etc.path(), .watchesLinks = false});
  all.start();
  whole->runUntilIdle();
  EXPECT_EQ(leavesOf(other.system), sliced);
}

} // namespace
