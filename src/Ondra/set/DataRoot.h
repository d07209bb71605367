// Where the paths and places of a request lie.
#pragma once

#include <grpcpp/support/status.h>

#include "Kstd/Result.h"
#include "Ondra/AttrTree.h"
#include "Ondra/Path.h"

namespace Ondra::KelGnmiSet {

// The entity at that path from the model's root directory; NOT_FOUND otherwise. `elems` becomes the path's
// elements.
[[nodiscard]] Kstd::Result<AttrTree::KelObject, grpc::Status> dataRootAt(Path const& path, gnmi::Path& elems);

} // namespace Ondra::KelGnmiSet
