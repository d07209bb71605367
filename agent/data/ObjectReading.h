// Agent::ObjectReading: the short road of a Get: whole objects in JSON, and single leaves, are read where
// they lie, without a walk.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "agent/data/JsonReader.h"
#include "agent/paths/ObjectCursor.h"
#include "agent/paths/Pattern.h"
#include "agent/router/Turns.h"

namespace Agent {

class GetAnswer;
class Router;
struct GetOrder;

// Reads for an answer, in the turns of a peer; dropping it calls it off. Scheduler thread; order, answer and
// router outlive it. docs/decisions.md: "Where is JSON put together?"
class ObjectReading {
public:
  // What the reading is about. Null when it is for a walk to read it: objects in other encodings, places that
  // wildcards of names mean, values that walks alone can tell.
  [[nodiscard]] static std::unique_ptr<JsonPlan const> planOf(GetOrder const& order, Pattern const& pattern);

  // After each slice, with what has been written beside the answer: false to stop.
  using SliceEnded = std::function<bool(std::size_t bytes)>;
  // All has been read; may drop this.
  using Done = std::function<void()>;

  // Starts by itself, when it is the turn of a peer of that address.
  ObjectReading(Router& router, GetOrder const& order, Pattern pattern, std::unique_ptr<JsonPlan const> plan,
                GetAnswer& answer, std::string const& address, SliceEnded sliceEnded, Done done);
  ~ObjectReading();
  ObjectReading(ObjectReading const&) = delete;
  ObjectReading& operator=(ObjectReading const&) = delete;

private:
  class Slice;

  void run(Slice const& slice);
  // Reads on until all has been read, then true, or the slice is over.
  bool read(Slice const& slice);
  void begin();
  void readLeaf();

  Pattern const pattern_;
  std::unique_ptr<JsonPlan const> const plan_;
  GetAnswer& answer_;
  SliceEnded const sliceEnded_;
  Done done_;
  ObjectCursor cursor_;
  JsonReader reader_;
  bool isReading_ = false; // an object that the cursor has found
  std::shared_ptr<Turns::Turn> const turn_;
  std::shared_ptr<Slice> const slice_;
};

} // namespace Agent
