// Making, joining and comparing element by element; elements are shared, never copied. Texts and messages:
// GnmiPath.cpp.
#include "Ondra/Path.h"

namespace Ondra {

Kel::Ptr<Path> Path::PathIs() {
  Kel::Ptr<Path> path(new Path());
  path->hasNotificationActiveIs(true);
  return path;
}

Kel::Ptr<Path> Path::makePath(Kel::Ptr<Path const> const& path) {
  Kel::Ptr<Path> made = PathIs();
  made->copyFrom(path);
  return made;
}

Kel::Ptr<Path> Path::joinPath(Kel::Ptr<Path const> const& path1, Kel::Ptr<Path const> const& path2) {
  Kel::Ptr<Path> made = PathIs();
  made->copyFrom(path1);
  made->mergeFrom(path2);
  return made;
}

Kel::Ptr<Path> Path::simplePathIs(std::vector<std::string> names) {
  Kel::Ptr<Path> path = PathIs();
  path->elem_.reserve(names.size());
  for (std::string const& name : names)
    path->push(PathElem::PathElemIs(Kel::String::dedup(name)));
  return path;
}

// Elements are kept as const because they are shared; the one who builds a path may still fill its own.
Kel::Ptr<PathElem> Path::elem(std::size_t index) const {
  return Kel::Ptr<PathElem>(const_cast<PathElem*>(elem_.at(index).get()));
}

Kel::Ptr<PathElem> Path::addElem() {
  Kel::Ptr<PathElem> elem = PathElem::PathElemIs();
  elem_.push_back(elem);
  return elem;
}

void Path::replace(std::size_t index, ElemPtr elem) {
  ElemPtr& slot = elem_.at(index);
  if (slot != elem) slot = std::move(elem);
}

void Path::copyFrom(Kel::Ptr<Path const> const& other) {
  if (elem_.empty()) {
    elem_.insert(elem_.end(), other->elem_.begin(), other->elem_.end());
    return;
  }
  // The old references go last: one of them may be all that keeps `other` or its elements alive.
  auto elems = other->elem_;
  elem_.swap(elems);
}

void Path::mergeFrom(Kel::Ptr<Path const> const& other) {
  std::size_t const count = other->elem_.size();
  elem_.reserve(elem_.size() + count);
  for (std::size_t i = 0; i < count; ++i) // by index: `other` may be this path
    elem_.push_back(other->elem_[i]);
}

bool Path::isPrefix(Kel::Ptr<Path const> const& prefix, Kel::Ptr<Path const> const& path) {
  if (prefix->elem_.size() > path->elem_.size()) return false;
  for (std::size_t i = 0; i < prefix->elem_.size(); ++i) {
    PathElem const& wanted = *prefix->elem_[i];
    PathElem const& there = *path->elem_[i];
    bool const matches = wanted.key().empty() ? wanted.name() == there.name() : wanted.isEqual(&there);
    if (!matches) return false;
  }
  return true;
}

} // namespace Ondra
