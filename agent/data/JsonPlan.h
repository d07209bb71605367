// Agent::JsonPlan: how the objects of one place of the tree are written as JSON: which members in which
// order, and of each leaf what it looks like. Made for one Get.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Kel/Attr.h"
#include "agent/paths/TypeTree.h"

namespace Agent {

struct GetOrder;
struct JsonPlan;

struct JsonMember {
  enum class Form : std::uint8_t {
    Text,
    Number,
    Bool,
    Name,  // an enumerator's
    Other, // whatever else is a leaf: by its handle, as messages have it
    Container,
    List,
  };

  // `"name":`, with its module where that is told. Of a usual length it is copied without a loop.
  struct Head {
    static constexpr std::size_t kShort = 32;
    explicit Head(std::string_view whole = {});
    char text[kShort] = {};
    std::uint32_t size = 0;
    std::string rest; // all of it when it is longer
  };

  Head head;
  Form form = Form::Other;
  Kel::BuiltinKind kind = Kel::BuiltinKind::None; // of a number, or under an enumeration
  bool isQuoted = false;                          // a number that is written as a string
  bool isWanted = true;                           // of a leaf: the order wants it
  bool isEntityName = false;                      // not told while it is empty, as walks have it
  bool isToldEmpty = false;                       // a container that means something by being there
  TypeNode node;
  std::unique_ptr<JsonPlan const> below;                           // of what is no leaf
  mutable std::vector<std::pair<std::int64_t, std::string>> names; // enumerators that have been met, as JSON
};

// Of a container, of the entries of a list, of the root, or of a leaf by itself.
struct JsonPlan {
  std::vector<JsonMember> keys;    // of an entry: they are written first
  bool hasPlainKey = false;        // the only one, which can be read in the entry
  bool isKeyWanted = false;        // an entry is told for its key's sake
  std::vector<JsonMember> members; // leaves, then all others, both in the order of declaration
  bool isLeaf = false;             // the only member is read by itself, from what holds it
  bool isBounded = false;          // what it says has a bound: there is no list at or below it
  std::size_t weight = 0;          // members at and below it, entries not counted

  // Of what the last of `nodes` means, which lead from the root there; null when some of it can be read by
  // walks alone. Scheduler thread, where it is used, too.
  [[nodiscard]] static std::unique_ptr<JsonPlan const> of(GetOrder const& order, std::vector<TypeNode> nodes);
};

} // namespace Agent
