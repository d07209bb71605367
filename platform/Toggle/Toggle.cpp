// A file is read at each question; one that is broken is reported once, and the default holds.
#include "Toggle/Toggle.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <optional>
#include <set>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "Kstd/Result.h"
#include "Tovak/Lock.h"
#include "Tovak/Trace.h"

namespace Toggle {

namespace {

using Tovak::String;

struct Settings {
  Tovak::Locking::Lock lock;
  String directory;             // guarded by lock
  std::set<String> brokenFiles; // guarded by lock: the paths that were reported
};

Settings& settings() {
  static auto* const instance = new Settings;
  return *instance;
}

// The folder; empty for none.
String directory() {
  {
    std::lock_guard const guard(settings().lock);
    if (!settings().directory.empty()) return settings().directory;
  }
  char const* const fromEnvironment = std::getenv(directoryEnvironmentVariable);
  return fromEnvironment ? fromEnvironment : "";
}

// The toggle's state, nothing when the file does not name it, or what is wrong with the file.
Kstd::Result<std::optional<bool>, String> readToggle(String const& path, std::string_view name) {
  std::error_code error;
  if (!std::filesystem::exists(path, error) && !error) return std::optional<bool>();
  std::ifstream file(path);
  if (!file) return Kstd::Err(String("it cannot be read"));
  try {
    nlohmann::json const toggles = nlohmann::json::parse(file);
    if (!toggles.is_object())
      return Kstd::Err(fmt::format("expected a JSON object, got {}", toggles.type_name()));
    auto const state = toggles.find(String(name));
    if (state == toggles.end()) return std::optional<bool>();
    if (!state->is_boolean())
      return Kstd::Err(fmt::format("toggle \"{}\": expected true or false, got {}", name, state->dump()));
    return std::optional<bool>(state->get<bool>());
  } catch (std::exception const& failure) { // broken JSON, or a read that failed on the way
    return Kstd::Err(String(failure.what()));
  }
}

void reportBrokenFile(String const& path, String const& what) {
  {
    std::lock_guard const guard(settings().lock);
    if (!settings().brokenFiles.insert(path).second) return;
  }
  TOVAK_TRACE(Tovak::Platform::getDebugHandler("Toggle", false), Tovak::traceLevelError, "",
              "toggle file {} is broken, using defaults: {}", path, what);
}

} // namespace

bool getToggleState(std::string_view name, std::string_view file, bool defaultState) {
  String const folder = directory();
  if (folder.empty()) return defaultState;
  String const path = fmt::format("{}/{}", folder, file);
  Kstd::Result<std::optional<bool>, String> const state = readToggle(path, name);
  if (!state) {
    reportBrokenFile(path, state.error());
    return defaultState;
  }
  return state.value().value_or(defaultState);
}

void toggleDirIs(String directory) {
  std::lock_guard const guard(settings().lock);
  settings().directory = std::move(directory);
  settings().brokenFiles.clear();
}

} // namespace Toggle
