// The Ir and the responses made of it. Random fillings are judged by a plain model.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <stdexcept>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "Kel/Attr.h"
#include "Ondra/ArenaRespMsg.h"
#include "Ondra/IR.h"
#include "Ondra/IrToResp.h"
#include "Tovak/Assert.h"
#include "fixture/Types.h"
#include "fixture/Values.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace {

using Kel::handleOf;
using Ondra::Ir;
using Ondra::IrLeaf;
using Ondra::IrNode;
using Ondra::Path;
using ConstPath = Kel::Ptr<Path const>;

// A new object each time: equal paths are to be found by what they hold.
ConstPath path(std::string const& text) { return Path::strToPathIs(text); }
IrLeaf::Handle number(std::uint64_t value) { return handleOf(value); }

std::vector<std::string> texts(Ir const& ir) {
  std::vector<std::string> lines;
  for (auto const& msg : ir.toSubResp()) {
    lines.push_back(msg->toString());
  }
  return lines;
}

std::string assertionOf(Ir const& ir) {
  Tovak::ScopedAssertHandler const throwing;
  try {
    (void)ir.toSubResp();
  } catch (Tovak::AssertionError const& error) {
    return error.what();
  }
  return "none";
}

TEST(Ir, OrdersByTimeThenByFirstAddition) {
  Ir ir;
  IrNode& b = ir.addNode(20, path("/b[k=1]"));
  b.addLeaf(path("/x"), number(1));
  ir.addNode(20, path("/a"));
  ir.addNode(10, path("/c")).addLeaf(path("/y/z"), nullptr);
  EXPECT_EQ(&ir.addNode(20, path("/b[k=1]")), &b);
  b.addLeaf(path("/x"), number(2)); // twice the same path: sent twice
  IrLeaf::LeafList list{number(3), handleOf(true)};
  b.leaves.push_back({path("/l"), std::move(list)});
  b.leaves.push_back({path("/e"), IrLeaf::LeafList()});

  std::vector<std::string> const expected = {
      "timestamp:10 prefix:/c delete0 ( path:/y/z ) ",
      "timestamp:20 prefix:/b[k=1] update0 ( path:/x uint_val:1 ) update1 ( path:/x uint_val:2 ) "
      "update2 ( path:/l leaflist_val:[ uint_val:3, bool_val:true ] ) update3 ( path:/e leaflist_val:[  ] ) ",
      "timestamp:20 prefix:/a ",
  };
  EXPECT_EQ(texts(ir), expected);
  EXPECT_EQ(texts(ir), expected); // the content stays
}

// Gaps and a response without leaves after each full one.
TEST(Ir, SplitsAfterEvery1000Leaves) {
  struct Case {
    int leaves;
    std::vector<int> split;
  };
  Case const cases[] = {{0, {0}},
                        {999, {999}},
                        {1000, {1000, 0}},
                        {1001, {1000, 1}},
                        {2000, {1000, 1000, 0}},
                        {2001, {1000, 1000, 1}}};
  for (Case const& one : cases) {
    Ir ir;
    IrNode& node = ir.addNode(5, path("/p"));
    for (int i = 0; i < one.leaves; ++i) {
      node.addLeaf(path("/x"), i % 3 == 0 ? nullptr : number(static_cast<std::uint64_t>(i)));
    }
    std::vector<int> split;
    std::vector<std::uint64_t> values;
    for (auto const& msg : ir.toSubResp()) {
      gnmi::Notification const& sent = msg->response->update();
      EXPECT_EQ(sent.timestamp(), 5);
      EXPECT_EQ(sent.prefix().elem(0).name(), "p");
      split.push_back(sent.update_size() + sent.delete__size());
      for (auto const& update : sent.update()) {
        values.push_back(update.val().uint_val());
      }
    }
    EXPECT_EQ(split, one.split) << one.leaves;
    EXPECT_EQ(values.size(), static_cast<std::size_t>(one.leaves - (one.leaves + 2) / 3)) << one.leaves;
    EXPECT_TRUE(std::is_sorted(values.begin(), values.end())) << one.leaves;
  }
}

TEST(Ir, RefusesWhatCannotBeSent) {
  Fixture::declareTypes();
  Ir ir;
  EXPECT_EQ(assertionOf(ir), "empty input map");

  ir.addNode(1, path("/p")).addLeaf(path("/x"), handleOf(Fixture::Contact{}));
  EXPECT_EQ(assertionOf(ir), "unsupported type");
  ir.clear();
  EXPECT_EQ(assertionOf(ir), "empty input map");

  IrNode& node = ir.addNode(1, path("/p"));
  node.leaves.push_back({path("/x"), IrLeaf::LeafList{number(1), handleOf(Fixture::Contact{})}});
  EXPECT_EQ(assertionOf(ir), "only scalar array types are supported");

  // A leaf whose value was lost to an exception.
  struct Thrower {
    operator IrLeaf::Handle() const { throw std::runtime_error("no value"); }
  };
  EXPECT_THROW(node.leaves[0].value.emplace<IrLeaf::Handle>(Thrower{}), std::runtime_error);
  EXPECT_TRUE(node.leaves[0].value.valueless_by_exception());
  EXPECT_THROW((void)ir.toSubResp(), std::bad_variant_access);
  EXPECT_THROW((void)node.leaves[0].toString(), std::bad_variant_access);

  // A prefix without a node, which `addNode` never leaves behind.
  auto& times = const_cast<Ir::TimestampToPrefixNodeType&>(ir.timestampToPrefixNode());
  times.at(1).insertionOrder_.push_back(path("/q"));
  node.leaves.clear();
  try {
    (void)ir.toSubResp();
    ADD_FAILURE() << "a missing node was not noticed";
  } catch (std::out_of_range const& error) {
    EXPECT_STREQ(error.what(), "_Map_base::at");
  }
}

TEST(Ir, PrintsItsContent) {
  Fixture::declareTypes();
  Ir ir;
  EXPECT_EQ(ir.toString(), "");
  IrNode& node = ir.addNode(20, path("/p[k=1]"));
  node.addLeaf(path("/x"), number(1));
  node.addLeaf(path("/s"), handleOf(Kel::String("text")));
  node.addLeaf(path("/m"), handleOf(Fixture::MacAddr{42}));
  node.addLeaf(path("/gone"), nullptr);
  node.leaves.push_back({path("/l"), IrLeaf::LeafList{number(1), number(2)}});
  node.leaves.push_back({path("/e"), IrLeaf::LeafList()});
  ir.addNode(10, path("/q"));
  EXPECT_EQ(ir.toString(), "ts:10\n"
                           "   insertionOrder_:</q>\n"
                           "      prefixPath:/q\n"
                           "ts:20\n"
                           "   insertionOrder_:</p[k=1]>\n"
                           "      prefixPath:/p[k=1]\n"
                           "         leafPath:/x val:1\n"
                           "         leafPath:/s val:\"text\"\n"
                           "         leafPath:/m val:02:00:00:00:00:2a\n"
                           "         leafPath:/gone val:nullptr\n"
                           "         leafPath:/l val:[1 2]\n"
                           "         leafPath:/e val:[]\n");
  ir.addNode(20, path("/r"));
  EXPECT_NE(ir.toString().find("   insertionOrder_:</p[k=1], /r>\n"), std::string::npos);
}

// Nothing of the model is held by what is kept for the next object.
TEST(Ir, LetsGoWhenCleared) {
  Ir ir;
  ConstPath const prefix = path("/p");
  ConstPath const leafPath = path("/x");
  IrLeaf::Handle const value = number(1);
  for (int round = 0; round < 3; ++round) {
    for (long timestamp : {1, 2}) {
      for (int i = 0; i < 40; ++i) {
        ir.addNode(timestamp, path("/p" + std::to_string(i))).addLeaf(leafPath, value);
      }
      ir.addNode(timestamp, prefix).leaves.push_back({leafPath, IrLeaf::LeafList{value}});
    }
    ir.clear();
    EXPECT_TRUE(ir.empty());
    EXPECT_EQ(prefix->refCount(), 1U);
    EXPECT_EQ(leafPath->refCount(), 1U);
    EXPECT_EQ(value->refCount(), 1U);
  }
}

// The same fillings into an Ir that lives on and into plain tables: the reused storage shows nothing of earlier content.
TEST(Ir, RandomFillingsAgreeWithPlainTables) {
  for (unsigned seed = 0; seed < 40; ++seed) {
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);
    auto const below = [&random](unsigned limit) { return random() % limit; };
    std::vector<ConstPath> shared;
    for (int i = 0; i < 30; ++i) {
      shared.push_back(path("/p[k=" + std::to_string(i) + "]"));
    }
    Ir ir;
    for (int round = 0; round < 8; ++round) {
      std::map<long, std::vector<std::pair<std::string, std::vector<std::string>>>> model;
      unsigned const prefixes = 1 + below(30);
      for (unsigned i = 0, count = 1 + below(200); i < count; ++i) {
        ConstPath prefix = shared[below(prefixes)];
        if (below(2) == 0) {
          prefix = path(prefix->toString());
        }
        long const timestamp = 1 + below(3);
        std::string const leaf = "/l" + std::to_string(below(5));
        std::string const value = std::to_string(below(1000));
        ir.addNode(timestamp, prefix).addLeaf(path(leaf), number(std::stoull(value)));

        auto& nodes = model[timestamp];
        auto found = std::find_if(nodes.begin(), nodes.end(),
                                  [&prefix](auto const& node) { return node.first == prefix->toString(); });
        if (found == nodes.end()) {
          found = nodes.insert(nodes.end(), {prefix->toString(), {}});
        }
        found->second.push_back("path:" + leaf + " uint_val:" + value);
      }
      std::vector<std::string> expected;
      for (auto const& [timestamp, nodes] : model) {
        for (auto const& [prefix, leaves] : nodes) {
          std::string line = "timestamp:" + std::to_string(timestamp) + " prefix:" + prefix + " ";
          for (std::size_t i = 0; i < leaves.size(); ++i) {
            line += "update" + std::to_string(i) + " ( " + leaves[i] + " ) ";
          }
          expected.push_back(line);
        }
      }
      ASSERT_EQ(texts(ir), expected);
      ir.clear();
    }
  }
}

} // namespace
