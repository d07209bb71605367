// Children are few, and looked through, or many, and found by their hash.
#include "agent/data/PlanNode.h"

#include <fmt/format.h>

#include "agent/paths/EntryKey.h"

namespace Agent {

PlanNode& PlanNode::childIs(TypeNode const& childType, std::string_view childKey) {
  PlanNode* there = nullptr;
  if (children_.size() > kFewChildren)
    there = child(childType.name, childKey);
  else
    for (auto const& each : children_)
      if (each->type.attr == childType.attr && each->key == childKey) there = each.get();
  return there != nullptr ? *there : childNew(childType, childKey);
}

PlanNode& PlanNode::childNew(TypeNode const& childType, std::string_view childKey) {
  if (children_.empty()) children_.reserve(kFewChildren / 2);
  children_.push_back(std::make_unique<PlanNode>(childType, std::string(childKey), this));
  for (PlanNode* node = this; childType.inCase != nullptr && node != nullptr && !node->holdsCases;
       node = node->parent_)
    node->holdsCases = true;
  auto const enter = [this](PlanNode& node) {
    index_.emplace(std::pair<std::string_view, std::string_view>(node.type.name, node.key), &node);
  };
  if (children_.size() == kFewChildren + 1) {
    index_.reserve(children_.size() * kFewChildren);
    for (auto const& each : children_)
      enter(*each);
  } else if (children_.size() > kFewChildren) {
    enter(*children_.back());
  }
  return *children_.back();
}

PlanNode* PlanNode::child(std::string_view name, std::string_view childKey) const {
  if (children_.size() <= kFewChildren) {
    for (auto const& each : children_)
      if (each->type.name == name && each->key == childKey) return each.get();
    return nullptr;
  }
  auto const found = index_.find(std::pair(name, childKey));
  return found == index_.end() ? nullptr : found->second;
}

void PlanNode::childrenDelAll() {
  index_.clear();
  children_.clear();
}

std::size_t PlanNode::size() const {
  std::size_t size = 1;
  for (auto const& below : children_)
    size += below->size();
  return size;
}

std::string PlanNode::path() const {
  if (parent_ == nullptr) return "/";
  std::string const above = parent_->parent_ == nullptr ? std::string() : parent_->path();
  std::string text = fmt::format("{}/{}", above, type.name);
  if (!type.isList()) return text;
  std::vector<std::string> const values = keyValues(key, type.keyCount());
  for (std::size_t i = 0; i < values.size(); ++i)
    text += fmt::format("[{}={}]", type.keyName(i), values[i]);
  return text;
}

void PlanNode::appendTo(gnmi::Path& path) const {
  if (parent_ == nullptr) return;
  parent_->appendTo(path);
  gnmi::PathElem& elem = *path.add_elem();
  elem.set_name(std::string(type.name));
  for (std::size_t i = 0, count = type.isList() ? type.keyCount() : 0; i < count; ++i)
    (*elem.mutable_key())[type.key(i).name().str()] = keyValue(key, count, i);
}

void PlanNode::isNamedIs() {
  for (PlanNode* node = this; node != nullptr && !node->isNamed; node = node->parent_)
    node->isNamed = true;
}

std::string PlanNode::nearestKey(std::string_view name) const {
  PlanNode const* node = this;
  while (node != nullptr && !node->type.isList())
    node = node->parent_;
  if (node == nullptr) return {};
  std::size_t const count = node->type.keyCount();
  for (std::size_t i = 0; i < count; ++i)
    if (count == 1 || node->type.key(i).name().view() == name) return keyValue(node->key, count, i);
  return {};
}

} // namespace Agent
