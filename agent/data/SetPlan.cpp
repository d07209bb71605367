// From what JSON holds up to whole requests; the deletes, which only mark places, come last.
#include "agent/data/SetPlan.h"

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include <absl/container/flat_hash_set.h>
#include <fmt/format.h>

#include "agent/data/PathStates.h"
#include "agent/data/PlanRules.h"
#include "agent/encoding/JsonText.h"
#include "agent/encoding/LeafValue.h"
#include "agent/paths/EntryKey.h"
#include "agent/paths/Pattern.h"
#include "agent/paths/RequestParts.h"

namespace Agent {

using gnmi::TypedValue;
using nlohmann::json;

void SetPlan::clear(gnmi::Path const& place) {
  PlanNode* node = &root;
  for (gnmi::PathElem const& elem : place.elem()) {
    auto const child = node->type.child(elem.name());
    if (!child) return;
    std::vector<std::string> keys;
    for (std::size_t i = 0, count = child->isList() ? child->keyCount() : 0; i < count; ++i)
      keys.push_back(elem.key().at(child->key(i).name().str()));
    node = &node->childIs(*child, keys.empty() ? std::string() : joinedKey(keys));
  }
  node->isCleared = true;
}

// --- checking ----------------------------------------------------------------------------------------------

namespace {

grpc::Status notFound(std::string_view path, std::string_view what) {
  return refusal(grpc::StatusCode::NOT_FOUND, path, what);
}

using Status = grpc::Status;
// Of a name that the types do not know.
grpc::Status unknown(std::string_view path, TypeNode const& above, std::string_view name) {
  if (above.isPublished(name))
    return refusal(grpc::StatusCode::UNIMPLEMENTED, path,
                   fmt::format("'{}' is not offered here", statusText(name)));
  return notFound(path, fmt::format("'{}' is not known here", statusText(name)));
}

Status writeJson(PlanNode& node, json const& value);

// --- containers and lists, from JSON -----------------------------------------------------------------------

// The key of an entry of a list, out of its members.
Kstd::Result<std::string, Status> entryKey(PlanNode const& parent, TypeNode const& list, json const& entry) {
  std::string const path = fmt::format("{}/{}", parent.path(), list.name);
  if (!entry.is_object()) return Kstd::Err(invalid(path, "expected an object for each entry"));
  std::vector<std::optional<std::string>> values(list.keyCount());
  for (auto const& [name, value] : entry.items()) {
    auto const member = list.child(name);
    for (std::size_t i = 0; member && i < values.size(); ++i) {
      if (!(member->attr == list.key(i))) continue;
      LeafValue const text = leafValueOf(*leafInfo(list.key(i)), value);
      if (!text) return Kstd::Err(invalid(fmt::format("{}/{}", path, name), text.error()));
      values[i] = keyTextOf(*text);
      if (!isKeyText(member->attr.memberType(), *values[i]))
        return Kstd::Err(invalid(fmt::format("{}/{}", path, name), "this is no key"));
    }
  }
  std::vector<std::string> texts;
  for (std::size_t i = 0; i < values.size(); ++i) {
    if (!values[i])
      return Kstd::Err(
          invalid(path, fmt::format("an entry without its key '{}'", list.key(i).name().view())));
    texts.push_back(*std::move(values[i]));
  }
  return joinedKey(texts);
}

Status writeEntries(PlanNode& parent, TypeNode const& list, json const& entries) {
  std::string const path = fmt::format("{}/{}", parent.path(), list.name);
  if (!entries.is_array()) return invalid(path, "expected an array");
  if (!list.isWritableList(parent.writer)) return invalid(path, kIsState);
  absl::flat_hash_set<std::string> keys;
  for (json const& entry : entries) {
    auto key = entryKey(parent, list, entry);
    if (!key) return std::move(key).error();
    if (!keys.insert(*key).second) return invalid(path, fmt::format("two entries of the key '{}'", *key));
    PlanNode& node = parent.childIs(list, *key);
    node.isNamedIs();
    if (Status status = writeJson(node, entry); !status.ok()) return status;
  }
  return Status::OK;
}

Status writeJson(PlanNode& node, json const& value) {
  if (node.type.leaf() != nullptr) return writeLeaf(node, value);
  if (!value.is_object()) return invalid(node.path(), "expected an object");
  node.isNamedIs();
  absl::flat_hash_set<std::string_view> seen;
  for (auto const& [name, member] : value.items()) {
    auto const child = node.type.child(name);
    if (!child) {
      return node.type.isPublished(name)
                 ? unknown(node.path(), node.type, name)
                 : invalid(node.path(), fmt::format("unknown member '{}'", statusText(name)));
    }
    if (!seen.insert(child->name).second)
      return invalid(node.path(), fmt::format("member '{}' is there twice", child->name));
    Status status =
        child->isList() ? writeEntries(node, *child, member) : writeJson(node.childIs(*child), member);
    if (!status.ok()) return status;
  }
  return Status::OK;
}

// --- operations --------------------------------------------------------------------------------------------

bool isSame(gnmi::PathElem const& a, gnmi::PathElem const& b) {
  if (&a == &b) return true;
  if (a.name() != b.name() || a.key_size() != b.key_size()) return false;
  if (a.key_size() == 1)
    return a.key().begin()->second == b.key().begin()->second &&
           a.key().begin()->first == b.key().begin()->first;
  return std::ranges::all_of(a.key(), [&b](auto const& key) {
    auto const found = b.key().find(key.first);
    return found != b.key().end() && found->second == key.second;
  });
}

// Finds the places that concrete paths mean. Most of a request's paths share their beginnings: the way to the
// last place is remembered. Paths outlive it.
class Places {
public:
  explicit Places(PlanNode& root) : root_(root) {}

  // Containers that hold state alone are refused.
  Kstd::Result<PlanNode*, Status> of(gnmi::Path const& prefix, gnmi::Path const& path) {
    if (Status status = frameCheck(prefix, path); !status.ok()) return Kstd::Err(status);
    PathView const all(prefix, path, 0);
    std::size_t common = 0;
    while (common < std::min(way_.size(), all.size()) && isSame(*way_[common].elem, all[common]))
      ++common;
    way_.resize(common);
    while (way_.size() < all.size()) {
      gnmi::PathElem const& elem = all[way_.size()];
      PlanNode* next = knownBelow(last(), elem);
      if (next == nullptr) {
        auto const made = newBelow(last(), prefix, path, way_.size());
        if (!made) return made;
        next = *made;
      }
      way_.push_back({&elem, next});
    }
    PlanNode& node = last();
    if (!hasWritable(node.type, node.writer) && !(node.type.leaf() != nullptr && repeatsKey(node)))
      return Kstd::Err(invalid(node.path(), kIsState));
    return &node;
  }

private:
  struct Step {
    gnmi::PathElem const* elem;
    PlanNode* place;
  };

  PlanNode& last() { return way_.empty() ? root_ : *way_.back().place; }

  static PlanNode* knownBelow(PlanNode const& node, gnmi::PathElem const& elem) {
    bool const isEntry = elem.key_size() == 1;
    std::string_view const key = isEntry ? std::string_view(elem.key().begin()->second) : std::string_view();
    if (elem.key_size() > 1 || key == "*") return nullptr;
    PlanNode* const found = node.child(elem.name(), key);
    if (found == nullptr || found->type.isList() != isEntry) return nullptr;
    bool const isNamed =
        !isEntry || (found->type.keyCount() == 1 && found->type.keyName() == elem.key().begin()->first);
    return isNamed ? found : nullptr;
  }
  static Kstd::Result<PlanNode*, Status> newBelow(PlanNode& node, gnmi::Path const& prefix,
                                                  gnmi::Path const& path, std::size_t at) {
    gnmi::PathElem const& from = PathView(prefix, path, 0)[at];
    auto const child = node.type.child(from.name());
    bool const isPlain = child && !child->isList() && from.key().empty();
    if (isPlain) return &node.childIs(*child);
    auto const whole = RequestPath::of(prefix, path); // says what is wrong with its form first
    if (!whole) return whole.error();
    std::string const text = whole->text();
    RequestElem const& elem = whole->elems[at];
    if (elem.name == "*" || elem.name == "...")
      return Kstd::Err(invalid(text, "no wildcards where something is written"));
    if (!child) return Kstd::Err(unknown(text, node.type, elem.name));
    auto const key = keyOf(elem, *child);
    if (!key) return Kstd::Err(invalid(text, key.error()));
    if (child->isList() && !*key)
      return Kstd::Err(
          invalid(text, fmt::format("'{}' needs its key{}", elem.name, child->keyCount() > 1 ? "s" : "")));
    if (*key && child->keyCount() == 1) {
      if (auto const checked = textCheck(*leafInfo(child->key()), **key); !checked)
        return Kstd::Err(invalid(text, checked.error()));
    }
    return &node.childIs(*child, key->value_or(std::string()));
  }

  PlanNode& root_;
  std::vector<Step> way_;
};

Status write(PlanNode& node, gnmi::Update const& update, bool isReplace) {
  TypedValue const& value = update.val();
  switch (value.value_case()) {
  case TypedValue::VALUE_NOT_SET: return invalid(node.path(), "there is no value");
  case TypedValue::kAsciiVal:
  case TypedValue::kProtoBytes:
  case TypedValue::kAnyVal:
    return refusal(grpc::StatusCode::UNIMPLEMENTED, node.path(), "values come as JSON, JSON_IETF or typed");
  case TypedValue::kJsonVal:
  case TypedValue::kJsonIetfVal: break;
  case TypedValue::kStringVal:
  case TypedValue::kIntVal:
  case TypedValue::kUintVal:
  case TypedValue::kBoolVal:
  case TypedValue::kBytesVal:
  case TypedValue::kFloatVal:
  case TypedValue::kDoubleVal:
  case TypedValue::kDecimalVal:
  case TypedValue::kLeaflistVal:
    if (node.type.leaf() != nullptr) return writeLeaf(node, value);
    return invalid(node.path(), "a container is given as JSON");
  }
  auto const parsed = jsonOf(value.has_json_val() ? value.json_val() : value.json_ietf_val());
  if (!parsed) return invalid(node.path(), parsed.error());
  if (isReplace && node.type.isList() && parsed->is_object() && parsed->empty())
    return invalid(node.path(), "an entry cannot be replaced by an empty object");
  return writeJson(node, *parsed);
}

// What is replaced loses what is planned below it; the way that is remembered ends there.
Status applyUpdate(Places& places, gnmi::Path const& prefix, gnmi::Update const& update, bool isReplace) {
  auto const place = places.of(prefix, update.path());
  if (!place) return place.error();
  PlanNode& node = **place;
  if (node.type.leaf() == nullptr && isReplace) {
    node.childrenDelAll();
    node.isCleared = true;
  }
  return write(node, update, isReplace);
}

// Lays what one update gives over what others have given; a conflict when they differ.
Status unite(PlanNode& all, PlanNode const& one) {
  if (one.value && all.value && all.value->SerializeAsString() != one.value->SerializeAsString())
    return invalid(all.path(), "two updates give it different values");
  if (one.value) all.value = one.value;
  if (one.isNamed) all.isNamedIs();
  for (auto const& child : one.children())
    if (Status status = unite(all.childIs(child->type, child->key), *child); !status.ok()) return status;
  return Status::OK;
}

// One of those that are to be all of the configuration.
Status applyUnion(SetPlan& plan, gnmi::Path const& prefix, gnmi::Update const& update) {
  std::string const& origin = update.path().origin().empty() ? prefix.origin() : update.path().origin();
  if (!isOriginServed(origin))
    return refusal(grpc::StatusCode::UNIMPLEMENTED, origin, "no such origin in a union_replace");
  SetPlan one;
  one.root.writer = plan.root.writer;
  Places places(one.root);
  if (Status status = applyUpdate(places, prefix, update, false); !status.ok()) return status;
  return unite(plan.root, one.root);
}

// What a delete's path means among the types.
struct Meaning {
  bool isKnown = false;
  bool canGo = false; // some of it
  std::string keyError;
};

bool canGo(TypeNode const& node, Writer writer) {
  return node.leaf() != nullptr ? node.isWritableLeaf(writer) && !node.leaf()->isKeyCopy
                                : hasWritable(node, writer);
}

void findMeaning(TypeNode const& node, PathStates const& states, Writer writer, Meaning& meaning) {
  if (states.isEnd()) {
    meaning.isKnown = true;
    meaning.canGo = meaning.canGo || canGo(node, writer);
  }
  for (TypeNode const& child : node.children()) {
    PathStates const below = states.belowAny(child);
    if (!below.isDead()) findMeaning(child, below, writer, meaning);
  }
}

bool hasWildcard(RequestPath const& path) {
  return std::ranges::any_of(path.elems, [](RequestElem const& elem) {
    return elem.name == "*" || elem.name == "..." ||
           std::ranges::any_of(elem.keys, [](auto const& key) { return key.second == "*"; });
  });
}

// What tells a path from another one.
std::string identityOf(RequestPath const& path) {
  std::string all;
  for (RequestElem const& elem : path.elems) {
    all += fmt::format("{}/{}/", elem.name.size(), elem.name);
    for (auto const& [name, value] : elem.keys)
      all += fmt::format("{}={}={}", value.size(), name, value);
  }
  return all;
}

// The deletes of a request. One that is there twice is done once.
class Deletes {
public:
  explicit Deletes(SetPlan& plan) : plan_(plan) {}

  Status add(gnmi::Path const& prefix, gnmi::Path const& deleted) {
    auto path = RequestPath::of(prefix, deleted);
    if (!path) return path.error();
    if (!seen_.insert(identityOf(*path)).second) return Status::OK;
    if (Status status = check(*path); !status.ok()) return status;
    if (hasWildcard(*path) && ++wildcards_ > kMaxWildcardDeletes)
      return refusal(grpc::StatusCode::RESOURCE_EXHAUSTED, path->text(),
                     fmt::format("more than {} deletes with wildcards", kMaxWildcardDeletes));
    plan_.deletes.push_back(std::move(*path));
    return Status::OK;
  }

private:
  Status check(RequestPath const& path) const {
    auto const isAnyDepth = [](RequestElem const& elem) { return elem.name == "..."; };
    if (static_cast<std::size_t>(std::ranges::count_if(path.elems, isAnyDepth)) > kMaxAnyDepths)
      return invalid(path.text(), fmt::format("more than {} elements '...'", kMaxAnyDepths));
    // Concrete names first: a wrong key on one of them is told as such.
    TypeNode node = TypeNode::root();
    for (RequestElem const& elem : path.elems) {
      auto const child = node.child(elem.name);
      if (!child) break;
      if (auto const key = keyOf(elem, *child); !key) return invalid(path.text(), key.error());
      node = *child;
    }
    Meaning meaning;
    findMeaning(TypeNode::root(), PathStates(path), plan_.root.writer, meaning);
    if (!meaning.isKnown) {
      auto const pattern = Pattern::of(path);
      bool const isPublished =
          !pattern.ok() && pattern.error().error_code() == grpc::StatusCode::UNIMPLEMENTED;
      return isPublished ? refusal(grpc::StatusCode::UNIMPLEMENTED, path.text(), "is not offered here")
                         : notFound(path.text(), "nothing is known under this path");
    }
    if (!meaning.canGo) return invalid(path.text(), "is state, or a key, and cannot be deleted");
    return Status::OK;
  }

  SetPlan& plan_;
  absl::flat_hash_set<std::string> seen_;
  std::size_t wildcards_ = 0;
};

} // namespace

SetPlan::OrError setPlanOf(gnmi::SetRequest const& request, std::atomic<bool> const* isCancelled,
                           Writer writer) {
  if (Status status = checkExtensions(request.extension(), CallKind::Set); !status.ok())
    return Kstd::Err(status);
  int const others = request.delete__size() + request.replace_size() + request.update_size();
  if (request.union_replace_size() != 0 && others != 0)
    return Kstd::Err(
        Status(grpc::StatusCode::INVALID_ARGUMENT, "union_replace goes with no other operations"));
  if (others + request.union_replace_size() > kMaxSetOperations)
    return Kstd::Err(exhausted("too many operations", kMaxSetOperations));
  auto const goesOn = [isCancelled] {
    bool const ends = isCancelled != nullptr && isCancelled->load(std::memory_order_relaxed);
    return ends ? Status(grpc::StatusCode::CANCELLED, "the client has left") : Status::OK;
  };
  auto plan = std::make_unique<SetPlan>();
  plan->root.writer = writer;
  Deletes deletes(*plan);
  for (gnmi::Path const& path : request.delete_()) {
    if (Status status = goesOn(); !status.ok()) return Kstd::Err(status);
    if (Status status = deletes.add(request.prefix(), path); !status.ok()) return Kstd::Err(status);
  }
  Places places(plan->root);
  for (auto const* const updates : {&request.replace(), &request.update()}) {
    for (gnmi::Update const& update : *updates) {
      if (Status status = goesOn(); !status.ok()) return Kstd::Err(status);
      if (Status status = applyUpdate(places, request.prefix(), update, updates == &request.replace());
          !status.ok())
        return Kstd::Err(status);
    }
  }
  if (request.union_replace_size() != 0) plan->root.isCleared = true;
  for (gnmi::Update const& update : request.union_replace()) {
    if (Status status = goesOn(); !status.ok()) return Kstd::Err(status);
    if (Status status = applyUnion(*plan, request.prefix(), update); !status.ok()) return Kstd::Err(status);
  }
  if (Status status = settle(*plan); !status.ok()) return Kstd::Err(status);
  return plan;
}

} // namespace Agent
