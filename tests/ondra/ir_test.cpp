// The Ir and the responses made of it; random ones are in wire_test.cpp.
#include "Kel/Attr.h"
#include "Ondra/ArenaRespMsg.h"
#include "Ondra/CompactText.h"
#include "Ondra/IR.h"
#include "Ondra/responses/IrToResp.h"
#include "fixture/Types.h"
#include "fixture/Values.h"
#include "ondra/assertion.h"

namespace {

using Kel::handleOf, Ondra::Ir, Ondra::IrLeaf, Ondra::IrNode, Ondra::Path;
using ConstPath = Kel::Ptr<Path const>;

// A new object each time: equal paths are to be found by what they hold.
ConstPath path(std::string const& text) { return Path::strToPathIs(text); }
IrLeaf::Handle number(std::uint64_t value) { return handleOf(value); }

std::vector<std::string> texts(Ir const& ir) {
  std::vector<std::string> lines;
  for (auto const& msg : ir.toSubResp())
    lines.push_back(msg->toString());
  return lines;
}

std::string const kHandler = "OndraIr: ";
std::string assertionOf(Ir const& ir) {
  return assertionIn([&ir] { static_cast<void>(ir.toSubResp()); });
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

  ir.drop(*path("/b[k=1]"));
  EXPECT_EQ(ir.addNode(10, path("/c")).leaves.size(), 1U); // what is elsewhere stays
  EXPECT_EQ(texts(ir), std::vector({expected.front(), expected.back()}));
}

TEST(Ir, TextsOfOtherResponses) {
  gnmi::SubscribeResponse response;
  EXPECT_EQ(Ondra::subscribeResponseToCompactString(response), "unsupported response");
  gnmi::Notification& sent = *response.mutable_update();
  sent.add_update()->mutable_path()->add_elem()->set_name("a");
  gnmi::ScalarArray& list = *sent.add_update()->mutable_val()->mutable_leaflist_val();
  list.add_element()->mutable_leaflist_val()->add_element()->set_ascii_val("x");
  list.add_element()->mutable_any_val();
  sent.add_update()->mutable_val()->set_proto_bytes("pb");
  EXPECT_EQ(Ondra::subscribeResponseToCompactString(response),
            "timestamp:0 prefix: update0 ( path:/a ) update1 ( leaflist_val:[ leaflist_val:[ ascii_val:x ], "
            "unsupported value type:9 ] ) update2 ( proto_bytes:pb ) ");
  response.set_sync_response(true);
  EXPECT_EQ(Ondra::subscribeResponseToCompactString(response), "sync_response");
}

// A response without leaves follows each full one.
TEST(Ir, SplitsAfterEvery1000Leaves) {
  for (auto const& [leaves, expected] : std::vector<std::pair<int, std::vector<int>>>{
           {0, {0}}, {999, {999}}, {1000, {1000, 0}}, {1001, {1000, 1}}, {2000, {1000, 1000, 0}}}) {
    Ir ir;
    IrNode& node = ir.addNode(5, path("/p"));
    for (int i = 0; i < leaves; ++i)
      node.addLeaf(path("/x"), i % 3 == 0 ? nullptr : number(static_cast<std::uint64_t>(i)));
    std::vector<int> split;
    for (auto const& msg : ir.toSubResp()) {
      gnmi::Notification const& sent = msg->response->update();
      EXPECT_EQ(sent.timestamp(), 5);
      EXPECT_EQ(sent.prefix().elem(0).name(), "p");
      split.push_back(sent.update_size() + sent.delete__size());
    }
    EXPECT_EQ(split, expected) << leaves;
  }
}

TEST(Ir, RefusesWhatCannotBeSent) {
  Fixture::declareTypes();
  Ir ir;
  EXPECT_EQ(assertionOf(ir), kHandler + "empty input map");

  ir.addNode(1, path("/p")).addLeaf(path("/x"), handleOf(Fixture::Contact{}));
  EXPECT_EQ(assertionOf(ir), kHandler + "unsupported type");
  ir.clear();
  EXPECT_EQ(assertionOf(ir), kHandler + "empty input map");

  IrNode& node = ir.addNode(1, path("/p"));
  node.leaves.push_back({path("/x"), IrLeaf::LeafList{number(1), handleOf(Fixture::Contact{})}});
  EXPECT_EQ(assertionOf(ir), kHandler + "only scalar array types are supported");
}

// Nothing of the model is held by what is kept for the next object.
TEST(Ir, LetsGoWhenCleared) {
  Ir ir;
  ConstPath const prefix = path("/p");
  ConstPath const leafPath = path("/x");
  IrLeaf::Handle const value = number(1);
  for (int round = 0; round < 3; ++round) {
    for (long timestamp : {1, 2}) {
      for (int i = 0; i < 40; ++i)
        ir.addNode(timestamp, path("/p" + std::to_string(i))).addLeaf(leafPath, value);
      ir.addNode(timestamp, prefix).leaves.push_back({leafPath, IrLeaf::LeafList{value}});
    }
    ir.clear();
    EXPECT_TRUE(ir.empty());
    EXPECT_EQ(prefix->refCount(), 1U);
    EXPECT_EQ(leafPath->refCount(), 1U);
    EXPECT_EQ(value->refCount(), 1U);
  }
}

} // namespace
