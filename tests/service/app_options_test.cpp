// Options: what is taken, and what is refused with which exit code and text.
#include <gtest/gtest.h>

#include <absl/strings/str_split.h>
#include <cstdio>
#include <filesystem>
#include <fstream>

#include "agent/client/Requests.h"
#include "agent/context/Memory.h"
#include "agent/service/ServeOptions.h"

namespace Agent {
namespace {

using Arguments = std::vector<std::string>;

class TextFile {
public:
  explicit TextFile(std::string const& text)
      : path(testing::TempDir() + testing::UnitTest::GetInstance()->current_test_info()->name()) {
    std::ofstream(path) << text;
  }
  ~TextFile() { std::remove(path.c_str()); }
  std::string const path;
};

TEST(MemoryLimit, IsTheLeastThatMachineAndControlGroupsAllow) {
  namespace fs = std::filesystem;
  fs::path const root = fs::path(testing::TempDir()) / "memory-limit";
  auto const write = [&root](fs::path const& file, std::string const& text) {
    fs::create_directories((root / file).parent_path());
    std::ofstream(root / file) << text << '\n';
    return memoryLimit(root.string()) >> 20;
  };
  EXPECT_EQ(write("proc/meminfo", "MemTotal:  4194304 kB\nMemFree: 1 kB"), 4096U);
  EXPECT_EQ(write("proc/self/cgroup", "1:cpu:/x\n0::/system.slice/agent.service"), 4096U);
  EXPECT_EQ(write("sys/fs/cgroup/system.slice/agent.service/memory.max", "max"), 4096U);
  EXPECT_EQ(write("sys/fs/cgroup/system.slice/memory.max", "2147483648"), 2048U);
  EXPECT_EQ(write("sys/fs/cgroup/system.slice/agent.service/memory.max", "536870912"), 512U);
  EXPECT_EQ(write("proc/self/cgroup", "7:memory:/old"), 4096U);
  EXPECT_EQ(write("sys/fs/cgroup/memory/old/memory.limit_in_bytes", "1073741824"), 1024U);
  fs::remove_all(root);
}

TEST(ServeOptions, TheConnectionMustBeSafeOrAskedForTwice) {
  // What is said of them; nothing: they are taken.
  for (auto const& [arguments, fault] : std::vector<std::pair<Arguments, std::string>>{
           {{}, "give --tls-cert and --tls-key, or --insecure"},
           {{"--insecure"}, ""},
           {{"--insecure", "--listen", "0.0.0.0:9339"}, "plaintext on 0.0.0.0:9339 is open to others"},
           {{"--insecure", "--listen", "127.0.0.1:1", "--listen", "[::]:1"}, "plaintext on [::]:1"},
           {{"--insecure", "--insecure", "--listen", "0.0.0.0:9339"}, ""},
           {{"--tls-cert", "c", "--tls-key", "k", "--listen", "0.0.0.0:9339"}, ""},
           {{"--tls-cert", "c"}, "need each other"},
           {{"--tls-key", "k", "--insecure"}, "need each other"},
           {{"--insecure", "--tls-client-ca", "c"}, "--tls-client-ca needs --tls-cert"},
           {{"--tls-cert", "c", "--tls-key", "k", "--insecure"}, "contradicts"},
           {{"--insecure", "--listen", "nowhere"}, "--listen: 'nowhere' is not of the form HOST:PORT"},
           {{"--insecure", "--sample-floor", "0s"}, "--sample-floor: at least 1ms"},
           {{"--insecure", "--max-streams", "0"}, "--max-streams"},
           {{"--insecure", "--max-message", "1"}, "--max-message"},
           {{"--insecure", "--handshake-timeout", "1ms"}, "--handshake-timeout: between"},
           {{"--insecure", "--memory-budget", "1MiB"}, "--memory-budget: at least 8MiB"},
           {{"--insecure", "--synthetic-rate", "5"}, "needs --synthetic"},
           {{"--insecure", "--provider-mode", "660"}, "need --provider"},
           {{"--insecure", "--provider", "unix:p", "--provider-mode", "668"}, "'668' is none"},
           {{"--insecure", "--provider", "unix:p", "--provider-group", "no such group"}, "--provider-group"},
           {{"--insecure", "word"}, "word"},
       }) {
    auto const options = ServeOptions::parse(arguments);
    SCOPED_TRACE(testing::PrintToString(arguments));
    EXPECT_EQ(options.ok(), fault.empty()) << (options.ok() ? "" : options.error().text);
    if (options.ok()) continue;
    EXPECT_EQ(options.error().code, ExitCode::usage);
    EXPECT_NE(options.error().text.find(fault), std::string::npos) << options.error().text;
    EXPECT_NE(options.error().text.find("--help"), std::string::npos) << options.error().text;
  }
}

TEST(ServeOptions, ComeFromTheCommandLineAndFromAFile) {
  TextFile const file("listen = [\"0.0.0.0:1\", \"[::]:2\"]\ninsecure = 2\n# a comment\nmax-streams = 7\n"
                      "max-message = \"1MiB\"\nsample-floor = \"500ms\"\napply-config = true\n");
  auto const options = ServeOptions::parse(
      {"--config", file.path, "--max-streams", "9", "--synthetic", "1000", "--check-config"});
  ASSERT_TRUE(options.ok()) << options.error().text;
  ServeOptions const& o = options.value();
  ASSERT_EQ(o.listen.size(), 2U);
  EXPECT_EQ(o.listen[1].text(), "[::]:2");
  EXPECT_EQ(o.limits.streams, 9U); // the command line is stronger
  EXPECT_EQ(o.limits.messageBytes, std::size_t{1} << 20);
  EXPECT_EQ(o.limits.sampleFloorNs, 500'000'000);
  EXPECT_TRUE(o.appliesConfig);
  EXPECT_TRUE(o.checksOnly);
  EXPECT_TRUE(o.servesMachine);
  EXPECT_EQ(o.syntheticLeaves, 1'000U);

  TextFile const misspelt("lisden = \"0.0.0.0:1\"\n");
  auto const refused = ServeOptions::parse({"--config", misspelt.path, "--insecure"});
  ASSERT_FALSE(refused.ok());
  EXPECT_NE(refused.error().text.find("lisden"), std::string::npos) << refused.error().text;
  EXPECT_FALSE(ServeOptions::parse({"--config", misspelt.path + ".not", "--insecure"}).ok());
}

TEST(ClientOptions, BecomeTheRequest) {
  auto const request = [](Arguments const& arguments) {
    auto const options = WatchOptions::parse(arguments);
    return options.ok() ? options.value().request.ShortDebugString() : options.error().text;
  };
  EXPECT_EQ(request({"/a", "--target", "t"}), "subscribe { prefix { target: \"t\" } subscription { path { "
                                              "elem { name: \"a\" } } } encoding: PROTO }");
  EXPECT_EQ(request({"--once", "--encoding", "json"}),
            "subscribe { prefix { } subscription { path { } } mode: ONCE }");
  EXPECT_EQ(
      request({"a", "b", "--sample", "1s", "--suppress-redundant", "--heartbeat", "1m", "--updates-only"}),
      "subscribe { prefix { } "
      "subscription { path { elem { name: \"a\" } } mode: SAMPLE sample_interval: 1000000000 "
      "suppress_redundant: true heartbeat_interval: 60000000000 } "
      "subscription { path { elem { name: \"b\" } } mode: SAMPLE sample_interval: 1000000000 "
      "suppress_redundant: true heartbeat_interval: 60000000000 } encoding: PROTO updates_only: true }");
  EXPECT_EQ(request({"--on-change", "a"}), "subscribe { prefix { } subscription { path { elem { name: \"a\" "
                                           "} } mode: ON_CHANGE } encoding: PROTO }");

  auto const get = GetOptions::parse({"a", "--type", "config"});
  ASSERT_TRUE(get.ok());
  EXPECT_EQ(get.value().request.ShortDebugString(),
            "prefix { } path { elem { name: \"a\" } } type: CONFIG encoding: JSON_IETF");
  auto const set = SetOptions::parse({"/a/b=5", "--delete", "/c", "--replace", "/d={}", "--update", "/e=f"});
  ASSERT_TRUE(set.ok());
  EXPECT_EQ(set.value().request.ShortDebugString(),
            "prefix { } delete { elem { name: \"c\" } } "
            "replace { path { elem { name: \"d\" } } val { json_ietf_val: \"{}\" } } "
            "update { path { elem { name: \"a\" } elem { name: \"b\" } } val { json_ietf_val: \"5\" } } "
            "update { path { elem { name: \"e\" } } val { json_ietf_val: \"\\\"f\\\"\" } }");
}

TEST(ClientOptions, WrongOnesAreRefused) {
  for (char const* const text :
       {"--once --on-change", "--once --sample 1s", "--suppress-redundant", "--sample 1", "a[b]",
        "--insecure --ca x", "--cert x", "--encoding xml", "--seconds 0"}) {
    auto const options = WatchOptions::parse(absl::StrSplit(text, ' '));
    ASSERT_FALSE(options.ok()) << text;
    EXPECT_EQ(options.error().code, ExitCode::usage);
  }
  EXPECT_FALSE(SetOptions::parse({"/a"}).ok());
}

} // namespace
} // namespace Agent
