// The map and its registration as a type of the object model; whoever observes it may change it at every
// step.
#include "Ondra/PathTypes.h"

#include <boost/container/small_vector.hpp>

#include <utility>
#include <vector>

#include "Kel/Declare.h"
#include "Kel/Error.h"
#include "Kel/Hooks.h"
#include "Ondra/paths/HookArgs.h"
#include "Ondra/paths/MapCursor.h"

Kel::TypeDesc& Kel::Impl::DeclaredType<Ondra::PathToType>::desc() {
  static TypeDesc* const desc = makeShell<Ondra::PathToType>();
  return *desc;
}

namespace Ondra {
namespace {

constexpr char const* kModule = "PathTypes";
constexpr Kel::AttributeId kName = 1;
constexpr Kel::AttributeId kPathTypes = 2;

using Op = Kel::GenericIf::AttributeOp;

Kel::AttributeOpResult genericIfAttributeOp(Kel::PtrInterface* object, Kel::AttributeId attribute, Op op,
                                            Kel::ArgList const& given,
                                            Kel::Ptr<Kel::GenericIf const>& result) {
  auto& registry = *static_cast<PathToType*>(object);
  if (attribute == kPathTypes) {
    return mapAttributeOp(
        registry.pathTypes(), op, HookArgs("PathToType.pathTypes", given), result,
        [&registry](Kel::String const& path, Kel::String const& type) { registry.pathTypesIs(path, type); },
        [&registry](Kel::String const& path) { registry.pathTypesDel(path); });
  }
  if (attribute == kName) {
    if (op != Op::Get) return Kel::AttributeOpResult::NotSupported;
    result = Kel::handleOf(registry.name());
    return Kel::AttributeOpResult::Done;
  }
  return Kel::AttributeOpResult::NotHandled;
}

Kel::Ptr<Kel::PtrInterface> construct(Kel::ArgList const& args) {
  bool const named = !args.empty() && args.front();
  return PathToType::PathToTypeIs(named ? HookArgs("PathToType", args).scalar<Kel::String>(0)
                                        : Kel::String());
}

Kel::Ptr<Kel::PtrInterface> newEntityForDir(Kel::String const& name, Kel::ArgList const& args) {
  if (!args.empty()) Kel::throwNewEntityArgsException("PathToType", 0, args.size());
  return PathToType::PathToTypeIs(name);
}

Kel::KelType registerPathToType() {
  static Kel::TypeHooks const hooks{
      .genericIfAttributeOp = &genericIfAttributeOp,
      .iteration = MapCursor::hooks<PathToType, &PathToType::pathTypes>(),
      .construct = &construct,
      .newEntityForDir = &newEntityForDir,
  };
  Kel::KelType const string = Kel::typeOf<Kel::String>();
  return Kel::HookedType(kModule, "PathToType", Kel::descOf<PathToType>(), Kel::TypeKind::Entity, hooks)
      .value("name", string, false)
      .ctorArg()
      .collection("pathTypes", string, string, true)
      .done();
}

// When the library is loaded.
Kel::String const module = Kel::kelModuleIs(kModule);
Kel::KelType const pathToTypeType = registerPathToType();

} // namespace

Kel::Ptr<PathToType> pathTypesMap;

Kel::Ptr<PathToType> PathToType::PathToTypeIs(Kel::String const& name) {
  Kel::Ptr<PathToType> registry(new PathToType(name));
  registry->hasNotificationActiveIs(true);
  return registry;
}

Kel::Ptr<PathToType> pathToTypeFactory(Kel::String const& name) { return PathToType::PathToTypeIs(name); }

void PathToType::pathTypesIs(Kel::String const& path, Kel::String const& type) {
  Kel::String const key = path; // observers may change what the argument refers to
  if (PathTypesMapType::Node* const node = pathTypes_.lookup(key)) {
    if (node->value == type) return;
    node->value = type;
  } else {
    pathTypes_.insert(key, type);
  }
  notify(kPathTypes, &key);
}

Kel::String PathToType::pathTypesDel(Kel::String const& path) {
  PathTypesMapType::Node* const node = pathTypes_.lookup(path);
  if (node == nullptr) return {};
  Kel::String const key = node->key;
  Kel::String type = std::move(node->value);
  pathTypes_.del(key);
  notify(kPathTypes, &key);
  return type;
}

void PathToType::pathTypesDelAll() {
  if (notifieeList()->empty()) {
    pathTypes_.deleteAll();
    return;
  }
  std::vector<Kel::String> paths; // an observer may change the collection
  paths.reserve(pathTypes_.size());
  for (PathTypesMapType::Node const& node : pathTypes_)
    paths.push_back(node.key);
  for (Kel::String const& path : paths)
    pathTypesDel(path);
}

Kel::KelType PathToType::fwkType() const { return Kel::typeOf<PathToType>(); }

} // namespace Ondra
