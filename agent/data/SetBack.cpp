// The places first, then their leaves as they are.
#include "agent/data/SetBack.h"

#include <algorithm>

#include "Tovak/Task.h"
#include "agent/data/SetDiff.h"
#include "agent/paths/EntryKey.h"
#include "agent/paths/OutPath.h"
#include "agent/paths/Pattern.h"

namespace Agent {
namespace {

bool repeatsKey(TypeNode const& leaf) { return leaf.leaf()->isKeyCopy || leaf.attr.isKeyField(); }

// What stands there now of a container or an entry; null when that is nothing.
Handle objectBelow(TypeNode const& child, gnmi::PathElem const& elem, Handle const& object) {
  if (!child.isList()) return containerOf(child, object);
  std::vector<std::string> values;
  for (std::size_t i = 0; i < child.keyCount(); ++i) {
    auto const found = elem.key().find(child.key(i).name().str());
    if (found != elem.key().end()) values.push_back(found->second);
  }
  return values.size() == child.keyCount() ? entryOf(child, object, keyHandle(child.attr, values)) : nullptr;
}

// A container that means something by being there, and is made by what is written in it, goes with that.
void endAtMade(gnmi::Path& path) {
  TypeNode type = TypeNode::root();
  Handle object = dataRoot();
  for (int i = 0; i < path.elem_size(); ++i) {
    auto const child = type.child(path.elem(i).name());
    if (!child || child->leaf() != nullptr) return;
    object = objectBelow(*child, path.elem(i), object);
    if (!object && child->isPresence())
      return path.mutable_elem()->DeleteSubrange(i + 1, path.elem_size() - i - 1);
    type = *child;
  }
}

// The place that is to be deleted for one that a Set touches: of what comes and goes with its key, the entry.
std::string placeOf(gnmi::Path path) {
  endAtMade(path);
  auto const type = TypeNode::root().descendant(path, 0);
  bool const isKey = type && type->leaf() != nullptr && repeatsKey(*type);
  bool const isContainer = type && type->leaf() == nullptr;
  while ((isKey || isContainer) && path.elem_size() > 1 && path.elem(path.elem_size() - 1).key_size() == 0)
    path.mutable_elem()->RemoveLast();
  return pathBytes(PathView(path, 0));
}

} // namespace

SetBack::SetBack(SetDiff const& diff, Tovak::Task const& task) : task_(task) {
  for (SetParts const* const parts : {&diff.resets, &diff.writes, &diff.removals}) {
    parts->forEach([this](SetParts::Place const& place, gnmi::TypedValue const*) {
      places_.push_back(placeOf(pathOfBytes(bytesOf(place))));
    });
  }
  for (std::string const& made : diff.presences)
    places_.push_back(placeOf(pathOfBytes(made)));
  std::ranges::sort(places_);
  std::vector<std::string> apart;
  for (std::string& place : places_)
    if (apart.empty() || !place.starts_with(apart.back())) apart.push_back(std::move(place));
  places_ = std::move(apart);
}

Steps SetBack::run() {
  for (std::string const& bytes : places_) {
    *request.add_delete_() = pathOfBytes(bytes);
    co_await place(bytes);
  }
}

Steps SetBack::place(std::string const& bytes) {
  gnmi::Path const whole = pathOfBytes(bytes);
  path_.Clear();
  TypeNode type = TypeNode::root();
  Handle object = dataRoot();
  for (gnmi::PathElem const& elem : whole.elem()) {
    auto const child = type.child(elem.name());
    if (!child) co_return;
    if (child->leaf() != nullptr) {
      leaf(*child, object);
      co_return;
    }
    object = objectBelow(*child, elem, object);
    if (!object) co_return;
    *path_.add_elem() = elem;
    type = *child;
  }
  co_await below(type, object);
}

Steps SetBack::below(TypeNode type, Handle object) {
  // An entry that is state alone is not named: that would make a container of configuration in it.
  bool const isState =
      type.isList() && type.type.isRuntime() && lacksConfig(type, object) && isOfMachine(type, object);
  for (TypeNode const& child : type.children()) {
    if (child.leaf() != nullptr) {
      if (!isState || !child.attr.isKeyField()) leaf(child, object);
    } else if (!hasWritable(child)) {
      continue;
    } else if (child.isList()) {
      for (auto keys = keysBehind(child.attr, object, nullptr); !keys.empty();
           keys = keysBehind(child.attr, object, keys.back())) {
        for (Handle const& key : keys) {
          Handle const entry = entryOf(child, object, key);
          if (!entry) continue;
          gnmi::PathElem& elem = *path_.add_elem();
          elem.set_name(child.name.data(), child.name.size());
          std::vector<std::string> const values = keyTexts(child.attr, *key);
          for (std::size_t i = 0; i < values.size(); ++i)
            (*elem.mutable_key())[child.key(i).name().str()] = values[i];
          co_await below(child, entry);
          path_.mutable_elem()->RemoveLast();
        }
      }
    } else if (Handle const container = containerOf(child, object)) {
      path_.add_elem()->set_name(child.name.data(), child.name.size());
      int const before = request.update_size();
      co_await below(child, container);
      if (child.isPresence() && request.update_size() == before) { // it is there with nothing in it
        gnmi::Update& update = *request.add_update();
        *update.mutable_path() = path_;
        update.mutable_val()->set_json_ietf_val("{}");
      }
      path_.mutable_elem()->RemoveLast();
    }
  }
  co_await Steps::pauseIf(task_.taskShouldYield());
}

void SetBack::leaf(TypeNode const& type, Handle const& object) {
  bool const isConfig = type.isWritableLeaf() || (type.leaf()->isConfig && repeatsKey(type));
  if (!isConfig) return;
  auto value = valueOf(type, object);
  if (!value) return;
  gnmi::Update& update = *request.add_update();
  *update.mutable_path() = path_;
  update.mutable_path()->add_elem()->set_name(type.name.data(), type.name.size());
  *update.mutable_val() = *std::move(value);
}

} // namespace Agent
