// Places are looked up name by name; leaves and entries are made anew, and what was there before is kept
// aside.
#include "agent/yang/ConfigTree.h"

#include <algorithm>
#include <array>
#include <optional>

#include <absl/strings/escaping.h>
#include <fmt/format.h>
#include <libyang/libyang.h>

#include "agent/paths/OutPath.h"
#include "agent/yang/Complaint.h"
#include "agent/yang/YangModel.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace Agent {
namespace {

constexpr std::size_t kMostKeys = 8; // that a list is found by without a text of all of them

std::string const& keyOf(gnmi::PathElem const& elem, char const* name) {
  static std::string const none;
  auto const found = elem.key().find(name);
  return found == elem.key().end() ? none : found->second;
}

// "[name='value']..."; none where a value has both kinds of quotes, which such a text cannot have.
std::optional<std::string> predicates(gnmi::PathElem const& elem) {
  std::string text;
  for (auto const& [name, value] : elem.key()) {
    char const quote = value.find('\'') == value.npos ? '\'' : '"';
    if (value.find(quote) != value.npos) return std::nullopt;
    text += fmt::format("[{0}={1}{2}{1}]", name, quote, value);
  }
  return text;
}

bool hasKeys(lyd_node const& entry, gnmi::PathElem const& elem) {
  for (lyd_node const* key = lyd_child(&entry); key != nullptr && lysc_is_key(key->schema); key = key->next)
    if (keyOf(elem, key->schema->name) != lyd_get_value(key)) return false;
  return true;
}

lyd_node* newEntry(lyd_node* parent, lysc_node const& schema, gnmi::PathElem const& elem) {
  lyd_node* made = nullptr;
  std::array<char const*, kMostKeys> keys{};
  std::size_t count = 0;
  for (lysc_node const* key = lysc_node_child(&schema); key != nullptr && lysc_is_key(key); key = key->next) {
    if (count < kMostKeys) keys[count] = keyOf(elem, key->name).c_str();
    ++count;
  }
  if (count <= kMostKeys) { // those behind the last key are not looked at
    lyd_new_list(parent, schema.module, schema.name, 0, &made, keys[0], keys[1], keys[2], keys[3], keys[4],
                 keys[5], keys[6], keys[7]);
  } else if (auto const text = predicates(elem)) {
    lyd_new_list2(parent, schema.module, schema.name, text->c_str(), 0, &made);
  }
  return made;
}

// As the schema library reads a value.
std::string textOf(lysc_node const& schema, gnmi::TypedValue const& value) {
  using gnmi::TypedValue;
  switch (value.value_case()) {
  case TypedValue::kStringVal: return value.string_val();
  case TypedValue::kIntVal: return fmt::format("{}", value.int_val());
  case TypedValue::kUintVal: return fmt::format("{}", value.uint_val());
  case TypedValue::kBytesVal: return absl::Base64Escape(value.bytes_val());
  case TypedValue::kBoolVal: {
    lysc_type const* const type = schema.nodetype == LYS_LEAF
                                      ? reinterpret_cast<lysc_node_leaf const&>(schema).type
                                      : reinterpret_cast<lysc_node_leaflist const&>(schema).type;
    return type->basetype == LY_TYPE_EMPTY ? "" : value.bool_val() ? "true" : "false";
  }
  case TypedValue::kDoubleVal: // no leaf is written as one of these
  case TypedValue::kFloatVal:
  case TypedValue::kDecimalVal:
  case TypedValue::kLeaflistVal:
  case TypedValue::kAnyVal:
  case TypedValue::kJsonVal:
  case TypedValue::kJsonIetfVal:
  case TypedValue::kAsciiVal:
  case TypedValue::kProtoBytes:
  case TypedValue::VALUE_NOT_SET: break;
  }
  return {};
}

// The bytes of the path to a node.
std::string pathBytesOf(lyd_node const& node) {
  std::string place = node.parent == nullptr ? std::string() : pathBytesOf(*lyd_parent(&node));
  gnmi::PathElem elem;
  elem.set_name(node.schema->name);
  if (node.schema->nodetype == LYS_LIST)
    for (lyd_node const* key = lyd_child(&node); key != nullptr && lysc_is_key(key->schema); key = key->next)
      (*elem.mutable_key())[key->schema->name] = lyd_get_value(key);
  appendElemBytes(place, elem);
  return place;
}

} // namespace

void ConfigTree::Freed::operator()(lyd_node* first) const { lyd_free_all(first); }

ConfigTree::ConfigTree(YangModel const& model, Nodes nodes)
    : model_(model)
    , constrained_(ConstrainedNodes::of(model.modules()))
    , first_(nodes.release()) {
  for (lysc_node const* const node : model.types().tops)
    children_.emplace(Child(nullptr, node->name), node);
  for (auto const& [node, attr] : model.types().attrs)
    children_.emplace(Child(lysc_data_parent(node), node->name), node);
}

ConfigTree::~ConfigTree() {
  keep();
  lyd_free_all(first_);
}

// --- places ------------------------------------------------------------------------------------------------

lysc_node const* ConfigTree::schemaOf(lysc_node const* above, std::string_view name) const {
  auto const found = children_.find(Child(above, name));
  return found == children_.end() || (found->second->flags & LYS_CONFIG_W) == 0 ? nullptr : found->second;
}

lyd_node* ConfigTree::find(lyd_node* parent, lysc_node const& schema, gnmi::PathElem const& elem) const {
  lyd_node* const siblings = parent == nullptr ? first_ : lyd_child(parent);
  lyd_node* found = nullptr;
  if (siblings == nullptr) return nullptr;
  if (schema.nodetype != LYS_LIST) {
    lyd_find_sibling_val(siblings, &schema, nullptr, 0, &found);
  } else if (auto const keys = predicates(elem)) {
    lyd_find_sibling_val(siblings, &schema, keys->c_str(), keys->size(), &found);
  } else {
    lyd_find_sibling_val(siblings, &schema, nullptr, 0, &found);
    while (found != nullptr && !(found->schema == &schema && hasKeys(*found, elem)))
      found = found->next;
  }
  return found;
}

void ConfigTree::insert(lyd_node* parent, lyd_node* node) {
  if (parent != nullptr)
    lyd_insert_child(parent, node);
  else
    lyd_insert_sibling(first_, node, &first_);
}

void ConfigTree::unlink(lyd_node* node) {
  if (node == first_) first_ = node->next;
  lyd_unlink_tree(node);
}

void ConfigTree::touched(lysc_node const* schema) { isTouched_ = isTouched_ || constrained_.has(schema); }
void ConfigTree::allTouched(lyd_node const* subtree) {
  isTouched_ = isTouched_ || constrained_.canAnyBeMeant;
  if (isTouched_) return;
  lyd_node const* each = nullptr;
  LYD_TREE_DFS_BEGIN(subtree, each) {
    touched(each->schema);
    LYD_TREE_DFS_END(subtree, each);
  }
}

std::vector<lyd_node*> ConfigTree::taken(lyd_node* parent, lysc_node const& schema,
                                         gnmi::PathElem const& elem) {
  std::vector<lyd_node*> all;
  while (lyd_node* const node = find(parent, schema, elem)) { // all of a leaf-list
    unlink(node);
    all.push_back(node);
  }
  return all;
}

std::vector<lyd_node*> ConfigTree::taken(std::string_view place) {
  gnmi::Path const path = pathOfBytes(place);
  lysc_node const* schema = nullptr;
  lyd_node* parent = nullptr;
  for (int i = 0; i < path.elem_size(); ++i) {
    schema = schemaOf(schema, path.elem(i).name());
    if (schema == nullptr) return {};
    if (i + 1 == path.elem_size()) return taken(parent, *schema, path.elem(i));
    parent = find(parent, *schema, path.elem(i));
    if (parent == nullptr) return {};
  }
  return {};
}

void ConfigTree::placeDel(std::string_view place) {
  auto before = taken(place);
  if (before.empty()) return;
  for (lyd_node const* const each : before)
    allTouched(each);
  steps_.push_back({std::string(place), std::move(before)});
}

lyd_node* ConfigTree::newChild(lyd_node* parent, lysc_node const& schema, gnmi::PathElem const& elem) {
  lyd_node* made = nullptr;
  if (schema.nodetype == LYS_LIST)
    made = newEntry(parent, schema, elem);
  else
    lyd_new_inner(parent, schema.module, schema.name, 0, &made);
  if (made != nullptr && parent == nullptr) insert(nullptr, made);
  return made;
}

lyd_node* ConfigTree::childIs(lyd_node* parent, lysc_node const& schema, gnmi::PathElem const& elem,
                              std::string const& place) {
  if (lyd_node* const there = find(parent, schema, elem)) return there;
  lyd_node* const made = newChild(parent, schema, elem);
  if (made == nullptr) return nullptr;
  steps_.push_back({place, {}});
  touched(&schema);
  return made;
}

void ConfigTree::leafIs(lyd_node* parent, lysc_node const& schema, std::string place,
                        gnmi::TypedValue const& value) {
  if (lyd_node* const there = find(parent, schema, {}); there != nullptr && !value.has_leaflist_val()) {
    there->flags &= ~static_cast<std::uint32_t>(LYD_WHEN_TRUE);
    if ((there->flags & LYD_DEFAULT) == 0 && lyd_get_value(there) == textOf(schema, value)) return;
  }
  auto before = taken(parent, schema, {});
  auto const add = [&](gnmi::TypedValue const& one) {
    lyd_node* made = nullptr;
    lyd_new_term(parent, schema.module, schema.name, textOf(schema, one).c_str(), 0, &made);
    if (made != nullptr && parent == nullptr) insert(nullptr, made);
  };
  if (value.has_leaflist_val())
    std::ranges::for_each(value.leaflist_val().element(), add);
  else
    add(value);
  touched(&schema);
  steps_.push_back({std::move(place), std::move(before)});
}

void ConfigTree::valueIs(std::string_view bytes, gnmi::TypedValue const& value) {
  gnmi::Path const path = pathOfBytes(bytes);
  lysc_node const* schema = nullptr;
  lyd_node* node = nullptr;
  std::string place;
  for (gnmi::PathElem const& elem : path.elem()) {
    schema = schemaOf(schema, elem.name());
    if (schema == nullptr || lysc_is_key(schema)) return; // an entry is made with its keys
    appendElemBytes(place, elem);
    if ((schema->nodetype & (LYS_LEAF | LYS_LEAFLIST)) != 0)
      return leafIs(node, *schema, std::move(place), value);
    node = childIs(node, *schema, elem, place);
    if (node == nullptr) return;
    node->flags &= ~static_cast<std::uint32_t>(LYD_WHEN_TRUE);
  }
}

// --- changes -----------------------------------------------------------------------------------------------

void ConfigTree::changeIs(ConfigChange const& change) {
  for (std::string const& place : change.gone)
    placeDel(place);
  gnmi::TypedValue value;
  for (auto const& [place, bytes] : change.values)
    if (!bytes || bytes->empty())
      placeDel(place);
    else if (value.ParseFromString(*bytes))
      valueIs(place, value);
}

std::vector<std::string> ConfigTree::noteGone(lyd_node const* changes) {
  std::vector<std::string> gone;
  for (lyd_node const* root = changes; root != nullptr; root = root->next) {
    lyd_node const* each = nullptr;
    LYD_TREE_DFS_BEGIN(root, each) {
      lyd_meta const* const what = lyd_find_meta(each->meta, nullptr, "yang:operation");
      bool const isGone = what != nullptr && std::string_view(lyd_get_meta_value(what)) == "delete";
      if (isGone && (each->flags & LYD_DEFAULT) == 0) {
        lyd_node* copy = nullptr;
        lyd_dup_single(each, nullptr, LYD_DUP_RECURSIVE | LYD_DUP_NO_META, &copy);
        gone.push_back(pathBytesOf(*each));
        steps_.push_back({gone.back(), {copy}});
        LYD_TREE_DFS_continue = 1;
      }
      LYD_TREE_DFS_END(root, each);
    }
  }
  return gone;
}

ConfigRules::Verdict ConfigTree::validated() {
  ly_ctx const* const context = model_.modules().context();
  ly_err_clean(const_cast<ly_ctx*>(context), nullptr);
  lyd_node* changes = nullptr;
  LY_ERR const ended = lyd_validate_all(&first_, context, LYD_VALIDATE_NO_STATE, &changes);
  ConfigRules::Verdict verdict{.refusal = {}, .gone = noteGone(changes)};
  lyd_free_all(changes);
  if (ended != LY_SUCCESS) verdict.refusal = lastComplaint(*context, first_).text();
  return verdict;
}

ConfigRules::Verdict ConfigTree::validate() {
  if (isKnownToHold_ && !isTouched_) return {};
  ConfigRules::Verdict verdict = validated();
  if (!verdict.refusal.empty()) {
    takeBack();
    return verdict;
  }
  isKnownToHold_ = true;
  return verdict;
}

ConfigRules::Verdict ConfigTree::look() {
  ConfigRules::Verdict verdict = validated();
  isKnownToHold_ = verdict.refusal.empty();
  return verdict;
}

void ConfigTree::keep() {
  for (Step const& step : steps_)
    for (lyd_node* const node : step.before)
      lyd_free_tree(node);
  steps_.clear();
  isTouched_ = false;
}

void ConfigTree::takeBack() {
  for (auto step = steps_.rbegin(); step != steps_.rend(); ++step) {
    for (lyd_node* const node : taken(step->place))
      lyd_free_tree(node);
    if (step->before.empty()) continue;
    gnmi::Path above = pathOfBytes(bytesAbove(step->place));
    lysc_node const* schema = nullptr;
    lyd_node* parent = nullptr;
    for (gnmi::PathElem const& elem : above.elem()) {
      schema = schemaOf(schema, elem.name());
      lyd_node* const there = find(parent, *schema, elem);
      // A container that means nothing by itself has gone with the last that it held.
      parent = there != nullptr ? there : newChild(parent, *schema, elem);
    }
    for (lyd_node* const node : step->before)
      insert(parent, node);
  }
  steps_.clear();
  if (std::exchange(isTouched_, false) && isKnownToHold_) {
    static_cast<void>(validated()); // marks anew which conditions hold
    keep();
  }
}

} // namespace Agent
