// What the tests of Set requests share: requests written as texts, the model as a map of texts, observers
// that count, and tables of requests: what is asked, what has changed afterwards, how it was refused.
#pragma once

#include <map>

#include <grpcpp/support/status.h>
#include <gtest/gtest.h>

#include "Kel/Notifiee.h"
#include "fixture/Populate.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace SetTest {

using Texts = std::vector<std::string>;

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
Texts changes(Model const& before, Model const& after);

// Observes every entity there is from `root` downwards; `told` lists what it learned.
class Watch {
public:
  explicit Watch(Kel::Ptr<Kel::Entity> const& root);
  Watch(Watch const&) = delete;
  Watch& operator=(Watch const&) = delete;
  Texts const& told() const { return told_; }

private:
  std::vector<Kel::Ptr<Kel::PtrInterface>> observers_;
  Texts told_;
};

struct Row {
  std::string what;
  std::vector<Op> ops;
  Texts changed;
  std::string status = "OK";
};

inline Op prefix(std::string path) { return {"prefix", std::move(path), ""}; }
inline Op del(std::string path) { return {"delete", std::move(path), ""}; }
inline Op update(std::string path, std::string value) {
  return {"update", std::move(path), std::move(value)};
}
inline Op replace(std::string path, std::string value) {
  return {"replace", std::move(path), std::move(value)};
}

inline std::string notFound(std::string const& path, std::string const& message) {
  return "NOT_FOUND Error in finding path " + path + ": " + message;
}
inline std::string badArgument(std::string const& path, std::string const& message) {
  return "INVALID_ARGUMENT Error in argument to path " + path + ": " + message;
}

inline void run(std::vector<Row> const& rows, std::string const& root = "/fixture/device") {
  for (Row const& row : rows) {
    SCOPED_TRACE(row.what + " " + row.status);
    Fixture::World world;
    auto const top = Kel::Ptr<Kel::Entity>(world.dir());
    Model const before = modelOf(top);
    Watch const watch(top);
    gnmi::SetRequest const request = requestOf(row.ops);
    auto const outcome = execute(request, root);
    EXPECT_EQ(row.status, textOf(outcome.second));
    EXPECT_EQ(row.changed, changes(before, modelOf(top)));
    EXPECT_EQ(Texts{}, row.changed.empty() ? watch.told() : Texts{});
    EXPECT_EQ(request.delete__size() + request.replace_size() + request.update_size(),
              outcome.first.response_size());
  }
}

} // namespace SetTest
