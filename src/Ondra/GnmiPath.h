// Paths as texts and as gNMI messages: the printer that both representations share, the parser, and the hash
// and equality of gnmi::PathElem. Messages of {fmt} print them with Ondra/PathFormat.h.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

#include "Kel/Ptr.h"
#include "Kstd/Export.h"
#include "Ondra/Path.h"
#include "Tovak/String.h"

namespace gnmi {

class Path;
class PathElem;

// Same name and same keys with the same values. An element without keys equals no element with keys.
[[nodiscard]] KTD_EXPORT bool operator==(PathElem const& a, PathElem const& b);

} // namespace gnmi

// Agrees with the equality above, and with the hash of the equal Ondra::PathElem.
template <>
struct std::hash<gnmi::PathElem> {
  KTD_EXPORT std::size_t operator()(gnmi::PathElem const& elem) const;
};

namespace Ondra {

// --- printing ------------------------------------------------------------------------------------
// The elements from `start` on, `sep` between them and, when `leadingSep`, before the first. An element is
// its name followed by "[key=value]" for each key, these sorted as texts. Nothing is escaped. The empty text
// when there is no element `start`.
[[nodiscard]] KTD_EXPORT std::string pathToStrImpl(Kel::Ptr<Path const> const& path, std::size_t start,
                                                   bool leadingSep, char const* sep);
// The same over the `elem` list of a gNMI path; its origin and target are not printed.
[[nodiscard]] KTD_EXPORT std::string pathToStrImpl(gnmi::Path const& path, int start, bool leadingSep,
                                                   char const* sep);
// With "/" between the elements.
[[nodiscard]] KTD_EXPORT std::string pathToStr(gnmi::Path const& path, int start, bool leadingSep);
// One element, without any separator.
[[nodiscard]] KTD_EXPORT Tovak::String pathElemToStr(gnmi::PathElem const& elem);

// --- parsing; see Path::strToPathIs --------------------------------------------------------------
// The steps of the parser: `pos` is its cursor into `text`. A malformed text is an assertion failure, so
// texts of clients do not come here.
//
// Reads one element, up to the "/" that ends it or the end of the text.
KTD_EXPORT void parseElem(std::string_view const& text, std::size_t& pos, Kel::Ptr<PathElem> elem);
// Reads the name of a key and its "=".
[[nodiscard]] KTD_EXPORT std::string parseKeyName(std::string_view const& text, std::size_t& pos);
// Reads the value of a key, up to the "]" that closes it.
[[nodiscard]] KTD_EXPORT std::string parseValForKey(std::string_view const& text, std::size_t& pos);

} // namespace Ondra
