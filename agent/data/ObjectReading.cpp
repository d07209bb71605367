// One object after the other, each from its beginning to its end; between two slices the reader stands where
// it was.
#include "agent/data/ObjectReading.h"

#include <optional>
#include <utility>
#include <vector>

#include "Ondra/Path.h"
#include "Ondra/PathElem.h"
#include "Tovak/Task.h"
#include "Tovak/TaskScheduler.h"
#include "agent/context/Context.h"
#include "agent/data/GetAnswer.h"
#include "agent/data/ModelPlace.h"
#include "agent/router/Router.h"

namespace Agent {

class ObjectReading::Slice final : public Tovak::Task {
public:
  Slice(std::shared_ptr<Tovak::TaskScheduler> scheduler, ObjectReading* owner)
      : Tovak::Task(std::move(scheduler), "ReadObjects", Tovak::TaskPriority::normal)
      , owner_(owner) {}

  void taskExecute() override {
    if (owner_ == nullptr) return;
    Turns::Turn::Run const run(owner_->turn_);
    owner_->run(*this);
  }
  void ownerDel() { owner_ = nullptr; }

private:
  ObjectReading* owner_;
};

std::unique_ptr<JsonPlan const> ObjectReading::planOf(GetOrder const& order, Pattern const& pattern) {
  bool const isJson = order.encoding == gnmi::JSON || order.encoding == gnmi::JSON_IETF;
  std::vector<TypeNode> nodes{TypeNode::root()};
  for (Pattern::Elem const& elem : pattern.elems()) {
    auto const child = elem.kind == Pattern::Elem::Kind::Name ? nodes.back().child(elem.name) : std::nullopt;
    if (!child) return nullptr;
    nodes.push_back(*child);
  }
  bool const isLeaf = nodes.back().leaf() != nullptr;
  if (isLeaf ? pattern.objectDepth() + 1 != pattern.elems().size() : !isJson || !pattern.coversObjects())
    return nullptr;
  return JsonPlan::of(order, std::move(nodes));
}

ObjectReading::ObjectReading(Router& router, GetOrder const& order, Pattern pattern,
                             std::unique_ptr<JsonPlan const> plan, GetAnswer& answer,
                             std::string const& address, SliceEnded sliceEnded, Done done)
    : pattern_(std::move(pattern))
    , plan_(std::move(plan))
    , answer_(answer)
    , sliceEnded_(std::move(sliceEnded))
    , done_(std::move(done))
    , cursor_(pattern_)
    , reader_(*plan_, order.encoding == gnmi::JSON_IETF)
    , turn_(router.turns().turnIs(address, Turns::Kind::Walk))
    , slice_(std::make_shared<Slice>(router.context().scheduler(), this)) {
  turn_->askFor(slice_);
}

ObjectReading::~ObjectReading() {
  turn_->cancel();
  slice_->ownerDel();
}

void ObjectReading::run(Slice const& slice) {
  bool const isDone = read(slice);
  if (reader_.hasLeftOut()) answer_.hasLeftOutIs();
  if (!sliceEnded_(reader_.text().size())) return;
  if (!isDone) return turn_->askFor(slice_);
  Done const done = std::move(done_);
  done(); // which may drop this
}

bool ObjectReading::read(Slice const& slice) {
  for (;;) {
    if (isReading_) {
      if (!reader_.read([&slice] { return slice.taskShouldYield(); })) return false;
      isReading_ = false;
      if (reader_.text().size() > 0) {
        gnmi::Path path;
        cursor_.path()->copyToGnmiPath(&path);
        path.mutable_elem()->DeleteSubrange(0, 1); // the data root's
        answer_.addText(path, reader_.text());
      }
      if (slice.taskShouldYield()) return false;
    }
    switch (cursor_.next()) {
    case ObjectCursor::Result::Found:
      plan_->isLeaf ? readLeaf() : begin();
      if (slice.taskShouldYield()) return false;
      break;
    case ObjectCursor::Result::End: return true;
    case ObjectCursor::Result::Paused:
      if (slice.taskShouldYield()) return false;
    }
  }
}

void ObjectReading::readLeaf() {
  JsonMember const& member = plan_->members.front();
  auto value = valueOf(member.node, Kel::handleTo(cursor_.takeObject()));
  if (!value || (member.isEntityName && value->string_val().empty())) return;
  gnmi::Notification told;
  cursor_.path()->copyToGnmiPath(told.mutable_prefix());
  gnmi::Update& update = *told.add_update();
  update.mutable_path()->add_elem()->set_name(member.node.name.data(), member.node.name.size());
  *update.mutable_val() = *std::move(value);
  answer_.add(told);
}

void ObjectReading::begin() {
  std::vector<std::string> keys;
  auto const& given = cursor_.path()->elems().back()->key();
  for (JsonMember const& key : plan_->keys) {
    auto const* const found = given.lookup(key.node.attr.name());
    keys.push_back(found == nullptr ? std::string() : found->value.str());
  }
  reader_.begin(cursor_.takeObject(), keys);
  isReading_ = true;
}

} // namespace Agent
