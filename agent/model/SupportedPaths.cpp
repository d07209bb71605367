// The page's head and a table for each top level, by a descent through the types. Nothing here asks for
// values.
#include "agent/model/SupportedPaths.h"

#include <fmt/format.h>

#include <string_view>

#include "agent/model/Figures.h"
#include "agent/model/Schema.h"
#include "agent/model/Tree.h"

namespace Agent {
namespace {

constexpr std::string_view kHead = R"(# Supported paths

What `ondra-agent` serves, below the origin `openconfig`. This page is made from the types of the model by
`ondra-supported-paths`; edit the declarations in `agent/model`, not this page.

- **type**: the published one, with the range of its numbers or the published type of its texts; `*` marks a
  leaf-list. 64-bit numbers and decimals are strings in JSON_IETF.
- **class**: configuration leaves can be set; state leaves cannot. The key of a list whose entries nobody can
  configure here is state, wherever the module that published it has configuration beside it.
- **mode**: how TARGET_DEFINED tells of the leaf: `event` when it changes, `sampled` at an interval.

A leaf is there when the machine knows its value; what it does not know is left out.
)";

void appendLeaf(std::string& page, std::string_view path, LeafInfo const& leaf) {
  std::string const rule = leafRuleText(leaf);
  page += fmt::format("| `{}` | {}{}{} | {} | {} |\n", path, leafTypeText(leaf), rule.empty() ? "" : " ",
                      rule, leaf.isConfig ? "config" : "state", leaf.isSampled ? "sampled" : "event");
}

void appendNode(std::string& page, std::string const& above, Kel::KelAttr attr);

void appendType(std::string& page, std::string const& path, Kel::KelType type) {
  for (Kel::KelTypeBase::AttributeQIterator it(type); it; ++it)
    appendNode(page, path, *it);
}

void appendNode(std::string& page, std::string const& above, Kel::KelAttr attr) {
  std::string path = fmt::format("{}/{}", above, attr.name().view());
  if (LeafInfo const* const leaf = leafInfo(attr)) return appendLeaf(page, path, *leaf);
  if (attr.isKeyed() && attr.indexAttr()) path += fmt::format("[{}]", attr.indexAttr().name().view());
  if (attr.isKeyed() && !attr.indexAttr())
    for (Kel::KelTypeBase::AttributeQIterator key(attr.keyType()); key; ++key)
      path += fmt::format("[{}]", (*key).name().view());
  appendType(page, path, attr.memberType());
}

} // namespace

std::string supportedPaths() {
  declareFigures();
  return std::string(kHead) + pathTables();
}

std::string pathTables() {
  std::string page;
  for (Kel::KelTypeBase::AttributeQIterator top(rootType()); top; ++top) {
    page += fmt::format("\n## /{} ({})\n\n| path | type | class | mode |\n|---|---|---|---|\n",
                        (*top).name().view(), nodeModule(*top));
    appendNode(page, "", *top);
  }
  return page;
}

} // namespace Agent
