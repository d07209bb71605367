// Loads the modules before anybody asks for the tree of types.
#include "yang/yang_testing.h"

#include <filesystem>
#include <fstream>
#include <random>

#include <fmt/format.h>

#include "Kel/Dir.h"

namespace YangTesting {

namespace {

// A module with constructs nested at random. Each of its types takes one of the texts that the generator of
// data tries.
class RandomModule {
public:
  explicit RandomModule(unsigned seed) : seed_(seed), random_(seed) {}

  std::string text() {
    std::string const name = fmt::format("random-{}", seed_);
    return fmt::format(
        "module {0} {{ yang-version 1.1; namespace \"urn:{0}\"; prefix r; import every {{ prefix ev; }} "
        "revision 2026-11-22; container {0} {{ {1} }} }}",
        name, nodes(4, true));
  }

private:
  unsigned below(unsigned count) { return random_() % count; }
  std::string oneOf(std::initializer_list<char const*> of) {
    return of.begin()[below(static_cast<unsigned>(of.size()))];
  }
  std::string name() { return fmt::format("n{}", ++names_); }
  static std::string typed(std::string const& type) {
    return fmt::format("type {}{}", type, type.ends_with('}') ? "" : ";");
  }
  std::string keyType() {
    return oneOf({"string", "uint8", "int64", "boolean", "decimal64 { fraction-digits 3; }",
                  "identityref { base ev:animal; }", "enumeration { enum red; enum \"light green\"; }",
                  "union { type uint8; type boolean; type string; }"});
  }
  std::string type() {
    return below(2) == 0
               ? keyType()
               : oneOf({"string { length 1..3; }", "uint64", "int8 { range \"-9..9\"; }", "binary", "empty",
                        "bits { bit one; bit three; }", "instance-identifier { require-instance false; }",
                        "union { type int8; type decimal64 { fraction-digits 1; } type enumeration { enum "
                        "red; } type binary; }",
                        "leafref { path \"/ev:every/ev:config/ev:text\"; require-instance false; }"});
  }
  std::string list(int depth, bool isConfig) {
    std::string keys, leaves;
    for (unsigned i = 1 + below(3); i > 0; --i) {
      std::string const key = name();
      keys += (keys.empty() ? "" : " ") + key;
      leaves += fmt::format("leaf {} {{ {} }} ", key, typed(keyType()));
    }
    return fmt::format("list {} {{ key \"{}\"; {} {} }} ", name(), keys, leaves, nodes(depth - 1, isConfig));
  }
  std::string nodes(int depth, bool isConfig) {
    std::string all = fmt::format("leaf {} {{ {} }} ", name(), typed(type()));
    for (unsigned i = 1 + below(4); i > 0 && depth > 0; --i) {
      switch (below(6)) {
      case 0: all += list(depth, isConfig); break;
      case 1: all += fmt::format("container {} {{ {} }} ", name(), nodes(depth - 1, isConfig)); break;
      case 2:
        if (isConfig)
          all += fmt::format("container {} {{ config false; {} }} ", name(), nodes(depth - 1, false));
        break;
      case 3: all += fmt::format("leaf-list {} {{ {} }} ", name(), typed(keyType())); break;
      case 4:
        all += fmt::format("choice {} {{ case {} {{ {} }} case {} {{ {} }} }} ", name(), name(),
                           nodes(depth - 1, isConfig), name(), nodes(depth - 1, isConfig));
        break;
      default: all += fmt::format("leaf {} {{ {} }} ", name(), typed(type()));
      }
    }
    return all;
  }

  unsigned const seed_;
  std::mt19937 random_;
  unsigned names_ = 0;
};

} // namespace

Agent::YangModel const& model() {
  static std::unique_ptr<Agent::YangModel> const loaded = [] {
    Agent::machineIsLeftOut();
    std::filesystem::path const folder = testing::TempDir() + "random-modules";
    std::filesystem::create_directories(folder);
    for (unsigned seed = 1; seed <= 8; ++seed)
      std::ofstream(folder / fmt::format("random-{}.yang", seed)) << RandomModule(seed).text();
    auto made = Agent::YangModel::load(
        {.folders = {KTD_SOURCE_DIR "/tests/yang/modules", folder.string()}, .modules = {}});
    EXPECT_TRUE(made.ok()) << (made.ok() ? "" : made.error());
    return std::move(*made);
  }();
  return *loaded;
}

namespace {

Agent::Limits const& loadedFirst() {
  static Agent::Limits const limits;
  static_cast<void>(model());
  return limits;
}

} // namespace

Bench::Bench() : DataBench(loadedFirst()) { model().containersIn(*Kel::globalDir()); }

} // namespace YangTesting
