// Random paths for tests, with a plain model of each to judge by.
#pragma once

#include <algorithm>
#include <cstddef>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "Ondra/Path.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace OndraTest {

struct PlainElem {
  std::string name;
  std::map<std::string, std::string> keys;
  friend bool operator==(PlainElem const&, PlainElem const&) = default;
};
using PlainPath = std::vector<PlainElem>;

// All choices come from the seed.
class PathSamples {
public:
  explicit PathSamples(unsigned seed) : random_(seed) {}

  std::size_t below(std::size_t bound) { return random_() % bound; }

  // `few`: out of so few texts that equal elements meet; otherwise of any bytes.
  PlainPath plain(bool few) {
    PlainPath path(below(few ? 4 : 7));
    for (PlainElem& elem : path)
      elem = plainElem(few);
    return path;
  }

  PlainElem plainElem(bool few) {
    PlainElem elem{text(few), {}};
    for (std::size_t keys = below(few ? 3 : 12), i = 0; i < keys; ++i)
      elem.keys[text(few)] = text(few);
    return elem;
  }

  std::string text(bool few) {
    static std::vector<std::string> const words{"", "a", "b", "interface-state-counters", "[x]"};
    if (few) return words[below(words.size())];
    std::string bytes(below(40), '\0');
    for (char& c : bytes)
      c = static_cast<char>(random_());
    return bytes;
  }

  // The keys enter in random order.
  Kel::Ptr<Ondra::Path> path(PlainPath const& plain) {
    Kel::Ptr<Ondra::Path> path = Ondra::Path::PathIs();
    for (PlainElem const& from : plain) {
      Kel::Ptr<Ondra::PathElem> const elem = path->addElem();
      elem->nameIs(from.name);
      for (auto const& [key, value] : shuffled(from))
        elem->keyIs(key, value);
    }
    return path;
  }

  gnmi::Path gnmiPath(PlainPath const& plain) {
    gnmi::Path path;
    for (PlainElem const& from : plain) {
      gnmi::PathElem& elem = *path.add_elem();
      elem.set_name(from.name);
      for (auto const& [key, value] : shuffled(from))
        (*elem.mutable_key())[key] = value;
    }
    return path;
  }

private:
  std::vector<std::pair<std::string, std::string>> shuffled(PlainElem const& elem) {
    std::vector<std::pair<std::string, std::string>> keys(elem.keys.begin(), elem.keys.end());
    std::shuffle(keys.begin(), keys.end(), random_);
    return keys;
  }

  std::mt19937 random_;
};

inline PlainPath plainOf(Ondra::Path const& path) {
  PlainPath plain;
  for (auto const& elem : path.elems()) {
    plain.push_back({elem->name().str(), {}});
    for (auto const& node : elem->key())
      plain.back().keys[node.key.str()] = node.value.str();
  }
  return plain;
}

inline PlainPath plainOf(gnmi::Path const& path) {
  PlainPath plain;
  for (gnmi::PathElem const& elem : path.elem())
    plain.push_back({elem.name(), {elem.key().begin(), elem.key().end()}});
  return plain;
}

} // namespace OndraTest
