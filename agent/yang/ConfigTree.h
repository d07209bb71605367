// The configuration as a tree of the schema library, which says whether it holds as a whole.
//
// Invariants
// 1. Until a change is kept, `steps_`, gone through backwards, gives what was before it. What the schema
//    library takes away by itself is a step, too.
// 2. Steps name places, not nodes: the library frees nodes when it validates.
// 3. A node that is written has the mark taken off that its condition held: when it does not hold now, the
//    change is refused, while a node that nobody writes goes.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <absl/container/flat_hash_map.h>

#include "agent/store/ConfigRules.h"
#include "agent/yang/ConstrainedNodes.h"

struct lyd_node;
struct lysc_node;

namespace gnmi {
class PathElem;
class TypedValue;
} // namespace gnmi

namespace Agent {

class YangModel;

// One thread at a time. The model outlives it.
class ConfigTree {
public:
  struct Freed {
    void operator()(lyd_node* first) const;
  };
  using Nodes = std::unique_ptr<lyd_node, Freed>; // the first at the top, and its siblings

  ConfigTree(YangModel const& model, Nodes nodes);
  ~ConfigTree();
  ConfigTree(ConfigTree const&) = delete;
  ConfigTree& operator=(ConfigTree const&) = delete;

  // Lays a change over what is kept.
  void changeIs(ConfigChange const& change);
  // Takes the change back when the configuration does not hold with it. Whatever has no part in any
  // constraint costs nothing here.
  [[nodiscard]] ConfigRules::Verdict validate();
  // Says the same, and leaves the change as it is.
  [[nodiscard]] ConfigRules::Verdict look();
  void keep();
  void takeBack();

  [[nodiscard]] lyd_node const* first() const noexcept { return first_; }

private:
  struct Step {
    std::string place; // canonical bytes
    std::vector<lyd_node*> before;
  };
  using Child =
      std::pair<lysc_node const*, std::string_view>; // what stands above it (null: nothing), its name

  [[nodiscard]] lysc_node const* schemaOf(lysc_node const* above, std::string_view name) const;
  [[nodiscard]] lyd_node* find(lyd_node* parent, lysc_node const& schema, gnmi::PathElem const& elem) const;
  void insert(lyd_node* parent, lyd_node* node);
  void unlink(lyd_node* node);
  // What stands at a place goes: it is given back.
  [[nodiscard]] std::vector<lyd_node*> taken(std::string_view place);
  [[nodiscard]] std::vector<lyd_node*> taken(lyd_node* parent, lysc_node const& schema,
                                             gnmi::PathElem const& elem);
  void placeDel(std::string_view place);
  void valueIs(std::string_view place, gnmi::TypedValue const& value);
  void leafIs(lyd_node* parent, lysc_node const& schema, std::string place, gnmi::TypedValue const& value);
  [[nodiscard]] lyd_node* newChild(lyd_node* parent, lysc_node const& schema, gnmi::PathElem const& elem);
  [[nodiscard]] lyd_node* childIs(lyd_node* parent, lysc_node const& schema, gnmi::PathElem const& elem,
                                  std::string const& place);
  [[nodiscard]] ConfigRules::Verdict validated();
  // Notes what the library has taken away; the places are the answer.
  [[nodiscard]] std::vector<std::string> noteGone(lyd_node const* changes);
  void touched(lysc_node const* schema);
  void allTouched(lyd_node const* subtree);

  YangModel const& model_;
  ConstrainedNodes const constrained_;
  absl::flat_hash_map<Child, lysc_node const*> children_;
  lyd_node* first_;
  std::vector<Step> steps_;
  bool isKnownToHold_ = false; // what is kept
  bool isTouched_ = false;     // what the change has a part in
};

} // namespace Agent
