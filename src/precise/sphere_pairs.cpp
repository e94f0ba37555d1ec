#include "precise/sphere_pairs.h"

#include <cmath>

#include "numeric/lanes.h"
#include "precise/free_sums.h"

namespace metrofit::precise {
namespace {

METROFIT_PRECISE_INLINE DoublePair Abs(DoublePair v) {
  return MakePair(std::fabs(v[0]), std::fabs(v[1]));
}

// The sphere's sums, each a pair: the even points' in one lane, the odd points' in the other.
struct PairSums {
  DoublePair a[4][4] = {};
  DoublePair g[4] = {};
  DoublePair sum = {};
  DoublePair roundoff = {};

  METROFIT_PRECISE_INLINE void Add(const DoublePair q[3], const DoublePair n[3], DoublePair r,
                                   double sizes) {
    const DoublePair jr[4] = {-n[0], -n[1], -n[2], Splat(-1.0)};
    sum += r * r;
    roundoff += Abs(r) * (Abs(q[0]) + Abs(q[1]) + Abs(q[2]) + Splat(sizes));
    for (int i = 0; i < 4; ++i) g[i] += jr[i] * r;
    a[0][0] += jr[0] * jr[0];
    a[0][1] += jr[0] * jr[1];
    a[0][2] += jr[0] * jr[2];
    a[0][3] += jr[0] * jr[3];
    a[1][1] += jr[1] * jr[1];
    a[1][2] += jr[1] * jr[2];
    a[1][3] += jr[1] * jr[3];
    a[2][2] += jr[2] * jr[2];
    a[2][3] += jr[2] * jr[3];
    a[3][3] += jr[3] * jr[3];
  }
};

// Local coordinates of points k and k + 1, each lane as ToLocal.
METROFIT_PRECISE_INLINE void ToLocalPair(const State& s, const double* p, DoublePair q[3]) {
  const DoublePair dx = MakePair(p[0], p[3]) - s.c.x;
  const DoublePair dy = MakePair(p[1], p[4]) - s.c.y;
  const DoublePair dz = MakePair(p[2], p[5]) - s.c.z;
  q[0] = s.e1.x * dx + s.e1.y * dy + s.e1.z * dz;
  q[1] = s.e2.x * dx + s.e2.y * dy + s.e2.z * dz;
  q[2] = s.u.x * dx + s.u.y * dy + s.u.z * dz;
}

}  // namespace

double AccumulateSpherePairs(const Problem& problem, const State& s, Normal* ne) {
  if (!SphereSums::Matches(*ne)) return Accumulate<SphereModel>(problem, s, ne);
  const SphereModel model(s);
  const double radius = s.size[0] + s.offset;
  const double sizes = SphereSums::Sizes(s);
  PairSums pairs;
  const std::size_t even = problem.count - problem.count % 2;
  for (std::size_t k = 0; k < even; k += 2) {
    PrefetchAhead(problem.xyz, k, problem.count);
    DoublePair q[3], n[3];
    ToLocalPair(s, problem.xyz + 3 * k, q);
    const DoublePair d = Sqrt(q[0] * q[0] + q[1] * q[1] + q[2] * q[2]);
    if (d[0] > 0.0 && d[1] > 0.0) {
      const DoublePair inverse = 1.0 / d;
      for (int i = 0; i < 3; ++i) n[i] = q[i] * inverse;
    } else {
      // A point at the centre: SphereModel's normal, lane by lane.
      double n0[3], n1[3];
      const double q0[3] = {q[0][0], q[1][0], q[2][0]}, q1[3] = {q[0][1], q[1][1], q[2][1]};
      model.Deviation(q0, n0);
      model.Deviation(q1, n1);
      for (int i = 0; i < 3; ++i) n[i] = MakePair(n0[i], n1[i]);
    }
    pairs.Add(q, n, d - radius, sizes);
  }
  SphereSums sums;
  for (std::size_t k = even; k < problem.count; ++k) {
    double q[3];
    ToLocal(s, problem.xyz + 3 * k, q);
    sums.Add(model, q, sizes);
  }
  // The lanes and the last odd point together.
  for (int i = 0; i < 4; ++i) {
    sums.g[i] += pairs.g[i][0] + pairs.g[i][1];
    for (int j = i; j < 4; ++j) sums.a[i][j] += pairs.a[i][j][0] + pairs.a[i][j][1];
  }
  sums.sum += pairs.sum[0] + pairs.sum[1];
  sums.roundoff += pairs.roundoff[0] + pairs.roundoff[1];
  return sums.Store(ne);
}

}  // namespace metrofit::precise
