// What the tests of the object model share: both flavours of the fixture's types, an observer that writes
// down what it is told.
#pragma once

#include <gtest/gtest.h>

#include <boost/container/small_vector.hpp>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Kel/Attr.h"
#include "Kel/Declare.h"
#include "Kel/Dir.h"
#include "Kel/Entity.h"
#include "Kel/Error.h"
#include "fixture/Device.h"
#include "fixture/Observer.h"
#include "fixture/Types.h"

namespace KelTesting {

using Kel::ArgList;
using Kel::GenericIf;
using Kel::handleOf;
using Kel::KelAttr;
using Kel::KelType;
using Handle = Kel::Ptr<GenericIf>;
using ConstHandle = Kel::Ptr<GenericIf const>;

// The same types, once as C++ classes and once described at run time.
struct Flavour {
  char const* name;
  KelType (*interface)();
  KelType (*device)();
};
inline constexpr Flavour kFlavours[] = {
    {"Declared", [] { return Fixture::declareTypes(), Kel::typeOf<Fixture::Interface>(); },
     [] { return Fixture::declareTypes(), Kel::typeOf<Fixture::Device>(); }},
    {"Runtime", [] { return Fixture::runtimeTypes().interface; },
     [] { return Fixture::runtimeTypes().device; }},
};
inline std::string nameOf(testing::TestParamInfo<Flavour> const& info) { return info.param.name; }
inline void PrintTo(Flavour const& flavour, std::ostream* out) { *out << flavour.name; }

using Kel::handleTo;
inline Kel::Ptr<Kel::Entity> entityIn(ConstHandle const& handle) { return Kel::entityAt(handle); }
inline ConstHandle str(char const* text) { return handleOf(Kel::String(text)); }
template <class T>
ConstHandle num(T value) {
  return handleOf(value);
}

// Writes down what is told of one entity.
class Recorder {
public:
  explicit Recorder(Kel::Ptr<Kel::Entity> const& entity)
      : observer_(new Fixture::Observer(entity.get(), [this](auto const& text) { told_.push_back(text); })) {}
  Recorder(Recorder const&) = delete;
  Recorder& operator=(Recorder const&) = delete;

  // What was told since the last call.
  std::vector<std::string> take() { return std::exchange(told_, {}); }

private:
  std::vector<std::string> told_;
  Kel::Ptr<Fixture::Observer> observer_;
};

// The text of the error that `act` raises; a note when it raises none.
template <class Act>
std::string errorOf(Act const& act) {
  try {
    act();
  } catch (Kel::Error const& error) {
    return error.what();
  }
  return "(no error)";
}

// An interface and another one for it to refer to, in a directory, observed.
class InterfaceTest : public testing::TestWithParam<Flavour> {
protected:
  InterfaceTest() : type_(GetParam().interface()), dir_(Kel::globalDir()->dirIs("contract")) {
    object = make("subject");
    other = make("other");
    recorder_.emplace(entityIn(object));
  }
  ~InterfaceTest() override { Kel::globalDir()->entityDel("contract"); }

  Handle make(char const* name) {
    ArgList args;
    args.push_back(str(name));
    Handle made = type_.genericIf(args);
    dir_->entityIs(name, entityIn(made));
    return made;
  }
  [[nodiscard]] KelAttr attr(char const* name) const { return type_.attr(name); }
  std::vector<std::string> told() { return recorder_->take(); }
  static std::vector<std::string> nothing() { return {}; }
  static std::vector<std::string> just(std::string text) { return {std::move(text)}; }

  KelType type_;
  Kel::Ptr<Kel::Dir> dir_;
  Handle object, other;
  std::optional<Recorder> recorder_;
};

} // namespace KelTesting
