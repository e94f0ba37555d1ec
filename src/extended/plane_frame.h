// Plane frame of the extended circle fit: rotate points so that the plane normal becomes a
// coordinate axis, drop that axis, and map in-plane results back.
//
// With m the normal and k the index of its largest component (the dominant axis), a and b the
// two other indices in increasing order, h = sqrt(m_a^2 + m_k^2) and
//   u_a = m_k / h,  u_k = -m_a / h,  u_b = 0,
// the rotation R has row a = u, row k = m and row b = m x u. For a unit normal, R is orthogonal
// (u is a unit vector in the plane spanned by the a and k axes, orthogonal to m), so R p has the
// height of p along m in component k and in-plane coordinates in components a and b. After the
// rotation the centroid c of the rotated points is removed from the in-plane coordinates; a
// point of the plane frame (u, v) maps back to R^T (c_a + u, c_k, c_b + v) (placed by index),
// which lies in the mean plane of the points.
//
// Degenerate normals: the normalisation divides by sqrt(s) for s = |n|^2 > 1e-8 but by s itself
// below that, and by 1 when that is under 1e-20 (kept on purpose: callers rely on exactly these
// values); when h < 1e-8 (a zero or non-finite normal) the points are left untouched, R stays
// the identity and the offset keeps its previous value.
//
// The frame (k, R, R^T, c) is state of the calling thread: it persists between calls, and a
// normal without a positive x component cannot choose axis 0, so the k of the previous call
// survives for a normal with no usable component at all. FromPlaneFrame reads the frame that
// the last ToPlaneFrame of the same thread left. Fits on different threads never share it.
#ifndef METROFIT_EXTENDED_PLANE_FRAME_H
#define METROFIT_EXTENDED_PLANE_FRAME_H

#include <cstdint>

#include "numeric/nvector.h"

namespace metrofit::numeric {

struct PlaneFrame {
  std::int32_t k = 0;  // dominant axis of the last normal
  double rotation[3][3] = {{1.0, 0.0, 0.0}, {0.0, 1.0, 0.0}, {0.0, 0.0, 1.0}};
  double inverse[3][3] = {{1.0, 0.0, 0.0}, {0.0, 1.0, 0.0}, {0.0, 0.0, 1.0}};
  double offset[3] = {0.0, 0.0, 0.0};  // centroid of the rotated points
};

// The calling thread's frame.
PlaneFrame& ThreadPlaneFrame();

// Index of the largest |component| of n: 0 when |n_x| > 0 (else `previous`), replaced by 1 and
// then 2 only by a strictly larger magnitude.
std::int32_t DominantAxis(const double* n, std::int32_t previous);

// The guarded normalisation described above; writes m.
void GuardedNormalise(const double* n, double* m);

// Rotates the points in place into the frame of the normal params[3..5] (params needs at least
// 6 elements) and stores the frame; see above.
void ToPlaneFrame(PointSet* points, const NVector& params);

// Overwrites (u, v, w) with the model-space point of the in-plane point (u, v); w is ignored.
void FromPlaneFrame(double& u, double& v, double& w);

}  // namespace metrofit::numeric

#endif  // METROFIT_EXTENDED_PLANE_FRAME_H
