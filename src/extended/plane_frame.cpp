// Plane frame of the extended circle fit; see plane_frame.h.
#include "extended/plane_frame.h"

#include <cmath>

#include "numeric/compensated.h"

namespace metrofit::numeric {
namespace {

// Squared normal length above which the normalisation divides by the length itself.
constexpr double kSquaredLengthFloor = 1e-8;
// Divisor below which the normalisation divides by 1 instead.
constexpr double kTinyDivisor = 1e-20;
// Below this in-plane length of the normal there is no rotation to build.
constexpr double kMinRotationLength = 1e-8;

thread_local PlaneFrame t_frame;

void SetIdentity(double m[3][3]) {
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j) m[i][j] = i == j ? 1.0 : 0.0;
}

// In-plane indices (a, b) of the dominant axis k.
void InPlaneIndices(std::int32_t k, int* a, int* b) {
  *a = k == 0 ? 1 : 0;
  *b = k == 2 ? 1 : 2;
}

}  // namespace

PlaneFrame& ThreadPlaneFrame() {
  return t_frame;
}

std::int32_t DominantAxis(const double* n, std::int32_t previous) {
  std::int32_t k = previous;
  double best = std::fabs(n[0]);
  if (best > 0.0) k = 0;
  if (std::fabs(n[1]) > best) {
    best = std::fabs(n[1]);
    k = 1;
  }
  if (std::fabs(n[2]) > best) k = 2;
  return k;
}

void GuardedNormalise(const double* n, double* m) {
  const double s = n[0] * n[0] + n[1] * n[1] + n[2] * n[2];
  double len = s > kSquaredLengthFloor ? std::sqrt(s) : s;
  if (len < kTinyDivisor) len = 1.0;
  for (int i = 0; i < 3; ++i) m[i] = n[i] / len;
}

void ToPlaneFrame(PointSet* points, const NVector& params) {
  PlaneFrame& f = t_frame;
  SetIdentity(f.rotation);
  SetIdentity(f.inverse);

  const double normal[3] = {params[3], params[4], params[5]};
  const std::int32_t k = DominantAxis(normal, f.k);
  f.k = k;
  int a = 0;
  int b = 0;
  InPlaneIndices(k, &a, &b);

  double m[3];
  GuardedNormalise(normal, m);
  const double h = std::sqrt(m[a] * m[a] + m[k] * m[k]);
  if (h < kMinRotationLength) return;

  double u[3];
  u[a] = m[k] / h;
  u[k] = -m[a] / h;
  u[b] = 0.0;
  const double w[3] = {m[1] * u[2] - m[2] * u[1], m[2] * u[0] - m[0] * u[2],
                       m[0] * u[1] - m[1] * u[0]};
  for (int j = 0; j < 3; ++j) {
    f.rotation[a][j] = u[j];
    f.rotation[k][j] = m[j];
    f.rotation[b][j] = w[j];
  }
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j) f.inverse[i][j] = f.rotation[j][i];

  const std::int32_t count = points != nullptr ? points->count : 0;
  KahanSum sum[3];
  for (std::int32_t i = 0; i < count; ++i) {
    double* p = points->Point(i);
    double q[3];
    for (int r = 0; r < 3; ++r)
      q[r] = f.rotation[r][0] * p[0] + f.rotation[r][1] * p[1] + f.rotation[r][2] * p[2];
    for (int r = 0; r < 3; ++r) {
      p[r] = q[r];
      sum[r].Add(q[r]);
    }
  }
  // Without points there is no centroid; the frame is then centred on the origin.
  for (int r = 0; r < 3; ++r) f.offset[r] = count > 0 ? sum[r].Sum() / count : 0.0;
  for (std::int32_t i = 0; i < count; ++i) {
    double* p = points->Point(i);
    const double pa = p[a] - f.offset[a];
    const double pb = p[b] - f.offset[b];
    p[0] = pa;
    p[1] = pb;
    p[2] = 0.0;
  }
}

void FromPlaneFrame(double& u, double& v, double& w) {
  const PlaneFrame& f = t_frame;
  int a = 0;
  int b = 0;
  InPlaneIndices(f.k, &a, &b);
  double q[3];
  q[f.k] = f.offset[f.k];
  q[a] = f.offset[a] + u;
  q[b] = f.offset[b] + v;
  double out[3];
  for (int r = 0; r < 3; ++r)
    out[r] = f.inverse[r][0] * q[0] + f.inverse[r][1] * q[1] + f.inverse[r][2] * q[2];
  u = out[0];
  v = out[1];
  w = out[2];
}

}  // namespace metrofit::numeric
