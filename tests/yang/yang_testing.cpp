// Loads the modules before anybody asks for the tree of types.
#include "yang/yang_testing.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <set>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "Kel/Dir.h"
#include "agent/yang/YangData.h"

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
        "revision 2026-11-22; grouping g {{ {1} }} container {0} {{ {2} }} {3} "
        "augment \"/r:{0}\" {{ container {4} {{ uses g; {5} }} }} }}",
        name, nodes(1, true), nodes(4, true), nodes(1, true), this->name(), nodes(2, true));
  }

private:
  unsigned below(unsigned count) { return random_() % count; }
  std::string oneOf(std::initializer_list<char const*> of) {
    return of.begin()[below(static_cast<unsigned>(of.size()))];
  }
  std::string name() { return fmt::format("n{}-{}", seed_, ++names_); }
  static std::string typed(std::string const& type) {
    return fmt::format("type {}{}", type, type.ends_with('}') ? "" : ";");
  }
  std::string keyType() {
    return oneOf({"string", "uint8", "int64", "boolean", "decimal64 { fraction-digits 3; }",
                  "identityref { base ev:animal; }", "enumeration { enum red; enum \"light green\"; }",
                  "union { type uint8; type boolean; type int64; type enumeration { enum auto; } }", "binary",
                  "union { type int8; type binary; }"});
  }
  std::string type() {
    static constexpr char kMixed[] = "union { type int8; type decimal64 { fraction-digits 1; } type "
                                     "enumeration { enum red; } type binary; }";
    return below(2) == 0
               ? keyType()
               : oneOf({"string { length 1..3; }", "uint64", "int8 { range \"-9..9\"; }", "binary", "empty",
                        "bits { bit one; bit three; }", "instance-identifier { require-instance false; }",
                        kMixed, "leafref { path \"/ev:every/ev:config/ev:text\"; require-instance false; }"});
  }
  std::string list(int depth, bool isConfig) {
    std::string keys, leaves, repeated;
    for (unsigned i = 1 + below(3); i > 0; --i) {
      std::string const key = name();
      bool const isRepeated = below(3) == 0;
      keys += (keys.empty() ? "" : " ") + key;
      std::string const leaf = fmt::format("leaf {} {{ {} }} ", key, typed(keyType()));
      leaves +=
          isRepeated ? fmt::format("leaf {0} {{ type leafref {{ path \"../config/{0}\"; }} }} ", key) : leaf;
      if (isRepeated) repeated += leaf;
    }
    return fmt::format("list {} {{ key \"{}\"; {} container config {{ {} {} }} {} }} ", name(), keys, leaves,
                       repeated, nodes(0, isConfig), nodes(depth - 1, isConfig));
  }
  // Its conditions are of the leaf that is first in it.
  std::string nodes(int depth, bool isConfig) {
    std::string const leaf = name();
    std::string all = fmt::format("leaf {} {{ {} }} ", leaf, typed(type()));
    for (unsigned i = 1 + below(4); i > 0 && depth > 0; --i) {
      switch (below(6)) {
      case 0: all += list(depth, isConfig); break;
      case 1:
        all += fmt::format(
            "container {} {{ {} {} }} ", name(),
            fmt::format(fmt::runtime(oneOf({"", "presence \"it is there\";", "when \"../{0}\";",
                                            "when \"../{0} = 'red' or not(../{0})\";",
                                            "presence \"there\"; must \"string-length(../{0}) < 4\";"})),
                        leaf),
            nodes(depth - 1, isConfig));
        break;
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
    std::filesystem::remove_all(folder); // of another run, which may have made others
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

// --- data ---------------------------------------------------------------------------------------------------

namespace {

// Random instance data of what is served. Values are tried until the schema library takes one.
class Generator {
public:
  explicit Generator(unsigned seed) : random_(seed) {}

  Tree tree() {
    for (lys_module const* const module : model().modules().implemented())
      if (module->name != std::string_view("every-rules")) fill(nullptr, module->compiled->data);
    return {std::exchange(all_, nullptr), &lyd_free_all};
  }

private:
  unsigned below(std::size_t count) { return static_cast<unsigned>(random_() % count); }

  std::string value(lysc_node const* leaf) {
    static constexpr auto kTexts = std::to_array<char const*>({"0",
                                                               "1",
                                                               "-3",
                                                               "5",
                                                               "300",
                                                               "-9000000000",
                                                               "18446744073709551615",
                                                               "true",
                                                               "false",
                                                               "red",
                                                               "light green",
                                                               "one",
                                                               "one three",
                                                               "every:cat",
                                                               "every-more:horse",
                                                               "abc",
                                                               "zz",
                                                               "ANY",
                                                               "many",
                                                               "1.5",
                                                               "-10.125",
                                                               "AQID",
                                                               "",
                                                               "a b,[c]=\\\"é\u20ac",
                                                               "/every:every/config"});
    for (;;) {
      std::string const text = kTexts[below(kTexts.size())];
      LY_ERR const fits = lyd_value_validate(model().modules().context(), leaf, text.data(), text.size(),
                                             nullptr, nullptr, nullptr);
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
      } else if (char const* const key = keyRepeatedBy(parent, each)) {
        addValue(parent, each, key);
      } else if (model().types().has(each) && !lysc_is_key(each) &&
                 (each->name == std::string_view("config") || below(5) != 0)) {
        add(parent, each);
      }
    }
  }
  void add(lyd_node* parent, lysc_node const* node) {
    lyd_node* made = nullptr;
    switch (node->nodetype) {
    case LYS_LEAF: return addValue(parent, node, value(node));
    case LYS_LEAFLIST: {
      std::set<std::string> values;
      for (unsigned i = below(3); i < 3; ++i)
        values.insert(value(node));
      for (std::string const& each : values)
        addValue(parent, node, each);
      return;
    }
    case LYS_CONTAINER: {
      ASSERT_EQ(lyd_new_inner(parent, node->module, node->name, 0, &made), LY_SUCCESS);
      fill(made, lysc_node_child(node));
      if (lyd_child(made) == nullptr && (node->flags & LYS_PRESENCE) == 0) return lyd_free_tree(made);
      atTop(parent, made);
      if (conditionsHold(*made)) return;
      if (made == all_) all_ = made->next;
      return lyd_free_tree(made);
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
      atTop(parent, made);
    }
  }
  // The value of the key that points to the leaf; null: none does.
  static char const* keyRepeatedBy(lyd_node const* parent, lysc_node const* leaf) {
    if (parent == nullptr || lyd_parent(parent) == nullptr) return nullptr;
    for (lyd_node const* key = lyd_child(lyd_parent(parent)); key != nullptr && lysc_is_key(key->schema);
         key = key->next)
      if (parent->schema->name == std::string_view("config") &&
          key->schema->name == std::string_view(leaf->name))
        return lyd_get_value(key);
    return nullptr;
  }
  static bool conditionsHold(lyd_node const& node) {
    std::vector<char const*> conditions;
    lysc_when* const* const whens = lysc_node_when(node.schema);
    lysc_must const* const musts = lysc_node_musts(node.schema);
    for (LY_ARRAY_COUNT_TYPE i = 0; i < LY_ARRAY_COUNT(whens); ++i)
      conditions.push_back(lyxp_get_expr(whens[i]->cond));
    for (LY_ARRAY_COUNT_TYPE i = 0; i < LY_ARRAY_COUNT(musts); ++i)
      conditions.push_back(lyxp_get_expr(musts[i].cond));
    return std::ranges::all_of(conditions, [&node](char const* condition) {
      ly_bool holds = 0;
      EXPECT_EQ(lyd_eval_xpath(&node, condition, &holds), LY_SUCCESS) << condition;
      return holds != 0;
    });
  }
  void addValue(lyd_node* parent, lysc_node const* node, std::string const& text) {
    lyd_node* made = nullptr;
    ASSERT_EQ(lyd_new_term(parent, node->module, node->name, text.c_str(), 0, &made), LY_SUCCESS) << text;
    atTop(parent, made);
  }
  void atTop(lyd_node const* parent, lyd_node* made) {
    if (parent != nullptr) return;
    EXPECT_EQ(lyd_insert_sibling(all_, made, &all_), LY_SUCCESS);
  }

  lyd_node* all_ = nullptr;
  std::mt19937 random_;
};

} // namespace

Tree randomData(unsigned seed) { return Generator(seed).tree(); }

std::string fileOf(Tree const& data, LYD_FORMAT format) {
  char* text = nullptr;
  EXPECT_EQ(lyd_print_mem(&text, data.get(), format, LYD_PRINT_WITHSIBLINGS), LY_SUCCESS);
  std::unique_ptr<char, void (*)(void*)> const held(text, &std::free);
  std::string path = testing::TempDir() + "data";
  std::ofstream(path, std::ios::binary) << (text == nullptr ? "{}" : text);
  return path;
}

// --- a server -----------------------------------------------------------------------------------------------

namespace {

Agent::Limits const& loadedFirst() {
  static Agent::Limits const limits;
  static_cast<void>(model());
  return limits;
}

} // namespace

Bench::Bench() : DataBench(loadedFirst()), providers_(runtime(), nullptr, Agent::Writer::Provider) {}

grpc::Status Bench::provided(std::string_view text, gnmi::SetResponse* response) {
  auto const stub = gnmi::gNMI::NewStub(providers_.channel());
  gnmi::SetRequest const request = ServiceTesting::setRequest(text);
  gnmi::SetResponse unseen;
  return ServiceTesting::awaited(*this, [&](grpc::ClientContext* context, auto told) {
    stub->async()->Set(context, &request, response == nullptr ? &unseen : response, told);
  });
}

void Bench::load(std::string const& file) {
  auto const filled = Agent::yangDataInto(*Kel::globalDir(), model(), {file});
  ASSERT_TRUE(filled.ok()) << filled.error();
  EXPECT_EQ(filled->leftOut, 0U);
}

gnmi::SetRequest Bench::configuration(gnmi::GetRequest::DataType type) {
  gnmi::GetResponse told;
  EXPECT_TRUE(get(ServiceTesting::getRequest({"/"}, gnmi::PROTO, type), told).ok());
  gnmi::SetRequest request;
  *request.mutable_update() = told.notification(0).update();
  return request;
}

} // namespace YangTesting
