// The schema library parses a document; its tree is written into the model node by node, and what is state of
// it dropped. What is left, configuration, is validated at the end.
#include "agent/yang/YangData.h"

#include <charconv>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>

#include <absl/strings/escaping.h>
#include <fmt/format.h>
#include <libyang/libyang.h>

#include "Kel/Attr.h"
#include "Kel/Dir.h"
#include "Kel/Error.h"
#include "Kel/Scalars.h"
#include "Kel/TypeBuilder.h"
#include "agent/model/Schema.h"
#include "agent/model/Tree.h"
#include "agent/yang/Complaint.h"
#include "agent/yang/DocumentLines.h"
#include "agent/yang/PlainJson.h"
#include "agent/yang/YangModel.h"

namespace Agent {
namespace {

using Handle = Kel::KelAttr::Handle;
using ConstHandle = Kel::KelAttr::ConstHandle;
using Done = Kstd::Result<void, std::string>;
using Tree = std::unique_ptr<lyd_node, void (*)(lyd_node*)>;

ConstHandle numberHandle(Kel::KelType type, std::string_view text) {
  if (text.starts_with('-')) {
    std::int64_t number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number);
    return type.genericIf(&number);
  }
  std::uint64_t number = 0;
  std::from_chars(text.data(), text.data() + text.size(), number);
  return type.genericIf(&number);
}

// What the member that has taken the value holds, as an alternative of the union.
ConstHandle unionHandle(LeafInfo const& leaf, lyd_node const& node) {
  lyd_value const* value = &reinterpret_cast<lyd_node_term const&>(node).value;
  while (value->realtype->basetype == LY_TYPE_UNION)
    value = &value->subvalue->value;
  std::string_view const text = lyd_get_value(&node);
  std::string_view name = "text";
  ConstHandle held;
  switch (value->realtype->basetype) {
  case LY_TYPE_BOOL:
    name = "bool";
    held = Kel::handleOf(text == "true");
    break;
  case LY_TYPE_UINT8:
  case LY_TYPE_UINT16:
  case LY_TYPE_UINT32:
  case LY_TYPE_UINT64:
    name = "uint";
    held = numberHandle(Kel::builtinType(Kel::BuiltinKind::U64), text);
    break;
  case LY_TYPE_INT8:
  case LY_TYPE_INT16:
  case LY_TYPE_INT32:
  case LY_TYPE_INT64:
    name = "int";
    held = numberHandle(Kel::builtinType(Kel::BuiltinKind::S64), text);
    break;
  case LY_TYPE_STRING:
  case LY_TYPE_BINARY:
  case LY_TYPE_BITS:
  case LY_TYPE_DEC64:
  case LY_TYPE_EMPTY:
  case LY_TYPE_ENUM:
  case LY_TYPE_IDENT:
  case LY_TYPE_INST:
  case LY_TYPE_LEAFREF:
  case LY_TYPE_UNION:
  case LY_TYPE_UNKNOWN: held = Kel::handleOf(Kel::String(text));
  }
  Handle const whole = leaf.held.genericIf(nullptr);
  leaf.held.attr(name).genericIfSet(whole, nullptr, held);
  return whole;
}

// The value of a node that the schema library has found to be right.
ConstHandle valueHandle(LeafInfo const& leaf, lyd_node const& node) {
  std::string_view const text = lyd_get_value(&node);
  switch (leaf.type) {
  case LeafType::Empty: return Kel::handleOf(true);
  case LeafType::Boolean: return Kel::handleOf(text == "true");
  case LeafType::Enumeration:
  case LeafType::Identity: {
    auto value = leaf.held.genericIfFromGnmiString(Kel::String(text));
    return value ? ConstHandle(std::move(*value)) : nullptr;
  }
  case LeafType::Binary: {
    if (leaf.keyMembers != nullptr) break;
    std::string bytes;
    return absl::Base64Unescape(std::string(text), &bytes) ? ConstHandle(Kel::handleOf(Kel::Bytes(bytes)))
                                                           : nullptr;
  }
  case LeafType::Uint8:
  case LeafType::Uint16:
  case LeafType::Uint32:
  case LeafType::Uint64:
  case LeafType::Int8:
  case LeafType::Int16:
  case LeafType::Int32:
  case LeafType::Int64: return numberHandle(leaf.held, text);
  case LeafType::Union: return unionHandle(leaf, node);
  case LeafType::String:
  case LeafType::Decimal64:
  case LeafType::Bits:
  case LeafType::InstanceIdentifier: break;
  }
  return Kel::handleOf(Kel::String(text));
}

class Filler {
public:
  Filler(YangTypes const& types, FilledData& filled) : types_(types), filled_(filled) {}

  // The node that is being written, or was when it was refused.
  [[nodiscard]] lyd_node const* at() const { return at_; }
  // The node, and its next siblings.
  void fillFrom(lyd_node const* first, Handle const& parent) {
    for (lyd_node const* node = first; node != nullptr; node = node->next) {
      if (node->schema == nullptr) continue;
      at_ = node;
      Kel::KelAttr const attr = attrOf(*node->schema, parent);
      if (!attr)
        ++filled_.leftOut;
      else if (node->schema->nodetype == LYS_LEAFLIST)
        node = fillLeafList(*node, attr, parent);
      else
        fill(*node, attr, parent);
    }
  }

private:
  // Of a node in what holds it; an invalid one when it is left out.
  [[nodiscard]] Kel::KelAttr attrOf(lysc_node const& node, Handle const& parent) const {
    if (types_.tops.contains(&node)) return parent->type().attr(std::string_view(node.name));
    auto const found = types_.attrs.find(&node);
    return found == types_.attrs.end() ? Kel::KelAttr() : found->second;
  }
  void fill(lyd_node const& node, Kel::KelAttr attr, Handle const& parent) {
    switch (node.schema->nodetype) {
    case LYS_LEAF:
      ++filled_.leaves;
      check(*leafInfo(attr), node);
      if (attr.isKeyField()) return;
      return attr.genericIfSet(parent, nullptr, valueHandle(*leafInfo(attr), node));
    case LYS_CONTAINER:
      // One that means nothing by itself is there when it holds something.
      if (lyd_child(&node) == nullptr && (node.schema->flags & LYS_PRESENCE) == 0) return;
      return fillFrom(lyd_child(&node), childOf(attr, parent));
    default: return fillFrom(lyd_child(&node), entryOf(node, attr, parent));
    }
  }
  // Patterns that the schema library does not know.
  static void check(LeafInfo const& leaf, lyd_node const& node) {
    if (leaf.type != LeafType::String || leaf.rules == nullptr) return;
    if (auto const checked = leaf.rules->canonical(lyd_get_value(&node)); !checked)
      Kel::throwError(checked.error());
  }
  static Handle mutableHandle(ConstHandle const& handle) {
    return Kel::GenericIf::toObject(handle->object());
  }
  static Handle childOf(Kel::KelAttr attr, Handle const& parent) {
    if (ConstHandle const there = attr.genericIfGet(parent)) return mutableHandle(there);
    return attr.genericIfSet(parent, Kel::ArgList());
  }
  static Handle entryOf(lyd_node const& node, Kel::KelAttr attr, Handle const& parent) {
    Kel::ArgList values;
    lyd_node const* key = lyd_child(&node);
    for (; key != nullptr && lysc_is_key(key->schema); key = key->next)
      values.push_back(
          valueHandle(*leafInfo(attr.memberType().attr(std::string_view(key->schema->name))), *key));
    bool const isStructured = !attr.indexAttr();
    ConstHandle const handle = isStructured ? ConstHandle(attr.keyType().genericIf(values)) : values.front();
    if (attr.genericIfExist(parent, handle)) return mutableHandle(attr.genericIfGet(parent, handle));
    return isStructured ? attr.genericIfSet(parent, handle, Kel::ArgList())
                        : attr.genericIfSet(parent, values);
  }
  // Gives the last of its instances.
  lyd_node const* fillLeafList(lyd_node const& first, Kel::KelAttr attr, Handle const& parent) {
    Handle const array = attr.type().genericIf(nullptr);
    lyd_node const* last = &first;
    for (lyd_node const* node = &first; node != nullptr && node->schema == first.schema; node = node->next) {
      at_ = node;
      check(*leafInfo(attr), *node);
      attr.genericIfAdd(array, valueHandle(*leafInfo(attr), *node));
      last = node;
    }
    ++filled_.leaves;
    attr.genericIfSet(parent, nullptr, array);
    return last;
  }

  YangTypes const& types_;
  FilledData& filled_;
  lyd_node const* at_ = nullptr;
};

// Whether nothing is configured below it but keys.
bool isBare(lyd_node const& node) {
  for (lyd_node const* child = lyd_child(&node); child != nullptr; child = child->next) {
    if (child->schema == nullptr) return false;
    bool const isPlace =
        child->schema->nodetype == LYS_CONTAINER && (child->schema->flags & LYS_PRESENCE) == 0;
    if (!lysc_is_key(child->schema) && !(isPlace && isBare(*child))) return false;
  }
  return true;
}

// Takes what is state out of a tree, and with it the entries that held nothing else: these are none of the
// configuration. Whether there was any.
bool stateDel(lyd_node** first) {
  bool isAny = false;
  for (lyd_node *node = *first, *next = nullptr; node != nullptr; node = next) {
    next = node->next;
    if (node->schema == nullptr) continue;
    bool isState = (node->schema->flags & LYS_CONFIG_W) == 0;
    if (!isState && (node->schema->nodetype & (LYS_CONTAINER | LYS_LIST)) != 0) {
      lyd_node* child = lyd_child(node);
      bool const heldState = stateDel(&child);
      isAny = isAny || heldState;
      isState = heldState && node->schema->nodetype == LYS_LIST && isBare(*node);
    }
    if (!isState) continue;
    isAny = true;
    if (node == *first) *first = next;
    lyd_free_tree(node);
  }
  return isAny;
}

struct Document {
  std::string text;
  bool isXml = false;
  Tree tree{nullptr, &lyd_free_all};

  // As compilers say it.
  [[nodiscard]] std::string complaintOf(lyd_node const& node, std::string_view file,
                                        Complaint complaint) const {
    complaint.line = lineOf(node, text, isXml);
    return complaint.textIn(file);
  }
};

Kstd::Result<Document, std::string> parsed(ly_ctx const& context, std::string const& file) {
  std::ifstream from(file, std::ios::binary);
  Document made{.text = {std::istreambuf_iterator<char>(from), {}}};
  if (!from) return Kstd::Err(fmt::format("{}: cannot be read", file));
  std::size_t const first = made.text.find_first_not_of(" \t\r\n\xef\xbb\xbf");
  made.isXml = first != made.text.npos && made.text[first] == '<';
  if (!made.isXml) {
    auto plain = plainJson(made.text);
    if (!plain) return Kstd::Err(fmt::format("{}: {}", file, plain.error()));
    made.text = *std::move(plain);
  }
  lyd_node* tree = nullptr;
  ly_err_clean(const_cast<ly_ctx*>(&context), nullptr);
  LY_ERR const ended = lyd_parse_data_mem(&context, made.text.c_str(), made.isXml ? LYD_XML : LYD_JSON,
                                          LYD_PARSE_ONLY | LYD_PARSE_STRICT, 0, &tree);
  made.tree.reset(tree);
  if (ended != LY_SUCCESS) return Kstd::Err(lastComplaint(context).textIn(file));
  return made;
}

// Of the documents together: the last one that has the place is at fault, or has what should hold it. They
// are read once more.
std::string complaintIn(ly_ctx const& context, std::vector<std::string> const& files,
                        Complaint const& complaint) {
  std::string said = complaint.textIn(fmt::format("{}", fmt::join(files, ", ")));
  if (complaint.place.empty()) return said;
  std::size_t deepest = 0;
  for (std::string const& file : files) {
    auto const document = parsed(context, file);
    if (!document || document->tree == nullptr) continue;
    lyd_node* found = nullptr;
    lyd_find_path(document->tree.get(), complaint.place.c_str(), 0, &found);
    std::size_t depth = 0;
    for (lyd_node const* each = found; each != nullptr; each = lyd_parent(each))
      ++depth;
    if (depth == 0 || depth < deepest) continue;
    deepest = depth;
    said = document->complaintOf(*found, file, complaint);
  }
  return said;
}

} // namespace

Kstd::Result<FilledData, std::string> yangDataInto(Kel::Dir& root, YangModel const& model,
                                                   std::vector<std::string> const& files, bool isChecked) {
  ly_ctx const& context = *model.modules().context();
  Handle const dataRoot = Kel::handleTo(dataRootIn(root));
  FilledData filled;
  Filler filler(model.types(), filled);
  lyd_node* config = nullptr;
  for (std::string const& file : files) {
    auto document = parsed(context, file);
    if (!document) return Kstd::Err(std::move(document).error());
    try {
      filler.fillFrom(document->tree.get(), dataRoot);
    } catch (Kel::Error const& error) {
      lyd_node const& at = *filler.at();
      return Kstd::Err(document->complaintOf(at, file, {.words = error.what(), .place = placeOf(at)}));
    }
    lyd_node* own = document->tree.release();
    stateDel(&own);
    if (own != nullptr) lyd_merge_siblings(&config, own, LYD_MERGE_DESTRUCT);
  }
  LY_ERR const valid =
      isChecked ? lyd_validate_all(&config, &context, LYD_VALIDATE_NO_STATE, nullptr) : LY_SUCCESS;
  filled.configuration.reset(config);
  if (valid == LY_SUCCESS) return filled;
  Complaint const complaint = lastComplaint(context, config);
  if (!files.empty()) return Kstd::Err(complaintIn(context, files, complaint));
  filled.notes.push_back("the configuration is not valid while it is empty: " + complaint.text());
  return filled;
}

} // namespace Agent
