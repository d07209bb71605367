// gNMI paths as people write them.
#pragma once

#include <string>
#include <string_view>

#include "Kstd/Result.h"

namespace gnmi {
class Path;
class PathElem;
} // namespace gnmi

namespace Agent {

// "/interfaces/interface[name=eth0]/state", "openconfig:/system", "/": elements after "/" (the first one may
// be left out), each a name with keys "[field=value]", an origin before ":/". A backslash takes the next
// character as it is, in names and in values; a value may hold "/" and "[" as they are. "*" and "..." go to
// the server like other names. The error names the place.
[[nodiscard]] Kstd::Result<gnmi::Path, std::string> pathOf(std::string_view text);

// The text that `pathOf` takes for the same path, keys in the order of their names; of `path` below `prefix`,
// whose origin and target it takes: the target is left out. The empty path is "/".
[[nodiscard]] std::string pathText(gnmi::Path const& prefix, gnmi::Path const& path);
[[nodiscard]] std::string pathText(gnmi::Path const& path);

// Splits "PATH=VALUE" at the first "=" that is not inside of a key. Without one all is path, and `hasValue`
// is false.
struct Assignment {
  std::string_view path;
  std::string_view value;
  bool hasValue = false;
};
[[nodiscard]] Assignment assignmentOf(std::string_view text);

} // namespace Agent
