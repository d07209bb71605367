// The schema library checks, by the leaf's compiled type; patterns that it does not know of are checked here.
#include "agent/yang/LeafRules.h"

#include <algorithm>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <absl/hash/hash.h>
#include <fmt/format.h>
#include <libyang/libyang.h>
#include <libyang/plugins_types.h>
#include <re2/re2.h>

#include "agent/yang/Arrays.h"

namespace Agent {
namespace {

// Beside the patterns of YANG, which are XML Schema's, some modules have their types' patterns as POSIX has
// them.
constexpr std::string_view kPosixPattern = "posix-pattern";

std::span<lysc_pattern* const> patternsOf(lysc_type const& type) {
  if (type.basetype != LY_TYPE_STRING) return {};
  return sized<lysc_pattern* const>(reinterpret_cast<lysc_type_str const&>(type).patterns);
}

lysc_range const* rangeOf(lysc_type const& type) {
  switch (type.basetype) {
  case LY_TYPE_STRING: return reinterpret_cast<lysc_type_str const&>(type).length;
  case LY_TYPE_BINARY: return reinterpret_cast<lysc_type_bin const&>(type).length;
  case LY_TYPE_DEC64: return reinterpret_cast<lysc_type_dec const&>(type).range;
  case LY_TYPE_INT8:
  case LY_TYPE_INT16:
  case LY_TYPE_INT32:
  case LY_TYPE_INT64:
  case LY_TYPE_UINT8:
  case LY_TYPE_UINT16:
  case LY_TYPE_UINT32:
  case LY_TYPE_UINT64: return reinterpret_cast<lysc_type_num const&>(type).range;
  case LY_TYPE_UNKNOWN:
  case LY_TYPE_BITS:
  case LY_TYPE_BOOL:
  case LY_TYPE_EMPTY:
  case LY_TYPE_ENUM:
  case LY_TYPE_IDENT:
  case LY_TYPE_INST:
  case LY_TYPE_LEAFREF:
  case LY_TYPE_UNION: break;
  }
  return nullptr;
}

std::string rangeText(lysc_type const& type) {
  lysc_range const* const range = rangeOf(type);
  if (range == nullptr || type.basetype == LY_TYPE_DEC64) return {};
  bool const isSigned = type.basetype == LY_TYPE_INT8 || type.basetype == LY_TYPE_INT16 ||
                        type.basetype == LY_TYPE_INT32 || type.basetype == LY_TYPE_INT64;
  std::string text;
  for (lysc_range::lysc_range_part const& part : sized(range->parts)) {
    if (!text.empty()) text += ' ';
    text += isSigned ? fmt::format("{}..{}", part.min_64, part.max_64)
                     : fmt::format("{}..{}", part.min_u64, part.max_u64);
  }
  return text;
}

class LeafRules final : public ValueRules {
public:
  LeafRules(ly_ctx const& context, lysc_node const& leaf, lysc_type const& type)
      : context_(context)
      , leaf_(leaf)
      , type_(type)
      , text_(rangeText(type)) {
    for (lysc_ext_instance const& extension : sized(type.exts)) {
      if (extension.def == nullptr || extension.def->name != kPosixPattern || extension.argument == nullptr)
        continue;
      auto pattern = std::make_unique<re2::RE2>(extension.argument, re2::RE2::Quiet);
      if (pattern->ok()) posix_.push_back(std::move(pattern));
    }
  }
  [[nodiscard]] bool hasPosix() const { return !posix_.empty(); }

  // Who writes the same keys again and again does not pay for their patterns each time.
  Kstd::Result<std::string, std::string> canonical(std::string_view text) const override {
    struct Known {
      LeafRules const* rules = nullptr;
      std::string text;
      std::string canonical;
    };
    constexpr std::size_t kKnown = 1024;
    constexpr std::size_t kLongest = 64;
    static thread_local std::vector<Known> known(kKnown);
    Known& one = known[absl::HashOf(this, text) % kKnown];
    if (one.rules == this && one.text == text) return one.canonical;
    auto found = checked(text);
    if (found && text.size() <= kLongest) one = {this, std::string(text), *found};
    return found;
  }
  std::string text() const override { return text_; }

private:
  Kstd::Result<std::string, std::string> checked(std::string_view text) const {
    auto held = stored(text);
    if (!held) return held;
    std::string canonical = *std::move(held);
    for (auto const& pattern : posix_)
      if (!re2::RE2::FullMatch(canonical, *pattern))
        return Kstd::Err(fmt::format("it does not match the pattern '{}'", pattern->pattern()));
    return canonical;
  }
  // As the type's own part of the schema library takes it.
  Kstd::Result<std::string, std::string> stored(std::string_view text) const {
    lyd_value value{};
    ly_err_item* error = nullptr;
    LY_ERR const fits = type_.plugin->store(&context_, &type_, text.data(), text.size(), 0, LY_VALUE_JSON,
                                            nullptr, LYD_HINT_DATA, &leaf_, &value, nullptr, &error);
    if (fits != LY_SUCCESS && fits != LY_EINCOMPLETE) { // the latter: what it points to is asked elsewhere
      std::string why = error == nullptr || error->msg == nullptr ? "the value does not fit" : error->msg;
      ly_err_free(error);
      return Kstd::Err(std::move(why));
    }
    std::string canonical = lyd_value_get_canonical(&context_, &value);
    type_.plugin->free(&context_, &value);
    return canonical;
  }

  ly_ctx const& context_;
  lysc_node const& leaf_;
  lysc_type const& type_;
  std::string const text_;
  std::vector<std::unique_ptr<re2::RE2>> posix_;
};

// Whether values of the type may be wrong, or spelt in several ways, where Kel's own type takes them.
bool needsRules(lysc_type const& type) {
  switch (type.basetype) {
  case LY_TYPE_BITS:
  case LY_TYPE_INST:
  case LY_TYPE_DEC64:
  case LY_TYPE_UNION: return true;
  case LY_TYPE_STRING:
  case LY_TYPE_BINARY:
  case LY_TYPE_INT8:
  case LY_TYPE_INT16:
  case LY_TYPE_INT32:
  case LY_TYPE_INT64:
  case LY_TYPE_UINT8:
  case LY_TYPE_UINT16:
  case LY_TYPE_UINT32:
  case LY_TYPE_UINT64: return rangeOf(type) != nullptr || !patternsOf(type).empty();
  case LY_TYPE_UNKNOWN:
  case LY_TYPE_BOOL:
  case LY_TYPE_EMPTY:
  case LY_TYPE_ENUM:
  case LY_TYPE_IDENT:
  case LY_TYPE_LEAFREF: break;
  }
  return false;
}

} // namespace

std::unique_ptr<ValueRules> leafRulesOf(ly_ctx const& context, lysc_node const& leaf, lysc_type const& type) {
  auto rules = std::make_unique<LeafRules>(context, leaf, type);
  if (!needsRules(type) && !rules->hasPosix()) return nullptr;
  return rules;
}

} // namespace Agent
