// References between objects as path texts.
//
// gNMI has no reference type: a reference is sent as the text of the path under which the referenced object
// is published. That path is known once a walk has registered a notifiee for the object; a reference to an
// object that no walk has reached yet is resolved on demand, by walking the nearest known part of the tree
// above it, silently and at once. docs/decisions.md: "What is a reference to what a walk does not reach?"
#pragma once

#include <string>
#include <utility>

#include "Kel/GenericIf.h"
#include "Kel/Ptr.h"
#include "Kstd/Export.h"
#include "Ondra/BaseRouter.h"
#include "Ondra/Path.h"

namespace Ondra {

// The path text of the referenced object; "nullptr" for a null reference and for an object that has no place
// in the published tree.
KTD_EXPORT std::string getPtrPathStr(Kel::Ptr<Kel::GenericIf const> const& ref, BaseRouter& router);

// The leaf for a reference: `leaf` with an element "_ptr" appended, and the reference's text as a string
// value.
KTD_EXPORT std::pair<Kel::Ptr<Path>, Kel::Ptr<Kel::GenericIf const>>
getPtrPath(BaseRouter& router, Kel::Ptr<Path const> const& prefix, Kel::Ptr<Kel::GenericIf const> ref,
           Kel::Ptr<Path const> const& leaf);

// Of a key that wraps a reference, the reference; every other value unchanged.
KTD_EXPORT Kel::Ptr<Kel::GenericIf const> resolveGifKeyPtr(Kel::Ptr<Kel::GenericIf const> value);

} // namespace Ondra
