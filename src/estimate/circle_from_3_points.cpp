// The circle through three points P0, P1, P2. With a = P0 - P1, b = P2 - P1 the plane normal is
// N = a x b, and the centre m satisfies
//   a . m = (|P0|^2 - |P1|^2) / 2,  b . m = (|P2|^2 - |P1|^2) / 2,  N . m = N . P1,
// the first two saying m is as far from P0 (P2) as from P1, the third that m lies in the plane.
// The radius is |P0 - m|.
#include "estimate/estimate_common.h"
#include "estimate/point_selection.h"

namespace metrofit {
namespace {

// A normal shorter than this means collinear or coincident points: their plane is undefined,
// so the circle is put in a plane normal to z instead.
constexpr double kMinNormalLength = 1e-5;

}  // namespace

void CircleFrom3Points(const KPt3<double>& p0, const KPt3<double>& p1, const KPt3<double>& p2,
                       KPt3<double>* centre, KPt3<double>* normal, double* radius) {
  const KPt3<double> a = p0 - p1;
  const KPt3<double> b = p2 - p1;
  KPt3<double> n = a.Cross(b);
  if (n.Length() < kMinNormalLength) n = KPt3<double>(0.0, 0.0, 1.0);
  n.Normalize();

  WorkMatrix<3, 3> m;
  WorkMatrix<3, 1> rhs;
  const KPt3<double> rows[3] = {a, b, n};
  for (int i = 0; i < 3; ++i) {
    m.rows()[i][0] = rows[i].x;
    m.rows()[i][1] = rows[i].y;
    m.rows()[i][2] = rows[i].z;
  }
  rhs.rows()[0][0] = (p0.Dot(p0) - p1.Dot(p1)) / 2.0;
  rhs.rows()[1][0] = (p2.Dot(p2) - p1.Dot(p1)) / 2.0;
  rhs.rows()[2][0] = n.Dot(p1);
  // The status is not examined: with a singular system the partly reduced right-hand side
  // stands as the centre, and the iteration that follows copes with a poor start.
  mSolveLinear(m.rows(), 3, rhs.rows(), 1);

  *centre = KPt3<double>(rhs.at(0, 0), rhs.at(1, 0), rhs.at(2, 0));
  *normal = n;
  *radius = (p0 - *centre).Length();
}

}  // namespace metrofit
