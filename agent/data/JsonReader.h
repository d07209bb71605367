// Agent::JsonReader: the JSON of one object and all below it, read from the model where its values lie and
// written in the same go, in slices.
//
// Invariants
// 1. Between two slices it stands in objects that it keeps alive, from the one that was asked for down to the
//    one that is written. What has been removed meanwhile is closed where it stands, with all below it. What
//    has come is written when it lies ahead.
// 2. An object is in the text when a leaf at or below it is, or when it means something by being there. What
//    has been opened for nothing is taken back.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include <absl/functional/function_ref.h>

#include "Kel/Entity.h"
#include "Kel/GenericIf.h"
#include "Kel/Ptr.h"
#include "agent/data/JsonPlan.h"
#include "agent/encoding/JsonBuffer.h"

namespace Agent {

// Scheduler thread. The plan outlives it.
class JsonReader {
public:
  JsonReader(JsonPlan const& plan, bool isIetf) : plan_(plan), isIetf_(isIetf) {}

  // An object of the plan's place. `keys`: of an entry of a list, their texts. REQUIRES that the last
  // object's text has been taken.
  void begin(Kel::Ptr<Kel::Entity const> object, std::vector<std::string> const& keys);
  // Goes on until all has been read, then true, or it is to yield.
  bool read(absl::FunctionRef<bool()> yields);

  // Once all has been read: the text; nothing when there is no leaf.
  [[nodiscard]] JsonBuffer& text() noexcept { return text_; }
  // There are leaves that the order does not want.
  [[nodiscard]] bool hasLeftOut() const noexcept { return hasLeftOut_; }

private:
  using Handle = Kel::Ptr<Kel::GenericIf const>;
  struct Open { // of an object or list: where it begins, and how long the text is while nothing is in it
    std::size_t begin;
    std::size_t empty;
    bool isToldEmpty = false;
  };
  struct Level {
    JsonPlan const* plan;
    Kel::Ptr<Kel::Entity const> object;
    Open open;
    std::size_t at = 0;               // the member that is next
    Kel::GenericIf::Iterator entries; // of that one, where it is a list that has been begun
    Open list = {};
    bool isInList = false;
  };

  void step(Level& level);
  void nextEntry(Level& level);
  void descend(JsonPlan const& plan, Kel::PtrInterface const& object, Open open);
  void ascend();
  void closeRemoved();

  // Whole objects.
  void write(JsonPlan const& plan, Kel::PtrInterface const& object, Open open);
  void writeHeld(JsonMember const& member, Kel::PtrInterface const& object);

  [[nodiscard]] Open opened(JsonMember const* member, char bracket);
  void close(Open open, char bracket);
  // The keys of an entry that has been opened; false, and the entry is taken back, when one is no text.
  [[nodiscard]] bool writeKeys(JsonPlan const& plan, Kel::PtrInterface const& object,
                               std::vector<std::string> const& keys, Open& open);
  void writeLeaf(JsonMember const& member, Kel::PtrInterface const& object);
  // A leaf's value. False, and nothing is written, when there is none that can be told.
  bool writeValue(JsonMember const& member, void const* value, Kel::PtrInterface const& object);
  bool writeName(JsonMember const& member, void const* value);
  bool writeOther(JsonMember const& member, Kel::PtrInterface const& object);
  void put(JsonMember::Head const& head);

  JsonPlan const& plan_;
  bool const isIetf_;
  bool hasLeftOut_ = false;
  JsonBuffer text_;
  std::vector<Level> levels_;
};

} // namespace Agent
