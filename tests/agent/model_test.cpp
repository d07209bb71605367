// The model itself: what its page says, which leaves are whose, what a client's writes and deletes leave
// behind.
#include <algorithm>
#include <fstream>
#include <functional>
#include <sstream>

#include "AgentTesting.h"
#include <boost/container/small_vector.hpp>

#include "Kel/Attr.h"
#include "agent/model/Schema.h"
#include "agent/model/SupportedPaths.h"

namespace {

using namespace AgentTesting;
using Kel::KelAttr;

void visitTypes(std::string const& path, Kel::KelType type,
                std::function<void(std::string const&, KelAttr)> const& visit) {
  for (Kel::KelTypeBase::AttributeQIterator it(type); it; ++it) {
    std::string const below = path + "/" + (*it).name().str();
    visit(below, *it);
    if (Agent::leafInfo(*it) == nullptr) visitTypes(below, (*it).memberType(), visit);
  }
}

TEST(Model, PageOfSupportedPathsIsUpToDate) {
  std::ifstream file(KTD_SOURCE_DIR "/docs/supported-paths.md");
  std::stringstream page;
  page << file.rdbuf();
  EXPECT_EQ(page.str(), Agent::supportedPaths())
      << "make it anew: <build>/agent/ondra-supported-paths > docs/supported-paths.md";
}

// Published models put what can be configured below a container "config", and nothing else.
TEST(Model, ConfigurationLeavesAreTheSettableOnes) {
  int leaves = 0;
  for (Agent::TopLevel const& top : Agent::topLevels()) {
    visitTypes("/" + std::string(top.name), top.type, [&](std::string const& path, KelAttr attr) {
      ASSERT_FALSE(Agent::nodeModule(attr).empty()) << path;
      Agent::LeafInfo const* const leaf = Agent::leafInfo(attr);
      if (leaf == nullptr) return;
      ++leaves;
      EXPECT_NE(
          std::ranges::find(Agent::publishedModels(), Agent::nodeModule(attr), &Agent::PublishedModel::name),
          Agent::publishedModels().end())
          << path << ": Capabilities must list its module";
      bool const inConfig = path.find("/config/") != std::string::npos;
      EXPECT_EQ(attr.isSettable(), inConfig) << path;
      EXPECT_TRUE(!inConfig || leaf->isConfig) << path;
      EXPECT_TRUE(leaf->isConfig == inConfig || attr.isKeyField()) << path;
      EXPECT_FALSE(leaf->isSampled && leaf->isConfig) << path;
      EXPECT_EQ(leaf->isLeafList, attr.isArray()) << path;
    });
  }
  EXPECT_GT(leaves, 200);
}

// Deleting a leaf with a published default brings the default back, and says so; a key's copy never departs
// from the key.
TEST(Model, DefaultsAndKeyCopiesSurviveWriters) {
  Kel::Ptr<Kel::Dir> const root(new Kel::Dir());
  Agent::Tree const tree = Agent::treeIn(*root);
  auto const entry = tree.interfaces->entryIs(&Agent::Interfaces::interface, "lo");
  auto const config = Kel::handleTo(entry->config);
  Kel::KelType const type = entry->config->fwkType();
  type.attr("enabled").genericIfSet(config, nullptr, Kel::handleOf(false));
  EXPECT_EQ(entry->config->enabled, false);
  {
    ChangeCounter const counter(entry);
    type.attr("enabled").genericIfDel(config);
    EXPECT_EQ(entry->config->enabled, true);
    type.attr("enabled").genericIfDel(config);
    EXPECT_EQ(counter.changes(), 1);
  }
  type.attr("mtu").genericIfSet(config, nullptr, Kel::handleOf(std::uint16_t{1500}));
  type.attr("mtu").genericIfDel(config);
  EXPECT_EQ(entry->config->mtu, std::nullopt);
  type.attr("name").genericIfSet(config, nullptr, Kel::handleOf(Kel::String("eth0")));
  type.attr("name").genericIfDel(config);
  EXPECT_EQ(entry->config->name, "lo");
}

TEST(Model, ProcessorIndexesAreCanonicalAndInNumericOrder) {
  Agent::declareTypes();
  for (char const* const text : {"ALL", "0", "7", "4294967295"}) {
    Agent::CpuIndex index{99};
    EXPECT_EQ(Agent::CpuIndex::parse(text, index), std::nullopt);
    EXPECT_EQ(index.text(), text);
  }
  for (char const* const text : {"", "all", "-1", "+1", "01", "1 ", "4294967296", "99999999999999999999"}) {
    Agent::CpuIndex index{99};
    EXPECT_NE(Agent::CpuIndex::parse(text, index), std::nullopt) << text;
    EXPECT_EQ(index.number, 99);
  }
  Kel::Ptr<Kel::Dir> const root(new Kel::Dir());
  Agent::Tree const tree = Agent::treeIn(*root);
  for (int const number : {10, 2, -1})
    tree.system->cpus->entryIs(&Agent::Cpus::cpu, Agent::CpuIndex{number});
  std::string order;
  for (auto const& [index, cpu] : tree.system->cpus->cpu)
    order += index.text() + " ";
  EXPECT_EQ(order, "ALL 2 10 ");
}

} // namespace
