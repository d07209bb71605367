// What the client prints: one line an update.
#pragma once

#include <string>

namespace gnmi {
class Notification;
} // namespace gnmi

namespace Agent {

struct LineStyle {
  bool isJson = false;   // an object a line
  bool isColour = false; // for terminals
  bool hasTime = true;   // the time of day before each line that is not JSON, local time

  // As standard output wants it: colour on a terminal, unless NO_COLOR is set or TERM is "dumb".
  [[nodiscard]] static LineStyle ofStandardOutput(bool isJson);
};

// "12:00:01.250 /interfaces/interface[name=lo]/state/mtu 1500", with "- " before the path of what was
// deleted; deletes come first, as they apply first. Values of containers take more than one line when
// `indent` >= 0. Each line ends with a line end.
[[nodiscard]] std::string notificationLines(gnmi::Notification const& notification, LineStyle const& style,
                                            int indent = -1);
// That the initial values are complete.
[[nodiscard]] std::string syncLine(LineStyle const& style);

} // namespace Agent
