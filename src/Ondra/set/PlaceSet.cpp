// The recorded places and operations, and their three phases over a tree of their own; what a place does to
// the model is in the tree's files.
#include "Ondra/PlaceSet.h"

#include <string>
#include <utility>

#include "Kel/Dir.h"
#include "Ondra/KelGnmiSetter.h"
#include "Ondra/rules/ModelError.h"
#include "Ondra/set/AttrNode.h"
#include "Ondra/set/DataRoot.h"
#include "Ondra/set/SetTrace.h"

namespace Ondra::KelGnmiSet {

using gnmi::PathElem;
using Kel::KelAttr;

namespace {

std::string textOf(AttrTree::ConstHandle const& key) {
  auto text = catchModelError([&key] { return std::string(key->gnmiStrRep()); });
  return text ? std::move(text).value() : std::string();
}

// A field of a key, or those that it consists of: "subnet__length".
void addFields(PathElem& elem, std::string const& name, AttrTree::ConstHandle const& value) {
  if (AttrTree::getTypeKind(value->type()) != AttrTree::TypeKind::Composite) {
    (*elem.mutable_key())[name] = textOf(value);
    return;
  }
  for (std::size_t i = 0; i < value->type().attrCount(); ++i) {
    KelAttr const field = value->type().attrAt(i);
    AttrTree::ConstHandle const part = field.genericIfGet(value);
    std::string const partName = name.empty() ? field.name().str() : name + "__" + field.name().str();
    if (part) addFields(elem, partName, part);
  }
}

// The key as a path has it.
void addKey(PathElem& elem, KelAttr attr, AttrTree::ConstHandle const& key) {
  KelAttr const index = attr.indexAttr();
  bool const isOne = AttrTree::getTypeKind(key->type()) != AttrTree::TypeKind::Composite;
  addFields(elem, !isOne ? "" : index ? index.name().str() : attr.name().str() + "Key", key);
}

} // namespace

PathElem const& PlaceSet::Place::elem() const {
  if (elem_) return *elem_;
  elem_ = std::make_unique<PathElem>();
  if (key_ && attr_.ownerType().isDir()) {
    elem_->set_name(textOf(key_));
  } else {
    elem_->set_name(attr_.name().str());
    if (key_) addKey(*elem_, attr_, key_);
  }
  return *elem_;
}

// The way of one phase after the other; the elements outlive the nodes.
struct PlaceSet::Tree {
  gnmi::Path rootPath;
  std::unique_ptr<AttrTree::AttrNode> root;
};

PlaceSet::PlaceSet(Kel::Ptr<Path const> dataRoot)
    : dataRoot_(std::move(dataRoot))
    , root_(std::make_unique<Place>(nullptr, KelAttr(), nullptr))
    , places_(std::make_unique<std::deque<Place>>()) {
  TOVAK_ASSERT(dataRoot_ && dataRoot_->elemSize() > 0, setTrace,
               "data root path must be an absolute non-empty path");
}

PlaceSet::~PlaceSet() = default;

PlaceSet::Place const& PlaceSet::placeIs(Place const& above, KelAttr attr, Handle key) {
  TOVAK_ASSERT(attr && attr.isKeyed() == static_cast<bool>(key), setTrace,
               "A key stands for a member of a keyed collection");
  return places_->emplace_back(&above == root_.get() ? nullptr : &above, attr, std::move(key));
}

PlaceSet::Place const& PlaceSet::entityIs(Place const& dir, std::string_view name) {
  static KelAttr const entities = Kel::globalDir()->fwkType().attr("entityPtr");
  return placeIs(dir, entities, Kel::handleOf(Kel::String(name)));
}

void PlaceSet::deleteIs(Place const& place) { deletes_.push_back(&place); }
void PlaceSet::replaceIs(Place const& place, gnmi::TypedValue value) {
  replaces_.push_back({&place, std::move(value), {}});
}
void PlaceSet::updateIs(Place const& place, gnmi::TypedValue value) {
  updates_.push_back({&place, std::move(value), {}});
}
void PlaceSet::updateIs(Place const& place, gnmi::TypedValue value, Decoded decoded) {
  updates_.push_back({&place, std::move(value), std::move(decoded)});
}

std::size_t PlaceSet::size() const { return deletes_.size() + replaces_.size() + updates_.size(); }

grpc::Status PlaceSet::check() const {
  Tree tree;
  return prepare(tree);
}

grpc::Status PlaceSet::execute() const {
  TOVAK_TRACE(setTrace, 0, "", "Start executing a Set of {} places", size());
  Tree tree;
  if (grpc::Status status = prepare(tree); !status.ok()) return status;
  auto const committed = tree.root->commitTree();
  auto const* const error = std::get_if<AttrTree::Error>(&committed);
  return error == nullptr ? grpc::Status::OK : treeErrorToStatus(*error);
}

grpc::Status PlaceSet::prepare(Tree& tree) const {
  auto found = dataRootAt(*dataRoot_, tree.rootPath);
  if (!found) return found.error();
  tree.root = std::make_unique<AttrTree::AttrNode>(*tree.rootPath.elem().rbegin(), std::move(found).value());
  for (SetOp const op : {SetOp::Delete, SetOp::Replace, SetOp::Update}) {
    if (op != SetOp::Delete) tree.root->pruneSubTree();
    if (grpc::Status status = insert(tree, op); !status.ok()) return status;
  }
  return grpc::Status::OK;
}

grpc::Status PlaceSet::insert(Tree& tree, SetOp op) const {
  tree.root->opIs(op);
  AttrTree::Status status = true;
  if (op == SetOp::Delete) {
    for (auto place = deletes_.begin(); place != deletes_.end() && status.index() == 0; ++place)
      status = tree.root->insertPlace(**place, {}, op);
  } else {
    auto const& writes = op == SetOp::Replace ? replaces_ : updates_;
    for (auto write = writes.begin(); write != writes.end() && status.index() == 0; ++write)
      status = tree.root->insertPlace(*write->place,
                                      {&write->value, write->decoded ? &*write->decoded : nullptr}, op);
  }
  if (status.index() == 0) status = tree.root->prepareTree(op);
  auto const* const error = std::get_if<AttrTree::Error>(&status);
  return error == nullptr ? grpc::Status::OK : treeErrorToStatus(*error);
}

} // namespace Ondra::KelGnmiSet
