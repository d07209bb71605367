// The two encoders of an Ir make the same responses, byte for byte.

#include <google/protobuf/io/coded_stream.h>

#include <limits>

#include "Ondra/IR.h"
#include "Ondra/WirePrefix.h"
#include "Ondra/responses/IrToWire.h"
#include "Ondra/responses/WireWriter.h"
#include "RecordingRouter.h"
#include "fixture/Populate.h"
#include "fixture/RandomEdits.h"
#include "fixture/Types.h"

namespace {

using Kel::handleOf;
using Handle = Ondra::IrLeaf::Handle;

class Collector final : public Ondra::WireEncoder {
public:
  std::vector<std::string> responses;

protected:
  void response(Ondra::WireResponse const& response) override {
    responses.emplace_back(response.bytes.begin(), response.bytes.end());
  }
};

class Messages final : public Ondra::BaseRouter {
public:
  bool push(Ondra::SyncId, Ondra::WalkId, std::shared_ptr<Ondra::ArenaRespMsg>& message) override {
    texts.push_back(ParsingRouter::serialized(*message->response));
    return true;
  }

  std::vector<std::string> texts;
};

// And a message that is handed to a router of bytes becomes its bytes.
void expectSame(Ondra::Ir const& ir) {
  std::vector<std::string> messages;
  Messages handed;
  ParsingRouter parsing(handed);
  for (auto& message : ir.toSubResp()) {
    messages.push_back(ParsingRouter::serialized(*message->response));
    static_cast<void>(parsing.push(Ondra::SyncId(1), Ondra::WalkId(1), message));
  }
  EXPECT_EQ(handed.texts, messages);
  Collector bytes;
  ir.encode(bytes);
  EXPECT_EQ(bytes.responses, messages);
}

// Texts of every kind that a path or a value can hold, few enough for elements to be met again.
std::string text(std::mt19937& random) {
  static std::vector<std::string> const texts = {"",
                                                 "a",
                                                 "name",
                                                 "in-octets",
                                                 "[x=1]/y",
                                                 std::string("\0\xc3\xa9", 3),
                                                 std::string(15, 's'),
                                                 std::string(16, 't'),
                                                 std::string(127, 'm'),
                                                 std::string(128, 'l'),
                                                 std::string(300, 'z')};
  return texts[random() % texts.size()];
}

Kel::Ptr<Ondra::Path> path(std::mt19937& random) {
  Kel::Ptr<Ondra::Path> const path = Ondra::Path::PathIs();
  for (std::size_t elems = random() % 5; elems-- > 0;) {
    Kel::Ptr<Ondra::PathElem> const elem = path->addElem();
    elem->nameIs(Kel::String(text(random)));
    for (std::size_t keys = random() % 3 == 0 ? random() % 12 : 0; keys-- > 0;)
      elem->keyIs(Kel::String(text(random)), Kel::String(text(random)));
  }
  return path;
}

TEST(Wire, NumbersAndTextsOfEverySize) {
  using Coded = google::protobuf::io::CodedOutputStream;
  Ondra::WireWriter out;
  std::string written; // the latest first, as the writer has it
  auto const number = [&](auto& to, std::uint64_t value) {
    std::uint8_t bytes[10];
    std::string const groups(bytes, Coded::WriteVarint64ToArray(value, bytes));
    to.varint(value);
    written.insert(0, groups);
  };
  for (int bit = 0; bit < 64; ++bit)
    for (std::uint64_t const value :
         {std::uint64_t{1} << bit, (std::uint64_t{1} << bit) - 1, ~std::uint64_t{0} >> bit})
      number(out, value);
  // A run goes on where the writer is, and through its growing.
  Ondra::WireRun run(out);
  std::string text;
  for (int size = 0; size < 250; ++size, text += static_cast<char>('a' + size % 26)) {
    number(run, text.size());
    run.raw(text);
    written.insert(0, text);
  }
  run.finish();
  EXPECT_EQ(std::string(out.bytes().begin(), out.bytes().end()), written);
}

TEST(Wire, RandomTreesComeOutAsTheirMessages) {
  Fixture::World const world;
  std::vector<Kel::KelType> scalars;
  for (auto const& entity : Fixture::entitiesBeneath(world.dir())) {
    for (Kel::KelTypeBase::AttributeQIterator attr(entity->fwkType()); attr; ++attr)
      if (!(*attr).isPointer() && (*attr).memberType() && (*attr).memberType().desc().isScalar())
        scalars.push_back((*attr).memberType());
  }
  std::initializer_list<Handle> const limits = {handleOf(std::uint64_t{127}),
                                                handleOf(std::numeric_limits<std::uint64_t>::max()),
                                                handleOf(std::numeric_limits<std::int64_t>::min()),
                                                handleOf('\xff'),
                                                handleOf(-0.0),
                                                handleOf(std::numeric_limits<double>::quiet_NaN()),
                                                handleOf(Kel::String("no\xff"))}; // in no message
  Ondra::Ir ir; // one lives on: what it held before must not show
  std::vector<Kel::Ptr<Ondra::Path>> shared(6);
  for (std::uint32_t seed = 1; seed <= 150; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    Fixture::RandomEdits values(world.device(), seed);
    for (Kel::Ptr<Ondra::Path>& one : shared) // whoever holds a path may change it
      if (one && random() % 4 != 0)
        one->addElem()->nameIs(Kel::String(text(random)));
      else
        one = path(random);
    auto const aPath = [&] { return random() % 2 == 0 ? shared[random() % shared.size()] : path(random); };
    auto const aValue = [&] {
      return random() % 8 == 0 ? limits.begin()[random() % limits.size()]
                               : values.value(scalars[random() % scalars.size()]);
    };
    ir.clear();
    for (std::size_t nodes = 1 + random() % 5; nodes-- > 0;) {
      long const timestamp =
          random() % 8 == 0 ? -1 : static_cast<long>(random() % 3) * 1'600'000'000'123'456'789;
      Ondra::IrNode& node = ir.addNode(timestamp, aPath());
      std::size_t const around[] = {999, 1000, 1001, 2500}; // what a response takes
      for (std::size_t leaves = random() % 16 == 0 ? around[random() % 4] : random() % 40; leaves-- > 0;) {
        switch (random() % 8) {
        case 0: node.addLeaf(aPath(), nullptr); break;
        case 1: {
          Ondra::IrLeaf::LeafList list;
          for (std::size_t members = random() % 4; members-- > 0;)
            list.push_back(aValue());
          node.leaves.push_back({aPath(), std::move(list)});
          break;
        }
        default: node.addLeaf(aPath(), aValue());
        }
      }
    }
    expectSame(ir);
  }
}

// Of all those whose frames are shared, also the last of them to be made; and of a place below.
TEST(Wire, AKeptPrefixIsItsPath) {
  Kel::Ptr<Ondra::Path> const below = Ondra::Path::strToPathIs("/below");
  Kel::Bytes const elem("\x1a\a\n\5below");
  std::mt19937 random(1);
  std::vector<std::pair<Kel::Ptr<Ondra::Path>, Ondra::WirePrefix>> all;
  all.reserve(3000);
  while (all.size() < all.capacity())
    all.emplace_back(path(random), Ondra::WirePrefix());
  for (int key = 0; key < 300; ++key) // more than a frame can number
    all.front().first->addElem()->keyIs(Kel::String(std::to_string(key)), Kel::String("v"));
  for (int round = 0; round < 2; ++round) { // made, and read
    for (auto& [path, kept] : all) {
      Collector same;
      Ondra::WirePlace const place{kept};
      same.encodeNode({1, Ondra::ResponsePath(path), place, {}});
      static_cast<Ondra::IrEncoder&>(same).encodeNode(1, path, {});
      Kel::Ptr<Ondra::Path> const longer = Ondra::Path::makePath(path);
      longer->push(below->elems().front());
      same.encodeNode({1, Ondra::ResponsePath(longer), {kept, &place, &elem}, {}});
      static_cast<Ondra::IrEncoder&>(same).encodeNode(1, longer, {});
      ASSERT_EQ(same.responses[0], same.responses[1]) << path->toString();
      ASSERT_EQ(same.responses[2], same.responses[3]) << path->toString();
    }
    std::ranges::shuffle(all, random);
  }
}

} // namespace
