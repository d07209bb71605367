// Element by element, a prefix first: by name, then by the keys sorted, with a short way for elements of one
// key.
#include "Ondra/paths/PathOrder.h"

#include <algorithm>
#include <boost/container/small_vector.hpp>
#include <string_view>
#include <utility>

namespace Ondra {
namespace {

using Fields = boost::container::small_vector<std::pair<std::string_view, std::string_view>, 4>;

Fields fieldsOf(PathElem const& elem) {
  Fields fields;
  for (auto const& [key, value] : elem.key())
    fields.emplace_back(key.view(), value.view());
  std::sort(fields.begin(), fields.end());
  return fields;
}

// By their texts: a walk goes through the members of a collection in nearly that order, so that what it
// enters one after the other comes to lie side by side.
int compareElems(PathElem const& a, PathElem const& b) {
  if (&a == &b) return 0;
  if (!(a.name() == b.name())) return a.name().view() < b.name().view() ? -1 : 1;
  if (a.key().size() == 1 && b.key().size() == 1) [[likely]] {
    auto const& left = *a.key().begin();
    auto const& right = *b.key().begin();
    if (left.key == right.key) return left.value.view().compare(right.value.view());
  }
  Fields const left = fieldsOf(a);
  Fields const right = fieldsOf(b);
  return left < right ? -1 : right < left ? 1 : 0;
}

} // namespace

int comparePaths(Path const& a, Path const& b) {
  auto const left = a.elems();
  auto const right = b.elems();
  std::size_t const common = std::min(left.size(), right.size());
  for (std::size_t i = 0; i < common; ++i)
    if (int const order = compareElems(*left[i], *right[i]); order != 0) return order;
  return left.size() < right.size() ? -1 : left.size() > right.size() ? 1 : 0;
}

} // namespace Ondra
