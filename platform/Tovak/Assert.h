// Assertions: what must hold, said where it is relied upon.
#pragma once

#include <stdexcept>

#include <fmt/core.h>

#include "Kstd/Export.h"
#include "Tovak/String.h"

namespace Tovak {

class DebugHandler;

// Broken internal preconditions. Assertions guard the program's own mistakes and nothing else: what a client
// sends or what the kernel reports is answered with an error value.
struct AssertionFailure {
  DebugHandler const& handler; // of the part of the program that asserts
  char const* file;            // where it stands in the source
  char const* function;        // likewise
  int line;                    // likewise
  char const* condition;       // the source text of what does not hold
  String message;              // formatted
};

// What the handler of ScopedAssertHandler throws. what() is the bare message.
class KTD_EXPORT AssertionError : public std::runtime_error {
public:
  // Copies what it tells.
  explicit AssertionError(AssertionFailure const& failure);
  ~AssertionError() override;

  String const& condition() const { return condition_; }     // the source text of what does not hold
  String const& function() const { return function_; }       // where it was asserted
  String const& handlerName() const { return handlerName_; } // the name of the handler

private:
  String condition_;
  String function_;
  String handlerName_;
};

// Called for a failed assertion instead of the report; may throw. The process aborts when it returns.
using AssertHandler = void (*)(AssertionFailure const& failure);

// Installs the process's handler and returns the one before it; null means report at error level and abort.
KTD_EXPORT AssertHandler setAssertHandler(AssertHandler handler);

// For tests: while it lives, failed assertions go to `handler`, by default one that throws AssertionError.
class KTD_EXPORT ScopedAssertHandler {
public:
  // Installs the handler; the end puts the one before it back.
  ScopedAssertHandler();
  explicit ScopedAssertHandler(AssertHandler handler);
  ~ScopedAssertHandler();
  ScopedAssertHandler(ScopedAssertHandler const&) = delete;
  ScopedAssertHandler& operator=(ScopedAssertHandler const&) = delete;

private:
  AssertHandler const previous_;
};

namespace Impl {
[[noreturn]] KTD_EXPORT void vfmassert(DebugHandler const& handler, char const* file, char const* function,
                                       int line, char const* condition, fmt::string_view format,
                                       fmt::format_args args);
} // namespace Impl

// Reports a failed assertion through the trace sink, whatever the handler's mask, and aborts the process; or,
// when a test has installed a handler, calls that. Never returns: the handler throws or the process ends. Any
// thread.
template <typename... Args>
[[noreturn, gnu::cold, gnu::noinline]] void fmassert(DebugHandler const& handler, char const* file,
                                                     char const* function, int line, char const* condition,
                                                     fmt::format_string<Args...> format, Args&&... args) {
  Impl::vfmassert(handler, file, function, line, condition, format, fmt::make_format_args(args...));
}

} // namespace Tovak

// TOVAK_ASSERT(condition, handler, format, args...): the arguments are evaluated only when the condition
// fails.
#define TOVAK_ASSERT(condition, handler, ...)                                                                \
  do {                                                                                                       \
    if (!(condition)) [[unlikely]]                                                                           \
      ::Tovak::fmassert((handler), __FILE__, __func__, __LINE__, #condition, __VA_ARGS__);                   \
  } while (false)
