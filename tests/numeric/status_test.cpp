// Status of the numeric core: the numbers its routines have always returned.
#include "numeric/status.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <type_traits>

namespace metrofit::numeric {
namespace {

static_assert(std::is_same_v<std::underlying_type_t<NumericStatus>, std::int32_t>);

TEST(NumericStatus, KeepsItsNumbers) {
  EXPECT_EQ(static_cast<int>(NumericStatus::kOk), 0);
  EXPECT_EQ(static_cast<int>(NumericStatus::kIterationLimit), 1);
  EXPECT_EQ(static_cast<int>(NumericStatus::kBadArguments), 2);
  EXPECT_EQ(static_cast<int>(NumericStatus::kAllocationFailure), 3);
  EXPECT_EQ(static_cast<int>(NumericStatus::kCopyFailed), 1);
}

}  // namespace
}  // namespace metrofit::numeric
