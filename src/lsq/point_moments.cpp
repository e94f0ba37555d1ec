#include "lsq/point_moments.h"

namespace metrofit {

void PointMoments::Collect(const std::vector<KPt3<double>>& points, const KPt3<double> (&rows)[3]) {
  for (int k = 0; k < 3; ++k) frame[k] = rows[k];
  count = points.size();
  ready = true;
  for (auto& row : S)
    for (double& v : row) v = 0.0;
  if (count == 0) {
    mean = KPt3<double>();
    return;
  }
  // Relative to the first point: differences of nearby coordinates are exact or nearly so.
  const KPt3<double> origin = points[0];
  double s0 = 0.0, s1 = 0.0, s2 = 0.0;
  double s00 = 0.0, s01 = 0.0, s02 = 0.0, s11 = 0.0, s12 = 0.0, s22 = 0.0;
  for (const KPt3<double>& p : points) {
    const KPt3<double> d = p - origin;
    const double e0 = frame[0].Dot(d), e1 = frame[1].Dot(d), e2 = frame[2].Dot(d);
    s0 += e0;
    s1 += e1;
    s2 += e2;
    s00 += e0 * e0;
    s01 += e0 * e1;
    s02 += e0 * e2;
    s11 += e1 * e1;
    s12 += e1 * e2;
    s22 += e2 * e2;
  }
  const double n = static_cast<double>(count);
  const double m0 = s0 / n, m1 = s1 / n, m2 = s2 / n;
  S[0][0] = s00 - s0 * m0;
  S[0][1] = S[1][0] = s01 - s0 * m1;
  S[0][2] = S[2][0] = s02 - s0 * m2;
  S[1][1] = s11 - s1 * m1;
  S[1][2] = S[2][1] = s12 - s1 * m2;
  S[2][2] = s22 - s2 * m2;
  mean = origin + frame[0] * m0 + frame[1] * m1 + frame[2] * m2;
}

}  // namespace metrofit
