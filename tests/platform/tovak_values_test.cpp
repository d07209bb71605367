// The base library's small values: hash mixing.
#include <bit>
#include <memory>
#include <random>
#include <string>
#include <unordered_set>
#include <vector>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "Tovak/HashMix.h"

namespace {

using Tovak::Impl::HashMix;

std::uint64_t hashOf(std::vector<std::string> const& pieces) {
  std::uint64_t state = HashMix::stateStart;
  for (auto const& piece : pieces)
    HashMix::mix(state, piece);
  return state;
}

TEST(TovakHashMix, PiecesAreDelimited) {
  std::vector<std::vector<std::string>> const different = {
      {}, {""}, {"", ""}, {"a"}, {"a", ""}, {"", "a"}, {"ab", "c"}, {"a", "bc"}, {"abc"}, {"abc", ""}};
  std::unordered_set<std::uint64_t> seen;
  for (auto const& pieces : different)
    EXPECT_TRUE(seen.insert(hashOf(pieces)).second);
  std::uint64_t state = HashMix::stateStart;
  HashMix::mix(state, nullptr, 0);
  EXPECT_EQ(state, hashOf({""}));
}

// Whoever knows the state after the first piece can choose the last eight bytes of the second so that those
// before them do not count.
TEST(TovakHashMix, TheStateAfterAPieceIsNotTheSameInEveryProcess) {
  std::unordered_set<std::uint64_t> hashes;
  for (int i = 0; i < 1000; ++i) {
    std::uint64_t state = HashMix::stateStart;
    HashMix::mix(state, "k0003085");
    HashMix::mix(state, fmt::format("{:08}S+ 2P-Pp", i));
    hashes.insert(state);
  }
  EXPECT_EQ(hashes.size(), 1000U);
}

TEST(TovakHashMix, ReadsExactlyItsBytesWhereverTheyLie) {
  // Same bytes at different alignments and with different neighbours: same hash. Lengths across every branch.
  for (size_t len = 0; len <= 100; ++len) {
    std::string const bytes(len, '\x81');
    std::uint64_t const expected = hashOf({bytes});
    for (size_t shift = 0; shift < 8; ++shift) {
      std::vector<char> exact(shift, 'x'); // a block of its own: a sanitizer sees any read beyond
      exact.insert(exact.end(), bytes.begin(), bytes.end());
      std::uint64_t state = HashMix::stateStart;
      HashMix::mix(state, exact.data() + shift, len);
      ASSERT_EQ(state, expected) << "length " << len << " shift " << shift;
    }
  }
}

TEST(TovakHashMix, EveryInputBitMovesAboutHalfOfTheState) {
  constexpr unsigned seed = 20240229;
  std::mt19937_64 random(seed);
  for (size_t len : {1, 3, 4, 7, 8, 12, 16, 17, 33, 64}) {
    constexpr int rounds = 64;
    double flipped = 0;
    for (int round = 0; round < rounds; ++round) {
      std::string text(len, '\0');
      for (char& c : text)
        c = static_cast<char>(random());
      std::uint64_t const before = hashOf({text});
      for (size_t bit = 0; bit < len * 8; ++bit) {
        std::string changed = text;
        changed[bit / 8] = static_cast<char>(changed[bit / 8] ^ (1 << (bit % 8)));
        int const distance = std::popcount(before ^ hashOf({changed}));
        ASSERT_GT(distance, 8) << "seed " << seed << " length " << len << " bit " << bit;
        flipped += distance;
      }
    }
    EXPECT_NEAR(flipped / (rounds * static_cast<double>(len) * 8), 32, 1) << "length " << len;
  }
}

} // namespace
