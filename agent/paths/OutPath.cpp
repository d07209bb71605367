// The encoding of paths as bytes and back, and what can be asked of two such strings: above, below, what they
// share.
#include "agent/paths/OutPath.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "Tovak/Assert.h"
#include "Tovak/DebugHandler.h"
#include "agent/paths/Pattern.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace Agent {
namespace {

constexpr char kEscape = '\x03'; // before the bytes up to itself, which then are moved up

void appendEscaped(std::string& to, std::string_view text) {
  for (char const byte : text) {
    if (static_cast<unsigned char>(byte) <= static_cast<unsigned char>(kEscape)) {
      to += kEscape;
      to += static_cast<char>(byte + '0');
    } else {
      to += byte;
    }
  }
}

void appendKey(std::string& to, std::string_view name, std::string_view value) {
  to += kKeyStart;
  appendEscaped(to, name);
  to += kKeyStart;
  appendEscaped(to, value);
}

} // namespace

void appendElemBytes(std::string& to, gnmi::PathElem const& elem) {
  appendEscaped(to, elem.name());
  if (elem.key_size() == 1) {
    appendKey(to, elem.key().begin()->first, elem.key().begin()->second);
  } else if (elem.key_size() > 1) {
    std::vector<std::pair<std::string_view, std::string_view>> keys(elem.key().begin(), elem.key().end());
    std::ranges::sort(keys);
    for (auto const& [name, value] : keys)
      appendKey(to, name, value);
  }
  to += kElemEnd;
}

std::string pathBytes(PathView const& path) {
  std::string bytes;
  for (std::size_t i = 0; i < path.size(); ++i)
    appendElemBytes(bytes, path[i]);
  return bytes;
}

gnmi::Path pathOfBytes(std::string_view bytes) {
  TOVAK_ASSERT(bytes.empty() || bytes.back() == kElemEnd,
               Tovak::Platform::getDebugHandler("OndraAgent", false), "bytes that are no path's");
  gnmi::Path path;
  gnmi::PathElem* elem = nullptr;
  std::string text; // up to the next mark
  std::string keyName;
  std::size_t texts = 0; // of the element: its name, then names and values of keys in turn
  auto const endText = [&] {
    if (elem == nullptr) elem = path.add_elem();
    if (texts == 0)
      elem->set_name(text);
    else if (texts % 2 == 1)
      keyName = text;
    else
      (*elem->mutable_key())[keyName] = text;
    ++texts;
    text.clear();
  };
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    switch (bytes[i]) {
    case kElemEnd:
      endText();
      elem = nullptr;
      texts = 0;
      break;
    case kKeyStart: endText(); break;
    case kEscape: text += static_cast<char>(bytes[++i] - '0'); break;
    default: text += bytes[i]; break;
    }
  }
  return path;
}

bool bytesAtOrBelow(std::string_view ancestor, std::string_view bytes) {
  if (ancestor.empty()) return true;
  std::string_view const stem = ancestor.substr(0, ancestor.size() - 1);
  if (!bytes.starts_with(stem) || bytes.size() == stem.size()) return false;
  char const next = bytes[stem.size()];
  if (next == kElemEnd) return true;
  // The last element of the ancestor has no keys when no key starts after its name.
  std::size_t const nameAt = stem.rfind(kElemEnd) == std::string_view::npos ? 0 : stem.rfind(kElemEnd) + 1;
  return next == kKeyStart && stem.find(kKeyStart, nameAt) == std::string_view::npos;
}

std::string_view bytesAbove(std::string_view bytes) {
  std::size_t const end = bytes.empty() ? bytes.npos : bytes.substr(0, bytes.size() - 1).rfind(kElemEnd);
  return bytes.substr(0, end == bytes.npos ? 0 : end + 1);
}

std::string_view commonBytes(std::string_view a, std::string_view b) {
  while (!bytesAtOrBelow(a, b))
    a = bytesAbove(a);
  return a;
}

void outPrefixIs(gnmi::Path& prefix, std::string_view origin, std::string_view target) {
  if (prefix.elem_size() > 0) prefix.mutable_elem()->DeleteSubrange(0, 1);
  prefix.set_origin(std::string(origin));
  prefix.set_target(std::string(target));
}

} // namespace Agent
