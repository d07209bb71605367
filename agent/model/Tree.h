// The agent's tree: the data root, an entity whose type has an attribute for each node at the top, and the
// types of the machine's own three of them.
#pragma once

#include <functional>
#include <span>
#include <string_view>

#include "Kel/Dir.h"
#include "Kel/Ptr.h"
#include "Kel/Type.h"
#include "agent/model/Component.h"
#include "agent/model/Interface.h"
#include "agent/model/Schema.h"
#include "agent/model/System.h"

namespace Kel {
class TypeBuilder;
} // namespace Kel

namespace Agent {

inline constexpr std::string_view kOrigin =
    "openconfig"; // the data root's name in the model's root directory

// The machine's containers at the top. They live as long as the data root that holds them.
struct Tree {
  Kel::Ptr<Interfaces> interfaces;
  Kel::Ptr<System> system;
  Kel::Ptr<Components> components;
};

// Declares all types, once; to be called before the first object is made and before other threads ask for
// `leafInfo`.
void declareTypes();

// The data root in `root` (`Kel::globalDir()` in the agent), made if missing. What is to stand in it must
// have been declared by then. Scheduler thread.
[[nodiscard]] Kel::Ptr<Kel::Entity> dataRootIn(Kel::Dir& root);
// Its container of that name, made if missing. Raises `Kel::Error` when it has been declared since the root
// was made.
[[nodiscard]] Kel::Ptr<Kel::Entity> topIn(Kel::Dir& root, std::string_view name);
// The machine's, with all fixed containers; lists are empty. Declares the types.
[[nodiscard]] Tree treeIn(Kel::Dir& root);

// A node at the top.
struct TopLevel {
  std::string_view name;
  Kel::KelType type; // of the container or entries, of a leaf its value's
  std::string_view module;
  // How it stands in the data root's type, and what is published of it; none: a container that nobody
  // removes.
  std::function<void(Kel::TypeBuilder&)> declare = {};
  Impl::NodeRecord record = {};
};
// A model that the tree is made of, as Capabilities lists them.
struct PublishedModel {
  std::string_view name;
  std::string_view organization;
  std::string_view version;
};
// The machine's containers stand beside the data root from here on, where nobody sees them, and of its models
// nothing is served. To be called before anything else here.
void machineIsLeftOut();
// The machine's three first, then what was added. Constant once other threads look at it.
[[nodiscard]] std::span<TopLevel const> topLevels();
// The type of a data root that is made now: an attribute for each of them, in their order.
[[nodiscard]] Kel::KelType rootType();
// Adds a node that is to stand beside those three, and a model of which there are nodes; the same name again
// changes nothing. The texts must live for the process. To be called before other threads ask for
// `topLevels`, `rootType`, `publishedModels` or `leafInfo`.
void topLevelIs(TopLevel const& top);
void publishedModelIs(PublishedModel const& model);
// The models of which anything is served.
[[nodiscard]] std::span<PublishedModel const> publishedModels();

} // namespace Agent
