// Requests are executed by turns with messages of their own and in an arena; models are compared by line.
#include "ondra/set_support.h"

#include <google/protobuf/arena.h>

#include <sstream>

#include <google/protobuf/text_format.h>
#include <gtest/gtest.h>

#include "Ondra/KelGnmiSetter.h"
#include "Ondra/Path.h"
#include "fixture/Observer.h"
#include "fixture/RandomEdits.h"

namespace SetTest {

gnmi::Path pathOf(std::string const& text) {
  gnmi::Path path;
  Ondra::Path::strToPathIs(text)->copyToGnmiPath(&path);
  return path;
}

gnmi::TypedValue valueOf(std::string const& text) {
  gnmi::TypedValue value;
  EXPECT_TRUE(google::protobuf::TextFormat::ParseFromString(text, &value)) << text;
  return value;
}

gnmi::SetRequest requestOf(std::vector<Op> const& ops) {
  gnmi::SetRequest request;
  for (Op const& op : ops) {
    if (op.op == "delete" || op.op == "prefix") {
      *(op.op == "delete" ? request.add_delete_() : request.mutable_prefix()) = pathOf(op.path);
      continue;
    }
    gnmi::Update* const update = op.op == "replace" ? request.add_replace() : request.add_update();
    *update->mutable_path() = pathOf(op.path);
    if (!op.value.empty()) *update->mutable_val() = valueOf(op.value);
  }
  return request;
}

// By turns with messages of its own and with the caller's, which lie in an arena.
Outcome execute(gnmi::SetRequest request, std::string const& dataRoot) {
  static bool inArena = false;
  inArena = !inArena;
  auto const root = Ondra::Path::strToPathIs(dataRoot);
  if (!inArena) return Ondra::KelGnmiSet::Set(root, std::move(request)).execute();
  google::protobuf::Arena arena;
  auto& own = *google::protobuf::Arena::CreateMessage<gnmi::SetRequest>(&arena);
  auto& response = *google::protobuf::Arena::CreateMessage<gnmi::SetResponse>(&arena);
  own = request;
  grpc::Status status = Ondra::KelGnmiSet::Set(root, own, response).executeInPlace();
  return {response, std::move(status)};
}

std::string textOf(grpc::Status const& status) {
  switch (status.error_code()) {
  case grpc::StatusCode::OK: return "OK";
  case grpc::StatusCode::NOT_FOUND: return "NOT_FOUND " + status.error_message();
  case grpc::StatusCode::INVALID_ARGUMENT: return "INVALID_ARGUMENT " + status.error_message();
  default: return std::to_string(status.error_code()) + " " + status.error_message();
  }
}

Model modelOf(Kel::Ptr<Kel::Entity> const& root) {
  Model model;
  std::istringstream lines(Fixture::dump(root));
  std::string const base = root->fullName().str();
  std::string entity;
  for (std::string line; std::getline(lines, line);) {
    bool const isAttr = line.starts_with("  ");
    auto const at = line.find(isAttr ? " = " : " : ");
    if (at == std::string::npos || (!isAttr && !line.starts_with(base))) {
      model[entity + " ..."] += line; // the rest of a text that holds a line break
      continue;
    }
    std::string const name =
        isAttr ? entity + " " + line.substr(2, at - 2) : line.substr(base.size(), at - base.size());
    model[name] = line.substr(at + 3);
    if (!isAttr) entity = name;
  }
  return model;
}

std::vector<std::string> changes(Model const& before, Model const& after) {
  auto const find = [](Model const& model, std::string const& name) -> std::string {
    auto const at = model.find(name);
    return at == model.end() ? "nothing" : at->second;
  };
  Model both = before;
  both.insert(after.begin(), after.end());
  std::vector<std::string> texts;
  for (auto const& [name, unused] : both) {
    auto const owner = name.substr(0, name.find(' '));
    bool const isOfGoneEntity = owner != name && !after.contains(owner);
    if (!isOfGoneEntity && find(before, name) != find(after, name))
      texts.push_back(name + ": " + find(before, name) + " -> " + find(after, name));
  }
  return texts;
}

Watch::Watch(Kel::Ptr<Kel::Entity> const& root) {
  for (auto const& entity : Fixture::entitiesBeneath(root)) {
    entity->hasNotificationActiveIs(true);
    observers_.emplace_back(
        new Fixture::Observer(entity.get(), [this, name = entity->fullName().str()](auto const& text) {
          told_.push_back(name + " " + text);
        }));
  }
}

} // namespace SetTest
