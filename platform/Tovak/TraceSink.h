// Where the lines of traces go.
#pragma once

#include <string_view>
#include <vector>

#include "Kstd/Export.h"
#include "Tovak/Lock.h"
#include "Tovak/String.h"

namespace Tovak {

// One emitted message. The views are valid during the call that hands it over.
struct TraceLine {
  std::string_view handler;  // its name
  unsigned level;            // 0 to 9, or traceLevelError
  std::string_view file;     // without its directories
  std::string_view function; // that traces
  int line;                  // of the file
  std::string_view category; // may be empty
  std::string_view message;  // formatted
};

// Where emitted trace messages go. The process's default writes them to standard error, one write(2) per
// message, as "<seconds since the epoch> <level or E> <handler>[<category>] <file>:<line> <function>:
// <message>".
class KTD_EXPORT TraceSink {
public:
  virtual ~TraceSink();
  // Called from whichever thread traces, also from several at a time; must not trace.
  virtual void traceLine(TraceLine const& line) = 0;
};

// Directs messages to `sink` (null: the default) and returns the sink before it. The caller keeps it alive.
KTD_EXPORT TraceSink* traceSinkIs(TraceSink* sink);

namespace Impl {
// Hands a message to the current sink.
void emitTrace(TraceLine const& line);
// Writes a message to standard error, whatever the current sink.
void printTrace(TraceLine const& line);
// Whether a sink of somebody's own is installed.
bool hasTraceSink();
} // namespace Impl

// For tests: while it lives, collects the process's trace messages instead of printing them. Scopes nest.
class KTD_EXPORT ScopedTraceSink final : public TraceSink {
public:
  ScopedTraceSink();
  ~ScopedTraceSink() override;
  ScopedTraceSink(ScopedTraceSink const&) = delete;
  ScopedTraceSink& operator=(ScopedTraceSink const&) = delete;

  void traceLine(TraceLine const& line) override;

  // The messages so far, each as "<handler>/<level or E> <message>", in the order of emission.
  std::vector<String> lines() const;
  // Whether any message contains the text.
  bool contains(std::string_view text) const;
  void clear(); // forgets the messages

private:
  TraceSink* const previous_;
  mutable Locking::Lock lock_;
  std::vector<String> lines_;
};

} // namespace Tovak
