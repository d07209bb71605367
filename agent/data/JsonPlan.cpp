// Goes down the tree of types. What a leaf looks like follows from its type in the model and its published
// one.
#include "agent/data/JsonPlan.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <span>

#include "Ondra/ScalarEncode.h"
#include "agent/data/GetAnswer.h"
#include "agent/encoding/LeafEncoding.h"

namespace Agent {
namespace {

using Form = JsonMember::Form;

constexpr std::size_t kBoundedMembers = 512; // so many are written without a look at the clock

bool isNumber(Kel::BuiltinKind kind) {
  switch (kind) {
  case Kel::BuiltinKind::U8:
  case Kel::BuiltinKind::S8:
  case Kel::BuiltinKind::U16:
  case Kel::BuiltinKind::S16:
  case Kel::BuiltinKind::U32:
  case Kel::BuiltinKind::S32:
  case Kel::BuiltinKind::U64:
  case Kel::BuiltinKind::S64: return true;
  case Kel::BuiltinKind::Bool:
  case Kel::BuiltinKind::Char:
  case Kel::BuiltinKind::Float:
  case Kel::BuiltinKind::Double:
  case Kel::BuiltinKind::String:
  case Kel::BuiltinKind::Bytes:
  case Kel::BuiltinKind::Seconds:
  case Kel::BuiltinKind::Time:
  case Kel::BuiltinKind::JsonString:
  case Kel::BuiltinKind::None: break;
  }
  return false;
}

class Planner {
public:
  Planner(GetOrder const& order, std::vector<TypeNode> nodes)
      : order_(order)
      , isIetf_(order.encoding == gnmi::JSON_IETF)
      , matchDepth_(nodes.size())
      , nodes_(std::move(nodes)) {}

  // Of the last node, a leaf.
  std::unique_ptr<JsonPlan const> leafPlan() {
    auto plan = std::make_unique<JsonPlan>();
    plan->members.push_back(leaf(""));
    plan->isLeaf = true;
    return isPossible_ ? std::move(plan) : nullptr;
  }
  // Of the last node, which is none.
  std::unique_ptr<JsonPlan const> plan(std::string_view parentModule) {
    auto plan = std::make_unique<JsonPlan>();
    TypeNode const node = nodes_.back();
    if (node.isList()) addKeys(*plan, node, parentModule);
    plan->isBounded = true;
    for (bool const leaves : {true, false}) {
      for (TypeNode const& child : node.children()) {
        bool const isKey = node.isList() && child.leaf() != nullptr && child.attr.isKeyField();
        if (isKey || leaves != (child.leaf() != nullptr)) continue;
        nodes_.push_back(child);
        plan->members.push_back(leaves ? leaf(parentModule) : holder(parentModule));
        nodes_.pop_back();
        if (!isPossible_) return nullptr;
        add(*plan, plan->members.back());
      }
    }
    plan->isBounded = plan->isBounded && plan->weight <= kBoundedMembers;
    return plan;
  }

private:
  JsonMember member(std::string_view parentModule) const {
    TypeNode const& node = nodes_.back();
    std::string head = "\"";
    if (isIetf_ && node.module != parentModule) {
      head += node.module;
      head += ':';
    }
    head += node.name;
    head += "\":";
    JsonMember made;
    made.head = JsonMember::Head(head);
    made.node = node;
    return made;
  }

  JsonMember leaf(std::string_view parentModule) {
    JsonMember made = member(parentModule);
    TypeNode const& node = nodes_.back();
    bool const isTooDeep = order_.depth != 0 && nodes_.size() - matchDepth_ > order_.depth;
    made.isWanted = !isTooDeep && order_.wants(nodes_);
    made.isEntityName = node.attr.name() == "name" && !node.attr.isKeyField(); // a key is told as it is
    made.form = form(node);
    made.kind = node.type.isEnum() ? node.type.underlyingKind() : node.type.builtinKind();
    if (made.form == Form::Number) made.isQuoted = isIetf_ && isNumberText(*node.leaf());
    return made;
  }

  // Other forms than a leaf's own value are left to walks: texts of JSON, references, values with parts.
  Form form(TypeNode const& node) {
    Kel::KelAttr const attr = node.attr;
    Kel::KelType const type = attr.memberType();
    bool const isLeaf = (attr.isScalarArray() || (!attr.isCollection() && Ondra::isScalarType(type))) &&
                        !attr.isPointer() && !attr.isInstantiating() && !attr.isGnmiJsonString() &&
                        !attr.isOperation();
    isPossible_ = isPossible_ && isLeaf;
    bool const isRead = isLeaf && !attr.isCollection() && attr.readsInPlace() && !type.hasGnmiByteRep();
    if (node.leaf()->members != nullptr || node.leaf()->keyMembers != nullptr)
      return Form::Other; // the value says which member it is of
    if (isRead && type.isEnum()) return Form::Name;
    if (!isRead || !type.isBuiltin() || type.hasGnmiStrRep()) return Form::Other;
    // Others' names may be told with their module, and a decimal's digits are a number.
    if (type.builtinKind() == Kel::BuiltinKind::String && node.leaf()->identityModule.empty() &&
        node.leaf()->type != LeafType::Decimal64)
      return Form::Text;
    if (type.builtinKind() == Kel::BuiltinKind::Bool && node.leaf()->type != LeafType::Empty)
      return Form::Bool;
    return isNumber(type.builtinKind()) ? Form::Number : Form::Other;
  }

  JsonMember holder(std::string_view parentModule) {
    JsonMember made = member(parentModule);
    TypeNode const& node = nodes_.back();
    made.form = node.isList() ? Form::List : Form::Container;
    isPossible_ = isPossible_ && node.isObject() && node.type.isEntity() &&
                  (made.form != Form::Container || node.attr.readsInPlace());
    made.isToldEmpty = node.isPresence() && isWanted(node);
    if (isPossible_) made.below = plan(node.module);
    return made;
  }

  // Of a container.
  bool isWanted(TypeNode const& node) const {
    bool const isOfKind =
        order_.type == gnmi::GetRequest::ALL || node.isState == (order_.type != gnmi::GetRequest::CONFIG);
    bool const isTooDeep = order_.depth != 0 && nodes_.size() - matchDepth_ > order_.depth;
    return isOfKind && !isTooDeep &&
           (order_.modules.empty() || std::ranges::count(order_.modules, node.module) > 0);
  }

  void addKeys(JsonPlan& plan, TypeNode const& list, std::string_view parentModule) {
    for (std::size_t i = 0; i < list.keyCount(); ++i) {
      auto const key = list.child(list.key(i).name().view());
      isPossible_ = isPossible_ && key && key->leaf() != nullptr && key->attr.isKeyField();
      if (!isPossible_) return;
      nodes_.push_back(*key);
      plan.keys.push_back(leaf(parentModule));
      nodes_.pop_back();
      plan.isKeyWanted = plan.isKeyWanted || plan.keys.back().isWanted;
    }
    plan.hasPlainKey = list.attr.indexAttr() && plan.keys.front().form != Form::Other;
  }

  static void add(JsonPlan& plan, JsonMember const& member) {
    ++plan.weight;
    if (!member.below) return;
    plan.weight += member.below->weight;
    plan.isBounded = plan.isBounded && member.form == Form::Container && member.below->isBounded;
  }

  GetOrder const& order_;
  bool const isIetf_;
  std::size_t const matchDepth_; // how many nodes lead there, the root's with them
  std::vector<TypeNode> nodes_;
  bool isPossible_ = true;
};

} // namespace

JsonMember::Head::Head(std::string_view whole)
    : size(static_cast<std::uint32_t>(whole.size()))
    , rest(whole.size() > kShort ? whole : std::string_view()) {
  static_cast<void>(whole.copy(text, kShort));
}

std::unique_ptr<JsonPlan const> JsonPlan::of(GetOrder const& order, std::vector<TypeNode> nodes) {
  bool const isLeaf = nodes.back().leaf() != nullptr;
  Planner planner(order, std::move(nodes));
  return isLeaf ? planner.leafPlan() : planner.plan("");
}

} // namespace Agent
