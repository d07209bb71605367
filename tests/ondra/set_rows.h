// Tables of requests: what is asked, what has changed afterwards, how it was refused.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "fixture/Populate.h"
#include "ondra/set_support.h"

namespace SetTest {
using Texts = std::vector<std::string>;

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
