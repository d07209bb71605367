// Files by the name of the module that they hold, the newest of each; the schema library finds them by that
// name. What it says while it compiles is gathered into one error.
#include "agent/yang/Modules.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <utility>

#include <fmt/format.h>
#include <libyang/libyang.h>

#include "agent/yang/Arrays.h"
#include "agent/yang/Complaint.h"

namespace Agent {
namespace {

namespace fs = std::filesystem;

using Done = Kstd::Result<void, std::string>;

Kstd::Err<std::string> wrong(std::string what) { return Kstd::Err<std::string>(std::move(what)); }

// What the schema library says while this lives, on the thread that sets things up.
class Said {
public:
  Said() {
    current() = this;
    ly_log_options(LY_LOLOG | LY_LOSTORE_LAST);
    ly_set_log_clb(&hear, 1);
  }
  ~Said() {
    current() = nullptr;
    ly_set_log_clb(nullptr, 1);
    ly_log_options(LY_LOSTORE_LAST); // values that do not fit are told to those who gave them
  }
  Said(Said const&) = delete;
  Said& operator=(Said const&) = delete;

  std::vector<Complaint> complaints;

private:
  static Said*& current() {
    static Said* instance = nullptr;
    return instance;
  }
  static void hear(LY_LOG_LEVEL level, char const* text, char const* where) {
    if (current() == nullptr || level != LY_LLERR || text == nullptr) return;
    current()->complaints.push_back(Complaint::of(text, where));
  }
};

Kstd::Result<std::string, std::string> textOf(fs::path const& path) {
  std::ifstream file(path, std::ios::binary);
  std::string text{std::istreambuf_iterator<char>(file), {}};
  if (!file) return Kstd::Err(fmt::format("{}: cannot be read", path.string()));
  if (text.starts_with("\xef\xbb\xbf")) text.erase(0, 3); // a byte order mark, which the library refuses
  return text;
}

// The features of "NAME:FEATURE,..." as the schema library takes them: ended by a null.
struct Wanted {
  explicit Wanted(std::string const& text)
      : name(text.substr(0, text.find(':')))
      , list(text.size() == name.size() ? std::string() : text.substr(name.size() + 1)) {
    for (std::size_t at = 0; at < list.size();) {
      std::size_t const end = std::min(list.find(',', at), list.size());
      if (end < list.size()) list[end] = '\0';
      if (end > at) features.push_back(list.data() + at);
      at = end + 1;
    }
    features.push_back(nullptr);
  }
  std::string name;
  std::string list;
  std::vector<char const*> features;
};

// A folder that holds each file under the name of its module, and nothing else: the schema library finds what
// was chosen here, whatever the files are called and whatever else lies beside them. Goes with this.
class ChosenFiles {
public:
  explicit ChosenFiles(std::map<std::string, Modules::File, std::less<>> const& files) {
    std::string pattern = (fs::temp_directory_path(error_) / "ondra-yang-XXXXXX").string();
    if (error_ || mkdtemp(pattern.data()) == nullptr) return;
    folder_ = pattern;
    for (auto const& [name, file] : files)
      std::ofstream(folder_ / (name + ".yang"), std::ios::binary) << file.text;
  }
  ~ChosenFiles() {
    std::error_code ignored;
    if (!folder_.empty()) fs::remove_all(folder_, ignored);
  }
  ChosenFiles(ChosenFiles const&) = delete;
  ChosenFiles& operator=(ChosenFiles const&) = delete;

  [[nodiscard]] bool isThere() const { return !folder_.empty() && !error_; }
  [[nodiscard]] fs::path const& folder() const { return folder_; }

private:
  std::error_code error_;
  fs::path folder_;
};

} // namespace

// --- files -------------------------------------------------------------------------------------------------

Done Modules::add(File file) {
  auto const [at, isNew] = files_.try_emplace(file.says.name, file);
  if (isNew) return {};
  File& other = at->second;
  if (other.text == file.text) return {};
  if (other.says.revision == file.says.revision) {
    return wrong(fmt::format("{} and {} both hold '{}' of revision {}, with different text", other.path,
                             file.path, file.says.name,
                             file.says.revision.empty() ? "none" : file.says.revision));
  }
  File const& older = other.says.revision < file.says.revision ? other : file;
  notes_.push_back(fmt::format("{}: '{}' of {} is left aside for a newer revision", older.path,
                               older.says.name,
                               older.says.revision.empty() ? "no revision" : older.says.revision));
  if (&older == &other) other = std::move(file);
  return {};
}

Done Modules::find(std::vector<std::string> const& folders) {
  for (std::string const& folder : folders) {
    std::error_code error;
    std::set<fs::path> paths; // in their order, so that every run says the same
    fs::recursive_directory_iterator at(folder, fs::directory_options::follow_directory_symlink, error);
    for (; !error && at != fs::recursive_directory_iterator(); at.increment(error))
      if (at->path().extension() == ".yang" && at->is_regular_file(error)) paths.insert(at->path());
    if (error) return wrong(fmt::format("{}: {}", folder, error.message()));
    if (paths.empty()) return wrong(fmt::format("{}: there are no modules (*.yang) in it", folder));
    for (fs::path const& path : paths) {
      auto text = textOf(path);
      if (!text) return wrong(std::move(text).error());
      File file{.path = path.string(), .text = std::move(*text), .says = {}};
      file.says = ModuleText::of(file.text);
      if (file.says.name.empty()) return wrong(fmt::format("{}: this is no module of YANG", file.path));
      if (Done const added = add(std::move(file)); !added) return added;
    }
  }
  return {};
}

// --- compiling ---------------------------------------------------------------------------------------------

namespace {

// What is written between the quotes behind a word of the library's.
std::string_view quotedAfter(std::string_view text, std::string_view word) {
  std::size_t const at = text.find(word);
  if (at == text.npos) return {};
  text.remove_prefix(at + word.size());
  return text.substr(0, text.find('"'));
}

// The module that the library was reading when something was wrong: told after that.
std::string_view moduleRead(std::vector<Complaint> const& complaints) {
  for (Complaint const& each : complaints)
    if (std::string_view const name = quotedAfter(each.words, "Parsing module \""); !name.empty())
      return name;
  return {};
}

} // namespace

std::string Modules::complaintIn(Complaint complaint, std::string_view name) const {
  if (complaint.place.starts_with('/'))
    name = std::string_view(complaint.place).substr(1, complaint.place.find(':') - 1);
  auto file = files_.find(name);
  if (file == files_.end()) return complaint.text();
  std::string_view const missing = quotedAfter(complaint.words, "Data model \"");
  std::string const path = missing.empty() ? complaint.place : fmt::format("/{{import='{}'}}", missing);
  if (complaint.line == 0) complaint.line = lineOf(file->second.text, path);
  for (auto other = files_.begin(); complaint.line == 0 && other != files_.end(); ++other) { // a part of it
    if (!other->second.says.isSubmodule) continue;
    complaint.line = lineOf(other->second.text, path);
    if (complaint.line != 0) file = other;
  }
  return complaint.textIn(file->second.path);
}

namespace {

using Identity = std::pair<std::string, std::string>; // its module and name

void basesOf(lysc_type const& type, std::set<Identity>& to) {
  lysc_type const& real = pointedAt(type);
  if (real.basetype == LY_TYPE_IDENT)
    for (lysc_ident const* const base : sized(reinterpret_cast<lysc_type_identityref const&>(real).bases))
      to.emplace(base->module->name, base->name);
  else if (real.basetype == LY_TYPE_UNION)
    for (lysc_type const* const each : sized(reinterpret_cast<lysc_type_union const&>(real).types))
      basesOf(*each, to);
}

LY_ERR addBases(lysc_node* node, void* to, ly_bool*) {
  auto& bases = *static_cast<std::set<Identity>*>(to);
  if (node->nodetype == LYS_LEAF) basesOf(*reinterpret_cast<lysc_node_leaf const*>(node)->type, bases);
  if (node->nodetype == LYS_LEAFLIST)
    basesOf(*reinterpret_cast<lysc_node_leaflist const*>(node)->type, bases);
  return LY_SUCCESS;
}

// The identity that a base means in a module, which writes it with a prefix or without.
Identity baseIn(ModuleText const& module, std::string const& written) {
  std::size_t const colon = written.find(':');
  if (colon == written.npos) return {module.name, written};
  std::string const prefix = written.substr(0, colon);
  auto const import = std::ranges::find(module.imports, prefix, &std::pair<std::string, std::string>::first);
  return {import == module.imports.end() ? module.name : import->second, written.substr(colon + 1)};
}

} // namespace

std::vector<std::string> Modules::identityModules() const {
  std::set<Identity> taken; // that leaves of what is served can hold
  std::uint32_t index = 0;
  while (lys_module const* const module = ly_ctx_get_module_iter(context_, &index))
    if (module->implemented) lysc_module_dfs_full(module, &addBases, &taken);
  for (std::size_t before = 0; before != taken.size();) { // until nothing is derived from them any more
    before = taken.size();
    for (auto const& [name, file] : files_) {
      for (ModuleText::Identity const& each : file.says.identities)
        if (std::ranges::any_of(each.bases, [&, &says = file.says](auto const& base) {
              return taken.contains(baseIn(says, base));
            }))
          taken.emplace(name, each.name);
    }
  }
  std::set<std::string> missing;
  for (auto const& [module, identity] : taken) {
    auto const file = files_.find(module);
    if (file != files_.end() && !file->second.says.isSubmodule &&
        ly_ctx_get_module_implemented(context_, module.c_str()) == nullptr)
      missing.insert(module);
  }
  return {missing.begin(), missing.end()};
}

Done Modules::compile(std::vector<std::string> const& wanted) {
  Said said;
  auto const failed = [&](std::string const& fallback) {
    std::vector<Complaint> const& all = said.complaints;
    return wrong(all.empty() ? fallback : complaintIn(all.front(), moduleRead(all)));
  };
  std::uint16_t const options = LY_CTX_NO_YANGLIBRARY | LY_CTX_DISABLE_SEARCHDIR_CWD |
                                LY_CTX_EXPLICIT_COMPILE | LY_CTX_REF_IMPLEMENTED | LY_CTX_SET_PRIV_PARSED;
  if (ly_ctx_new(nullptr, options, &context_) != LY_SUCCESS)
    return failed("the schema library does not start");
  std::set<std::string, std::less<>> own; // that it brings along itself
  std::uint32_t index = 0;
  while (lys_module const* const module = ly_ctx_get_module_iter(context_, &index))
    own.insert(module->name);
  ChosenFiles const chosen(files_);
  if (!chosen.isThere()) return wrong("a temporary folder for the modules cannot be made");
  ly_ctx_set_searchdir(context_, chosen.folder().c_str());
  for (std::string const& text : wanted) {
    Wanted module(text);
    named_.push_back(module.name);
    if (!files_.contains(module.name))
      return wrong(fmt::format("module '{}' is in none of the folders", module.name));
    if (ly_ctx_load_module(context_, module.name.c_str(), nullptr, module.features.data()) == nullptr)
      return failed(fmt::format("module '{}' cannot be loaded", module.name));
  }
  if (wanted.empty()) {
    for (auto const& [name, file] : files_) {
      if (file.says.isSubmodule || own.contains(name)) continue;
      if (ly_ctx_load_module(context_, name.c_str(), nullptr, nullptr) == nullptr)
        return failed(fmt::format("module '{}' cannot be loaded", name));
    }
  }
  if (ly_ctx_compile(context_) != LY_SUCCESS) return failed("the modules do not compile");
  std::vector<std::string> const more = wanted.empty() ? std::vector<std::string>() : identityModules();
  for (std::string const& name : more)
    if (ly_ctx_load_module(context_, name.c_str(), nullptr, nullptr) == nullptr)
      return failed(fmt::format("module '{}' cannot be loaded", name));
  if (!more.empty() && ly_ctx_compile(context_) != LY_SUCCESS) return failed("the modules do not compile");
  index = 0;
  while (lys_module const* const module = ly_ctx_get_module_iter(context_, &index))
    if (module->implemented && !own.contains(module->name)) implemented_.push_back(module);
  std::ranges::sort(implemented_, {}, [](lys_module const* each) { return std::string_view(each->name); });
  return {};
}

Modules::OrError Modules::load(ModuleOrder const& order) {
  std::unique_ptr<Modules> made(new Modules());
  if (Done const found = made->find(order.folders); !found) return Kstd::Err(found.error());
  if (Done const compiled = made->compile(order.modules); !compiled) return Kstd::Err(compiled.error());
  return made;
}

bool Modules::isImportOf(std::string_view importer, std::string_view name) const {
  auto const found = files_.find(importer);
  return found != files_.end() && std::ranges::find(named_, name) == named_.end() &&
         std::ranges::find(found->second.says.imports, name, &std::pair<std::string, std::string>::second) !=
             found->second.says.imports.end();
}

Modules::~Modules() { ly_ctx_destroy(context_); }

} // namespace Agent
