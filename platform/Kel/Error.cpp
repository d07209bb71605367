#include "Kel/Error.h"

#include <fmt/core.h>

#include <utility>

namespace Kel {

void throwError(std::string text) { throw Error(std::move(text)); }

void throwNewEntityArgsException(std::string const& typeName, std::size_t expected, std::size_t found) {
  throw NewEntityArgsError(
      fmt::format("an entity of type '{}' is made in a directory with {} arguments beyond its name; found {}",
                  typeName, expected, found));
}

} // namespace Kel
