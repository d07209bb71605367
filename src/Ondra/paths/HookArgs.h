// What the generic dispatchers of the library's own types share: arguments, and the answers to a request on a
// text collection.
#pragma once

#include <fmt/format.h>

#include <boost/container/small_vector.hpp>

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "Kel/Error.h"
#include "Kel/GenericIf.h"
#include "Kel/Hooks.h"
#include "Kel/String.h"

namespace Ondra {

// The arguments of one request. A missing one, or one of another type, raises `Kel::Error` with a text that
// says so.
class HookArgs {
public:
  HookArgs(std::string_view what, Kel::ArgList const& args) : what_(what), args_(args) {}

  // Exactly so many.
  void countIs(std::size_t wanted) const {
    if (args_.size() != wanted)
      Kel::throwError(fmt::format("{} takes {} arguments; found {}", what_, wanted, args_.size()));
  }

  template <class T>
  [[nodiscard]] T const& scalar(std::size_t index) const {
    Kel::GenericIf const& arg = at(index);
    T const* const value = arg.attrValPtr<T>();
    if (value == nullptr) wrongType(index, arg, Kel::typeOf<T>());
    return *value;
  }

  template <class T>
  [[nodiscard]] Kel::Ptr<T> object(std::size_t index) const {
    Kel::GenericIf const& arg = at(index);
    void* const object = arg.object() == nullptr ? nullptr : arg.voidPtrIs(Kel::typeOf<T>());
    if (object == nullptr) wrongType(index, arg, Kel::typeOf<T>());
    return Kel::Ptr<T>(static_cast<T*>(static_cast<Kel::PtrInterface*>(object)));
  }

private:
  [[nodiscard]] Kel::GenericIf const& at(std::size_t index) const {
    if (index >= args_.size() || !args_[index])
      Kel::throwError(fmt::format("argument {} of {} is missing", index + 1, what_));
    return *args_[index];
  }
  [[noreturn]] void wrongType(std::size_t index, Kel::GenericIf const& arg, Kel::KelType wanted) const {
    Kel::throwError(fmt::format("argument {} of {} must be of type '{}'; found '{}'", index + 1, what_,
                                wanted.name().view(), arg.type().name().view()));
  }

  std::string_view what_;
  Kel::ArgList const& args_;
};

// A request on a collection from text to text; `set` and `del` are the owner's operations.
template <class Map, class Set, class Del>
Kel::AttributeOpResult mapAttributeOp(Map const& map, Kel::GenericIf::AttributeOp op, HookArgs const& args,
                                      Kel::Ptr<Kel::GenericIf const>& result, Set const& set,
                                      Del const& del) {
  using Op = Kel::GenericIf::AttributeOp;
  switch (op) {
  case Op::Get: {
    auto const* const node = map.lookup(args.scalar<Kel::String>(0));
    result = node == nullptr ? nullptr : Kel::Ptr<Kel::GenericIf const>(Kel::handleOf(node->value));
    return Kel::AttributeOpResult::Done;
  }
  case Op::Set:
    set(args.scalar<Kel::String>(0), args.scalar<Kel::String>(1));
    return Kel::AttributeOpResult::Done;
  case Op::Delete: del(args.scalar<Kel::String>(0)); return Kel::AttributeOpResult::Done;
  case Op::Count: result = Kel::handleOf<std::uint64_t>(map.size()); return Kel::AttributeOpResult::Done;
  case Op::Contains:
    result = Kel::handleOf<bool>(map.lookup(args.scalar<Kel::String>(0)) != nullptr);
    return Kel::AttributeOpResult::Done;
  case Op::Call:
  case Op::Equal:
  case Op::NotEqual:
  case Op::Less:
  case Op::LessEqual:
  case Op::Greater:
  case Op::GreaterEqual: break;
  }
  return Kel::AttributeOpResult::NotSupported;
}

} // namespace Ondra
