// Tovak::DebugHandler: a named source of traces, with the levels that are switched on.
#pragma once

#include <atomic>
#include <cstdint>
#include <string_view>

#include "Kstd/Export.h"
#include "Kstd/Result.h"
#include "Tovak/String.h"

namespace Tovak {

// Trace levels run from 0 (request start and end) to 9 (per-attribute detail).
inline constexpr unsigned traceLevelMax = 9;
// Something went wrong. Always on unless a handler's mask is set by hand; not part of "*" in a trace spec.
inline constexpr unsigned traceLevelError = 10;

// A named switch for trace messages: a mask with one bit per level. Handlers are made by
// Platform::getDebugHandler, live for the rest of the process, and may be used from any thread.
class KTD_EXPORT DebugHandler {
public:
  DebugHandler(DebugHandler const&) = delete;
  DebugHandler& operator=(DebugHandler const&) = delete;

  // Whether a message of this level is emitted. One load and one test.
  bool isOn(unsigned level) const { return (mask_.load(std::memory_order_relaxed) >> level) & 1u; }

  // Bit n is level n.
  std::uint32_t mask() const { return mask_.load(std::memory_order_relaxed); }
  // Sets the mask, bit n for level n, until the next Platform::traceIs.
  void maskIs(std::uint32_t mask) { mask_.store(mask, std::memory_order_relaxed); }

  String const& name() const { return name_; } // as trace specs write it

private:
  friend class DebugHandlerRegistry;
  DebugHandler(std::string_view name, std::uint32_t defaultMask)
      : mask_(defaultMask)
      , defaultMask_(defaultMask)
      , name_(name) {}

  std::atomic<std::uint32_t> mask_;
  std::uint32_t const defaultMask_;
  String const name_;
};

namespace Platform {

// The environment variable that holds the trace spec a process starts with.
inline constexpr char const* traceEnvironmentVariable = "ONDRA_TRACE";

// The handler of that name, made on the first call; the same name gives the same handler. Never freed. Any
// thread, also during static initialisation.
//
// Until a trace spec says otherwise the error level is on, and level 0 as well when `levelZeroOn`. The first
// caller decides; a trace spec that matches the name applies whichever came first, the pattern or the
// handler.
KTD_EXPORT DebugHandler& getDebugHandler(std::string_view name, bool levelZeroOn);

// Switches trace messages by a spec: entries "pattern/levels" separated by commas, as in
// "OndraWalker/0-5,OndraPath/*". A pattern is a handler's name in which '*' stands for any run of characters
// and '?' for any one. The levels are one level "N", a range "N-M", or "*" for all of 0 to 9.
//
// A spec replaces the one before it. A handler that entries match gets exactly the union of their levels plus
// the error level; one that none matches goes back to its default. The empty spec thus restores all defaults.
//
// Any thread. A malformed spec changes nothing and gives a text that names the offending entry.
KTD_EXPORT Kstd::Result<void, String> traceIs(std::string_view spec);

} // namespace Platform
} // namespace Tovak
