// The laws over random data of the modules, with the schema library as the judge that stands outside.
#include <gmock/gmock.h>

#include <absl/strings/str_split.h>
#include <fmt/format.h>
#include <libyang/libyang.h>

#include <cstdlib>
#include <fstream>
#include <memory>
#include <random>
#include <set>

#include "Kel/Dir.h"
#include "agent/yang/YangData.h"
#include "service/subscribe_testing.h"
#include "yang/yang_testing.h"

namespace {

using ServiceTesting::difference;
using Tree = std::unique_ptr<lyd_node, void (*)(lyd_node*)>;

ly_ctx const* context() { return YangTesting::model().modules().context(); }

// Random instance data of what is served. Values are tried until the schema library takes one.
class Generator {
public:
  explicit Generator(unsigned seed) : random_(seed) {}

  Tree tree() {
    lyd_node* all = nullptr;
    for (auto const& [top, type] : YangTesting::model().types().tops) {
      if (top->module->name == std::string_view("every-rules")) continue; // random data would not hold
      lyd_node* node = nullptr;
      EXPECT_EQ(lyd_new_inner(nullptr, top->module, top->name, 0, &node), LY_SUCCESS);
      fill(node, lysc_node_child(top));
      EXPECT_EQ(lyd_insert_sibling(all, node, &all), LY_SUCCESS);
    }
    return {all, &lyd_free_all};
  }

private:
  unsigned below(std::size_t count) { return static_cast<unsigned>(random_() % count); }

  std::string value(lysc_node const* leaf) {
    static std::vector<std::string> const kTexts = absl::StrSplit(
        "0|1|-3|5|300|-9000000000|18446744073709551615|true|false|red|light green|one|one three|every:cat|"
        "every-more:horse|abc|zz|ANY|many|1.5|-10.125|AQID||a b,[c]=\\\"é\u20ac|/every:every/config",
        '|');
    for (;;) {
      std::string const& text = kTexts[below(kTexts.size())];
      LY_ERR const fits =
          lyd_value_validate(context(), leaf, text.data(), text.size(), nullptr, nullptr, nullptr);
      if (leaf->name == std::string_view("posix")) return "abc"; // of which the schema library knows nothing
      if (fits == LY_SUCCESS || fits == LY_EINCOMPLETE) return text;
    }
  }
  void fill(lyd_node* parent, lysc_node const* first) {
    for (lysc_node const* each = first; each != nullptr; each = each->next) {
      if (each->nodetype == LYS_CHOICE) {
        std::vector<lysc_node const*> cases;
        for (lysc_node const* one = lysc_node_child(each); one != nullptr; one = one->next)
          cases.push_back(one);
        fill(parent, lysc_node_child(cases[below(cases.size())]));
      } else if (YangTesting::model().types().attrs.contains(each) && !lysc_is_key(each) && below(5) != 0) {
        add(parent, each);
      }
    }
  }
  void add(lyd_node* parent, lysc_node const* node) {
    lyd_node* made = nullptr;
    switch (node->nodetype) {
    case LYS_LEAF: lyd_new_term(parent, node->module, node->name, value(node).c_str(), 0, nullptr); return;
    case LYS_LEAFLIST: {
      std::set<std::string> values;
      for (unsigned i = below(3); i < 3; ++i)
        values.insert(value(node));
      for (std::string const& each : values)
        lyd_new_term(parent, node->module, node->name, each.c_str(), 0, nullptr);
      return;
    }
    case LYS_CONTAINER: {
      ASSERT_EQ(lyd_new_inner(parent, node->module, node->name, 0, &made), LY_SUCCESS);
      fill(made, lysc_node_child(node));
      // An empty one that means something is told by nobody's leaf.
      if (lyd_child(made) == nullptr) lyd_free_tree(made);
      return;
    }
    default: break;
    }
    std::set<std::string> known;
    for (unsigned i = below(3); i < 3; ++i) {
      std::string keys;
      for (lysc_node const* key = lysc_node_child(node); key != nullptr && lysc_is_key(key);
           key = key->next) {
        std::string const text = value(key);
        char const quote = text.find('"') == text.npos ? '"' : '\'';
        keys += fmt::format("[{}={}{}{}]", key->name, quote, text, quote);
      }
      if (!known.insert(keys).second) continue;
      ASSERT_EQ(lyd_new_list2(parent, node->module, node->name, keys.c_str(), 0, &made), LY_SUCCESS) << keys;
      fill(made, lysc_node_child(node));
    }
  }

  std::mt19937 random_;
};

// "PATH=VALUE" of all leaves; of leaf-lists in their order.
std::set<std::string> leavesOf(lyd_node const* tree) {
  std::set<std::string> all;
  for (lyd_node const* root = tree; root != nullptr; root = root->next) {
    lyd_node const* each = nullptr;
    LYD_TREE_DFS_BEGIN(root, each) {
      if ((each->schema->nodetype & (LYS_LEAF | LYS_LEAFLIST)) != 0) {
        std::unique_ptr<char, void (*)(void*)> const path(lyd_path(each, LYD_PATH_STD, nullptr, 0),
                                                          &std::free);
        all.insert(fmt::format("{}={}", path.get(), lyd_get_value(each)));
      }
      LYD_TREE_DFS_END(root, each);
    }
  }
  return all;
}

std::string printed(Tree const& tree, LYD_FORMAT format) {
  char* text = nullptr;
  EXPECT_EQ(lyd_print_mem(&text, tree.get(), format, LYD_PRINT_WITHSIBLINGS), LY_SUCCESS);
  std::unique_ptr<char, void (*)(void*)> const held(text, &std::free);
  return text == nullptr ? std::string() : std::string(text);
}

std::string written(std::string const& name, std::string const& text) {
  std::string const path = testing::TempDir() + name;
  std::ofstream(path, std::ios::binary) << text;
  return path;
}

void load(std::string const& file) {
  auto const filled = Agent::yangDataInto(*Kel::globalDir(), YangTesting::model(), {file});
  ASSERT_TRUE(filled.ok()) << filled.error();
  EXPECT_EQ(filled->leftOut, 0U);
}

TEST(YangLaw, DataComesOutAsItWentIn) {
  for (unsigned seed = 1; seed <= 20; ++seed) {
    SCOPED_TRACE(fmt::format("seed {}", seed));
    static_cast<void>(YangTesting::model());
    Tree const given = Generator(seed).tree();
    std::string const json = printed(given, LYD_JSON);
    std::map<std::string, std::string> fromJson, configured;
    gnmi::GetResponse walk;
    {
      YangTesting::Bench bench;
      load(written("data.json", json));
      std::string const told = bench.value("/", gnmi::JSON_IETF);
      lyd_node* back = nullptr;
      ASSERT_EQ(
          lyd_parse_data_mem(context(), told.c_str(), LYD_JSON, LYD_PARSE_STRICT | LYD_PARSE_ONLY, 0, &back),
          LY_SUCCESS)
          << ly_errmsg(context()) << " " << told;
      Tree const held(back, &lyd_free_all);
      EXPECT_EQ(leavesOf(back), leavesOf(given.get())) << json;
      fromJson = bench.leaves();
      configured = bench.leaves(gnmi::GetRequest::CONFIG);
      EXPECT_TRUE(
          bench.get(ServiceTesting::getRequest({"/"}, gnmi::PROTO, gnmi::GetRequest::CONFIG), walk).ok());
    }
    {
      YangTesting::Bench bench;
      load(written("data.xml", printed(given, LYD_XML)));
      EXPECT_EQ(difference(fromJson, bench.leaves()), "");
    }
    // What a walk tells, sent back to an empty agent, gives the same tree.
    YangTesting::Bench bench;
    gnmi::SetRequest again;
    for (gnmi::Update const& update : walk.notification(0).update())
      *again.add_update() = update;
    grpc::Status const status = bench.set(again);
    EXPECT_TRUE(status.ok()) << status.error_message();
    EXPECT_EQ(difference(configured, bench.leaves()), "");
  }
}

TEST(YangLaw, SnapshotPlusChangesIsTheTruth) {
  constexpr std::int64_t kSecond = 1'000'000'000;
  YangTesting::Bench bench;
  ServiceTesting::Subscriber client(bench, bench.channel());
  client.send(ServiceTesting::stream().add("/", gnmi::ON_CHANGE).done());
  std::mt19937 random(1);
  for (unsigned seed = 1; seed <= 12; ++seed) {
    SCOPED_TRACE(fmt::format("seed {}", seed));
    load(written("stream.json", printed(Generator(seed).tree(), LYD_JSON)));
    if (seed % 3 == 0) {
      std::string const top = fmt::format("/random-{}", 1 + random() % 8);
      EXPECT_TRUE(bench.provided("delete " + top).ok());
    }
    bench.advance(kSecond);
    ServiceTesting::Subscriber fresh(bench, bench.channel());
    fresh.send(ServiceTesting::once().add("/").done());
    fresh.untilSync();
    EXPECT_EQ(fresh.tree.size(), bench.leaves().size());
    static_cast<void>(client.applyUntil([&] { return client.tree == fresh.tree; }));
    ASSERT_EQ(client.tree, fresh.tree);
    EXPECT_THAT(client.complaints, testing::IsEmpty());
  }
}

TEST(YangData, WhatDoesNotFitIsRefusedWithItsPlace) {
  YangTesting::Bench bench;
  for (auto const& [text, what] : std::initializer_list<std::pair<char const*, char const*>>{
           {"", "parse error"},
           {"{} {}", "parse error"},
           {R"({"every:every":{"config":{"i8":1,"i8":2}}})", "there twice"},
           {R"({"every:every":{"config":{"i8":200}}})", "every:every/config/i8"},
           {R"({"every:every":{"config":{"posix":"abd"}}})", "/every:every/config/posix: it does not match"},
           {R"({"every:every":{"config":{"nothing":1}}})", "nothing"},
           {R"({"nobody:every":{}})", "nobody"},
           {"<every xmlns='urn:ondra:every'><config><i8>x</i8></config></every>", "i8"},
       }) {
    auto const filled = Agent::yangDataInto(*Kel::globalDir(), YangTesting::model(), {written("bad", text)});
    ASSERT_FALSE(filled.ok()) << text;
    EXPECT_THAT(filled.error(), testing::HasSubstr(what)) << text;
  }
}

} // namespace
