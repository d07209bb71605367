// Internal paths as clients see them, and the canonical bytes by which paths are compared and ordered. Any
// thread.
#pragma once

#include <string>
#include <string_view>

namespace gnmi {
class Path;
class PathElem;
} // namespace gnmi

namespace Agent {

class PathView;

// Appends the canonical bytes of an element: equal elements have equal bytes, and the bytes of a path are
// those of its elements, so that everything below a path begins with the bytes of the path.
void appendElemBytes(std::string& to, gnmi::PathElem const& elem);
[[nodiscard]] std::string pathBytes(PathView const& path);
// The path again. REQUIRES bytes that `pathBytes` made.
[[nodiscard]] gnmi::Path pathOfBytes(std::string_view bytes);
// The bytes of a path without their last one: what lies at or below the path begins with them, followed by
// `kElemEnd` or, where the last element has no keys, by `kKeyStart`, because such an element stands for all
// keys.
inline constexpr char kElemEnd = '\x01';
inline constexpr char kKeyStart = '\x02';
// Whether the path of `bytes` lies at or below the path of `ancestor`.
[[nodiscard]] bool bytesAtOrBelow(std::string_view ancestor, std::string_view bytes);

// The path above; of the root, the root.
[[nodiscard]] std::string_view bytesAbove(std::string_view bytes);
// The deepest path that both lie at or below.
[[nodiscard]] std::string_view commonBytes(std::string_view a, std::string_view b);

// Rewrites an internal prefix in place: the data root off, origin and target on.
void outPrefixIs(gnmi::Path& prefix, std::string_view origin, std::string_view target);

} // namespace Agent
