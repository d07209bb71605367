// Texts and whole numbers are read from their bytes. Prefixes that follow each other have most of their
// elements in common.
#include "agent/subscribe/WireJson.h"

#include <algorithm>
#include <cstdint>

#include "Ondra/Path.h"
#include "Ondra/PathElem.h"
#include "agent/encoding/LeafEncoding.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace Agent {
namespace {

// Field numbers and wire types of a TypedValue.
constexpr char kString = 1 << 3 | 2;
constexpr char kInt = 2 << 3 | 0;
constexpr char kUint = 3 << 3 | 0;

std::uint64_t varintIn(std::string_view bytes, std::size_t& at) {
  std::uint64_t value = 0;
  for (unsigned shift = 0;; shift += 7) {
    auto const byte = static_cast<unsigned char>(bytes[at++]);
    value |= static_cast<std::uint64_t>(byte & 0x7f) << shift;
    if (byte < 0x80) return value;
  }
}

} // namespace

void WireJson::prefixIs(Ondra::Path const& prefix) {
  auto const elems = prefix.elems();
  if (nodes_.empty()) nodes_.push_back(TypeNode::root());
  std::size_t known = 1; // the first element is the data root's
  while (known < std::min(elems.size(), nodes_.size()) && nodes_[known].name == elems[known]->name().view())
    ++known;
  nodes_.resize(known);
  isKnown_ = true;
  for (; known < elems.size() && isKnown_; ++known) {
    auto const child = nodes_.back().child(elems[known]->name().view());
    isKnown_ = child.has_value();
    if (child) nodes_.push_back(*child);
  }
  TypeNode const& node = nodes_.back();
  place_ = isKnown_ ? &places_[&node.type.desc()] : &unknown_;
  place_->next = 0;
}

WireJson::Leaf const& WireJson::leafAt(std::string_view path) {
  std::vector<Leaf>& leaves = place_->leaves;
  if (place_->next < leaves.size() && leaves[place_->next].path == path) [[likely]]
    return leaves[place_->next++];
  auto found = std::ranges::find(leaves, path, &Leaf::path);
  if (found == leaves.end()) {
    static LeafInfo const none;
    gnmi::Path elems;
    elems.ParseFromArray(path.data(), static_cast<int>(path.size()));
    auto const node = isKnown_ ? nodes_.back().descendant(elems, 0) : std::nullopt;
    LeafInfo const* const info = node && node->leaf() != nullptr ? node->leaf() : &none;
    bool const isPlain =
        info->members == nullptr && info->keyMembers == nullptr && info->type != LeafType::Decimal64;
    leaves.push_back({std::string(path), info, isPlain, isNumberText(*info)});
    found = leaves.end() - 1;
  }
  place_->next = static_cast<std::size_t>(found - leaves.begin()) + 1;
  return *found;
}

std::string_view WireJson::text(std::string_view path, std::string_view value) {
  Leaf const& leaf = leafAt(path);
  text_.clear();
  std::size_t at = 1;
  switch (value.empty() || !leaf.isPlain ? '\0' : value.front()) {
  case kString: {
    std::size_t const size = varintIn(value, at);
    appendNameJson(text_, value.substr(at, size), *leaf.info, isIetf_);
    break;
  }
  case kInt:
    appendNumber(text_, static_cast<std::int64_t>(varintIn(value, at)), isIetf_ && leaf.isNumberText);
    break;
  case kUint: appendNumber(text_, varintIn(value, at), isIetf_ && leaf.isNumberText); break;
  default: {
    gnmi::TypedValue parsed;
    parsed.ParseFromArray(value.data(), static_cast<int>(value.size()));
    appendLeafJson(text_, parsed, *leaf.info, isIetf_);
  }
  }
  return text_;
}

} // namespace Agent
