// Paths in the messages of {fmt}: include this wherever a path is the argument of a trace or an assertion.
// "{}" takes no options.
#pragma once

#include <fmt/core.h>

#include <string>

#include "Ondra/GnmiPath.h"

namespace Ondra::Impl {

struct PathFormatter {
  constexpr auto parse(fmt::format_parse_context& context) { return context.begin(); }

  template <typename Value, typename Context>
  auto format(Value const& value, Context& context) const {
    return fmt::format_to(context.out(), "{}", textOf(value));
  }

private:
  static std::string textOf(Kel::Ptr<Path const> const& path) { return path ? path->toString() : "null"; }
  static std::string textOf(gnmi::Path const& path) { return pathToStr(path, 0, true); }
  static std::string textOf(gnmi::PathElem const& elem) { return pathElemToStr(elem); }
};

} // namespace Ondra::Impl

// "/interfaces/interface[name=eth1]"; null prints as "null".
template <>
struct fmt::formatter<Kel::Ptr<Ondra::Path const>> : Ondra::Impl::PathFormatter {};
template <>
struct fmt::formatter<Kel::Ptr<Ondra::Path>> : Ondra::Impl::PathFormatter {};
template <>
struct fmt::formatter<gnmi::Path> : Ondra::Impl::PathFormatter {};
// Without a leading "/".
template <>
struct fmt::formatter<gnmi::PathElem> : Ondra::Impl::PathFormatter {};
