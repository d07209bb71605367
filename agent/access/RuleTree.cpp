// Below a node stand names, below a name the sets of keys that rules give, and there the values: a step is a
// few comparisons, however many rules name entries.
#include "agent/access/RuleTree.h"

#include <absl/container/flat_hash_map.h>
#include <absl/strings/string_view.h>

#include <algorithm>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "Tovak/Assert.h"
#include "Tovak/DebugHandler.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace Agent {
namespace {

// Values of keys as one text; of a single one its own.
class Joined {
public:
  void add(std::string_view value) {
    if (count_++ == 0) {
      one_ = value;
      return;
    }
    if (count_ == 2) all_.append(one_);
    all_ += '\0';
    all_.append(value);
  }
  [[nodiscard]] std::string_view text() const { return count_ < 2 ? one_ : std::string_view(all_); }

private:
  std::size_t count_ = 0;
  std::string_view one_;
  std::string all_;
};

} // namespace

struct RuleTree::Node {
  // Rules that give the values of these keys.
  struct Keyed {
    std::vector<std::string> names; // sorted; not empty
    absl::flat_hash_map<std::string, std::unique_ptr<Node>> nodes;
  };
  struct Named {
    std::string name;            // or "*"
    std::vector<Keyed> keyed;    // more of them first
    std::unique_ptr<Node> plain; // of rules without keys
  };

  Node& childIs(Pattern::Elem const& elem);
  // Notes what is said below.
  void close();
  template <class Visit>
  void forEachChild(Visit const& visit) const {
    for (Named const& each : named) {
      for (Keyed const& keyed : each.keyed)
        for (auto const& [values, node] : keyed.nodes)
          visit(*node);
      if (each.plain) visit(*each.plain);
    }
  }

  std::vector<std::pair<std::string, std::string>> keys; // of the element that it stands for
  std::vector<Named> named;                              // "*" last
  std::optional<Rule> rule;
  bool permitsBelow = false;
  bool deniesBelow = false;
};

RuleTree::Node& RuleTree::Node::childIs(Pattern::Elem const& elem) {
  std::string const name = elem.kind == Pattern::Elem::Kind::AnyName ? "*" : elem.name;
  auto at = std::ranges::find(named, name, &Named::name);
  if (at == named.end()) {
    bool const hasAny = !named.empty() && named.back().name == "*";
    at = named.insert(hasAny ? named.end() - 1 : named.end(), Named{name, {}, nullptr});
  }
  if (elem.keys.empty()) {
    if (!at->plain) at->plain = std::make_unique<Node>();
    return *at->plain;
  }
  auto given = elem.keys;
  std::ranges::sort(given);
  std::vector<std::string> names;
  Joined values; // refers to the keys
  for (auto const& [key, value] : given) {
    names.push_back(key);
    values.add(value);
  }
  auto keyed = std::ranges::find(at->keyed, names, &Keyed::names);
  if (keyed == at->keyed.end()) {
    auto const isWeaker = [&names](Keyed const& other) {
      return other.names.size() != names.size() ? other.names.size() < names.size() : other.names > names;
    };
    auto const place = std::ranges::find_if(at->keyed, isWeaker);
    keyed = at->keyed.insert(place, Keyed{std::move(names), {}});
  }
  std::unique_ptr<Node>& node = keyed->nodes[std::string(values.text())];
  if (!node) node = std::make_unique<Node>();
  node->keys = std::move(given);
  return *node;
}

void RuleTree::Node::close() {
  forEachChild([this](Node& child) {
    child.close();
    permitsBelow = permitsBelow || child.permitsBelow || (child.rule && child.rule->permits);
    deniesBelow = deniesBelow || child.deniesBelow || (child.rule && !child.rule->permits);
  });
}

RuleTree::RuleTree(std::span<Rule const> rules) : root_(std::make_unique<Node>()) {
  for (Rule const& rule : rules)
    add(rule);
  root_->close();
}
RuleTree::~RuleTree() = default;

void RuleTree::add(Rule const& rule) {
  Node* node = root_.get();
  for (Pattern::Elem const& elem : rule.path->elems()) {
    TOVAK_ASSERT(elem.kind != Pattern::Elem::Kind::AnyDepth,
                 Tovak::Platform::getDebugHandler("OndraAgent", false), "a rule for any depth");
    node = &node->childIs(elem);
  }
  if (!node->rule) node->rule = rule;
}

RuleTree::Place RuleTree::root() const {
  Place place;
  place.nodes_.push_back({root_.get(), true});
  place.settle();
  return place;
}

RuleTree::Place RuleTree::at(PathView const& path) const { return root().below(path); }

RuleTree::Place RuleTree::at(Pattern const& pattern) const {
  Place place = root();
  for (Pattern::Elem const& elem : pattern.elems()) {
    place = place.below(elem.name, [&elem](std::string_view name) -> std::optional<std::string_view> {
      for (auto const& [key, value] : elem.keys)
        if (key == name) return value;
      return std::nullopt;
    });
  }
  return place;
}

Pattern::Cover RuleTree::coverOf(Pattern const& pattern) const {
  Place const whole = root();
  bool const isNamed = std::ranges::all_of(
      pattern.elems(), [](Pattern::Elem const& elem) { return elem.kind == Pattern::Elem::Kind::Name; });
  return whole.isSettled() || !isNamed ? whole.cover() : at(pattern).cover();
}

// --- places -----------------------------------------------------------------------------------------------

RuleTree::Place RuleTree::Place::below(std::string_view name, KeyOf keyOf) const {
  if (isSettled()) return *this;
  Place next;
  next.mayPermit_ = mayPermit_;
  next.mayDeny_ = mayDeny_;
  auto const mayMatch = [&keyOf](Node const& node) {
    return std::ranges::all_of(node.keys, [&keyOf](auto const& key) {
      auto const value = keyOf(key.first);
      return !value || *value == key.second;
    });
  };
  auto const enter = [&](Node::Keyed const& keyed, bool isSure) {
    Joined values;
    bool isOpen = false;
    for (std::string const& key : keyed.names) {
      auto const value = keyOf(key);
      isOpen = isOpen || !value;
      values.add(value.value_or(""));
    }
    if (!isOpen) {
      std::string_view const text = values.text();
      auto const found = keyed.nodes.find(absl::string_view(text.data(), text.size()));
      if (found != keyed.nodes.end()) next.nodes_.push_back({found->second.get(), isSure});
      return;
    }
    for (auto const& [text, node] : keyed.nodes) {
      if (mayMatch(*node)) next.nodes_.push_back({node.get(), false});
    }
  };
  for (Standing const& standing : nodes_) {
    for (Node::Named const& named : standing.node->named) {
      if (named.name != name && named.name != "*") continue;
      for (Node::Keyed const& keyed : named.keyed)
        enter(keyed, standing.isSure);
      if (named.plain) next.nodes_.push_back({named.plain.get(), standing.isSure});
    }
  }
  next.settle();
  return next;
}

RuleTree::Place RuleTree::Place::below(gnmi::PathElem const& elem) const {
  if (isSettled()) return *this;
  return below(elem.name(), [&elem](std::string_view name) -> std::optional<std::string_view> {
    for (auto const& [key, value] : elem.key())
      if (key == name) return value;
    return std::nullopt;
  });
}

RuleTree::Place RuleTree::Place::below(PathView const& path) const {
  Place place = *this;
  for (std::size_t i = 0; i < path.size() && !place.isSettled(); ++i)
    place = place.below(path[i]);
  return place;
}

// Of those that say something the strongest counts that matches for sure; those before it count for some
// keys.
void RuleTree::Place::settle() {
  bool mayPermit = false;
  bool mayDeny = false;
  bool isDecided = false;
  for (auto at = nodes_.begin(); at != nodes_.end() && !isDecided; ++at) {
    std::optional<Rule> const& rule = at->node->rule;
    if (!rule) continue;
    (rule->permits ? mayPermit : mayDeny) = true;
    isDecided = at->isSure;
  }
  mayPermit_ = mayPermit || (mayPermit_ && !isDecided);
  mayDeny_ = mayDeny || (mayDeny_ && !isDecided);
  bool const permitsSome =
      mayPermit_ || std::ranges::any_of(nodes_, [](Standing const& one) { return one.node->permitsBelow; });
  bool const deniesSome =
      mayDeny_ || std::ranges::any_of(nodes_, [](Standing const& one) { return one.node->deniesBelow; });
  cover_ = !deniesSome ? Pattern::Cover::All : !permitsSome ? Pattern::Cover::None : Pattern::Cover::Partial;
  if (cover_ != Pattern::Cover::Partial) {
    nodes_.clear();
  } else {
    auto const namesNothing = [](Standing const& one) { return one.node->named.empty(); };
    nodes_.erase(std::remove_if(nodes_.begin(), nodes_.end(), namesNothing), nodes_.end());
  }
}

bool RuleTree::Place::asksForKeys(std::string_view name) const {
  return std::ranges::any_of(nodes_, [name](Standing const& standing) {
    return std::ranges::any_of(standing.node->named, [name](Node::Named const& named) {
      return (named.name == name || named.name == "*") && !named.keyed.empty();
    });
  });
}

bool RuleTree::Place::saysAs(Place const& other) const {
  return nodes_ == other.nodes_ && mayPermit_ == other.mayPermit_ && mayDeny_ == other.mayDeny_;
}

std::size_t RuleTree::Place::hash() const noexcept {
  std::size_t hash = mayPermit_ ? 1 : 0;
  for (Standing const& standing : nodes_)
    hash = 31 * hash + std::hash<Node const*>()(standing.node);
  return hash;
}

void RuleTree::Place::forEachPermitted(absl::FunctionRef<void(Pattern const&)> visit) const {
  auto const below = [&visit](auto const& self, Node const& node) -> void {
    node.forEachChild([&](Node const& child) {
      if (child.rule && child.rule->permits)
        visit(*child.rule->path);
      else if (child.permitsBelow)
        self(self, child);
    });
  };
  for (Standing const& standing : nodes_)
    below(below, *standing.node);
}

} // namespace Agent
