#include <gtest/gtest.h>

#include "metrofit.h"

namespace {

using P = KPt3<double>;

void ExpectAllModesZero(const CFitParam& p) {
  EXPECT_EQ(p.mode[0], 0);
  EXPECT_EQ(p.mode[1], 0);
  EXPECT_EQ(p.mode[2], 0);
  EXPECT_EQ(p.value, P(0, 0, 0));
}

TEST(Records, DefaultInputHasSphereTypeAndReferenceFrame) {
  CFitInput in;
  EXPECT_EQ(in.m_fitType, FIT_SPHERE);
  EXPECT_TRUE(in.m_points.empty());
  EXPECT_EQ(in.m_refDirection, KPt3<double>(0, 0, 1));
  EXPECT_EQ(in.m_refSecondDirection, KPt3<double>(0, 1, 0));
  EXPECT_EQ(in.m_refOrigin, P(0, 0, 0));
  EXPECT_EQ(in.m_refPoint, P(0, 0, 0));
  EXPECT_FALSE(in.m_useReference);
  EXPECT_EQ(in.m_probeRadius, 0.0);
  for (const CFitParam* p : {&in.m_centerParam, &in.m_axisParam, &in.m_angleParam, &in.m_size1Param,
                             &in.m_size2Param, &in.m_size3Param}) {
    ExpectAllModesZero(*p);
  }
}

CFitInput InputWithSettings() {
  CFitInput in;
  in.m_fitType = FIT_CYLINDER;
  for (int i = 0; i < 10; ++i) in.m_points.push_back(P(i, 2.0 * i, -i));
  in.m_refPoint = P(9, 9, 9);
  in.m_probeRadius = 1.5;
  in.m_refOrigin = P(1, 2, 3);
  in.m_refDirection = P(0, 1, 0);
  in.m_refSecondDirection = P(1, 0, 0);
  in.m_useReference = true;
  in.m_option1Enabled = true;
  in.m_option1Value = 4.0;
  in.m_centerParam.value = P(4, 5, 6);
  in.m_centerParam.mode[2] = 1;
  in.m_axisParam.value = P(0, 0, 2);
  in.m_axisParam.mode[0] = 2;
  in.m_size1Param.value = P(3.5, 0, 0);
  in.m_size1Param.mode[0] = 1;
  return in;
}

TEST(Records, CopyConstructedInputHasSettingsButNoPoints) {
  const CFitInput src = InputWithSettings();
  ASSERT_EQ(src.m_points.size(), 10u);
  const CFitInput copy(src);
  EXPECT_TRUE(copy.m_points.empty());
  EXPECT_EQ(copy.m_fitType, FIT_CYLINDER);
  EXPECT_EQ(copy.m_probeRadius, 1.5);
  EXPECT_EQ(copy.m_refOrigin, P(1, 2, 3));
  EXPECT_EQ(copy.m_refDirection, P(0, 1, 0));
  EXPECT_EQ(copy.m_refSecondDirection, P(1, 0, 0));
  EXPECT_TRUE(copy.m_useReference);
  EXPECT_TRUE(copy.m_option1Enabled);
  EXPECT_EQ(copy.m_option1Value, 4.0);
  EXPECT_EQ(copy.m_centerParam.value, P(4, 5, 6));
  EXPECT_EQ(copy.m_centerParam.mode[2], 1);
  EXPECT_EQ(copy.m_axisParam.mode[0], 2);
  EXPECT_EQ(copy.m_size1Param.value.x, 3.5);
  EXPECT_EQ(copy.m_size1Param.mode[0], 1);
  // The measurement is not part of the settings.
  EXPECT_EQ(copy.m_refPoint, P(0, 0, 0));
}

TEST(Records, InputAssignmentKeepsTargetMeasurement) {
  const CFitInput src = InputWithSettings();
  CFitInput dst;
  dst.m_points.push_back(P(7, 7, 7));
  dst.m_refPoint = P(-1, -1, -1);
  dst.m_givenStats = P(0.1, 0.2, 0.3);
  dst = src;
  ASSERT_EQ(dst.m_points.size(), 1u);
  EXPECT_EQ(dst.m_points[0], P(7, 7, 7));
  EXPECT_EQ(dst.m_refPoint, P(-1, -1, -1));
  EXPECT_EQ(dst.m_givenStats, P(0.1, 0.2, 0.3));
  EXPECT_EQ(dst.m_fitType, FIT_CYLINDER);
  EXPECT_EQ(dst.m_size1Param.value.x, 3.5);
  CFitInput& self = dst;
  dst = self;  // harmless
  EXPECT_EQ(dst.m_points.size(), 1u);
  EXPECT_EQ(dst.m_fitType, FIT_CYLINDER);
}

TEST(Records, ResultAssignmentKeepsTargetDeviationsAndCopiesMessage) {
  CFitResult src;
  src.m_center = P(1, 2, 3);
  src.m_size1 = P(4, 0, 0);
  src.m_valid = 1;
  src.m_iterations = 12;
  src.m_sigma = 0.25;
  src.m_message = "from the source";
  src.m_deviations.push_back(P(9, 9, 9));
  CFitResult dst;
  for (int i = 0; i < 5; ++i) dst.m_deviations.push_back(P(i, 0, 0));
  dst.m_extraValue = 42.0;
  dst = src;
  ASSERT_EQ(dst.m_deviations.size(), 5u);
  for (int i = 0; i < 5; ++i) EXPECT_EQ(dst.m_deviations[i], P(i, 0, 0));
  EXPECT_EQ(dst.m_message, "from the source");
  EXPECT_EQ(dst.m_extraValue, 42.0);
  EXPECT_EQ(dst.m_center, P(1, 2, 3));
  EXPECT_EQ(dst.m_size1.x, 4.0);
  EXPECT_EQ(dst.m_valid, 1);
  EXPECT_EQ(dst.m_iterations, 12);
  EXPECT_EQ(dst.m_sigma, 0.25);
  CFitResult& self = dst;
  dst = self;
  EXPECT_EQ(dst.m_message, "from the source");
}

TEST(Records, CopyConstructedResultStartsEmpty) {
  CFitResult src;
  src.m_valid = 1;
  src.m_size1 = P(3, 0, 0);
  src.m_message = "kept nowhere";
  src.m_deviations.push_back(P(1, 1, 1));
  const CFitResult copy(src);
  EXPECT_EQ(copy.m_valid, 0);
  EXPECT_EQ(copy.m_size1.x, 0.0);
  EXPECT_TRUE(copy.m_message.empty());
  EXPECT_TRUE(copy.m_deviations.empty());
}

TEST(Records, SeedingAssignmentCopiesNominalValuesOnly) {
  CFitInput in;
  in.m_size1Param.value = P(2.5, 0, 0);
  in.m_centerParam.value = P(1, 1, 1);
  in.m_axisParam.value = P(0, 2, 0);
  in.m_angleParam.value = P(0.1, 0.2, 0.3);
  in.m_size2Param.value = P(0, 6, 0);
  in.m_size3Param.value = P(0, 0, 7);
  CFitResult out;
  out.m_valid = 1;
  out.m_message = "earlier";
  out.m_deviations.assign(3, P(1, 2, 3));
  out = in;
  EXPECT_EQ(out.m_size1, P(2.5, 0, 0));
  EXPECT_EQ(out.m_center, P(1, 1, 1));
  EXPECT_EQ(out.m_axis, P(0, 2, 0));
  EXPECT_EQ(out.m_angles, P(0.1, 0.2, 0.3));
  EXPECT_EQ(out.m_size2, P(0, 6, 0));
  EXPECT_EQ(out.m_size3, P(0, 0, 7));
  EXPECT_EQ(out.m_valid, 1);
  EXPECT_EQ(out.m_message, "earlier");
  EXPECT_EQ(out.m_deviations.size(), 3u);
}

}  // namespace
