// The readers of the kernel's texts, over well-formed and broken ones.
#include <gtest/gtest.h>

#include "AgentTesting.h"
#include "agent/collect/ProcText.h"
#include "agent/collect/StatWindow.h"
#include "agent/collect/TextFiles.h"

namespace {

using namespace Agent;

TEST(ProcText, ProcessNamesMayHoldAnything) {
  std::string const tail =
      " S 1 1 1 0 -1 4194560 1 2 3 4 50 60 7 8 20 0 1 0 900 1000000 77 18446744073709551615";
  for (std::string const name : {"sh", "a b", ") S 9 (", "((x))", ""}) {
    std::string const text = "42 (" + name + ")" + tail;
    auto const stat = processStat(text);
    ASSERT_TRUE(stat) << name;
    EXPECT_EQ(stat->name, name);
    EXPECT_EQ(stat->userTicks, 50U);
    EXPECT_EQ(stat->systemTicks, 60U);
    EXPECT_EQ(stat->startTicks, 900U);
    EXPECT_EQ(stat->residentPages, 77U);
  }
  // Cut anywhere before the last field that is read, it is none.
  std::string const whole = "42 (sh)" + tail;
  std::size_t const enough = whole.find(" 77");
  for (std::size_t size = 0; size <= enough; ++size)
    EXPECT_FALSE(processStat(std::string_view(whole).substr(0, size))) << size;
}

TEST(ProcText, BrokenLinesAreNone) {
  for (char const* const line : {"", "cpu", "cpu 1 2 3", "cpux 1 2 3 4", "cpu-1 1 2 3 4",
                                 "cpu99999999999 1 2 3 4", "intr 1 2 3 4", "cpu0 a b c d"})
    EXPECT_FALSE(cpuLine(line)) << line;
  EXPECT_EQ(cpuLine("cpu3 1 2 3 4")->ticks.sum(), 10U); // an old kernel's
  EXPECT_EQ(cpuLine("cpu  1 2 3 4 5 6 7 8 100 100")->ticks.sum(), 36U) << "guest time is user time already";
  for (char const* const line :
       {"", "face |bytes", "lo:", "lo: 1 2 3", "lo: 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 x"})
    EXPECT_FALSE(netDevLine(line)) << line;
  EXPECT_EQ(netDevLine("eth0:1:9 1 1 1 1 1 1 1 1 1 1 1 1 1 1 2")->name, "eth0:1");
  for (char const* const line : {"", "22 27 0:21 / /proc rw", "22 27 0:21 / /proc rw shared:1 -", "a b"})
    EXPECT_FALSE(mountLine(line)) << line;
}

TEST(ProcText, MountPointsAreUnescaped) {
  auto const mount =
      mountLine(R"(36 35 98:0 /mnt1 /my\040disk\134x\04 rw shared:1 master:2 - xfs /dev/sda rw)");
  ASSERT_TRUE(mount);
  EXPECT_EQ(mount->mountPoint, "/my disk\\x\\04");
  EXPECT_EQ(mount->kind, "xfs");
}

TEST(ProcText, SettingsFiles) {
  auto const conf = resolvConf("# nameserver 9.9.9.9\nnameserver 10.0.0.1 # first\nnameserver\nsearch a b\n"
                               "nameserver fe80::1%eth0\nsearch c.example d.example\n");
  EXPECT_EQ(conf.servers, (std::vector<std::string>{"10.0.0.1", "fe80::1%eth0"}));
  EXPECT_EQ(conf.search, (std::vector<std::string>{"c.example", "d.example"}));
  EXPECT_EQ(assignedValue("NAMES=1\nNAME='a b'\n", "NAME"), "a b");
  EXPECT_EQ(assignedValue("NAME=\"", "NAME"), "\"");
  EXPECT_EQ(assignedValue("X=1", "NAME"), std::nullopt);
  EXPECT_EQ(commandLine(std::string_view("a\0\0b\0\0\0", 7)), (std::vector<std::string_view>{"a", "", "b"}));
}

// Lines of every length around the buffer's, with and without an end of the last one.
TEST(TextFiles, LinesAreReadInBoundedSteps) {
  AgentTesting::RecordedFolder folder;
  for (bool const ended : {true, false}) {
    std::string text, wanted, got;
    for (std::size_t const size : {0, 1, 16382, 16383, 16384, 40000, 5, 70000, 3}) {
      text += std::string(size, 'x') + "\n";
      if (size < 16384) wanted += std::to_string(size) + " "; // longer ones are left out
    }
    if (!ended) text.pop_back();
    folder.put("lines", text);
    LineReader reader;
    ASSERT_TRUE(reader.open(folder.path("lines")));
    std::string_view line;
    while (reader.next(line))
      got += std::to_string(line.size()) + " ";
    EXPECT_EQ(got, wanted);
  }
  LineReader reader;
  std::string_view line;
  EXPECT_FALSE(reader.open(folder.path("none")));
  EXPECT_FALSE(reader.next(line));
}

// Whatever the kernel's bytes are, clients get characters.
TEST(TextFiles, TextsAreUtf8) {
  std::pair<std::string, std::string> const rows[] = {
      {"plain", "plain"},
      {"\u00e9\u20ac\U0001f600", "\u00e9\u20ac\U0001f600"},
      {"caf\xc3", "caf?"}, // cut short
      {"\xff\xfe.", "??."},
      {"\x80\xc0\xaf", "???"},
      {"\xed\xa0\x80", "???"},
      {"\xf4\x90\x80\x80", "????"},
      {"\xe0\x80\x80\xe2\x82", "?????"},
  };
  AgentTesting::RecordedFolder folder;
  TextRoot root(folder.path());
  LineReader lines;
  for (auto const& [bytes, text] : rows) {
    folder.put("file", bytes + "\n" + bytes);
    EXPECT_EQ(root.text("file"), text + "\n" + text);
    ASSERT_TRUE(lines.open(folder.path("file")));
    for (std::string_view line; lines.next(line);)
      EXPECT_EQ(line, text);
  }
}

TEST(StatWindow, LooksBackOverTheLastSamplesOnly) {
  StatWindow<std::uint8_t> window;
  window.push(100, 1, 10);
  window.push(4, 2, 10);
  auto stats = window.stats();
  EXPECT_EQ(stats.avg, 52);
  EXPECT_EQ(stats.maxTime, 1U);
  EXPECT_EQ(stats.interval, 20U);
  for (std::uint64_t i = 0; i < window.kSamples - 1; ++i)
    window.push(8, 3 + i, 10);
  stats = window.stats(); // the hundred has left
  EXPECT_EQ(stats.max, 8);
  EXPECT_EQ(stats.min, 4);
  EXPECT_EQ(stats.minTime, 2U);
  EXPECT_EQ(stats.maxTime, 2 + window.kSamples - 1);
  EXPECT_EQ(stats.interval, window.kSamples * 10);
}

} // namespace
