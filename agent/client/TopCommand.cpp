// Asks for the figures at each interval; between two of them there are keys.
#include <fmt/format.h>
#include <poll.h>

#include <algorithm>
#include <limits>
#include <optional>
#include <utility>

#include "Tovak/Clock.h"
#include "agent/client/Commands.h"
#include "agent/client/Lines.h"
#include "agent/client/Requests.h"
#include "agent/client/Terminal.h"
#include "agent/client/TopView.h"
#include "agent/client/ValueText.h"
#include "agent/options/Console.h"

namespace Agent {
namespace {

constexpr std::int64_t kAnswerNs = 5'000'000'000; // that an answer may take
constexpr char const* kNothing = "it tells nothing of itself: there is no /ondra-agent";

class Top {
public:
  Top(TopOptions const& options, Stub& stub) : options_(options), stub_(stub) {}

  // What is wrong; empty otherwise.
  [[nodiscard]] std::string take() {
    grpc::ClientContext context;
    contextIs(context, options_.connection);
    context.set_deadline(
        gpr_time_add(gpr_now(GPR_CLOCK_REALTIME), gpr_time_from_nanos(kAnswerNs, GPR_TIMESPAN)));
    gnmi::GetResponse response;
    if (grpc::Status const status = stub_.Get(&context, options_.request, &response); !status.ok())
      return statusText(status);
    return view_.take(response) ? std::string() : kNothing;
  }

  [[nodiscard]] std::string text(TopSort sort, Terminal::Size size, bool isColour) const {
    std::vector<TopLine> lines = view_.lines(options_.connection.address, sort, size.columns);
    if (lines.size() > size.rows) lines.resize(size.rows);
    std::string text;
    for (TopLine const& line : lines)
      text += topLineText(line, size.columns, isColour) + '\n';
    return text;
  }

  [[nodiscard]] std::string batch() {
    constexpr std::size_t kAny = std::numeric_limits<std::size_t>::max();
    bool const isColour = LineStyle::ofStandardOutput(false).isColour;
    std::string why = take();
    while (why.empty()) {
      ::poll(nullptr, 0, static_cast<int>(options_.intervalNs / 1'000'000)); // rates need a time
      why = take();
      if (why.empty())
        say(stdout, text(options_.sort, {kAny, kAny}, isColour) + (options_.isOnce ? "" : "\n"));
      if (options_.isOnce || std::ferror(stdout) != 0) break;
    }
    return why;
  }

  [[nodiscard]] std::string live() {
    bool const isColour = LineStyle::ofStandardOutput(false).isColour;
    Terminal terminal;
    TopSort sort = options_.sort;
    Tovak::Clock const& clock = Tovak::SystemClock::instance();
    std::int64_t due = clock.monotonicNs();
    for (;;) {
      if (clock.monotonicNs() >= due) {
        if (std::string why = take(); !why.empty()) return why;
        due = clock.monotonicNs() + options_.intervalNs;
      }
      Terminal::Size size = Terminal::size();
      size.rows -= std::min<std::size_t>(size.rows, 2);
      std::string lines = text(sort, size, isColour);
      lines +=
          topLineText({fmt::format("sorted by {}: s, S another column; q the end", topSortName(sort)), "2"},
                      size.columns, isColour);
      terminal.show(lines);
      int const key = terminal.nextKey(std::max<std::int64_t>(due - clock.monotonicNs(), 0));
      if (key == 'q' || key == Terminal::isToEnd) return {};
      int const step = key == 's' ? 1 : key == 'S' ? kTopSorts - 1 : 0;
      sort = static_cast<TopSort>((static_cast<int>(sort) + step) % kTopSorts);
    }
  }

private:
  TopOptions const& options_;
  Stub& stub_;
  TopView view_;
};

} // namespace

int topCommand(std::vector<std::string> const& arguments) {
  auto const options = TopOptions::parse(arguments);
  if (!options) {
    say(options.error().code == ExitCode::ok ? stdout : stderr, options.error().text);
    return options.error().code;
  }
  auto const stub = connect(options->connection);
  std::string why = stub ? std::string() : stub.error();
  if (stub) {
    Top top(*options, **stub);
    bool const isLive = !options->isOnce && !options->isBatch && Terminal::isThere();
    why = isLive ? top.live() : top.batch();
  }
  if (why.empty()) return ExitCode::ok;
  say(stderr, fmt::format("ondra-agent top: {}\n", printable(why)));
  return ExitCode::failed;
}

} // namespace Agent
