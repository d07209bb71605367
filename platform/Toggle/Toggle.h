// Toggle: switches that files in a folder set.
#pragma once

#include <string_view>

#include "Kstd/Export.h"
#include "Tovak/String.h"

// Feature toggles, read from JSON files of the form {"OndraSyncBundling": true} in one folder: the one that
// toggleDirIs names, else the one that the environment variable ONDRA_TOGGLE_DIR names, else none. Any
// thread.
namespace Toggle {

inline constexpr char const* directoryEnvironmentVariable = "ONDRA_TOGGLE_DIR"; // names the folder

// The state of toggle `name` in `file` of the toggle folder; `defaultState` when there is no folder, no such
// file or no such name in it. Also when the file is broken (unreadable, not a JSON object, the toggle not a
// boolean): that is reported once per file, at error level, through the debug handler "Toggle".
//
// The file is read at every call; whoever asks often keeps the answer.
KTD_EXPORT bool getToggleState(std::string_view name, std::string_view file, bool defaultState);

// Names the folder; the empty text goes back to the environment's. Broken files are reported anew.
KTD_EXPORT void toggleDirIs(Tovak::String directory);

} // namespace Toggle
