// Status of the extended fits: its numbers, the mapping from the numeric core's status and the
// mapping to the exported m_valid.
#include "extended/extended_status.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <type_traits>

namespace metrofit {
namespace {

using numeric::NumericStatus;

static_assert(std::is_same_v<std::underlying_type_t<ExtendedStatus>, std::int32_t>);

TEST(ExtendedStatus, KeepsItsNumbers) {
  EXPECT_EQ(static_cast<int>(ExtendedStatus::kOk), 0);
  EXPECT_EQ(static_cast<int>(ExtendedStatus::kResourceFailure), 1);
  EXPECT_EQ(static_cast<int>(ExtendedStatus::kDegeneratePoints), 2);
  EXPECT_EQ(static_cast<int>(ExtendedStatus::kCircleNumericFailure), 3);
  EXPECT_EQ(static_cast<int>(ExtendedStatus::kAllocationFailure), 131);
  EXPECT_EQ(static_cast<int>(ExtendedStatus::kNumericFailure), 138);
  EXPECT_EQ(static_cast<int>(ExtendedStatus::kEnclosingSphereFailed), 162);
}

TEST(ExtendedStatus, NumericStatusMapsToAllocationOrNumericFailure) {
  EXPECT_EQ(ToExtendedStatus(NumericStatus::kOk), ExtendedStatus::kOk);
  EXPECT_EQ(ToExtendedStatus(NumericStatus::kAllocationFailure),
            ExtendedStatus::kAllocationFailure);
  EXPECT_EQ(ToExtendedStatus(NumericStatus::kIterationLimit), ExtendedStatus::kNumericFailure);
  EXPECT_EQ(ToExtendedStatus(NumericStatus::kBadArguments), ExtendedStatus::kNumericFailure);
}

TEST(ExtendedStatus, OnlySuccessIsValid) {
  EXPECT_EQ(ValidFlag(ExtendedStatus::kOk), 1);
  for (ExtendedStatus s :
       {ExtendedStatus::kResourceFailure, ExtendedStatus::kDegeneratePoints,
        ExtendedStatus::kCircleNumericFailure, ExtendedStatus::kAllocationFailure,
        ExtendedStatus::kNumericFailure, ExtendedStatus::kEnclosingSphereFailed}) {
    EXPECT_EQ(ValidFlag(s), 0) << static_cast<int>(s);
  }
}

}  // namespace
}  // namespace metrofit
