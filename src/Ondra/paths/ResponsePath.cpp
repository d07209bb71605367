// Made of the path above, which is made first.
#include "Ondra/ResponsePath.h"

namespace Ondra {

void ResponsePath::make() const {
  Kel::Ptr<Path> const path = Path::makePath(above_->get());
  path->push(*elem_);
  made_ = path;
  path_ = &made_;
}

} // namespace Ondra
