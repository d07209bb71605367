// Updates and deletes as coloured text or as JSON, a line each; values that take several lines begin below
// their path.
#include "agent/client/Lines.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <nlohmann/json.hpp>
#include <string_view>

#include "agent/client/ValueText.h"
#include "agent/paths/PathText.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace Agent {
namespace {

using Json = nlohmann::ordered_json;

constexpr std::string_view kDim = "2", kPath = "36", kValue = "1", kGone = "31", kGood = "32";

std::string coloured(LineStyle const& style, std::string_view colour, std::string text) {
  return style.isColour ? fmt::format("\x1b[{}m{}\x1b[0m", colour, text) : std::move(text);
}

std::string timeText(std::int64_t ns) {
  std::time_t const seconds = ns / 1'000'000'000;
  std::tm parts{};
  ::localtime_r(&seconds, &parts);
  return fmt::format("{:02}:{:02}:{:02}.{:03}", parts.tm_hour, parts.tm_min, parts.tm_sec,
                     ns % 1'000'000'000 / 1'000'000);
}

std::string jsonLine(Json const& object) {
  return object.dump(-1, ' ', false, Json::error_handler_t::replace) + '\n';
}

std::string head(gnmi::Notification const& notification, LineStyle const& style) {
  if (!style.hasTime) return {};
  return coloured(style, kDim, timeText(notification.timestamp())) + ' ';
}

std::string updateLine(gnmi::Notification const& notification, gnmi::Update const& update,
                       LineStyle const& style, int indent) {
  std::string const path = pathText(notification.prefix(), update.path());
  if (style.isJson)
    return jsonLine(
        {{"timestamp", notification.timestamp()}, {"path", path}, {"value", valueJson(update.val())}});
  std::string const value = valueText(update.val(), indent);
  bool const isBlock = value.find('\n') != std::string::npos;
  return fmt::format("{}{}{}{}\n", head(notification, style), coloured(style, kPath, printable(path)),
                     isBlock ? '\n' : ' ', coloured(style, kValue, value));
}

std::string deleteLine(gnmi::Notification const& notification, gnmi::Path const& deleted,
                       LineStyle const& style) {
  std::string const path = pathText(notification.prefix(), deleted);
  if (style.isJson)
    return jsonLine({{"timestamp", notification.timestamp()}, {"path", path}, {"deleted", true}});
  return fmt::format("{}{}\n", head(notification, style),
                     coloured(style, kGone, fmt::format("- {}", printable(path))));
}

} // namespace

LineStyle LineStyle::ofStandardOutput(bool isJson) {
  char const* const term = std::getenv("TERM");
  bool const isColour = ::isatty(STDOUT_FILENO) == 1 && std::getenv("NO_COLOR") == nullptr &&
                        !(term != nullptr && std::string_view(term) == "dumb");
  return {.isJson = isJson, .isColour = isColour && !isJson};
}

std::string notificationLines(gnmi::Notification const& notification, LineStyle const& style, int indent) {
  std::string lines;
  for (gnmi::Path const& path : notification.delete_())
    lines += deleteLine(notification, path, style);
  for (gnmi::Update const& update : notification.update())
    lines += updateLine(notification, update, style, indent);
  return lines;
}

std::string syncLine(LineStyle const& style) {
  return style.isJson ? jsonLine({{"sync", true}}) : coloured(style, kGood, "-- in sync") + '\n';
}

} // namespace Agent
