// The agent's tree: declares the types of the model and makes the three entities that hold it all.
#pragma once

#include <span>
#include <string_view>

#include "Kel/Dir.h"
#include "Kel/Ptr.h"
#include "Kel/Type.h"
#include "agent/model/Component.h"
#include "agent/model/Interface.h"
#include "agent/model/System.h"

namespace Agent {

inline constexpr std::string_view kOrigin = "openconfig"; // the directory under the root: the data root

// The entities below the data root. They live as long as the directory that holds them.
struct Tree {
  Kel::Ptr<Interfaces> interfaces;
  Kel::Ptr<System> system;
  Kel::Ptr<Components> components;
};

// Declares all types, once; to be called before the first object is made and before other threads ask for
// `leafInfo`.
void declareTypes();

// The directory "openconfig" in `root` (`Kel::globalDir()` in the agent) with its three entities, made if
// missing. All fixed containers are there from the start; lists are empty. Declares the types. Scheduler
// thread.
[[nodiscard]] Tree treeIn(Kel::Dir& root);

// The entities of the data root as declared: name, type and the module that published them.
struct TopLevel {
  std::string_view name;
  Kel::KelType type;
  std::string_view module;
};
// A model that the tree is made of, as Capabilities lists them.
struct PublishedModel {
  std::string_view name;
  std::string_view organization;
  std::string_view version;
};
// The machine's entities stand beside the data root from here on, where nobody sees them, and of its models
// nothing is served. To be called before anything else here.
void machineIsLeftOut();
// The three entities of the tree first, then what was added. Constant once other threads look at it.
[[nodiscard]] std::span<TopLevel const> topLevels();
// Adds the type of an entity that is to stand beside those three, and a model of which there are nodes; the
// same name again changes nothing. The texts must live for the process. To be called before other threads ask
// for `topLevels`, `publishedModels` or `leafInfo`.
void topLevelIs(TopLevel const& top);
void publishedModelIs(PublishedModel const& model);
// The models of which anything is served.
[[nodiscard]] std::span<PublishedModel const> publishedModels();

} // namespace Agent
