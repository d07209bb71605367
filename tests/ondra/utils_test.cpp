#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <random>
#include <string>

#include "Ondra/KelGnmiUtils.h"

namespace {

namespace Utils = Ondra::KelGnmiUtils;

TEST(KelGnmiUtils, DoublesTravelAsBigEndianBytes) {
  EXPECT_EQ(Utils::encodeDoubleVal(1.0), std::string("\x3f\xf0\0\0\0\0\0\0", 8));
  EXPECT_EQ(Utils::decodeDoubleVal(std::string("\x3f\xf0\0\0\0\0\0\0", 8)), 1.0);
  EXPECT_EQ(Utils::decodeDoubleVal(std::string("\xc0\x5e\xdd\x2f\x1a\x9f\xbe\x77", 8)), -123.456);
  for (std::size_t const length : {0u, 7u, 9u})
    EXPECT_FALSE(Utils::decodeDoubleVal(std::string(length, 'x')).has_value()) << length;
  std::mt19937_64 random(7);
  for (int i = 0; i < 1000; ++i) { // NaN patterns included
    std::uint64_t const bits = random();
    auto const back = Utils::decodeDoubleVal(Utils::encodeDoubleVal(std::bit_cast<double>(bits)));
    ASSERT_EQ(std::bit_cast<std::uint64_t>(back.value()), bits);
  }
}

} // namespace
