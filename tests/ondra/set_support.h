// What the tests of Set requests share: requests written as texts, the model as a map of texts, observers
// that count.
#pragma once

#include <initializer_list>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <grpcpp/support/status.h>

#include "Kel/Entity.h"
#include "Kel/Notifiee.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace SetTest {

// One operation: "delete", "replace" or "update", or the "prefix" of all; a path in text form; a gNMI value
// in protobuf's text form ("uint_val: 5"), empty for none.
struct Op {
  std::string op;
  std::string path;
  std::string value;
};

gnmi::Path pathOf(std::string const& text);
gnmi::TypedValue valueOf(std::string const& text);
gnmi::SetRequest requestOf(std::vector<Op> const& ops);

using Outcome = std::pair<gnmi::SetResponse, grpc::Status>;
// Executes the request below a data root.
Outcome execute(gnmi::SetRequest request, std::string const& dataRoot = "/fixture/device");
// "OK", or the code's name and the message.
std::string textOf(grpc::Status const& status);

// The model from an entity downwards: "<entity> <attribute>[<key>]" to the value's text, "<entity>" to the
// entity's type.
using Model = std::map<std::string, std::string>;
Model modelOf(Kel::Ptr<Kel::Entity> const& root);
// What differs: "name: before -> after", with "nothing" for what is not there. The parts of an entity that
// has gone are left out.
std::vector<std::string> changes(Model const& before, Model const& after);

// Observes every entity there is from `root` downwards; `told` lists what it learned.
class Watch {
public:
  explicit Watch(Kel::Ptr<Kel::Entity> const& root);
  Watch(Watch const&) = delete;
  Watch& operator=(Watch const&) = delete;
  std::vector<std::string> const& told() const { return told_; }

private:
  std::vector<Kel::Ptr<Kel::PtrInterface>> observers_;
  std::vector<std::string> told_;
};

} // namespace SetTest
