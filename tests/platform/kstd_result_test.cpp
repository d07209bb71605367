#include <string>

#include <gtest/gtest.h>

#include "Kstd/Result.h"

namespace {

using Kstd::Err;
using Kstd::Result;

Result<int, std::string> parseDigit(char c) {
  if (c < '0' || c > '9') {
    return Err("not a digit"); // converts to the error type
  }
  return c - '0';
}

TEST(KstdResult, HoldsEitherAValueOrAnError) {
  auto const good = parseDigit('7');
  ASSERT_TRUE(good.ok());
  EXPECT_EQ(good.value(), 7);
  EXPECT_EQ(good.valueOr(3), 7);

  auto const bad = parseDigit('x');
  ASSERT_FALSE(bad);
  EXPECT_EQ(bad.error(), "not a digit");
  EXPECT_EQ(bad.valueOr(3), 3);

  Result<int, std::string> const direct = std::string("no wrapper needed");
  EXPECT_FALSE(direct.ok());
}

TEST(KstdResult, EqualTypesStayApart) {
  using Text = Result<std::string, std::string>;
  Text const value = std::string("text");
  Text const error = Err(std::string("text"));
  EXPECT_TRUE(value.ok());
  EXPECT_FALSE(error.ok());
}

TEST(KstdResultDeathTest, TheWrongAlternativeAborts) {
  EXPECT_DEATH((void)parseDigit('x').value(), "holds an error");
  EXPECT_DEATH((void)parseDigit('1').error(), "holds a value");
}

} // namespace
