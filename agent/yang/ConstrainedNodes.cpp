// A node with a constraint, what the constraint reads, and what the node is made or goes with.
#include "agent/yang/ConstrainedNodes.h"

#include <cstdint>

#include <libyang/libyang.h>

#include "agent/yang/Arrays.h"
#include "agent/yang/Modules.h"

namespace Agent {
namespace {

class Finder {
public:
  ConstrainedNodes found;

  void look(lysc_node const& node) {
    if ((node.flags & LYS_CONFIG_W) == 0) return;
    for (lysc_must const& must : sized(lysc_node_musts(&node))) {
      owner(node);
      reads(&node, *node.module, must.cond, must.prefixes);
    }
    for (lysc_when const* const when : sized(lysc_node_when(&node))) {
      owner(node);
      reads(when->context, *node.module, when->cond, when->prefixes);
    }
    if (node.nodetype == LYS_LEAF) typed(node, *reinterpret_cast<lysc_node_leaf const&>(node).type);
    if (node.nodetype == LYS_LEAFLIST) {
      auto const& list = reinterpret_cast<lysc_node_leaflist const&>(node);
      typed(node, *list.type);
      if (list.min > 0 || list.max < UINT32_MAX) owner(node);
    }
    if (node.nodetype == LYS_LIST) {
      auto const& list = reinterpret_cast<lysc_node_list const&>(node);
      if (list.min > 0 || list.max < UINT32_MAX) owner(node);
      for (lysc_node_leaf** const unique : sized(list.uniques)) {
        owner(node);
        for (lysc_node_leaf const* const leaf : sized(unique))
          found.nodes.insert(&leaf->node);
      }
    }
    if ((node.flags & LYS_MAND_TRUE) != 0 && !lysc_is_key((&node))) owner(node);
  }

private:
  // With what stands in it, where it is no node of data itself; with the entry or container in which it is
  // looked for, and with its whole case, which asks for it.
  void owner(lysc_node const& node) {
    within(node);
    for (lysc_node const* above = node.parent; above != nullptr; above = above->parent) {
      if (above->nodetype == LYS_CASE) within(*above);
      bool const isPlain = above->nodetype == LYS_CONTAINER && (above->flags & LYS_PRESENCE) == 0;
      if ((above->nodetype & (LYS_CONTAINER | LYS_LIST)) == 0 || isPlain) continue;
      found.nodes.insert(above);
      return;
    }
  }
  void within(lysc_node const& node) {
    found.nodes.insert(&node);
    if ((node.nodetype & (LYS_CHOICE | LYS_CASE)) == 0) return;
    for (lysc_node const* child = lysc_node_child(&node); child != nullptr; child = child->next)
      within(*child);
  }
  void reads(lysc_node const* from, lys_module const& module, lyxp_expr const* what,
             lysc_prefix const* prefixes) {
    ly_set* atoms = nullptr;
    if (lys_find_expr_atoms(from, &module, what, prefixes, 0, &atoms) != LY_SUCCESS) return;
    for (std::uint32_t i = 0; i < atoms->count; ++i)
      found.nodes.insert(atoms->snodes[i]);
    ly_set_free(atoms, nullptr);
  }
  void typed(lysc_node const& leaf, lysc_type const& type) {
    if (type.basetype == LY_TYPE_LEAFREF) {
      auto const& reference = reinterpret_cast<lysc_type_leafref const&>(type);
      if (reference.require_instance == 0) return;
      owner(leaf);
      reads(&leaf, *leaf.module, reference.path, reference.prefixes);
    } else if (type.basetype == LY_TYPE_INST) {
      bool const isHeld = reinterpret_cast<lysc_type_instanceid const&>(type).require_instance != 0;
      if (isHeld) owner(leaf);
      found.canAnyBeMeant = found.canAnyBeMeant || isHeld;
    } else if (type.basetype == LY_TYPE_UNION) {
      for (lysc_type const* const each : sized(reinterpret_cast<lysc_type_union const&>(type).types))
        typed(leaf, *each);
    }
  }
};

LY_ERR look(lysc_node* node, void* finder, ly_bool*) {
  static_cast<Finder*>(finder)->look(*node);
  return LY_SUCCESS;
}

} // namespace

ConstrainedNodes ConstrainedNodes::of(Modules const& modules) {
  Finder finder;
  std::uint32_t index = 0;
  while (lys_module const* const module = ly_ctx_get_module_iter(modules.context(), &index))
    if (module->implemented) lysc_module_dfs_full(module, &look, &finder);
  return std::move(finder.found);
}

} // namespace Agent
