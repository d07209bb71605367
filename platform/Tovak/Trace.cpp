// How a line is formatted, and what a failed assertion does: the handler that was set, or a line and the end
// of the process.
#include "Tovak/Trace.h"

#include <atomic>
#include <cstdlib>

#include <fmt/format.h>

#include "Tovak/TraceSink.h"

namespace Tovak {

namespace {

std::atomic<AssertHandler> currentAssertHandler{nullptr};

std::string_view withoutDirectories(std::string_view file) { return file.substr(file.rfind('/') + 1); }

void throwAssertionError(AssertionFailure const& failure) { throw AssertionError(failure); }

} // namespace

void Impl::vfmtrace(DebugHandler const& handler, unsigned level, char const* file, char const* function,
                    int line, std::string_view category, fmt::string_view format, fmt::format_args args) {
  fmt::memory_buffer message;
  fmt::vformat_to(fmt::appender(message), format, args);
  emitTrace({handler.name(), level, withoutDirectories(file), function, line, category,
             std::string_view(message.data(), message.size())});
}

AssertionError::AssertionError(AssertionFailure const& failure)
    : std::runtime_error(failure.message)
    , condition_(failure.condition)
    , function_(failure.function)
    , handlerName_(failure.handler.name()) {}

AssertionError::~AssertionError() = default;

AssertHandler setAssertHandler(AssertHandler handler) {
  return currentAssertHandler.exchange(handler, std::memory_order_acq_rel);
}

ScopedAssertHandler::ScopedAssertHandler() : ScopedAssertHandler(throwAssertionError) {}
ScopedAssertHandler::ScopedAssertHandler(AssertHandler handler) : previous_(setAssertHandler(handler)) {}
ScopedAssertHandler::~ScopedAssertHandler() { setAssertHandler(previous_); }

void Impl::vfmassert(DebugHandler const& handler, char const* file, char const* function, int line,
                     char const* condition, fmt::string_view format, fmt::format_args args) {
  String const message = fmt::vformat(format, args);
  if (AssertHandler const assertHandler = currentAssertHandler.load(std::memory_order_acquire))
    assertHandler(AssertionFailure{handler, file, function, line, condition, message});
  String const report = fmt::format("assertion \"{}\" failed: {}", condition, message);
  TraceLine const traceLine{handler.name(), traceLevelError, withoutDirectories(file), function, line, "",
                            report};
  emitTrace(traceLine);
  if (hasTraceSink()) printTrace(traceLine); // a sink in memory dies with the process
  std::abort();
}

} // namespace Tovak
