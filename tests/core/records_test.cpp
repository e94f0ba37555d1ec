#include <gtest/gtest.h>

#include "metrofit.h"

TEST(Records, DefaultInputHasSphereTypeAndReferenceFrame) {
  CFitInput in;
  EXPECT_EQ(in.m_fitType, FIT_SPHERE);
  EXPECT_TRUE(in.m_points.empty());
  EXPECT_EQ(in.m_refDirection, KPt3<double>(0, 0, 1));
  EXPECT_EQ(in.m_refSecondDirection, KPt3<double>(0, 1, 0));
}
