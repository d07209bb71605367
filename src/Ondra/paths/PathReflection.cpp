// Paths and their elements as types of the object model: their registration, and the generic access to what
// they can do.
#include <boost/container/small_vector.hpp>

#include <array>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "Kel/Declare.h"
#include "Kel/Hooks.h"
#include "Ondra/Path.h"
#include "Ondra/PathElem.h"
#include "Ondra/paths/HookArgs.h"
#include "Ondra/paths/MapCursor.h"

Kel::TypeDesc& Kel::Impl::DeclaredType<Ondra::PathElem>::desc() {
  static TypeDesc* const desc = makeShell<Ondra::PathElem>();
  return *desc;
}

Kel::TypeDesc& Kel::Impl::DeclaredType<Ondra::Path>::desc() {
  static TypeDesc* const desc = makeShell<Ondra::Path>();
  return *desc;
}

namespace Ondra {
namespace {

using Handle = Kel::Ptr<Kel::GenericIf const>;
using Kel::AttributeOpResult;
using Op = Kel::GenericIf::AttributeOp;

constexpr char const* kModule = "Ondra";

Handle handleTo(Kel::Ptr<PathElem> const& elem) { return Kel::GenericIf::toObject(elem.get()); }
Handle handleTo(Kel::Ptr<Path> const& path) { return Kel::GenericIf::toObject(path.get()); }

// An operation that generic code calls by name.
template <class Object>
struct Operation {
  char const* name;
  std::vector<std::string> args;
  Handle (*call)(Object& object, HookArgs const& args);
};

std::string qualified(char const* type, char const* name) { return std::string(type) + "." + name; }

template <class Object>
AttributeOpResult call(Operation<Object> const& operation, char const* type, Kel::PtrInterface* object, Op op,
                       Kel::ArgList const& given, Handle& result) {
  if (op != Op::Call) return AttributeOpResult::NotSupported;
  std::string const what = qualified(type, operation.name);
  HookArgs const args(what, given);
  args.countIs(operation.args.size());
  try {
    result = operation.call(*static_cast<Object*>(object), args);
  } catch (std::out_of_range const&) {
    Kel::throwError(what + ": there is no element of that index");
  }
  return AttributeOpResult::Done;
}

// --- PathElem ------------------------------------------------------------------------------------

constexpr Kel::AttributeId kElemName = 1;
constexpr Kel::AttributeId kElemKey = 2;
constexpr Kel::AttributeId kElemFirstOperation = 3;

std::array<Operation<PathElem>, 2> const& elemOperations() {
  static std::array<Operation<PathElem>, 2> const operations{{
      {"isEqual",
       {"elem"},
       [](PathElem& elem, HookArgs const& args) -> Handle {
         return Kel::handleOf<bool>(elem.isEqual(args.object<PathElem>(0)));
       }},
      {"makePathElem",
       {"elem"},
       [](PathElem&, HookArgs const& args) {
         return handleTo(PathElem::makePathElem(args.object<PathElem>(0)));
       }},
  }};
  return operations;
}

AttributeOpResult elemAttributeOp(Kel::PtrInterface* object, Kel::AttributeId attribute, Op op,
                                  Kel::ArgList const& given, Handle& result) {
  auto& elem = *static_cast<PathElem*>(object);
  if (attribute == kElemName) {
    if (op == Op::Get)
      result = Kel::handleOf(elem.name());
    else if (op == Op::Set)
      elem.nameIs(HookArgs("PathElem.name", given).scalar<Kel::String>(0));
    else
      return AttributeOpResult::NotSupported;
    return AttributeOpResult::Done;
  }
  if (attribute == kElemKey) {
    return mapAttributeOp(
        elem.key(), op, HookArgs("PathElem.key", given), result,
        [&elem](Kel::String const& key, Kel::String const& value) { elem.keyIs(key, value); },
        [&elem](Kel::String const& key) { elem.keyDel(key); });
  }
  auto const index = static_cast<std::size_t>(attribute - kElemFirstOperation);
  if (attribute < kElemFirstOperation || index >= elemOperations().size())
    return AttributeOpResult::NotHandled;
  return call(elemOperations()[index], "PathElem", object, op, given, result);
}

Kel::KelType registerPathElem() {
  static Kel::TypeHooks const hooks{
      .genericIfAttributeOp = &elemAttributeOp,
      .iteration = MapCursor::hooks<PathElem, &PathElem::key>(),
      .construct = [](Kel::ArgList const&) -> Kel::Ptr<Kel::PtrInterface> { return PathElem::PathElemIs(); },
      .newEntityForDir = nullptr,
  };
  Kel::KelType const string = Kel::typeOf<Kel::String>();
  Kel::HookedType type(kModule, "PathElem", Kel::descOf<PathElem>(), Kel::TypeKind::Object, hooks);
  type.value("name", string, true).collection("key", string, string, true);
  for (Operation<PathElem> const& operation : elemOperations())
    type.operation(operation.name, operation.args);
  return type.done();
}

// --- Path ----------------------------------------------------------------------------------------

std::size_t indexArg(HookArgs const& args) { return args.scalar<std::uint64_t>(0); }

std::array<Operation<Path>, 11> const& pathOperations() {
  static std::array<Operation<Path>, 11> const operations{{
      {"elem",
       {"index"},
       [](Path& path, HookArgs const& args) { return handleTo(path.elem(indexArg(args))); }},
      {"elemSize",
       {},
       [](Path& path, HookArgs const&) -> Handle { return Kel::handleOf<std::uint64_t>(path.elemSize()); }},
      {"addElem", {}, [](Path& path, HookArgs const&) { return handleTo(path.addElem()); }},
      {"push",
       {"elem"},
       [](Path& path, HookArgs const& args) -> Handle {
         path.push(args.object<PathElem>(0));
         return nullptr;
       }},
      {"replace",
       {"index", "elem"},
       [](Path& path, HookArgs const& args) -> Handle {
         path.replace(indexArg(args), args.object<PathElem>(1));
         return nullptr;
       }},
      {"copyFrom",
       {"path"},
       [](Path& path, HookArgs const& args) -> Handle {
         path.copyFrom(args.object<Path>(0));
         return nullptr;
       }},
      {"mergeFrom",
       {"path"},
       [](Path& path, HookArgs const& args) -> Handle {
         path.mergeFrom(args.object<Path>(0));
         return nullptr;
       }},
      {"isEqual",
       {"path"},
       [](Path& path, HookArgs const& args) -> Handle {
         return Kel::handleOf<bool>(path.isEqual(args.object<Path>(0)));
       }},
      {"isPrefix",
       {"prefix", "path"},
       [](Path&, HookArgs const& args) -> Handle {
         return Kel::handleOf<bool>(Path::isPrefix(args.object<Path>(0), args.object<Path>(1)));
       }},
      {"makePath",
       {"path"},
       [](Path&, HookArgs const& args) { return handleTo(Path::makePath(args.object<Path>(0))); }},
      {"joinPath",
       {"path1", "path2"},
       [](Path&, HookArgs const& args) {
         return handleTo(Path::joinPath(args.object<Path>(0), args.object<Path>(1)));
       }},
  }};
  return operations;
}

AttributeOpResult pathAttributeOp(Kel::PtrInterface* object, Kel::AttributeId attribute, Op op,
                                  Kel::ArgList const& given, Handle& result) {
  auto const index = static_cast<std::size_t>(attribute - 1);
  if (attribute < 1 || index >= pathOperations().size()) return AttributeOpResult::NotHandled;
  return call(pathOperations()[index], "Path", object, op, given, result);
}

Kel::KelType registerPath() {
  static Kel::TypeHooks const hooks{
      .genericIfAttributeOp = &pathAttributeOp,
      .iteration = {},
      .construct = [](Kel::ArgList const&) -> Kel::Ptr<Kel::PtrInterface> { return Path::PathIs(); },
      .newEntityForDir = nullptr,
  };
  Kel::HookedType type(kModule, "Path", Kel::descOf<Path>(), Kel::TypeKind::Object, hooks);
  for (Operation<Path> const& operation : pathOperations())
    type.operation(operation.name, operation.args);
  return type.done();
}

// When the library is loaded.
Kel::String const module = Kel::kelModuleIs(kModule);
Kel::KelType const pathElemType = registerPathElem();
Kel::KelType const pathType = registerPath();

} // namespace

Kel::KelType PathElem::fwkType() const { return Kel::typeOf<PathElem>(); }
Kel::KelType Path::fwkType() const { return Kel::typeOf<Path>(); }

} // namespace Ondra
