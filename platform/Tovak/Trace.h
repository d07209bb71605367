// Traces: a line of text for a handler and a level, made only when somebody wants it.
#pragma once

#include <string_view>

#include <fmt/core.h>

#include "Kstd/Export.h"
#include "Tovak/Assert.h"
#include "Tovak/DebugHandler.h"

namespace Tovak {

namespace Impl {
KTD_EXPORT void vfmtrace(DebugHandler const& handler, unsigned level, char const* file, char const* function,
                         int line, std::string_view category, fmt::string_view format, fmt::format_args args);
} // namespace Impl

// Formats and emits a trace message to the current TraceSink when the handler's mask has the level's bit;
// else does nothing. `category` names what within the handler's area the message is about; it may be empty.
// Any thread.
//
// The arguments are evaluated by the call whether the message is on or off: use TOVAK_TRACE where they cost
// anything.
template <typename... Args>
void fmtrace(DebugHandler const& handler, unsigned level, char const* file, char const* function, int line,
             std::string_view category, fmt::format_string<Args...> format, Args&&... args) {
  if (handler.isOn(level)) [[unlikely]]
    Impl::vfmtrace(handler, level, file, function, line, category, format, fmt::make_format_args(args...));
}

} // namespace Tovak

// TOVAK_TRACE(handler, level, category, format, args...): fmtrace from here. A message that is off costs one
// load and one test and evaluates neither category nor arguments. `handler` is evaluated more than once.
#define TOVAK_TRACE(handler, level, category, ...)                                                           \
  do {                                                                                                       \
    if ((handler).isOn(level)) [[unlikely]]                                                                  \
      ::Tovak::fmtrace((handler), (level), __FILE__, __func__, __LINE__, (category), __VA_ARGS__);           \
  } while (false)
