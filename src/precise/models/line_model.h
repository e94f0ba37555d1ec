// Line: the two coordinates across the axis are the residual components; the deviation is
// their length.
#ifndef METROFIT_PRECISE_MODELS_LINE_MODEL_H
#define METROFIT_PRECISE_MODELS_LINE_MODEL_H

#include <cmath>

#include "precise/local_frame.h"

namespace metrofit::precise {

struct LineModel {
  static constexpr int kComponents = 2;
  explicit LineModel(const State&) {}
  void Rows(const double q[3], double* r, double (*rows)[kLocalCount]) const {
    static const double kAcross1[3] = {1.0, 0.0, 0.0};
    static const double kAcross2[3] = {0.0, 1.0, 0.0};
    r[0] = q[0];
    r[1] = q[1];
    ChainRow(kAcross1, q, rows[0]);
    ChainRow(kAcross2, q, rows[1]);
    rows[0][kSize0] = rows[0][kSize1] = rows[1][kSize0] = rows[1][kSize1] = 0.0;
  }
  // Distance and local unit vector from the foot to the point (any across direction on it).
  double Deviation(const double q[3], double n[3]) const {
    const double d = std::sqrt(q[0] * q[0] + q[1] * q[1]);
    n[0] = d > 0.0 ? q[0] / d : 1.0;
    n[1] = d > 0.0 ? q[1] / d : 0.0;
    n[2] = 0.0;
    return d;
  }
};

}  // namespace metrofit::precise

#endif  // METROFIT_PRECISE_MODELS_LINE_MODEL_H
