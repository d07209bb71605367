// The hash of a path element, whatever its representation: what Ondra::PathElem and gnmi::PathElem agree on.
#pragma once

#include <cstdint>
#include <string_view>

#include "Tovak/HashMix.h"

namespace Ondra {

// Takes the name, then each key in any order: the hashes of the keys are summed up, so that their order is of
// no matter.
class ElemHash {
public:
  explicit ElemHash(std::string_view name) { Tovak::Impl::HashMix::mix(state_, name); }

  void key(std::string_view key, std::string_view value) {
    std::uint64_t one = Tovak::Impl::HashMix::stateStart;
    Tovak::Impl::HashMix::mix(one, key);
    Tovak::Impl::HashMix::mix(one, value);
    keys_ += one;
  }

  // An element without keys mixes nothing for them.
  [[nodiscard]] std::uint64_t value(bool hasKeys) const {
    std::uint64_t state = state_;
    if (hasKeys) Tovak::Impl::HashMix::mixFixedLen<8>(state, keys_);
    return state;
  }

private:
  std::uint64_t state_ = Tovak::Impl::HashMix::stateStart;
  std::uint64_t keys_ = 0;
};

} // namespace Ondra
