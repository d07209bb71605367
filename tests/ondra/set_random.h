// Random Set requests made out of the model they are for, mostly well-formed.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "Kel/Attr.h"
#include "Kel/Entity.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace SetTest {

using ConstHandle = Kel::Ptr<Kel::GenericIf const>;

// Makes requests for the model below an entity. Every choice is asked of `choose` (a number below its
// argument), so that a seed or a fuzzer's input decides.
class RequestMaker {
public:
  using Choose = std::function<std::size_t(std::size_t bound)>;

  RequestMaker(Kel::Ptr<Kel::Entity> root, Choose choose)
      : root_(std::move(root))
      , choose_(std::move(choose)) {}

  gnmi::SetRequest make();
  // Changes something small: a name, a key, a value, the order, a copy too many.
  void mutate(gnmi::SetRequest& request);

private:
  bool oneIn(std::size_t n) { return choose_(n) == 0; }
  std::string text();
  void walk(gnmi::Path& path, Kel::KelType& type, std::size_t steps, bool wildcards);
  void key(gnmi::PathElem& elem, Kel::KelAttr attr, ConstHandle const& object, bool wildcards);
  void fields(gnmi::PathElem& elem, std::string const& prefix, Kel::KelType type, bool wildcards);
  gnmi::TypedValue value(Kel::KelType type);
  gnmi::TypedValue anyValue();
  gnmi::Path* anyPath(gnmi::SetRequest& request);

  Kel::Ptr<Kel::Entity> root_;
  Choose choose_;
  ConstHandle object_; // where the last walk ended; null where there is nothing
};

} // namespace SetTest
