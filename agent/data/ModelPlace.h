// Finding what stands at a place of the model. Scheduler thread.
#pragma once

#include <optional>
#include <string_view>
#include <vector>

#include "Kel/Attr.h"
#include "agent/paths/RequestPath.h"
#include "agent/paths/TypeTree.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace Agent {

using Handle = Kel::KelAttr::ConstHandle;

// The data root.
[[nodiscard]] Handle dataRoot();
// The container below a place. Null when it is not there.
[[nodiscard]] Handle containerOf(TypeNode const& child, Handle const& parent);
// The key of a list from its text in a path; null for a text that is none.
[[nodiscard]] Handle keyHandleOf(TypeNode const& list, std::string_view text);
// The entry of that key; null when there is none.
[[nodiscard]] Handle entryOf(TypeNode const& list, Handle const& parent, Handle const& key);

// The next keys of a list, some of them, from behind one on; null: from the first.
[[nodiscard]] std::vector<Handle> keysBehind(Kel::KelAttr list, Handle const& parent, Handle const& last);

// The container of an entry that goes with what clients configure of it, while the entry itself may be the
// machine's.
[[nodiscard]] bool isEntryConfig(TypeNode const& child);
// The leaf in it that repeats the entry's key; null when there is none.
[[nodiscard]] Kel::KelAttr keyCopyOf(TypeNode const& container);
// Whether an entry has no such container of what clients configure, while its type has one.
[[nodiscard]] bool lacksConfig(TypeNode const& list, Handle const& entry);
// Whether the machine has what the entry stands for: its state says more than its key.
[[nodiscard]] bool isOfMachine(TypeNode const& list, Handle const& entry);

// The value that a leaf has there, as walks tell it; none when it has none, or one that cannot be told.
[[nodiscard]] std::optional<gnmi::TypedValue> valueOf(TypeNode const& leaf, Handle const& object);

// Makes the containers on a concrete path that are not there; entries on it must be. Says whether it is there
// now.
bool containerIsAt(gnmi::Path const& path);

// Whether a concrete path means a container or entry that is there. (That it holds no leaf is for the caller
// to know.)
[[nodiscard]] bool isContainerThere(RequestPath const& path);

} // namespace Agent
