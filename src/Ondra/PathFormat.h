// Paths in the messages of {fmt}: include this wherever a path is the argument of a trace or an assertion.
#pragma once

#include <fmt/core.h>

#include <string_view>

#include "Ondra/GnmiPath.h"

// "/interfaces/interface[name=eth1]"; null prints as "null".
template <>
struct fmt::formatter<Kel::Ptr<Ondra::Path const>> : fmt::formatter<std::string_view> {
  template <typename Context>
  auto format(Kel::Ptr<Ondra::Path const> const& path, Context& context) const {
    return fmt::formatter<std::string_view>::format(path ? path->toString() : std::string("null"), context);
  }
};

template <>
struct fmt::formatter<Kel::Ptr<Ondra::Path>> : fmt::formatter<std::string_view> {
  template <typename Context>
  auto format(Kel::Ptr<Ondra::Path> const& path, Context& context) const {
    return fmt::formatter<std::string_view>::format(path ? path->toString() : std::string("null"), context);
  }
};

template <>
struct fmt::formatter<gnmi::Path> : fmt::formatter<std::string_view> {
  template <typename Context>
  auto format(gnmi::Path const& path, Context& context) const {
    return fmt::formatter<std::string_view>::format(Ondra::pathToStr(path, 0, true), context);
  }
};

// Without a leading "/".
template <>
struct fmt::formatter<gnmi::PathElem> : fmt::formatter<std::string_view> {
  template <typename Context>
  auto format(gnmi::PathElem const& elem, Context& context) const {
    return fmt::formatter<std::string_view>::format(Ondra::pathElemToStr(elem), context);
  }
};
