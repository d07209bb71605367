// Printing goes by templates over both representations; the parser asserts what it expects; equality and hash
// ignore the order of keys.
#include "Ondra/GnmiPath.h"

#include <absl/container/inlined_vector.h>
#include <absl/strings/ascii.h>
#include <fmt/format.h>

#include <algorithm>
#include <span>
#include <utility>

#include "Kstd/SameText.h"
#include "Ondra/PathFormat.h"
#include "Ondra/paths/ElemHash.h"
#include "Tovak/Assert.h"
#include "Tovak/Trace.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace Ondra {
namespace {

Tovak::DebugHandler& debugHandler() {
  static Tovak::DebugHandler& handler = Tovak::Platform::getDebugHandler("OndraPath", false);
  return handler;
}

// --- both representations, seen alike ------------------------------------------------------------

std::string_view nameOf(PathElem const& elem) { return elem.name().view(); }
std::string_view nameOf(gnmi::PathElem const& elem) { return elem.name(); }
std::size_t keyCount(PathElem const& elem) { return elem.key().size(); }
std::size_t keyCount(gnmi::PathElem const& elem) { return elem.key().size(); }

template <class Take>
void eachKey(PathElem const& elem, Take const& take) {
  for (PathElem::KeyMapType::Node const& node : elem.key())
    take(node.key.view(), node.value.view());
}
template <class Take>
void eachKey(gnmi::PathElem const& elem, Take const& take) {
  for (auto const& [key, value] : elem.key())
    take(std::string_view(key), std::string_view(value));
}

// --- printing ------------------------------------------------------------------------------------

struct KeyGroup {
  std::string_view key;
  std::string_view value;

  [[nodiscard]] std::size_t size() const { return key.size() + value.size() + 3; }
  void appendTo(std::string& out) const {
    out.append(1, '[').append(key).append(1, '=').append(value).append(1, ']');
  }

  // Groups are ordered by their whole texts, in which a key name ends with '=': "[a-b=1]" comes before
  // "[a=1]".
  friend bool operator<(KeyGroup const& a, KeyGroup const& b) {
    std::size_t const common = std::min(a.key.size(), b.key.size());
    int const order = a.key.substr(0, common).compare(b.key.substr(0, common));
    if (order != 0) return order < 0;
    for (std::size_t at = common; at < a.size() - 1 && at < b.size() - 1; ++at) {
      unsigned char const left = a.after(at), right = b.after(at);
      if (left != right) return left < right;
    }
    return a.size() < b.size();
  }

private:
  // The character of the group's text after its opening bracket.
  [[nodiscard]] unsigned char after(std::size_t at) const {
    if (at < key.size()) return static_cast<unsigned char>(key[at]);
    if (at == key.size()) return '=';
    at -= key.size() + 1;
    return static_cast<unsigned char>(at < value.size() ? value[at] : ']');
  }
};

template <class Elem>
std::size_t textSize(Elem const& elem) {
  std::size_t size = nameOf(elem).size();
  eachKey(elem, [&size](std::string_view key, std::string_view value) {
    size += KeyGroup{key, value}.size();
  });
  return size;
}

template <class Elem>
void appendElem(std::string& out, Elem const& elem) {
  out.append(nameOf(elem));
  if (keyCount(elem) < 2) {
    eachKey(elem, [&out](std::string_view key, std::string_view value) {
      KeyGroup{key, value}.appendTo(out);
    });
    return;
  }
  absl::InlinedVector<KeyGroup, 8> groups;
  eachKey(elem, [&groups](std::string_view key, std::string_view value) { groups.push_back({key, value}); });
  std::sort(groups.begin(), groups.end());
  for (KeyGroup const& group : groups)
    group.appendTo(out);
}

// `at` gives the element of an index below `count`.
template <class ElemAt>
std::string print(std::size_t count, ElemAt const& at, std::size_t start, bool leadingSep,
                  std::string_view sep) {
  std::string out;
  if (start >= count) return out;
  std::size_t size = (count - start) * sep.size();
  for (std::size_t i = start; i < count; ++i)
    size += textSize(at(i));
  out.reserve(size);
  for (std::size_t i = start; i < count; ++i) {
    if (i != start || leadingSep) out.append(sep);
    appendElem(out, at(i));
  }
  return out;
}

std::string print(Path const& path, std::size_t start, bool leadingSep, std::string_view sep) {
  auto const elems = path.elems();
  return print(
      elems.size(), [elems](std::size_t i) -> PathElem const& { return *elems[i]; }, start, leadingSep, sep);
}

} // namespace

std::string pathToStrImpl(Kel::Ptr<Path const> const& path, std::size_t start, bool leadingSep,
                          char const* sep) {
  return print(*path, start, leadingSep, sep);
}

std::string pathToStrImpl(gnmi::Path const& path, int start, bool leadingSep, char const* sep) {
  return print(
      static_cast<std::size_t>(path.elem_size()),
      [&path](std::size_t i) -> gnmi::PathElem const& { return path.elem(static_cast<int>(i)); },
      static_cast<std::size_t>(start), leadingSep, sep);
}

std::string pathToStr(gnmi::Path const& path, int start, bool leadingSep) {
  return pathToStrImpl(path, start, leadingSep, "/");
}

Tovak::String pathElemToStr(gnmi::PathElem const& elem) {
  Tovak::String out;
  out.reserve(textSize(elem));
  appendElem(out, elem);
  return out;
}

std::string Path::toString() const { return print(*this, 0, true, "/"); }
std::string Path::toKeyString() const { return print(*this, 0, false, "__"); }
std::string Path::toSubString(std::size_t start, bool leadingSep) const {
  return print(*this, start, leadingSep, "/");
}

// --- parsing -------------------------------------------------------------------------------------

std::string parseKeyName(std::string_view const& text, std::size_t& pos) {
  std::string_view const rest = text.substr(std::min(pos, text.size()));
  TOVAK_ASSERT(!rest.empty() && absl::ascii_isalpha(static_cast<unsigned char>(rest.front())), debugHandler(),
               "string '{}' should start with an alpha character, got {}", text, rest.substr(0, 1));
  std::size_t const end = rest.find('=');
  TOVAK_ASSERT(end != std::string_view::npos, debugHandler(), "reached end of path '{}' without finding '='",
               text);
  pos += end + 1;
  return std::string(rest.substr(0, end));
}

std::string parseValForKey(std::string_view const& text, std::size_t& pos) {
  std::string value;
  int depth = 1;
  std::size_t run = pos; // what is taken as it is, up to `pos`
  for (; pos < text.size(); ++pos) {
    char const c = text[pos];
    if (c == '\\') {
      value.append(text, run, pos - run);
      run = ++pos; // the next run begins with the escaped character, which is not looked at
      TOVAK_ASSERT(pos < text.size(), debugHandler(), "path '{}' contains a trailing backslash", text);
    } else if (c == '[') {
      ++depth;
    } else if (c == ']' && --depth == 0) {
      value.append(text, run, pos - run);
      return value;
    }
  }
  Tovak::fmassert(debugHandler(), __FILE__, __func__, __LINE__, "depth == 0",
                  "reached end of path '{}' without finding ']'", text);
}

// A run of name characters becomes the name where it ends: at a key, at the end of the element. A later run
// replaces an earlier.
void parseElem(std::string_view const& text, std::size_t& pos, Kel::Ptr<PathElem> elem) {
  std::size_t run = pos;
  auto const nameIsRun = [&] {
    if (pos != run) elem->nameIs(Kel::String::dedup(text.substr(run, pos - run)));
  };
  while (pos < text.size() && text[pos] != '/') {
    if (text[pos] != '[') {
      ++pos;
      continue;
    }
    nameIsRun();
    ++pos;
    std::string const key = parseKeyName(text, pos);
    std::string const value = parseValForKey(text, pos);
    elem->keyIs(Kel::String::dedup(key), Kel::String::dedup(value));
    run = ++pos;
  }
  nameIsRun();
}

Kel::Ptr<Path> Path::strToPathIs(std::string_view const& text) {
  Kel::Ptr<Path> path = PathIs();
  std::size_t pos = text.starts_with('/') ? 1 : 0;
  while (pos < text.size()) {
    parseElem(text, pos, path->addElem());
    ++pos;
  }
  return path;
}

// --- gNMI messages -------------------------------------------------------------------------------

Kel::Ptr<Path> Path::gnmiPathIs(gnmi::Path const& gnmiPath) {
  Kel::Ptr<Path> path = PathIs();
  path->elem_.reserve(static_cast<std::size_t>(gnmiPath.elem_size()));
  for (gnmi::PathElem const& from : gnmiPath.elem()) {
    Kel::Ptr<PathElem> const elem = path->addElem();
    elem->nameIs(Kel::String::dedup(from.name()));
    for (auto const& [key, value] : from.key())
      elem->keyIs(Kel::String::dedup(key), Kel::String::dedup(value));
  }
  return path;
}

namespace {

// Ends the process where there is no memory: messages do not survive that.
void fill(gnmi::Path& to, std::span<Kel::Ptr<PathElem const> const> elems) noexcept {
  to.mutable_elem()->Reserve(static_cast<int>(elems.size()));
  for (Kel::Ptr<PathElem const> const& from : elems) {
    gnmi::PathElem* const elem = to.add_elem();
    elem->mutable_name()->assign(from->name().view());
    eachKey(*from, [elem](std::string_view key, std::string_view value) {
      (*elem->mutable_key())[std::string(key)].assign(value);
    });
  }
}

} // namespace

void Path::copyToGnmiPath(gnmi::Path* gnmiPath) const {
  TOVAK_ASSERT(gnmiPath->elem_size() == 0, debugHandler(), "expected gnmiPath:{} to be empty", *gnmiPath);
  fill(*gnmiPath, elems());
}

bool Path::isNotifPrefix(Kel::Ptr<Path const> const& prefix, gnmi::Notification const& notification) {
  return isPrefix(prefix, gnmiPathIs(notification.prefix()));
}

} // namespace Ondra

bool gnmi::operator==(gnmi::PathElem const& a, gnmi::PathElem const& b) {
  if (&a == &b) return true;
  auto const& keys = a.key();
  auto const& others = b.key();
  std::size_t const size = keys.size();
  if (!Kstd::sameText(a.name(), b.name()) || size != others.size()) return false;
  if (size == 0) return true;
  if (size == 1) { // most often: no look-up
    auto const& [key, value] = *keys.begin();
    auto const& [otherKey, otherValue] = *others.begin();
    return Kstd::sameText(value, otherValue) && Kstd::sameText(key, otherKey);
  }
  return std::all_of(keys.begin(), keys.end(), [&others](auto const& entry) {
    auto const twin = others.find(entry.first);
    return twin != others.end() && twin->second == entry.second;
  });
}

std::size_t std::hash<gnmi::PathElem>::operator()(gnmi::PathElem const& elem) const {
  Ondra::ElemHash mixed(elem.name());
  auto const& keys = elem.key();
  for (auto const& [key, value] : keys)
    mixed.key(key, value);
  return mixed.value(!keys.empty());
}
