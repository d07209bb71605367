// Each event of the parser is written down at once: a document is never held twice.
#include "agent/yang/PlainJson.h"

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include <absl/container/flat_hash_set.h>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "agent/yang/CountingLines.h"

namespace Agent {
namespace {

constexpr std::size_t kMaxDepth = 256; // of objects and arrays within each other

// The parser's events; the names of its methods are the parser's. What is written stands in the line in which
// it was read.
class Rewriter {
public:
  explicit Rewriter(LinesRead const& read) : read_(read) {}

  std::string text;
  std::string fault;

  bool null() { return value("null"); }
  bool boolean(bool is) { return value(is ? "true" : "false"); }
  bool number_integer(std::int64_t number) { return value(fmt::format("{}", number), read_.beforeNumber()); }
  bool number_unsigned(std::uint64_t number) {
    return value(fmt::format("{}", number), read_.beforeNumber());
  }
  bool number_float(double, std::string const& written) { return value(written, read_.beforeNumber()); }
  bool string(std::string& content) { return value(nlohmann::json(content).dump()); }
  bool binary(nlohmann::json::binary_t&) { return false; }
  bool start_object(std::size_t) { return open('{'); }
  bool end_object() { return close('}'); }
  bool start_array(std::size_t) { return open('['); }
  bool end_array() { return close(']'); }
  bool key(std::string& name) {
    if (!levels_.back().names.insert(name).second)
      return failed(fmt::format("member '{}' is there twice", name));
    separate(read_.count);
    text += nlohmann::json(name).dump() + ':';
    isAfterName_ = true;
    return true;
  }
  bool parse_error(std::size_t, std::string const&, nlohmann::json::exception const& error) {
    return failed(error.what());
  }

private:
  struct Level {
    bool isFirst = true;
    absl::flat_hash_set<std::string> names;
  };

  bool failed(std::string what) {
    fault = std::move(what);
    return false;
  }
  void separate(std::size_t linesBefore) {
    if (!levels_.empty() && !std::exchange(levels_.back().isFirst, false)) text += ',';
    for (; lines_ < linesBefore; ++lines_)
      text += '\n';
  }
  bool value(std::string_view written) { return value(written, read_.count); }
  bool value(std::string_view written, std::size_t linesBefore) {
    if (!isAfterName_) separate(linesBefore);
    isAfterName_ = false;
    text += written;
    return true;
  }
  bool open(char mark) {
    if (levels_.size() == kMaxDepth) return failed(fmt::format("more than {} levels of nesting", kMaxDepth));
    value(std::string_view(&mark, 1));
    levels_.emplace_back();
    return true;
  }
  bool close(char mark) {
    levels_.pop_back();
    text += mark;
    return true;
  }

  LinesRead const& read_;
  std::size_t lines_ = 0; // written
  std::vector<Level> levels_;
  bool isAfterName_ = false;
};

} // namespace

Kstd::Result<std::string, std::string> plainJson(std::string_view text) {
  LinesRead read;
  Rewriter rewriter(read);
  CountingLines const begin(text.data(), read), end(text.data() + text.size(), read);
  if (!nlohmann::json::sax_parse(begin, end, &rewriter)) return Kstd::Err(rewriter.fault);
  return std::move(rewriter.text);
}

} // namespace Agent
