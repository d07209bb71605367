// The modules that a run serves: found in folders, compiled by the schema library.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Kstd/Result.h"
#include "agent/yang/ModuleText.h"

struct ly_ctx;
struct lys_module;

namespace Agent {

struct Complaint;

// What of which folders: modules as "NAME" or "NAME:FEATURE,..."; "*" is all features. None: every module
// there is, with no feature.
struct ModuleOrder {
  std::vector<std::string> folders; // with their subfolders
  std::vector<std::string> modules;
};

// Constant once loaded, then for any thread; the schema library's dictionary locks by itself.
class Modules {
public:
  using OrError = Kstd::Result<std::unique_ptr<Modules>, std::string>;

  // The error names the file, the line and the path in the schema, as far as there is such, in the schema
  // library's words.
  [[nodiscard]] static OrError load(ModuleOrder const& order);
  ~Modules();
  Modules(Modules const&) = delete;
  Modules& operator=(Modules const&) = delete;

  [[nodiscard]] ly_ctx const* context() const noexcept { return context_; }
  // Those of the folders whose nodes are served, in the order of their names.
  [[nodiscard]] std::vector<lys_module const*> const& implemented() const noexcept { return implemented_; }
  // Whether a module is there only for what another one needs of it: the importer; nobody named it.
  [[nodiscard]] bool isImportOf(std::string_view importer, std::string_view name) const;
  // What whoever starts this should know: a line each.
  [[nodiscard]] std::vector<std::string> const& notes() const noexcept { return notes_; }

  struct File {
    std::string path;
    std::string text;
    ModuleText says;
  };

private:
  Modules() = default;
  [[nodiscard]] Kstd::Result<void, std::string> find(std::vector<std::string> const& folders);
  [[nodiscard]] Kstd::Result<void, std::string> add(File file);
  [[nodiscard]] Kstd::Result<void, std::string> compile(std::vector<std::string> const& wanted);

  // A complaint in the file that it is of: that of its place in the schema, else the one named.
  [[nodiscard]] std::string complaintIn(Complaint complaint, std::string_view name) const;
  // Modules of the folders that are not served yet and have identities that leaves of what is served can
  // hold.
  [[nodiscard]] std::vector<std::string> identityModules() const;

  std::map<std::string, File, std::less<>> files_; // by the name of the module or submodule
  std::vector<std::string> notes_;
  std::vector<std::string> named_; // of the order
  ly_ctx* context_ = nullptr;
  std::vector<lys_module const*> implemented_;
};

} // namespace Agent
