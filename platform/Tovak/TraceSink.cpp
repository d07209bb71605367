// Where lines go: to the sink that is set, else to standard error, each in one write. The sink for tests
// keeps them.
#include "Tovak/TraceSink.h"

#include <algorithm>
#include <atomic>
#include <mutex>

#include <fmt/format.h>
#include <unistd.h>

#include "Tovak/Clock.h"
#include "Tovak/DebugHandler.h"

namespace Tovak {

namespace {

std::atomic<TraceSink*> currentSink{nullptr}; // null: print

char levelChar(unsigned level) { return level == traceLevelError ? 'E' : static_cast<char>('0' + level); }

} // namespace

TraceSink::~TraceSink() = default;

TraceSink* traceSinkIs(TraceSink* sink) { return currentSink.exchange(sink, std::memory_order_acq_rel); }

bool Impl::hasTraceSink() { return currentSink.load(std::memory_order_acquire) != nullptr; }

void Impl::printTrace(TraceLine const& line) {
  std::int64_t const now = SystemClock::instance().wallNs();
  fmt::memory_buffer out;
  fmt::format_to(fmt::appender(out), "{}.{:06} {} {}[{}] {}:{} {}: {}\n", now / 1'000'000'000,
                 now / 1'000 % 1'000'000, levelChar(line.level), line.handler, line.category, line.file,
                 line.line, line.function, line.message);
  // One write, so that the lines of several threads do not mix. There is nobody to tell when it fails.
  [[maybe_unused]] ssize_t const written = ::write(STDERR_FILENO, out.data(), out.size());
}

void Impl::emitTrace(TraceLine const& line) {
  if (TraceSink* const sink = currentSink.load(std::memory_order_acquire))
    sink->traceLine(line);
  else
    printTrace(line);
}

ScopedTraceSink::ScopedTraceSink() : previous_(traceSinkIs(this)) {}
ScopedTraceSink::~ScopedTraceSink() { traceSinkIs(previous_); }

void ScopedTraceSink::traceLine(TraceLine const& line) {
  String text = fmt::format("{}/{} {}", line.handler, levelChar(line.level), line.message);
  std::lock_guard const guard(lock_);
  lines_.push_back(std::move(text));
}

std::vector<String> ScopedTraceSink::lines() const {
  std::lock_guard const guard(lock_);
  return lines_;
}

bool ScopedTraceSink::contains(std::string_view text) const {
  std::lock_guard const guard(lock_);
  return std::any_of(lines_.begin(), lines_.end(),
                     [text](String const& line) { return line.find(text) != String::npos; });
}

void ScopedTraceSink::clear() {
  std::lock_guard const guard(lock_);
  lines_.clear();
}

} // namespace Tovak
