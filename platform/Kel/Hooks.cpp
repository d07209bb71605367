// Each operation becomes one request to the dispatcher, iteration the type's own functions; a refusal names
// the attribute.
#include "Kel/Hooks.h"

#include <boost/container/small_vector.hpp>
#include <fmt/format.h>

#include <memory>
#include <utility>

#include "Kel/Access.h"
#include "Kel/Error.h"

namespace Kel {
namespace {

using Op = GenericIf::AttributeOp;

// The members of a collection attribute, through the type's own iteration hooks.
class HookCursor final : public Cursor {
public:
  HookCursor(Ptr<GenericIf const> obj, TypeHooks::Iteration const& hooks, AttributeId id,
             GenericIf const* start)
      : obj_(std::move(obj))
      , hooks_(hooks)
      , state_(hooks.create(obj_->object(), id, start))
      , ended_(!hooks.nonNull(state_)) {}
  ~HookCursor() override { hooks_.del(state_); }
  bool valid() override {
    ended_ = ended_ || !hooks_.nonNull(state_);
    return !ended_;
  }
  void advance() override {
    if (ended_) return;
    hooks_.increment(state_);
    ended_ = !hooks_.nonNull(state_);
  }
  Ptr<GenericIf const> key() override { return ended_ ? nullptr : hooks_.key(state_); }
  Ptr<GenericIf const> value() override { return ended_ ? nullptr : hooks_.object(state_); }

private:
  Ptr<GenericIf const> obj_;
  TypeHooks::Iteration const& hooks_;
  void* state_;
  bool ended_;
};

// Every operation becomes a request to the type's dispatcher.
class HookAccess final : public AttrAccess {
public:
  explicit HookAccess(TypeHooks const& hooks) : hooks_(hooks) {}

  Ptr<GenericIf const> keyHandle(AttrDesc const& attr, void const* rawKey) const override {
    return attr.keyType == nullptr ? nullptr : Ptr<GenericIf const>(GenericIf::copyOf(*attr.keyType, rawKey));
  }

private:
  Ptr<GenericIf const> read(AttrDesc const& attr, GenericIf const& obj, GenericIf const* key) const override {
    return request(attr, obj, Op::Get, args(key), "get");
  }
  bool has(AttrDesc const& attr, GenericIf const& obj, GenericIf const* key) const override {
    if (!attr.isCollection) return static_cast<bool>(read(attr, obj, key));
    return *request(attr, obj, Op::Contains, args(key), "contains")->attrValPtr<bool>();
  }
  void store(AttrDesc const& attr, GenericIf& obj, GenericIf const* key,
             GenericIf const* value) const override {
    ArgList arguments = args(key);
    arguments.emplace_back(Ptr<GenericIf const>(value));
    request(attr, obj, Op::Set, arguments, "set");
  }
  void reset(AttrDesc const& attr, GenericIf& obj) const override { erase(attr, obj, nullptr); }
  void erase(AttrDesc const& attr, GenericIf& obj, GenericIf const* key) const override {
    request(attr, obj, Op::Delete, args(key), "delete");
  }
  std::size_t size(AttrDesc const& attr, GenericIf const& obj) const override {
    return *request(attr, obj, Op::Count, {}, "count")->attrValPtr<std::uint64_t>();
  }
  Ptr<Cursor> cursor(AttrDesc const& attr, Ptr<GenericIf const> const& obj,
                     GenericIf const* start) const override {
    if (hooks_.iteration.create == nullptr) notSupported(attr, "iterate");
    if (start != nullptr && &start->type().desc() != attr.keyType) Impl::throwKeyType(attr, *start);
    return Ptr<Cursor>(new HookCursor(obj, hooks_.iteration, attr.id, start));
  }
  Ptr<GenericIf const> invoke(AttrDesc const& attr, GenericIf const& obj,
                              ArgList const& arguments) const override {
    return request(attr, obj, Op::Call, arguments, "call");
  }

  static ArgList args(GenericIf const* key) {
    ArgList list;
    if (key != nullptr) list.emplace_back(Ptr<GenericIf const>(key));
    return list;
  }
  Ptr<GenericIf const> request(AttrDesc const& attr, GenericIf const& obj, Op op, ArgList const& arguments,
                               char const* word) const {
    Ptr<GenericIf const> result;
    if (hooks_.genericIfAttributeOp(obj.object(), attr.id, op, arguments, result) != AttributeOpResult::Done)
      notSupported(attr, word);
    return result;
  }

  TypeHooks const& hooks_;
};

} // namespace

HookedType::HookedType(std::string_view module, std::string_view name, TypeDesc& desc, TypeKind kind,
                       TypeHooks const& hooks)
    : builder_(module, name, desc)
    , hooks_(new TypeHooks(hooks)) { // lives with the type, for the process
  desc.kind = kind;
  desc.makeFromArgs = hooks.construct;
  desc.newEntityForDir = hooks.newEntityForDir;
}

HookedType& HookedType::operation(std::string_view name, std::vector<std::string> argNames) {
  static_cast<void>(argNames); // for the reader of the registration
  AttrDesc& attr = builder_.add(name, nullptr, std::make_unique<HookAccess>(*hooks_));
  attr.isOperation = true;
  return *this;
}

HookedType& HookedType::value(std::string_view name, KelType type, bool settable) {
  builder_.add(name, const_cast<TypeDesc*>(&type.desc()), std::make_unique<HookAccess>(*hooks_)).isSettable =
      settable;
  return *this;
}

HookedType& HookedType::collection(std::string_view name, KelType key, KelType value, bool settable) {
  AttrDesc& attr =
      builder_.add(name, const_cast<TypeDesc*>(&value.desc()), std::make_unique<HookAccess>(*hooks_));
  attr.keyType = const_cast<TypeDesc*>(&key.desc());
  attr.isCollection = attr.isKeyed = true;
  attr.isSettable = settable;
  return *this;
}

HookedType& HookedType::ctorArg() {
  builder_.ctorArg();
  return *this;
}

KelType HookedType::done() {
  auto type = builder_.done();
  if (!type) throwError(type.error());
  return type.value();
}

} // namespace Kel
