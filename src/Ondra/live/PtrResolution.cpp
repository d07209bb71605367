// How a reference gets the text of its target's path.
//
// Invariants
// 1. A resolution ends: a root that is being walked for another reference is not walked once more, and
//    resolutions nest to a fixed depth only. What cannot be resolved for now is "nullptr", and is noted: it
//    is rendered again when the object gets a path.
// 2. Whatever the model holds, and does meanwhile, a reference has a text.
#include "Ondra/PtrResolution.h"

#include <algorithm>
#include <memory>
#include <utility>
#include <vector>

#include "Kel/Attr.h"
#include "Kel/Dir.h"
#include "Kel/Entity.h"
#include "Ondra/KelTypeWalker.h"
#include "Ondra/NotifieeMaps.h"
#include "Ondra/PathFormat.h"
#include "Ondra/live/Referrers.h"
#include "Ondra/rules/WalkRules.h"
#include "Tovak/Assert.h"
#include "Tovak/Trace.h"

namespace Ondra {
namespace {

constexpr char const* kCategory = "PtrResolution";
constexpr char const* kNone = "nullptr";
constexpr WalkerFlags kSilentWalk{0x23};
constexpr std::size_t kMaxNested = 16;

Tovak::DebugHandler& trace() {
  static Tovak::DebugHandler& handler = Tovak::Platform::getDebugHandler("OndraPtrResolution", false);
  return handler;
}

// The roots that are being walked for references, the outermost first.
std::vector<Kel::Entity const*>& walkedRoots() {
  static std::vector<Kel::Entity const*> roots;
  return roots;
}

// What is walked to reach an object, and the path that it has.
struct Start {
  Kel::Ptr<Kel::Entity> root;
  Kel::Ptr<Path const> path;
};

bool isDir(Kel::Entity const& entity) { return entity.fwkType().isDir(); }

// The path of a directory, or of an entity in one. Null for the root directory, when the way up leaves the
// directories, and when no message can hold it.
Kel::Ptr<Path const> pathInDirs(Kel::Entity const& entity) {
  std::vector<Kel::String> names;
  for (Kel::Entity const* at = &entity; at->parent() != nullptr; at = at->parent()) {
    if (!isDir(*at->parent())) return nullptr;
    names.push_back(at->Kel::Entity::name()); // of its place, whatever its class says
  }
  if (names.empty()) return nullptr;
  Kel::Ptr<Path> const path = Path::PathIs();
  for (auto name = names.rbegin(); name != names.rend(); ++name)
    path->push(PathElem::PathElemIs(*name)); // not parsed from a printed name: that may hold anything
  return WalkRules::isEncodable(*path) ? path : nullptr;
}

// The nearest known ancestor, else the child of the first directory on the way up.
Start startOf(Kel::Entity& object) {
  Kel::Entity* previous = object.parent();
  for (Kel::Entity* at = previous; at != nullptr; previous = at, at = at->parent()) {
    if (Kel::Ptr<Path const> const known = notifieeMaps->pathOf(at)) {
      TOVAK_TRACE(trace(), 5, kCategory, "Found a good parent {}", known);
      return {Kel::Ptr(at), known};
    }
    if (isDir(*at)) {
      Kel::Ptr<Kel::Entity> const root(previous->parent() == nullptr ? &object
                                                                     : previous); // not the root directory
      Kel::Ptr<Path const> const path = pathInDirs(*root);
      TOVAK_TRACE(trace(), 5, kCategory, "Walk the prev object {}", path);
      return path ? Start{root, path} : Start{};
    }
  }
  return {};
}

// Walks silently what is at and below `start`, so that all of it gets registered.
void walkFrom(Start const& start, BaseRouter& router) {
  walkedRoots().push_back(start.root.get());
  struct Pop {
    ~Pop() { walkedRoots().pop_back(); }
  } const pop;
  auto walkInfo = WalkInfo::WalkInfoIs(router, SyncWalkId(), start.path,
                                       static_cast<Kel::PtrInterface const*>(start.root.get()), kSilentWalk);
  RenderScope const ofNobody(true, nullptr, 0, nullptr);
  static_cast<void>(FullKelTypeWalker::walkObject(walkInfo));
}

std::string knownPath(Kel::Entity const& object) {
  Kel::Ptr<Path const> const path = object.isOrphan() ? nullptr : notifieeMaps->pathOf(&object);
  return path ? path->toString() : std::string();
}

std::string resolve(Kel::Entity& object, BaseRouter& router) {
  TOVAK_TRACE(trace(), 1, kCategory, "Forward reference for {} is not present", object.fullName().view());
  Start const start = object.isOrphan() ? Start{} : startOf(object);
  auto const& roots = walkedRoots();
  bool const walksAlready = std::find(roots.begin(), roots.end(), start.root.get()) != roots.end();
  if (!start.root || walksAlready || roots.size() >= kMaxNested) return kNone;
  walkFrom(start, router);
  std::string const path = knownPath(object);
  if (path.empty()) { // nothing that a walk reaches, or nothing any more: whoever the walk told may have removed it
    TOVAK_TRACE(trace(), 1, kCategory, "Failed to find a valid GifNotifiee for: {}",
                object.fullName().view());
    return kNone;
  }
  return path;
}

} // namespace

std::string getPtrPathStr(Kel::Ptr<Kel::GenericIf const> const& ref, BaseRouter& router) {
  if (!ref || !ref->type().isEntity() || ref->object() == nullptr)
    return kNone; // no reference, none to an entity, or one to an entity that has gone
  Kel::Ptr<Kel::Entity> const object(static_cast<Kel::Entity*>(ref->object()));
  std::string text = knownPath(*object);
  if (text.empty()) text = resolve(*object, router);
  if (!object->isOrphan()) // else it stays as it is
    RenderScope::rendered(object->serial());
  return text;
}

std::pair<Kel::Ptr<Path>, Kel::Ptr<Kel::GenericIf const>> getPtrPath(BaseRouter& router,
                                                                     Kel::Ptr<Path const> const& prefix,
                                                                     Kel::Ptr<Kel::GenericIf const> ref,
                                                                     Kel::Ptr<Path const> const& leaf) {
  static Kel::Ptr<PathElem const> const ptrElem = PathElem::PathElemIs("_ptr");
  Kel::String const text(getPtrPathStr(ref, router));
  Kel::Ptr<Path> path = Path::makePath(leaf);
  path->push(ptrElem);
  TOVAK_ASSERT(!text.empty(), trace(), "Failed to resolve a ptr for prefix {} and leaf {}", prefix, path);
  return {std::move(path), Kel::handleOf(text)};
}

Kel::Ptr<Kel::GenericIf const> resolveGifKeyPtr(Kel::Ptr<Kel::GenericIf const> value) {
  if (!value || !value->type().isKeyPtrWrapper()) return value;
  return value->type().valAttr().genericIfGet(value);
}

} // namespace Ondra
