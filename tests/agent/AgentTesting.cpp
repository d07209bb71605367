// Subtrees read through the generic operations, folders that are gone with the test, and an observer that
// counts changes.
#include "AgentTesting.h"

#include <cstdlib>
#include <fstream>
#include <functional>

#include "Kel/Attr.h"
#include "agent/model/Schema.h"
#include "fixture/RandomEdits.h"

namespace AgentTesting {
namespace {

using Handle = Kel::Ptr<Kel::GenericIf const>;
using Visit = std::function<void(std::string const& path, Handle const& object, Kel::KelAttr attr)>;

std::string joined(Kel::KelAttr attr, Handle const& array) {
  std::string text;
  for (Handle const& member : attr.genericIfMembers(array))
    text += (text.empty() ? "" : " ") + member->strRep();
  return text;
}

void visitAll(std::string const& path, Handle const& object, Visit const& visit) {
  for (Kel::KelTypeBase::AttributeQIterator it(object->type()); it; ++it) {
    Kel::KelAttr const attr = *it;
    std::string const below = path + "/" + attr.name().str();
    if (Agent::leafInfo(attr) != nullptr)
      visit(below, object, attr);
    else if (attr.isKeyed())
      for (auto member = attr.genericIfIteratorConst(object); member; ++member)
        visitAll(below + "[" + member.key()->gnmiStrRep() + "]", member.ptr(), visit);
    else if (Handle const child = attr.genericIfGet(object))
      visitAll(below, child, visit);
  }
}

} // namespace

Leaves leavesOf(Kel::Ptr<Kel::Entity> const& entity) {
  Leaves leaves;
  visitAll("", Kel::handleTo(entity), [&](std::string const& path, Handle const& object, Kel::KelAttr attr) {
    Handle const value = attr.genericIfGet(object);
    if (value) leaves[path] = attr.isArray() ? joined(attr, value) : value->strRep();
  });
  return leaves;
}

std::string textOf(Kel::Ptr<Kel::Entity> const& entity, std::string_view part) {
  std::string text;
  for (auto const& [path, value] : leavesOf(entity))
    if (path.find(part) != std::string::npos) text += path + " = " + value + "\n";
  return text;
}

RecordedFolder::RecordedFolder() {
  std::string name = (std::filesystem::temp_directory_path() / "agent-test-XXXXXX").string();
  root_ = ::mkdtemp(name.data());
}
RecordedFolder::~RecordedFolder() { std::filesystem::remove_all(root_); }
void RecordedFolder::put(std::string const& file, std::string_view text) {
  std::filesystem::create_directories((root_ / file).parent_path());
  std::ofstream(root_ / file, std::ios::binary) << text;
}
void RecordedFolder::remove(std::string const& fileOrFolder) {
  std::filesystem::remove_all(root_ / fileOrFolder);
}

ChangeCounter::ChangeCounter(Kel::Ptr<Kel::Entity> const& entity) {
  for (auto const& each : Fixture::entitiesBeneath(entity))
    watches_.emplace_back(new Fixture::Observer(each.get(), [this](auto const&) { ++changes_; }));
}

} // namespace AgentTesting
